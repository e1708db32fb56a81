#include "uart/SerialPort.h"

#include "base/LibraryLog.h"
#include "base/Signals.h"
#include "uart/OpenLine.h"

#include <poll.h>
#include <termios.h>

#include <algorithm>
#include <cerrno>

namespace uart
{
namespace
{

/// A port is ready for output if fewer than 256 bytes wait in its driver (WAKEUP_CHARS), whose queue holds at least
/// twice as many. A piece of this size is accepted as a whole, so the number of bytes sent is known.
constexpr size_t pieceSize = 256;

/// Opened at this rate, which the Line then replaces by one that the Uart does not know.
constexpr uint32_t rateBeforeOther = 115200;

/// For the last bytes, which are in the driver's queue or in the chip.
constexpr milliseconds longestDrain{5000};

}  // namespace

SerialPort::SerialPort(const PortSettings& wanted) : Port(wanted), line(settings.path)
{
    openLockedLine(line);
    fd = line.descriptor();
    const ErrorScope errors;
    if (settings.noReset && !keepLinesAtClose(line))
        throw lineFailure(CannotOpen, line, "--no-reset", errors);
    found = line.settings().value_or(Line::Settings{});
    const uint32_t rate = isRateOfUart(settings.baudRate) ? settings.baudRate : rateBeforeOther;
    uart.emplace(settings.path, static_cast<int>(rate), settings.stopBits, settings.parity,
                 false);  // non-blocking: does not wait for a carrier
    const bool isOpen = uart->init();
    throwIfSignalled();
    if (!isOpen || errors.first())
        throw Failure{CannotOpen,
                      settings.path + ": " + (errors.first() ? errors.first()->text() : "could not be opened")};
    if (rate != settings.baudRate)
        setBaudRate(settings.baudRate);
    setModemLines(line, settings.dtr, settings.rts, settings.sendBreak);
    countedBefore = countersOf(line);
}

SerialPort::~SerialPort()
{
    if (SerialPort::inTransit() > 0)  // otherwise close waits for them, up to half a minute
        tcflush(fd, TCOFLUSH);
    reportErrors();
    uart.reset();  // restores the settings, except a rate that it does not know
    const ErrorScope errors{ErrorScope::Hidden};
    if (!isRateOfUart(found.baudRate))
        line.setSettings(found);
}

void SerialPort::setBaudRate(uint32_t rate)
{
    const ErrorScope errors;
    std::optional<Line::Settings> current = line.settings();
    if (current)
        current->baudRate = rate;
    if (!current || !line.setSettings(*current))
        throw lineFailure(CannotOpen, line, "baud rate", errors);
    tcflush(fd, TCIFLUSH);  // received at another rate
}

std::optional<Line::Counters> SerialPort::counters() const
{
    return countersOf(line);
}

void SerialPort::reportErrors() const
{
    const std::optional<Line::Counters> now = countersOf(line);
    const std::string text = countedBefore && now ? risenCounters(*countedBefore, *now) : "";
    if (!text.empty())
        printError(settings.path + ": " + text);
}

size_t SerialPort::put(const uint8_t* bytes, size_t size)
{
    struct pollfd room = {fd, POLLOUT, 0};
    if (poll(&room, 1, 0) <= 0 || (room.revents & POLLOUT) == 0)
        return 0;
    const ByteArray piece(bytes, bytes + std::min(size, pieceSize));
    const ErrorScope errors;
    errno = 0;  // a short write leaves it unchanged
    if (uart->write(piece))
        return piece.size();
    const int error = errors.first() ? errors.first()->error : 0;
    if (error == EAGAIN || error == EINTR)  // the caller looks at signals
        return 0;
    if (isHungUp(fd))
        throw gone();
    throw Failure{TransferFailed,
                  withReport(settings.path + ": " + (error == 0 ? "short write" : errors.first()->text()))};
}

ByteArray SerialPort::take(size_t most)
{
    const ErrorScope errors;
    bool failed = false;
    ByteArray bytes = uart->read(most, &failed);
    const int error = errors.first() ? errors.first()->error : 0;
    if (!bytes.empty() || (failed && error == EAGAIN))  // another program may have taken them
        return bytes;
    throwIfSignalled();
    if (failed && error != EIO)
        throw Failure{TransferFailed, settings.path + ": " + errors.first()->text()};
    throw gone();  // poll reported bytes, but there are none
}

size_t SerialPort::inTransit()
{
    return line.unsent().value_or(0);
}

void SerialPort::drain()
{
    const ErrorScope errors;
    const bool drained = line.drain(longestDrain);
    throwIfSignalled();
    if (!drained)
        throw lineFailure(TransferFailed, line, "sending", errors);
}

}  // namespace uart
