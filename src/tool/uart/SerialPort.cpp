#include "uart/SerialPort.h"

#include "base/LibraryLog.h"
#include "base/Signals.h"
#include "device/Node.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace uart
{
namespace
{

/// A port is ready for output if fewer than 256 bytes wait in its driver (WAKEUP_CHARS), whose queue holds at least
/// twice as many. A piece of this size is accepted as a whole, so the number of bytes sent is known.
constexpr size_t pieceSize = 256;

}  // namespace

SerialPort::Descriptor::Descriptor(const std::string& path)
    : number(::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC))
{
    if (number < 0)
        throw openFailure(path, errno, serialPorts);
}

SerialPort::Descriptor::~Descriptor()
{
    close(number);
}

SerialPort::SerialPort(const Line& settings)
    : Port(settings), descriptor(line.path),
      uart(line.path, line.baudRate, line.stopBits, line.parity, false)  // non-blocking: does not wait for a carrier
{
    fd = descriptor.number;
    if (isatty(fd) == 0)
        throw Failure{CannotOpen, line.path + " is not a serial port"};
    if (flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        throw Failure{CannotOpen, line.path + " is in use by " + otherUser(line.path)};
    const ErrorScope errors;
    const bool open = uart.init();
    throwIfSignalled();
    if (!open || errors.first())
        throw Failure{CannotOpen, line.path + ": " + (errors.first() ? errors.first()->text() : "could not be opened")};
}

SerialPort::~SerialPort()
{
    if (SerialPort::inTransit() > 0)  // otherwise close waits for them, up to half a minute
        tcflush(fd, TCOFLUSH);
}

size_t SerialPort::put(const uint8_t* bytes, size_t size)
{
    struct pollfd room = {fd, POLLOUT, 0};
    if (poll(&room, 1, 0) <= 0 || (room.revents & POLLOUT) == 0)
        return 0;
    const ByteArray piece(bytes, bytes + std::min(size, pieceSize));
    const ErrorScope errors;
    errno = 0;  // a short write leaves it unchanged
    if (uart.write(piece))
        return piece.size();
    const int error = errors.first() ? errors.first()->error : 0;
    if (error == EAGAIN)
        return 0;
    if (isHungUp(fd))
        throw gone();
    throw Failure{TransferFailed, withReport(line.path + ": " + (error == 0 ? "short write" : errors.first()->text()))};
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
        throw Failure{TransferFailed, line.path + ": " + errors.first()->text()};
    throw gone();  // poll reported bytes, but there are none
}

size_t SerialPort::inTransit()
{
    int count = 0;
    return ioctl(fd, TIOCOUTQ, &count) == 0 ? static_cast<size_t>(count) : 0;
}

}  // namespace uart
