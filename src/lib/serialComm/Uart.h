#pragma once

#include "serialComm/SyncSerialBase.h"

#include <termios.h>

#include <string>

/// A serial port: a tty, or the master side of a pseudo-terminal made for another program.
///
/// The line is raw: 8 data bits, no flow control, no translation of any byte.
///
///     start, D0 ... D7, parity bit unless "none", 1 or 2 stop bits
///
/// The object owns its descriptor and can be neither copied nor moved. Calls block in their system calls, run in the
/// caller's thread and take no lock: one thread may read while another writes, but init() and destruction must not
/// overlap with any other call. The log4cplus logger is "SerialComm"; there are no Enter and Leave lines.
///
/// @code
/// Uart port{"/dev/ttyUSB0", 115200, 1, "none", true};
/// if (!port.init() || !port.write({'i', 'd', '?', '\r'}))
///     return EXIT_FAILURE;                                  // the log says why
/// bool failed = false;
/// const ByteArray answer = port.read(64, &failed);          // what is there, at most 64; empty after 0.5 s of silence
/// @endcode
///
/// @see Linux manual pages: termios(3), pty(7), tty_ioctl(4)
class [[gnu::visibility("default")]] Uart
{
public:
    /// Keeps the parameters; checks nothing, touches no device and logs nothing.
    ///
    /// @param device A tty such as "/dev/ttyUSB0", or "/dev/ptmx" for a new pseudo-terminal.
    /// @param baud Bits per second: 110, 150, 200, 300, 600, 1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200,
    /// 230400, 460800, 500000, 576000, 921600, 1000000, 1152000, 1500000, 2000000, 2500000, 3000000, 3500000 or
    /// 4000000.
    /// @param stopBitCount 1 or 2.
    /// @param parityName "none", "even" or "odd".
    /// @param waits true: read() waits up to 0.5 s for the first byte, write() for room. false: neither waits.
    Uart(const std::string& device, int baud, int stopBitCount, const std::string& parityName, bool waits);
    Uart(const Uart&) = delete;
    Uart& operator=(const Uart&) = delete;

    /// Puts back the line settings that init() found and closes the descriptor, if one is open; logs nothing. It does
    /// not wait for bytes still going out: the settings change under them.
    ~Uart();

    /// Opens the port, applies the line settings and drops what was waiting in either direction. On a pseudo-terminal
    /// master it then unlocks the slave and logs its name. A second call puts the settings back and closes the earlier
    /// descriptor just before it opens the port again. Threads that open masters take turns: ptsname(3) has one buffer
    /// for all, and the name in the log may otherwise be another's.
    ///
    /// @return true when open and set; false otherwise. After "Failed to set new attributes" and "Failed to unlock pts"
    /// the descriptor is open all the same, and transfers use it.
    /// @par System calls
    /// `open(path, O_RDWR | O_NOCTTY)`, with `O_NONBLOCK` unless it `waits`; `tcgetattr`, `cfsetispeed`, `cfsetospeed`,
    /// `tcflush`, `tcsetattr`, `ptsname`, and on a master `grantpt` and `unlockpt`.
    /// @par Log lines
    /// DEBUG "Baud rate: <speed>" (the constant of `<termios.h>`: 4098 is 115200) and "Parity: <flags>" (0, 256 or
    /// 768); INFO "UART slave pts: <name>"; ERROR "Unsupported baud rate: <baudRate>", "Wrong parity set: <parity>",
    /// "Unsupported stop bits: <stopBits>", "Cannot open serial device on path <path>", "Cannot clear terminal
    /// attributes" (and it goes on), "Failed to set new attributes" (not a tty, for one), "Failed to unlock pts
    /// <name>".
    bool init();

    /// Sends bytes out of the caller's storage.
    ///
    /// @param data Bytes to send; none at all is a transfer of length 0.
    /// @return true when the kernel took every byte; false otherwise. What went out before a failure is not taken back.
    /// @par System calls
    /// One `write`: no retry, no copy, no allocation.
    /// @par Log lines
    /// ERROR "Uart write failed: closed", or "Uart write failed: <errno>"; after a short write errno is what it was
    /// before. errno 11 (EAGAIN): it does not wait, and the kernel's queue is full.
    bool write(const ByteArray& data);

    /// Receives what is there. On a tty:
    ///
    /// | waits    | waiting | result                                           | *error |
    /// |----------|---------|--------------------------------------------------|--------|
    /// | true     | bytes   | those, as soon as there is one                   | false  |
    /// | true     | nothing | empty, after 0.5 s                               | false  |
    /// | false    | bytes   | those, at once                                   | false  |
    /// | false    | nothing | empty, at once, with errno 11 (EAGAIN) in the log | true   |
    ///
    /// A tty that is gone reads as empty at once, without an error. A pseudo-terminal master has no 0.5 s: blocking, it
    /// waits until there is a byte, or the other side closes: then, and until it is opened again, errno is 5 (EIO).
    ///
    /// @param size Most bytes to receive.
    /// @param error Where to say whether the call failed; may be null.
    /// @return What was received, `size` bytes at most; empty after a failure.
    /// @par System calls
    /// One `read`: no retry.
    /// @par Log lines
    /// ERROR "Uart read failed: closed", or "Uart read failed: <errno>".
    ByteArray read(size_t size, bool* error = nullptr);

private:
    std::string path;
    int baudRate;
    int stopBits;
    std::string parity;
    bool blocking;
    int fd = -1;
    struct termios savedAttributes;
    struct termios attributes;
};
