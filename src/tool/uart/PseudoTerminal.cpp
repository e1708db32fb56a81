#include "uart/PseudoTerminal.h"

#include "base/Bytes.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace uart
{
namespace
{

constexpr size_t window = 2048;  // half of the kernel's buffer for a reader
constexpr milliseconds peerCheckInterval{20};

/// Most programs set up a port after opening it, which discards waiting input; some do not.
constexpr milliseconds longestSetUp{1000};

bool endsLine(uint8_t byte, const struct termios& settings)
{
    return byte == '\n' || byte == settings.c_cc[VEOF] || (byte == '\r' && (settings.c_iflag & ICRNL) != 0);
}

bool hasByte(int fd, short event)
{
    struct pollfd terminal = {fd, event, 0};
    return poll(&terminal, 1, 0) > 0 && (terminal.revents & event) != 0;
}

}  // namespace

PseudoTerminal::PseudoTerminal(const PortSettings& wanted) : Port(wanted)
{
    if (settings.noReset || settings.dtr || settings.rts || settings.sendBreak)
        throw Failure{WrongCommandLine, "pty: a pseudo-terminal has no DTR, RTS or break"};
    const int packets = 1;
    std::array<char, 64> name{};
    fd = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0 || grantpt(fd) != 0 || unlockpt(fd) != 0 || ptsname_r(fd, name.data(), name.size()) != 0 ||
        ioctl(fd, TIOCPKT, &packets) != 0)
        throw Failure{CannotOpen, settings.path + ": " + strerror(errno)};
    slaveName = name.data();
    slaveFd = openSlave();
    openEvents = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (openEvents < 0 || inotify_add_watch(openEvents, slaveName.c_str(), IN_OPEN) < 0)
        throw Failure{CannotOpen, slaveName + ": inotify: " + strerror(errno)};
    struct termios attributes {
    };
    tcgetattr(slaveFd, &attributes);
    cfmakeraw(&attributes);
    tcsetattr(slaveFd, TCSANOW, &attributes);
}

PseudoTerminal::~PseudoTerminal()
{
    close(openEvents);
    close(slaveFd);
    close(fd);
}

int PseudoTerminal::openSlave() const
{
    const int slave = ::open(slaveName.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (slave < 0)
        throw Failure{CannotOpen, slaveName + ": " + strerror(errno)};
    return slave;
}

/// Whether another program has the slave open: without the descriptor held here, the master would be hung up.
bool PseudoTerminal::slaveIsOpen()
{
    int exclusive = 0;
    if (ioctl(slaveFd, TIOCGEXCL, &exclusive) == 0 && exclusive != 0)
        return true;  // it could not be opened again
    close(std::exchange(slaveFd, -1));
    const bool open = !isHungUp(fd);
    slaveFd = openSlave();
    return open;
}

/// Whether the slave was opened since the last call, even if only by slaveIsOpen(), which then causes one more check.
bool PseudoTerminal::wasOpened()
{
    alignas(struct inotify_event) std::array<char, 4096> events{};
    return read(openEvents, events.data(), events.size()) > 0;
}

/// Reads the status of the master in packet mode: whether the other program has discarded its input.
bool PseudoTerminal::inputWasDiscarded()
{
    bool discarded = false;
    for (uint8_t status = 0; hasByte(fd, POLLPRI) && read(fd, &status, 1) == 1;)
        discarded = discarded || (status & TIOCPKT_FLUSHREAD) != 0;
    return discarded;
}

void PseudoTerminal::checkPeer()
{
    const auto now = steady_clock::now();
    if (wasOpened() && !peerIsReady)
        peerSince = now;
    if (!peerSince || now - lastPeerCheck < peerCheckInterval)
        return;
    if (!peerIsReady && !peerHasSetUp && now - *peerSince < longestSetUp)
        return;
    lastPeerCheck = now;
    if (slaveIsOpen()) {
        peerIsReady = true;
        return;
    }
    peerSince.reset();
    peerHasSetUp = false;
    if (std::exchange(peerIsReady, false))
        dropUnread(readable() + unfinishedLine(), "closed the port");
}

/// To be called when the other program has closed the port or discarded its input.
void PseudoTerminal::dropUnread(size_t lost, const std::string& event)
{
    countUnsent(lost);
    notRead = 0;
    sinceLineEnd = 0;
    tcflush(slaveFd, TCIFLUSH);
    inputWasDiscarded();  // caused by the tcflush
    if (lost > 0 || isPartlySent())
        throw PortGone{
            {TransferFailed, withReport(slaveName + ": the other side " + event + " before reading everything")}};
}

void PseudoTerminal::checkStatus()
{
    if (!inputWasDiscarded())
        return;
    peerHasSetUp = true;
    if (notRead > 0)
        dropUnread(notRead, "discarded its input");
}

size_t PseudoTerminal::put(const uint8_t* bytes, size_t size)
{
    checkPeer();
    checkStatus();
    if (!peerIsReady || readable() > 0 || unfinishedLine() >= window)
        return 0;
    const ssize_t written = write(fd, bytes, std::min(size, window - unfinishedLine()));
    if (written < 0 && errno != EAGAIN && errno != EINTR)
        throw Failure{TransferFailed, withReport(slaveName + ": " + strerror(errno))};
    const auto count = static_cast<size_t>(std::max<ssize_t>(written, 0));
    const struct termios attributes = slaveSettings();
    for (size_t i = 0; i < count; ++i)
        sinceLineEnd = endsLine(bytes[i], attributes) ? 0 : sinceLineEnd + 1;
    notRead += count;
    return count;
}

ByteArray PseudoTerminal::take(size_t most)
{
    checkStatus();
    ByteArray packet(most + 1);
    const ssize_t count = read(fd, packet.data(), packet.size());
    if (count <= 0)
        return {};
    packet.resize(static_cast<size_t>(count));
    const uint8_t status = packet.front();
    packet.erase(packet.begin());
    peerHasSetUp = peerHasSetUp || !packet.empty() || (status & TIOCPKT_FLUSHREAD) != 0;
    return packet;
}

size_t PseudoTerminal::inTransit()
{
    if (notRead == 0)
        return 0;
    checkPeer();
    const size_t left = readable() + unfinishedLine();
    checkStatus();  // after counting: bytes that were discarded do not count as read
    notRead = left;
    return left;
}

/// Bytes that the other program can read. The poll makes the kernel deliver bytes that are still in transit.
size_t PseudoTerminal::readable() const
{
    int count = 0;
    hasByte(slaveFd, POLLIN);
    return ioctl(slaveFd, FIONREAD, &count) == 0 ? static_cast<size_t>(count) : 0;
}

/// In canonical mode a line that has not ended is not counted, and cannot be read.
size_t PseudoTerminal::unfinishedLine() const
{
    return (slaveSettings().c_lflag & ICANON) != 0 ? sinceLineEnd : 0;
}

struct termios PseudoTerminal::slaveSettings() const
{
    struct termios attributes {
    };
    tcgetattr(slaveFd, &attributes);
    return attributes;
}

}  // namespace uart
