#pragma once

#include <stddef.h>
#include <stdint.h>

#include <chrono>
#include <optional>
#include <string>

/// What a Uart leaves out: any baud rate and frame, flow control, RS-485, modem lines, error counters, waiting,
/// draining.
///
/// A Line carries no bytes. It has a descriptor of its own beside the Uart's: the settings of a serial port belong to
/// the port, so both objects, and other programs, see the same ones. Open the Uart first: Uart::init() sets all of
/// them, and the Uart's destructor puts back the ones it found. A Line puts back nothing: what it set stays as long as
/// the driver keeps it.
///
/// The object owns its descriptor and can be neither copied nor moved. Calls run in the caller's thread and take no
/// lock; init() and destruction must not overlap with any other call. The log4cplus logger is "SerialComm"; there are
/// no Enter and Leave lines.
///
/// A call that fails returns false, or nothing, after one ERROR line. Where a request of the kernel fails, the line is
/// "Line <request> failed on <path>: <reason>, errno: <errno>", for example:
///
///     Line TIOCGICOUNT failed on /dev/pts/3: not supported by this driver, errno: 25
///
/// errno 9 (EBADF): not open. errno 25 (ENOTTY): this driver, or any pseudo-terminal, lacks the request. errno 22
/// (EINVAL): the same, or a value is refused. errno 5 (EIO): the port is gone.
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

    /// The frame and the flow control.
    ///
    ///     start, D0 ... D4 to D7, parity bit unless None, 1 or 2 stop bits
    struct Settings {
        uint32_t baudRate = 9600;      ///< Bits per second, any rate but 0.
        int dataBits = 8;              ///< 5 to 8.
        Parity parity = Parity::None;  ///< Added to the data bits.
        int stopBits = 1;              ///< 1 or 2; with 5 data bits, 2 may mean 1.5.
        bool rtsCts = false;           ///< Hardware flow control in both directions.
        bool xonXoff = false;          ///< Flow control by the bytes 0x11 and 0x13, which then are no data.
        bool ignoreCarrier = true;     ///< false: opening the port waits for DCD, and losing it hangs up.
        bool hangUpOnClose = false;    ///< Drop DTR and RTS at the last close: many boards reset at the next opening.
    };

    /// RS-485: the driver sends on a bus with RTS as the switch of the transceiver.
    struct Rs485 {
        bool enabled = true;             ///< false: RS-232 again; the other fields are then of no account.
        bool rtsOnSend = true;           ///< Level of RTS while sending; otherwise it has the opposite one.
        bool receiveDuringSend = false;  ///< Receive what is being sent.
        uint32_t delayBeforeSendMs = 0;  ///< From RTS to the first start bit, in ms. Kernels allow 100.
        uint32_t delayAfterSendMs = 0;   ///< From the last stop bit to RTS, in ms. Kernels allow 100.
    };

    /// What the driver says about the hardware.
    struct Hardware {
        uint32_t fifoBytes = 0;   ///< Size of the transmit FIFO in bytes.
        uint32_t baudBase = 0;    ///< Highest rate of its clock in bits per second; 0 where the driver does not say.
        bool lowLatency = false;  ///< What was received is passed on at once. On FTDI adapters: latency timer 1 ms.
    };

    /// Lines of the port: true is asserted.
    struct ModemLines {
        bool dtr = false;  ///< Output: data terminal ready.
        bool rts = false;  ///< Output: request to send.
        bool cts = false;  ///< Input: clear to send.
        bool dsr = false;  ///< Input: data set ready.
        bool dcd = false;  ///< Input: data carrier detect.
        bool ri = false;   ///< Input: ring indicator.
    };

    /// Counted by the driver since it was loaded; they wrap round.
    struct Counters {
        uint32_t received = 0;       ///< Bytes.
        uint32_t sent = 0;           ///< Bytes.
        uint32_t framing = 0;        ///< No stop bit where one had to be: mostly another baud rate.
        uint32_t parity = 0;         ///< Parity bit wrong.
        uint32_t overrun = 0;        ///< Bytes lost in the chip: its FIFO was not emptied in time.
        uint32_t bufferOverrun = 0;  ///< Bytes lost in the kernel: the program did not read in time.
        uint32_t breaks = 0;         ///< Breaks received.
    };

    /// Why waitReadable() returned. All false: the time is over, or a signal handler ran.
    struct Ready {
        bool bytes = false;   ///< Uart::read() would return at once; with hungUp, maybe without bytes.
        bool other = false;   ///< The other descriptor can be read, or was closed at its other end.
        bool hungUp = false;  ///< The port is gone; on a pseudo-terminal master: nobody has the slave open.
    };

    /// Keeps the path; touches no device and logs nothing.
    ///
    /// @param device A tty such as "/dev/ttyUSB0", or the slave of a pseudo-terminal.
    explicit Line(const std::string& device);
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    /// Closes the descriptor, if one is open; that ends a lock(). No setting changes; logs nothing. Closing a port for
    /// the last time waits for what has not been sent, up to half a minute.
    ~Line();

    /// @return The path, as it was given.
    const std::string& device() const { return path; }

    /// Opens the port without waiting for a carrier; settings stay as they are. If nobody else has it open, the kernel
    /// asserts DTR and RTS. A second call closes the earlier descriptor first.
    ///
    /// @return true when open; false otherwise, and closed: no such port, no permission, or no serial port.
    /// @par System calls
    /// `open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)`, `ioctl(fd, TCGETS2, ...)`.
    /// @par Log lines
    /// ERROR "Line open failed on <path>: <reason>, errno: <errno>", or that of TCGETS2: errno 25 (ENOTTY): no serial
    /// port.
    bool init();

    /// The same, for a port that is open already, such as the master of a pseudo-terminal: /dev/ptmx would open
    /// another.
    ///
    /// @param descriptor Is duplicated and remains the caller's. The path given to the constructor only names it in the
    /// log. A master's settings are those of its slave.
    /// @return true when it is a serial port; false otherwise. If there is no such descriptor, an earlier one stays
    /// open.
    /// @par System calls
    /// `fcntl(descriptor, F_DUPFD_CLOEXEC, 0)`, `ioctl(fd, TCGETS2, ...)`.
    /// @par Log lines
    /// ERROR "Line dup failed on <path>: <reason>, errno: <errno>", or that of TCGETS2.
    bool init(int descriptor);

    /// The settings in force, whoever made them.
    ///
    /// @return The settings; nothing after a failure. xonXoff is true if either direction has it.
    /// @par System calls
    /// `ioctl(fd, TCGETS2, ...)`.
    std::optional<Settings> settings() const;

    /// Changes the settings and reads them back. Bytes still being sent go out with the new ones: drain() first.
    ///
    /// A rate that is already in force is left alone: if Linux has a constant for it, the port keeps the constant. A
    /// driver may round a rate; up to 2 percent off is accepted, as in the kernel, and settings() returns the exact
    /// rate.
    ///
    /// @return true when all settings are in force, as the driver reports them; one that ignores a flag and reports it
    /// all the same (some do with mark and space parity) is not noticed. false otherwise: the log says what is in
    /// force, which may be part of what was asked for. A baud rate of 0, or a number of data or stop bits out of range,
    /// changes nothing.
    /// @par System calls
    /// `ioctl(fd, TCGETS2, ...)`, `ioctl(fd, TCSETS2, ...)` with `BOTHER` in c_cflag, `ioctl(fd, TCGETS2, ...)`.
    /// @par Log lines
    /// ERROR "Line settings refused on <path>: <asked>" before any system call; ERROR "Line settings differ on <path>:
    /// asked for <asked>, in force <in force>", both as in "250000 8N1 rts/cts".
    bool setSettings(const Settings& asked);

    /// @return The RS-485 settings in force; nothing after a failure.
    /// @par System calls
    /// `ioctl(fd, TIOCGRS485, ...)`.
    /// @see Linux kernel documentation: driver-api/serial/serial-rs485
    std::optional<Rs485> rs485() const;

    /// Changes the RS-485 settings and reads them back. The driver keeps them when the port closes.
    ///
    /// @return true when all of them are in force; false otherwise, and the log line has what is.
    /// @par System calls
    /// `ioctl(fd, TIOCSRS485, ...)`, `ioctl(fd, TIOCGRS485, ...)`.
    /// @par Log lines
    /// ERROR "Line RS-485 differs on <path>: asked for <asked>, in force <in force>", both as in "on, RTS 1 on send,
    /// delays 1 2 ms, receiving during send", or "off".
    /// @see Linux kernel documentation: driver-api/serial/serial-rs485
    bool setRs485(const Rs485& asked);

    /// @return What the driver says; nothing after a failure.
    /// @par System calls
    /// `ioctl(fd, TIOCGSERIAL, ...)`.
    std::optional<Hardware> hardware() const;

    /// Switches low latency on or off and reads it back. Many drivers keep the flag and ignore it; it stays when the
    /// port closes.
    ///
    /// @return true when it is in force; false otherwise.
    /// @par System calls
    /// `ioctl(fd, TIOCGSERIAL, ...)`, `ioctl(fd, TIOCSSERIAL, ...)` with or without `ASYNC_LOW_LATENCY`,
    /// `ioctl(fd, TIOCGSERIAL, ...)`.
    /// @par Log lines
    /// ERROR "Line low latency differs on <path>: in force <0 or 1>".
    bool setLowLatency(bool on);

    /// @return The levels of the lines now; nothing after a failure. Pseudo-terminals have none.
    /// @par System calls
    /// `ioctl(fd, TIOCMGET, ...)`.
    std::optional<ModemLines> modemLines() const;

    /// Sets DTR and reads it back.
    ///
    /// @return true when the line is at that level; false otherwise.
    /// @par System calls
    /// `ioctl(fd, TIOCMBIS or TIOCMBIC, ...)`, `ioctl(fd, TIOCMGET, ...)`.
    /// @par Log lines
    /// ERROR "Line DTR differs on <path>: in force <0 or 1>".
    bool setDtr(bool asserted);

    /// Sets RTS and reads it back. With hardware flow control or RS-485 the driver changes it as it needs to.
    ///
    /// @return true when the line is at that level; false otherwise.
    /// @par System calls
    /// As setDtr().
    /// @par Log lines
    /// ERROR "Line RTS differs on <path>: in force <0 or 1>".
    bool setRts(bool asserted);

    /// Holds the line low, longer than any byte would.
    ///
    ///     ____/ idle \______________________/ idle ...
    ///                 duration
    ///
    /// @param duration In ms. A signal handler cuts it short.
    /// @return true when begun and ended; false otherwise. A driver without break does nothing and returns true.
    /// @par System calls
    /// `ioctl(fd, TIOCSBRK)`, `poll` for the duration, `ioctl(fd, TIOCCBRK)`.
    bool sendBreak(std::chrono::milliseconds duration);

    /// @return The driver's counters; nothing after a failure. Many USB adapters count only some of them.
    /// @par System calls
    /// `ioctl(fd, TIOCGICOUNT, ...)`.
    std::optional<Counters> counters() const;

    /// @return Bytes received and not read yet; nothing after a failure.
    /// @par System calls
    /// `ioctl(fd, FIONREAD, ...)`.
    std::optional<size_t> unread() const;

    /// @return Bytes written that the driver has not taken yet; those in the chip's FIFO may not count. Nothing after a
    /// failure. On a pseudo-terminal always 0.
    /// @par System calls
    /// `ioctl(fd, TIOCOUTQ, ...)`.
    std::optional<size_t> unsent() const;

    /// Waits until all that was written is out, the last stop bit included.
    ///
    /// @param most Time limit in ms. Where the driver cannot say whether its chip is empty (TIOCSERGETLSR), the kernel
    /// waits for the last few bytes with its own limits.
    /// @return true when all is out; false when the time is over, a signal handler ran (errno 4), or the port is gone.
    /// @par System calls
    /// Every 2 ms `ioctl(fd, TIOCOUTQ, ...)` and, when that is 0, `ioctl(fd, TIOCSERGETLSR, ...)`, or
    /// `ioctl(fd, TCSBRK, 1)` in its place; `poll` in between.
    /// @par Log lines
    /// ERROR "Line drain failed on <path>: <count> bytes are left after <most> ms" (0: only in the chip's FIFO); ERROR
    /// "Line drain failed on <path>: <reason>, errno: <errno>".
    bool drain(std::chrono::milliseconds most);

    /// Waits until there are bytes to read, or until another descriptor can be read.
    ///
    /// @param most Time limit in ms, 0 to 2147483647 (24 days); what lies beyond is taken for the nearest of these.
    /// @param other A descriptor: standard input, a socket, the pipe that a signal handler writes to. -1 is none.
    /// @return What is ready, nothing of it when the time was over or a signal handler ran; no value after a failure. A
    /// port that is hung up is so at once, each time.
    /// @par System calls
    /// `poll`.
    /// @par Log lines
    /// ERROR "Line poll failed on <path>: <reason>, errno: <errno>"; ERROR "Line poll failed on <path>: not open".
    std::optional<Ready> waitReadable(std::chrono::milliseconds most, int other = -1) const;

    /// Takes the port for this object, as long as it is open, against other programs that ask in the same way (most
    /// terminal programs do). Programs that do not ask, and the Uart, are not kept out.
    ///
    /// @return true when it is taken; false when somebody else has it.
    /// @par System calls
    /// `flock(fd, LOCK_EX | LOCK_NB)`. Not `TIOCEXCL`: that would keep a Uart that opens the same port out as well.
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
