#pragma once

#include "serialComm/SyncSerialBase.h"

#include <termios.h>

#include <string>

/// A serial port: a tty, or the master side of a new pseudo-terminal whose slave another program opens.
///
/// The line is raw: 8 data bits, no flow control, no byte is translated.
///
///     start bit, D0 ... D7, parity bit unless "none", 1 or 2 stop bits
///
/// The object owns its descriptor and can be neither copied nor moved. Calls run in the caller's thread, block in their
/// system calls and take no lock: one thread may read while another writes, but init() and the destructor must not
/// overlap with any other call. Lines are logged to the log4cplus logger "SerialComm", without Enter and Leave lines.
///
/// @code
/// Uart port{"/dev/ttyUSB0", 115200, 1, "none", true};
/// if (!port.init() || !port.write({'i', 'd', '?', '\r'}))
///     return EXIT_FAILURE;                                  // the reason is in the log
/// bool failed = false;
/// const ByteArray answer = port.read(64, &failed);          // at most 64 bytes; empty after 0.5 s without data
/// @endcode
///
/// @see Linux manual pages: termios(3), pty(7), tty_ioctl(4)
class [[gnu::visibility("default")]] Uart
{
public:
    /// Stores the parameters; checks nothing, accesses no device and logs nothing.
    ///
    /// @param device A tty such as "/dev/ttyUSB0", or "/dev/ptmx" for a new pseudo-terminal.
    /// @param baud Bits per second: 110, 150, 200, 300, 600, 1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200,
    /// 230400, 460800, 500000, 576000, 921600, 1000000, 1152000, 1500000, 2000000, 2500000, 3000000, 3500000 or
    /// 4000000.
    /// @param stopBitCount 1 or 2.
    /// @param parityName "none", "even" or "odd".
    /// @param waits true: the port is blocking: read() waits up to 0.5 s for the first byte, write() waits for room in
    /// the output queue. false: the port is non-blocking.
    Uart(const std::string& device, int baud, int stopBitCount, const std::string& parityName, bool waits);
    Uart(const Uart&) = delete;
    Uart& operator=(const Uart&) = delete;

    /// If the port is open, restores the line settings that init() found and closes the descriptor; logs nothing. It
    /// does not wait for the output queue: bytes in it are sent with the restored settings.
    ~Uart();

    /// Opens the port, discards both queues and applies the line settings. On a pseudo-terminal master it then unlocks
    /// the slave and logs its name. A second call restores the settings and closes the old descriptor, then opens the
    /// port again. The caller must serialise init() calls on masters, also of different objects: ptsname(3) has one
    /// buffer per process, so the log might otherwise show the name of another slave.
    ///
    /// @return true if the port is open and set up; false otherwise. After "Failed to set new attributes" and "Failed
    /// to unlock pts" the descriptor stays open, and transfers use it.
    /// @par System calls
    /// `open(path, O_RDWR | O_NOCTTY)`, with `O_NONBLOCK` on a non-blocking port; `tcgetattr`, `cfsetispeed`,
    /// `cfsetospeed`, `tcflush`, `tcsetattr`, `ptsname`, and on a master `grantpt` and `unlockpt`.
    /// @par Log lines
    /// DEBUG "Baud rate: <speed>" (the kernel's code for it: 4098 is 115200) and "Parity: <flags>" (0, 256 or 768);
    /// INFO "UART slave pts: <name>"; ERROR "Unsupported baud rate: <baudRate>", "Wrong parity set: <parity>",
    /// "Unsupported stop bits: <stopBits>", "Cannot open serial device on path <path>", "Cannot clear terminal
    /// attributes" (init() continues), "Failed to set new attributes" (such as on a file that is not a tty), "Failed to
    /// unlock pts <name>".
    bool init();

    /// Sends bytes directly from the caller's buffer.
    ///
    /// @param data Bytes to send; if it is empty, a transfer of length 0.
    /// @return true if the kernel accepted every byte; false otherwise. Bytes accepted before a failure are still sent.
    /// @par System calls
    /// One `write`: no retry, no copy, no allocation.
    /// @par Log lines
    /// ERROR "Uart write failed: closed", or "Uart write failed: <errno>"; a short write leaves errno unchanged. errno
    /// 11 (EAGAIN): the port is non-blocking and the output queue is full.
    bool write(const ByteArray& data);

    /// Receives the bytes in the input queue, at most `size`. On a tty:
    ///
    /// | port         | input queue | result                                            | *error |
    /// |--------------|-------------|---------------------------------------------------|--------|
    /// | blocking     | bytes       | the bytes, as soon as there is one                | false  |
    /// | blocking     | empty       | empty, after 0.5 s                                | false  |
    /// | non-blocking | bytes       | the bytes, at once                                | false  |
    /// | non-blocking | empty       | empty, at once, with errno 11 (EAGAIN) in the log | true   |
    ///
    /// A tty that was unplugged returns an empty result at once, without an error. A pseudo-terminal master has no
    /// timeout: a blocking read waits for a byte or until the slave is closed; then, and until the slave is opened
    /// again, it fails with errno 5 (EIO).
    ///
    /// @param size Maximum number of bytes to receive.
    /// @param error Set to whether the call failed; may be null.
    /// @return The bytes received, at most `size`; empty after a failure.
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
