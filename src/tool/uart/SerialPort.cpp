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

/// A port is ready for output when fewer than 256 bytes wait in its driver (WAKEUP_CHARS), whose queue has at least
/// twice that: so much goes in whole, and the number of bytes sent is known.
constexpr size_t pieceSize = 256;

/// For the last bytes, which are in the driver's queue or in the chip.
constexpr milliseconds longestDrain{5000};

}  // namespace

SerialPort::SerialPort(const PortSettings& wanted)
    : Port(wanted), line(settings.path),
      uart(settings.path, settings.baudRate, settings.stopBits, settings.parity, false)  // nor waits for a carrier
{
    open(line);
    fd = line.descriptor();
    const ErrorScope errors;
    const bool isOpen = uart.init();
    throwIfSignalled();
    if (!isOpen || errors.first())
        throw Failure{CannotOpen,
                      settings.path + ": " + (errors.first() ? errors.first()->text() : "could not be opened")};
}

SerialPort::~SerialPort()
{
    if (SerialPort::inTransit() > 0)  // closing would wait for them, up to half a minute
        tcflush(fd, TCOFLUSH);
}

size_t SerialPort::put(const uint8_t* bytes, size_t size)
{
    struct pollfd room = {fd, POLLOUT, 0};
    if (poll(&room, 1, 0) <= 0 || (room.revents & POLLOUT) == 0)
        return 0;
    const ByteArray piece(bytes, bytes + std::min(size, pieceSize));
    const ErrorScope errors;
    errno = 0;  // a short write leaves it alone
    if (uart.write(piece))
        return piece.size();
    const int error = errors.first() ? errors.first()->error : 0;
    if (error == EAGAIN)
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
    ByteArray bytes = uart.read(most, &failed);
    const int error = errors.first() ? errors.first()->error : 0;
    if (!bytes.empty() || (failed && error == EAGAIN))  // another program may have taken them
        return bytes;
    throwIfSignalled();
    if (failed && error != EIO)
        throw Failure{TransferFailed, settings.path + ": " + errors.first()->text()};
    throw gone();  // readable, but nothing there
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
