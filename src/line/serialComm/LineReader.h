#pragma once

#include "serialComm/Line.h"
#include "serialComm/Uart.h"

#include <chrono>
#include <functional>
#include <optional>

/// Assembles a line of text, a record of known length or a frame from the pieces that Uart::read() returns.
///
/// Bytes received beyond the end are kept for the next call, and so is the beginning of an incomplete frame after a
/// timeout. Only one LineReader may read from a Uart, and no other code.
///
/// A call returns an empty optional after the timeout, with `*error` false, and after a failure, with `*error` true and
/// an ERROR line: Uart::read() or Line::waitReadable() failed, or the port is gone. Timeouts are in ms; with 0, a call
/// does not wait. Kept bytes are returned first, without a system call.
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
    /// Returns the length of the frame at the start of `received`, including delimiters; 0 if it is not known yet. The
    /// frame may be longer than `received`, which is never empty.
    using FrameLength = std::function<size_t(const ByteArray& received)>;

    /// Keeps references to both. Makes no system call.
    ///
    /// @param uart Open, blocking or not.
    /// @param line Open on the same port.
    LineReader(Uart& uart, const Line& line);

    /// Receives up to a delimiter and removes it.
    ///
    /// @param delimiter The last byte, such as '\n'; not part of the result. The result is empty if nothing precedes
    /// it.
    /// @param most Timeout in ms.
    /// @param error Set to whether the call failed; may be null.
    /// @par System calls
    /// `poll`, and `read` when there are bytes, until the delimiter has arrived.
    /// @par Log lines
    /// As frame().
    std::optional<ByteArray> until(uint8_t delimiter, std::chrono::milliseconds most, bool* error = nullptr);

    /// Receives a number of bytes.
    ///
    /// @param length Number of bytes; 0 returns at once.
    /// @param most Timeout in ms.
    /// @param error Set to whether the call failed; may be null.
    /// @par System calls
    /// `poll`, and `read` when there are bytes, until all have arrived.
    /// @par Log lines
    /// As frame().
    std::optional<ByteArray> exactly(size_t length, std::chrono::milliseconds most, bool* error = nullptr);

    /// Receives a frame. A function of the caller determines its length.
    ///
    /// @code
    /// size_t lengthField(const ByteArray& received)  // the first byte is the number of bytes that follow
    /// {
    ///     return 1U + received[0];
    /// }
    /// size_t slip(const ByteArray& received)  // c0 ends a frame; for COBS, 00
    /// {
    ///     const auto end = std::find(received.begin(), received.end(), 0xc0);
    ///     return end == received.end() ? 0 : static_cast<size_t>(end - received.begin()) + 1;
    /// }
    /// @endcode
    ///
    /// @param length Called whenever bytes have arrived.
    /// @param most Timeout in ms.
    /// @param error Set to whether the call failed; may be null.
    /// @return The frame as received, including delimiters and escapes.
    /// @par System calls
    /// `poll`, and `read` when there are bytes, until the frame is complete.
    /// @par Log lines
    /// ERROR "Line reader on <path>: the port is gone"; ERROR "Line reader on <path>: no end of a frame in <count>
    /// bytes, dropped", when the function does not know the length after 1 MiB; those of Uart::read() and
    /// Line::waitReadable().
    std::optional<ByteArray> frame(const FrameLength& length, std::chrono::milliseconds most, bool* error = nullptr);

    /// Returns the bytes that were received but not returned, and forgets them: before a request, a late answer to the
    /// previous one; after a timeout, an incomplete answer.
    ///
    /// @par System calls
    /// None: bytes that wait in the kernel are not included.
    ByteArray takeRest();

private:
    ByteArray take(size_t size);
    bool receive(std::chrono::steady_clock::time_point deadline);

    Uart& port;
    const Line& companion;
    ByteArray received;
};
