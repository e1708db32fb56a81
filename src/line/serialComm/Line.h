#pragma once

#include <stddef.h>
#include <stdint.h>

#include <chrono>
#include <optional>
#include <string>

/// Settings and state of a serial port that Uart does not cover: any baud rate and frame format, flow control, RS-485,
/// modem lines, error counters, waiting and draining.
///
/// A Line transfers no data. It opens the port with a descriptor of its own. The settings belong to the port, so a Uart
/// on the same port and other programs see the same settings. Open the Uart first: Uart::init() sets all settings, and
/// the destructor of Uart restores those it found. A Line restores nothing: its settings stay as long as the driver
/// keeps them.
///
/// The object owns its descriptor and can be neither copied nor moved. Calls run in the caller's thread and take no
/// lock; init() and destruction must not overlap with any other call. The log4cplus logger is "SerialComm"; Enter and
/// Leave are not logged.
///
/// A call that fails logs one ERROR line and returns false or an empty optional. If a request to the kernel fails, the
/// line is "Line <request> failed on <path>: <reason>, errno: <errno>", for example:
///
///     Line TIOCGICOUNT failed on /dev/pts/3: not supported by this driver, errno: 25
///
/// errno 9 (EBADF): not open. errno 25 (ENOTTY): the driver does not support the request; pseudo-terminals support few.
/// errno 22 (EINVAL): the same, or the driver refuses a value. errno 5 (EIO): the port is gone.
///
/// @code
/// Uart port{"/dev/ttyUSB0", 9600, 1, "none", true};
/// Line line{"/dev/ttyUSB0"};
/// if (!port.init() || !line.init())
///     return EXIT_FAILURE;                                    // the log says why
/// std::optional<Line::Settings> settings = line.settings();
/// if (!settings)
///     return EXIT_FAILURE;
/// settings->baudRate = 250000;
/// settings->parity = Line::Parity::Mark;
/// if (!line.setSettings(*settings))
///     return EXIT_FAILURE;                                    // the log says what is in force instead
/// @endcode
///
/// @see Linux manual pages: ioctl_tty(2), tty_ioctl(4), termios(3). Linux kernel documentation: driver-api/serial.
class Line
{
public:
    /// Mark: the parity bit is always 1; Space: always 0.
    enum class Parity { None, Even, Odd, Mark, Space };

    /// Frame format and flow control.
    ///
    ///     start bit, 5 to 8 data bits (D0 first), parity bit unless None, 1 or 2 stop bits
    struct Settings {
        uint32_t baudRate = 9600;      ///< Bits per second; not 0.
        int dataBits = 8;              ///< 5 to 8.
        Parity parity = Parity::None;  ///< Sent after the data bits.
        int stopBits = 1;              ///< 1 or 2; with 5 data bits, 2 may be sent as 1.5.
        bool rtsCts = false;           ///< Hardware flow control in both directions.
        bool xonXoff = false;          ///< Software flow control: 0x11 and 0x13 cannot be data.
        bool ignoreCarrier = true;     ///< false: a blocking open waits for DCD, and its loss hangs up.
        bool hangUpOnClose = false;    ///< Drop DTR and RTS at the last close; many boards reset at the next open.
    };

    /// RS-485: the driver switches the transceiver of the bus with RTS.
    struct Rs485 {
        bool enabled = true;             ///< false: RS-232; the other fields are ignored.
        bool rtsOnSend = true;           ///< Level of RTS while sending; otherwise it is the opposite.
        bool receiveDuringSend = false;  ///< Also receive the bytes that are being sent.
        uint32_t delayBeforeSendMs = 0;  ///< From RTS to the first start bit, in ms; at most 100.
        uint32_t delayAfterSendMs = 0;   ///< From the last stop bit to RTS, in ms; at most 100.
    };

    /// What the driver reports about the hardware.
    struct Hardware {
        uint32_t fifoBytes = 0;   ///< Size of the transmit FIFO in bytes.
        uint32_t baudBase = 0;    ///< Highest rate of its clock in bits per second; 0: not reported.
        bool lowLatency = false;  ///< Received bytes are passed on at once. FTDI adapters: latency timer of 1 ms.
    };

    /// Modem lines; true is asserted.
    struct ModemLines {
        bool dtr = false;  ///< Output: data terminal ready.
        bool rts = false;  ///< Output: request to send.
        bool cts = false;  ///< Input: clear to send.
        bool dsr = false;  ///< Input: data set ready.
        bool dcd = false;  ///< Input: data carrier detect.
        bool ri = false;   ///< Input: ring indicator.
    };

    /// Counted by the driver since it was loaded; they wrap around.
    struct Counters {
        uint32_t received = 0;       ///< Bytes.
        uint32_t sent = 0;           ///< Bytes.
        uint32_t framing = 0;        ///< Missing stop bits: usually a wrong baud rate.
        uint32_t parity = 0;         ///< Wrong parity bits.
        uint32_t overrun = 0;        ///< Bytes lost in the chip: the driver did not empty its FIFO in time.
        uint32_t bufferOverrun = 0;  ///< Bytes lost in the kernel: the program did not read in time.
        uint32_t breaks = 0;         ///< Breaks received.
    };

    /// Why waitReadable() returned. All false: timeout, or a signal handler ran.
    struct Ready {
        bool bytes = false;   ///< Uart::read() would return at once; with hungUp, possibly without bytes.
        bool other = false;   ///< The other descriptor can be read, or was closed at its other end.
        bool hungUp = false;  ///< The port is gone; on the master of a pseudo-terminal: the slave is not open.
    };

    /// Stores the path. Makes no system call and logs nothing.
    ///
    /// @param device A tty such as "/dev/ttyUSB0", or the slave of a pseudo-terminal.
    explicit Line(const std::string& device);
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    /// Closes the descriptor, if one is open, and so releases a lock(). Changes no setting and logs nothing. The last
    /// close of a port waits until the driver has sent its bytes, up to half a minute.
    ~Line();

    /// @return The path given to the constructor.
    const std::string& device() const { return path; }

    /// @return The descriptor, for poll() and event loops; -1 if it is not open. It remains the object's: do not close
    /// it.
    int descriptor() const { return fd; }

    /// Opens the port without waiting for a carrier. Settings do not change. If no other descriptor of the port is
    /// open, the kernel asserts DTR and RTS. A second call closes the earlier descriptor first.
    ///
    /// @return true if the port is open; otherwise false, and the object is closed.
    /// @par System calls
    /// `open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)`, `ioctl(fd, TCGETS2, ...)`.
    /// @par Log lines
    /// ERROR "Line open failed on <path>: <reason>, errno: <errno>"; ERROR "Line TCGETS2 failed on <path>: <reason>,
    /// errno: <errno>": with errno 25 (ENOTTY), the path is not a serial port.
    bool init();

    /// Uses a port that is already open, such as the master of a pseudo-terminal (/dev/ptmx would open another one).
    ///
    /// @param descriptor It is duplicated and remains the caller's. The path given to the constructor is only used in
    /// the log. The settings of a master are those of its slave.
    /// @return true if it is a serial port; otherwise false. If the descriptor is not open, an earlier one stays open.
    /// @par System calls
    /// `fcntl(descriptor, F_DUPFD_CLOEXEC, 0)`, `ioctl(fd, TCGETS2, ...)`.
    /// @par Log lines
    /// ERROR "Line dup failed on <path>: <reason>, errno: <errno>", or that of TCGETS2.
    bool init(int descriptor);

    /// Reads the settings in force. To set them again changes nothing.
    ///
    /// @return The settings; empty after a failure. xonXoff is true if either direction has it.
    /// @par System calls
    /// `ioctl(fd, TCGETS2, ...)`.
    std::optional<Settings> settings() const;

    /// Changes the settings and reads them back. Bytes that are still being sent go out with the new settings: call
    /// drain() first.
    ///
    /// A rate that is already in force is not set again, so the port keeps a Linux constant. A driver may round a rate:
    /// a deviation of up to 2 percent is accepted, as in the kernel, and settings() returns the exact rate.
    ///
    /// @return true if the driver reports all settings as in force. Some drivers ignore mark and space parity but
    /// report them; this is not noticed. Otherwise false, and the log shows the settings in force, which may be some of
    /// those requested. A baud rate of 0, or a number of data or stop bits out of range, changes nothing.
    /// @par System calls
    /// `ioctl(fd, TCGETS2, ...)`, `ioctl(fd, TCSETS2, ...)` with `BOTHER` in c_cflag, `ioctl(fd, TCGETS2, ...)`.
    /// @par Log lines
    /// ERROR "Line settings refused on <path>: <asked>" before any system call; ERROR "Line settings differ on <path>:
    /// asked for <asked>, in force <in force>", both as in "250000 8N1 rts/cts".
    bool setSettings(const Settings& asked);

    /// @return The RS-485 settings in force; empty after a failure.
    /// @par System calls
    /// `ioctl(fd, TIOCGRS485, ...)`.
    /// @see Linux kernel documentation: driver-api/serial/serial-rs485
    std::optional<Rs485> rs485() const;

    /// Changes the RS-485 settings and reads them back. The driver keeps them when the port closes.
    ///
    /// @return true if all of them are in force; otherwise false, and the log shows those in force.
    /// @par System calls
    /// `ioctl(fd, TIOCSRS485, ...)`, `ioctl(fd, TIOCGRS485, ...)`.
    /// @par Log lines
    /// ERROR "Line RS-485 differs on <path>: asked for <asked>, in force <in force>", both as in "on, RTS 1 on send,
    /// delays 1 2 ms, receiving during send", or "off".
    /// @see Linux kernel documentation: driver-api/serial/serial-rs485
    bool setRs485(const Rs485& asked);

    /// @return What the driver reports; empty after a failure.
    /// @par System calls
    /// `ioctl(fd, TIOCGSERIAL, ...)`.
    std::optional<Hardware> hardware() const;

    /// Switches low latency on or off and reads it back. Many drivers keep the flag but ignore it. It stays when the
    /// port closes.
    ///
    /// @return true if it is in force; otherwise false.
    /// @par System calls
    /// `ioctl(fd, TIOCGSERIAL, ...)`, `ioctl(fd, TIOCSSERIAL, ...)` with or without `ASYNC_LOW_LATENCY`,
    /// `ioctl(fd, TIOCGSERIAL, ...)`.
    /// @par Log lines
    /// ERROR "Line low latency differs on <path>: in force <0 or 1>".
    bool setLowLatency(bool on);

    /// @return The current levels; empty after a failure. Pseudo-terminals have no modem lines.
    /// @par System calls
    /// `ioctl(fd, TIOCMGET, ...)`.
    std::optional<ModemLines> modemLines() const;

    /// Sets DTR and reads it back.
    ///
    /// @return true if the line has that level; otherwise false.
    /// @par System calls
    /// `ioctl(fd, TIOCMBIS or TIOCMBIC, ...)`, `ioctl(fd, TIOCMGET, ...)`.
    /// @par Log lines
    /// ERROR "Line DTR differs on <path>: in force <0 or 1>".
    bool setDtr(bool asserted);

    /// Sets RTS and reads it back. With hardware flow control or RS-485, the driver changes it as needed.
    ///
    /// @return true if the line has that level; otherwise false.
    /// @par System calls
    /// As setDtr().
    /// @par Log lines
    /// ERROR "Line RTS differs on <path>: in force <0 or 1>".
    bool setRts(bool asserted);

    /// Sends a break: holds TX low for longer than a frame.
    ///
    ///     ____/ idle \______________________/ idle ...
    ///                 duration
    ///
    /// @param duration In ms. A signal handler ends it early.
    /// @return true if the break was started and ended; otherwise false. A driver without break does nothing and
    /// reports success.
    /// @par System calls
    /// `ioctl(fd, TIOCSBRK)`, `poll` for the duration, `ioctl(fd, TIOCCBRK)`.
    bool sendBreak(std::chrono::milliseconds duration);

    /// @return The driver's counters; empty after a failure. Many USB adapters count only some of them.
    /// @par System calls
    /// `ioctl(fd, TIOCGICOUNT, ...)`.
    std::optional<Counters> counters() const;

    /// @return Number of received bytes that have not been read; empty after a failure.
    /// @par System calls
    /// `ioctl(fd, FIONREAD, ...)`.
    std::optional<size_t> unread() const;

    /// @return Number of bytes in the driver's queue; those in the chip's FIFO may not be counted. Empty after a
    /// failure. Always 0 on a pseudo-terminal.
    /// @par System calls
    /// `ioctl(fd, TIOCOUTQ, ...)`.
    std::optional<size_t> unsent() const;

    /// Waits until all written bytes are sent, including the last stop bit.
    ///
    /// @param most Timeout in ms. If the driver cannot report that its chip is empty (TIOCSERGETLSR), the kernel waits
    /// for the last bytes with a limit of its own.
    /// @return true if all bytes are sent; false after the timeout, if a signal handler ran (errno 4), or if the port
    /// is gone.
    /// @par System calls
    /// Every 2 ms `ioctl(fd, TIOCOUTQ, ...)`; when that is 0, `ioctl(fd, TIOCSERGETLSR, ...)` or, if not supported,
    /// `ioctl(fd, TCSBRK, 1)`; `poll` in between.
    /// @par Log lines
    /// ERROR "Line drain failed on <path>: <count> bytes are left after <most> ms" (0: only the chip's FIFO is not
    /// empty); ERROR "Line drain failed on <path>: <reason>, errno: <errno>".
    bool drain(std::chrono::milliseconds most);

    /// Waits until there are bytes to read, or until another descriptor is readable.
    ///
    /// @param most Timeout in ms, 0 to 2147483647 (24 days); values outside are clamped.
    /// @param other A second descriptor, such as standard input, a socket, or a pipe that a signal handler writes to;
    /// -1 for none.
    /// @return What is ready; all false after the timeout or if a signal handler ran; empty after a failure. On a port
    /// that is hung up, it returns at once.
    /// @par System calls
    /// `poll`.
    /// @par Log lines
    /// ERROR "Line poll failed on <path>: <reason>, errno: <errno>"; ERROR "Line poll failed on <path>: not open".
    std::optional<Ready> waitReadable(std::chrono::milliseconds most, int other = -1) const;

    /// Locks the port until it is closed. The lock is advisory: it stops programs that lock the port as well, as most
    /// terminal programs do, but neither other programs nor a Uart.
    ///
    /// @return true if the port is locked; false if another program holds the lock.
    /// @par System calls
    /// `flock(fd, LOCK_EX | LOCK_NB)`. Not `TIOCEXCL`, which would also stop a Uart from opening the port.
    /// @par Log lines
    /// ERROR "Line lock failed on <path>: another program has locked it, errno: 11".
    bool lock();

private:
    bool isSerialPort();
    bool succeeded(int result, const char* call) const;
    bool setModemLine(int bit, const char* name, bool asserted);

    std::string path;
    int fd = -1;
};
