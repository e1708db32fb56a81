#pragma once

#include "serialComm/Line.h"
#include "serialComm/Uart.h"

#include <chrono>
#include <functional>
#include <optional>

/// Puts together what Uart::read() returns in pieces: a line of text, a record of known length, a frame.
///
/// What was received beyond the end is kept for the next call, and so is the beginning of what did not come in time.
/// One reader at a time may use a Uart, and nobody else may read from it.
///
/// Each call returns what was asked for; nothing, with `*error` false, when the time is over; nothing, with `*error`
/// true and an ERROR line, after a failure: of Uart::read(), of Line::waitReadable(), or because the port is gone. The
/// times are in ms; with 0, a call takes what is there and does not wait. Kept bytes come first, without a system call.
///
/// @code
/// Uart port{"/dev/ttyUSB0", 115200, 1, "none", true};
/// Line line{"/dev/ttyUSB0"};
/// if (!port.init() || !line.init())
///     return EXIT_FAILURE;
/// LineReader reader{port, line};
/// const std::optional<ByteArray> answer = reader.until('\n', std::chrono::milliseconds{200});
/// @endcode
class LineReader
{
public:
    /// How many bytes the frame at the beginning of `received` has, its own delimiters included; 0 if that cannot be
    /// told yet. It may be longer than `received`, which is never empty.
    using FrameLength = std::function<size_t(const ByteArray& received)>;

    /// Keeps references to both; touches no device.
    ///
    /// @param uart Opened by init(), to wait or not.
    /// @param line Opened on the same port; only waits.
    LineReader(Uart& uart, const Line& line);

    /// Receives up to a delimiter, which is taken off.
    ///
    /// @param delimiter The last byte, '\n' for one; no part of the result. An empty result is a delimiter on its own.
    /// @param most Time limit in ms.
    /// @param error Where to say whether the call failed; may be null.
    /// @par System calls
    /// `poll`, and `read` when there are bytes, until the delimiter came.
    /// @par Log lines
    /// As frame().
    std::optional<ByteArray> until(uint8_t delimiter, std::chrono::milliseconds most, bool* error = nullptr);

    /// Receives that many bytes.
    ///
    /// @param length Number of bytes; 0 returns at once.
    /// @param most Time limit in ms.
    /// @param error Where to say whether the call failed; may be null.
    /// @par System calls
    /// `poll`, and `read` when there are bytes, until there are enough.
    /// @par Log lines
    /// As frame().
    std::optional<ByteArray> exactly(size_t length, std::chrono::milliseconds most, bool* error = nullptr);

    /// Receives a frame, whose end a function of the caller's finds.
    ///
    /// @code
    /// size_t lengthField(const ByteArray& received)  // the first byte says how many follow
    /// {
    ///     return 1U + received[0];
    /// }
    /// size_t slip(const ByteArray& received)  // c0 ends a frame; with COBS it would be 00
    /// {
    ///     const auto end = std::find(received.begin(), received.end(), 0xc0);
    ///     return end == received.end() ? 0 : static_cast<size_t>(end - received.begin()) + 1;
    /// }
    /// @endcode
    ///
    /// @param length Is asked again each time that bytes came.
    /// @param most Time limit in ms.
    /// @param error Where to say whether the call failed; may be null.
    /// @return The frame as it came, delimiters and escapes included.
    /// @par System calls
    /// `poll`, and `read` when there are bytes, until the frame is complete.
    /// @par Log lines
    /// ERROR "Line reader on <path>: the port is gone"; ERROR "Line reader on <path>: no end of a frame in <count>
    /// bytes, dropped", after a MiB of which the function cannot tell the length; those of Uart::read() and
    /// Line::waitReadable().
    std::optional<ByteArray> frame(const FrameLength& length, std::chrono::milliseconds most, bool* error = nullptr);

    /// Hands over what was received and not returned, so that the next call begins anew: before a question, the answer
    /// to an earlier one that came too late; after a time-out, what there is of the answer.
    ///
    /// @par System calls
    /// None: what waits in the kernel is not included.
    ByteArray takeRest();

private:
    ByteArray take(size_t size);
    bool receive(std::chrono::steady_clock::time_point deadline);

    Uart& port;
    const Line& companion;
    ByteArray received;
};
