#include "serialComm/Line.h"

#include "serialComm/Log.h"

#include <asm/termbits.h>  // termios2; <termios.h> defines the same names otherwise
#include <fcntl.h>
#include <linux/serial.h>
#include <linux/tty_flags.h>
#include <poll.h>
#include <string.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

/// The flag in c_cflag for 5, 6, 7 and 8 data bits.
static constexpr std::array<tcflag_t, 4> dataBitsFlags = {CS5, CS6, CS7, CS8};

/// The flags in c_cflag for each Line::Parity, in that order.
static constexpr std::array<tcflag_t, 5> parityFlags = {0, PARENB, PARENB | PARODD, PARENB | PARODD | CMSPAR,
                                                        PARENB | CMSPAR};
static constexpr tcflag_t parityMask = PARENB | PARODD | CMSPAR;

static constexpr cc_t xon = 0x11;
static constexpr cc_t xoff = 0x13;

static constexpr milliseconds drainInterval{2};

static std::string reason(int errorNumber)
{
    switch (errorNumber) {
    case ENOTTY:
        return "not supported by this driver";
    case EINVAL:
        return "not supported by this driver, or the value is refused";
    case EIO:
        return "the port is gone";
    case EBADF:
        return "not open";
    case EWOULDBLOCK:
        return "another program has locked it";
    default:
        return strerror(errorNumber);
    }
}

static void setFlag(tcflag_t& flags, tcflag_t mask, bool on)
{
    flags = on ? flags | mask : flags & ~mask;
}

static Line::Settings decode(const termios2& attributes)
{
    const tcflag_t parity = (attributes.c_cflag & PARENB) != 0 ? attributes.c_cflag & parityMask : 0;
    const auto* const found = std::find(parityFlags.begin(), parityFlags.end(), parity);
    Line::Settings settings;
    settings.baudRate = attributes.c_ospeed;
    settings.dataBits = 5 + static_cast<int>((attributes.c_cflag & CSIZE) / CS6);
    settings.parity = static_cast<Line::Parity>(found - parityFlags.begin());
    settings.stopBits = (attributes.c_cflag & CSTOPB) != 0 ? 2 : 1;
    settings.rtsCts = (attributes.c_cflag & CRTSCTS) != 0;
    settings.xonXoff = (attributes.c_iflag & (IXON | IXOFF)) != 0;
    settings.ignoreCarrier = (attributes.c_cflag & CLOCAL) != 0;
    settings.hangUpOnClose = (attributes.c_cflag & HUPCL) != 0;
    return settings;
}

/// Applies the settings to the attributes in force.
static void encode(const Line::Settings& settings, termios2& attributes)
{
    if (settings.baudRate != attributes.c_ospeed) {
        setFlag(attributes.c_cflag, CBAUD | CIBAUD, false);
        setFlag(attributes.c_cflag, BOTHER, true);
        attributes.c_ispeed = settings.baudRate;
        attributes.c_ospeed = settings.baudRate;
    }
    attributes.c_cflag &= ~(CSIZE | parityMask);
    attributes.c_cflag |= dataBitsFlags.at(static_cast<size_t>(settings.dataBits - 5));
    attributes.c_cflag |= parityFlags.at(static_cast<size_t>(settings.parity));
    setFlag(attributes.c_cflag, CSTOPB, settings.stopBits == 2);
    setFlag(attributes.c_cflag, CRTSCTS, settings.rtsCts);
    setFlag(attributes.c_cflag, CLOCAL, settings.ignoreCarrier);
    setFlag(attributes.c_cflag, HUPCL, settings.hangUpOnClose);
    const bool hasXonXoff = (attributes.c_iflag & (IXON | IXOFF)) != 0;
    if (settings.xonXoff != hasXonXoff) {
        setFlag(attributes.c_iflag, IXON | IXOFF, settings.xonXoff);
        attributes.c_cc[VSTART] = xon;  // a Uart sets them to 0, which disables the character
        attributes.c_cc[VSTOP] = xoff;
    }
}

static std::string describe(const Line::Settings& settings)
{
    const char parityLetter = "NEOMS"[static_cast<size_t>(settings.parity)];
    return std::to_string(settings.baudRate) + " " + std::to_string(settings.dataBits) + parityLetter +
           std::to_string(settings.stopBits) + (settings.rtsCts ? " rts/cts" : "") +
           (settings.xonXoff ? " xon/xoff" : "") + (settings.ignoreCarrier ? "" : " carrier") +
           (settings.hangUpOnClose ? " hang-up" : "");
}

/// Whether the driver applied the settings. A rate may be rounded by 2 percent, as in the kernel.
static bool isApplied(const Line::Settings& asked, Line::Settings current)
{
    if (std::abs(int64_t{asked.baudRate} - int64_t{current.baudRate}) <= asked.baudRate / 50) {
        current.baudRate = asked.baudRate;
    }
    return describe(asked) == describe(current);
}

static std::string describe(const Line::Rs485& settings)
{
    if (!settings.enabled) {
        return "off";
    }
    return std::string{"on, RTS "} + (settings.rtsOnSend ? "1" : "0") + " on send, delays " +
           std::to_string(settings.delayBeforeSendMs) + " " + std::to_string(settings.delayAfterSendMs) + " ms" +
           (settings.receiveDuringSend ? ", receiving during send" : "");
}

Line::Line(const std::string& device) : path(device) {}

Line::~Line()
{
    if (fd >= 0) {
        ::close(fd);
    }
}

bool Line::init()
{
    if (fd >= 0) {
        ::close(fd);
    }
    fd = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    return succeeded(fd, "open") && isSerialPort();
}

bool Line::init(int descriptor)
{
    const int duplicate = ::fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    if (!succeeded(duplicate, "dup")) {
        return false;
    }
    if (fd >= 0) {
        ::close(fd);
    }
    fd = duplicate;
    return isSerialPort();
}

/// Closes the descriptor if it is not a serial port.
bool Line::isSerialPort()
{
    if (settings()) {
        return true;
    }
    ::close(fd);
    fd = -1;
    return false;
}

/// Logs a failed system call. Must follow the call immediately, because it reads errno.
bool Line::succeeded(int result, const char* call) const
{
    if (result < 0) {
        const int error = errno;
        LOG(ERROR, "Line " << call << " failed on " << path << ": " << reason(error) << ", errno: " << error);
        return false;
    }
    return true;
}

std::optional<Line::Settings> Line::settings() const
{
    termios2 attributes{};
    if (!succeeded(::ioctl(fd, TCGETS2, &attributes), "TCGETS2")) {
        return std::nullopt;
    }
    return decode(attributes);
}

bool Line::setSettings(const Settings& asked)
{
    if (asked.baudRate == 0 || asked.dataBits < 5 || asked.dataBits > 8 || asked.stopBits < 1 || asked.stopBits > 2) {
        LOG(ERROR, "Line settings refused on " << path << ": " << describe(asked));
        return false;
    }

    termios2 attributes{};
    if (!succeeded(::ioctl(fd, TCGETS2, &attributes), "TCGETS2")) {
        return false;
    }
    encode(asked, attributes);
    if (!succeeded(::ioctl(fd, TCSETS2, &attributes), "TCSETS2") ||
        !succeeded(::ioctl(fd, TCGETS2, &attributes), "TCGETS2")) {
        return false;
    }

    const Settings current = decode(attributes);
    if (!isApplied(asked, current)) {
        LOG(ERROR, "Line settings differ on " << path << ": asked for " << describe(asked) << ", in force "
                                              << describe(current));
        return false;
    }
    return true;
}

std::optional<Line::Rs485> Line::rs485() const
{
    serial_rs485 record{};
    if (!succeeded(::ioctl(fd, TIOCGRS485, &record), "TIOCGRS485")) {
        return std::nullopt;
    }
    Rs485 settings;
    settings.enabled = (record.flags & SER_RS485_ENABLED) != 0;
    settings.rtsOnSend = (record.flags & SER_RS485_RTS_ON_SEND) != 0;
    settings.receiveDuringSend = (record.flags & SER_RS485_RX_DURING_TX) != 0;
    settings.delayBeforeSendMs = record.delay_rts_before_send;
    settings.delayAfterSendMs = record.delay_rts_after_send;
    return settings;
}

bool Line::setRs485(const Rs485& asked)
{
    serial_rs485 record{};
    if (asked.enabled) {
        record.flags = SER_RS485_ENABLED;
        record.flags |= asked.rtsOnSend ? SER_RS485_RTS_ON_SEND : SER_RS485_RTS_AFTER_SEND;
        record.flags |= asked.receiveDuringSend ? SER_RS485_RX_DURING_TX : 0;
        record.delay_rts_before_send = asked.delayBeforeSendMs;
        record.delay_rts_after_send = asked.delayAfterSendMs;
    }
    if (!succeeded(::ioctl(fd, TIOCSRS485, &record), "TIOCSRS485")) {
        return false;
    }

    const std::optional<Rs485> current = rs485();
    if (current && describe(*current) != describe(asked)) {
        LOG(ERROR, "Line RS-485 differs on " << path << ": asked for " << describe(asked) << ", in force "
                                             << describe(*current));
        return false;
    }
    return current.has_value();
}

std::optional<Line::Hardware> Line::hardware() const
{
    serial_struct record{};
    if (!succeeded(::ioctl(fd, TIOCGSERIAL, &record), "TIOCGSERIAL")) {
        return std::nullopt;
    }
    Hardware hardware;
    hardware.fifoBytes = static_cast<uint32_t>(record.xmit_fifo_size);
    hardware.baudBase = static_cast<uint32_t>(record.baud_base);
    hardware.lowLatency = (static_cast<unsigned>(record.flags) & ASYNC_LOW_LATENCY) != 0;
    return hardware;
}

bool Line::setLowLatency(bool on)
{
    serial_struct record{};
    if (!succeeded(::ioctl(fd, TIOCGSERIAL, &record), "TIOCGSERIAL")) {
        return false;
    }
    const auto flags = static_cast<unsigned>(record.flags);
    record.flags = static_cast<int>(on ? flags | ASYNC_LOW_LATENCY : flags & ~ASYNC_LOW_LATENCY);
    if (!succeeded(::ioctl(fd, TIOCSSERIAL, &record), "TIOCSSERIAL")) {
        return false;
    }

    const std::optional<Hardware> current = hardware();
    if (current && current->lowLatency != on) {
        LOG(ERROR, "Line low latency differs on " << path << ": in force " << current->lowLatency);
        return false;
    }
    return current.has_value();
}

std::optional<Line::ModemLines> Line::modemLines() const
{
    int levels = 0;
    if (!succeeded(::ioctl(fd, TIOCMGET, &levels), "TIOCMGET")) {
        return std::nullopt;
    }
    const auto isAsserted = [levels](int line) { return (levels & line) != 0; };
    ModemLines lines;
    lines.dtr = isAsserted(TIOCM_DTR);
    lines.rts = isAsserted(TIOCM_RTS);
    lines.cts = isAsserted(TIOCM_CTS);
    lines.dsr = isAsserted(TIOCM_DSR);
    lines.dcd = isAsserted(TIOCM_CD);
    lines.ri = isAsserted(TIOCM_RI);
    return lines;
}

bool Line::setModemLine(int bit, const char* name, bool asserted)
{
    int levels = bit;
    const bool set = asserted ? succeeded(::ioctl(fd, TIOCMBIS, &levels), "TIOCMBIS")
                              : succeeded(::ioctl(fd, TIOCMBIC, &levels), "TIOCMBIC");
    if (!set || !succeeded(::ioctl(fd, TIOCMGET, &levels), "TIOCMGET")) {
        return false;
    }
    if (((levels & bit) != 0) != asserted) {
        LOG(ERROR, "Line " << name << " differs on " << path << ": in force " << !asserted);
        return false;
    }
    return true;
}

bool Line::setDtr(bool asserted)
{
    return setModemLine(TIOCM_DTR, "DTR", asserted);
}

bool Line::setRts(bool asserted)
{
    return setModemLine(TIOCM_RTS, "RTS", asserted);
}

/// A timeout for poll(), which waits without limit if it is negative.
static int pollTime(milliseconds time)
{
    return static_cast<int>(std::clamp<milliseconds::rep>(time.count(), 0, INT_MAX));
}

bool Line::sendBreak(milliseconds duration)
{
    if (!succeeded(::ioctl(fd, TIOCSBRK), "TIOCSBRK")) {
        return false;
    }
    ::poll(nullptr, 0, pollTime(duration));
    return succeeded(::ioctl(fd, TIOCCBRK), "TIOCCBRK");
}

std::optional<Line::Counters> Line::counters() const
{
    serial_icounter_struct record{};
    if (!succeeded(::ioctl(fd, TIOCGICOUNT, &record), "TIOCGICOUNT")) {
        return std::nullopt;
    }
    Counters counters;
    counters.received = static_cast<uint32_t>(record.rx);
    counters.sent = static_cast<uint32_t>(record.tx);
    counters.framing = static_cast<uint32_t>(record.frame);
    counters.parity = static_cast<uint32_t>(record.parity);
    counters.overrun = static_cast<uint32_t>(record.overrun);
    counters.bufferOverrun = static_cast<uint32_t>(record.buf_overrun);
    counters.breaks = static_cast<uint32_t>(record.brk);
    return counters;
}

std::optional<size_t> Line::unread() const
{
    int count = 0;
    if (!succeeded(::ioctl(fd, FIONREAD, &count), "FIONREAD")) {
        return std::nullopt;
    }
    return static_cast<size_t>(count);
}

std::optional<size_t> Line::unsent() const
{
    int count = 0;
    if (!succeeded(::ioctl(fd, TIOCOUTQ, &count), "TIOCOUTQ")) {
        return std::nullopt;
    }
    return static_cast<size_t>(count);
}

bool Line::drain(milliseconds most)
{
    const auto deadline = Clock::now() + std::min(most, milliseconds{INT_MAX});
    for (;;) {
        const std::optional<size_t> left = unsent();
        if (!left) {
            return false;
        }
        if (*left == 0) {
            unsigned status = 0;
            if (::ioctl(fd, TIOCSERGETLSR, &status) < 0) {
                return succeeded(::ioctl(fd, TCSBRK, 1), "TCSBRK");  // 1: no break, only wait
            }
            if ((status & TIOCSER_TEMT) != 0) {
                return true;
            }
        }
        if (Clock::now() >= deadline) {
            LOG(ERROR,
                "Line drain failed on " << path << ": " << *left << " bytes are left after " << most.count() << " ms");
            return false;
        }
        if (!succeeded(::poll(nullptr, 0, pollTime(drainInterval)), "drain")) {
            return false;
        }
    }
}

std::optional<Line::Ready> Line::waitReadable(milliseconds most, int other) const
{
    if (fd < 0) {  // poll() would ignore it and wait
        LOG(ERROR, "Line poll failed on " << path << ": not open");
        return std::nullopt;
    }
    pollfd descriptors[] = {{fd, POLLIN, 0}, {other, POLLIN, 0}};
    const int result = ::poll(descriptors, 2, pollTime(most));
    if (result < 0 && errno == EINTR) {
        return Ready{};
    }
    if (!succeeded(result, "poll")) {
        return std::nullopt;
    }
    Ready ready;
    ready.bytes = (descriptors[0].revents & POLLIN) != 0;
    ready.other = descriptors[1].revents != 0;
    ready.hungUp = (descriptors[0].revents & ~POLLIN) != 0;
    return ready;
}

bool Line::lock()
{
    return succeeded(::flock(fd, LOCK_EX | LOCK_NB), "lock");
}
