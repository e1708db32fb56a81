#include "UartPort.h"

#include "Format.h"
#include "Hints.h"
#include "LibraryLog.h"
#include "Signals.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <thread>

namespace
{

using std::chrono::steady_clock;

constexpr size_t burstSize = 4096;
constexpr milliseconds pauseAfterBurst{50};
constexpr milliseconds longestBurst{500};
constexpr milliseconds tick{20};
constexpr milliseconds boundToSetUp{1000};
constexpr milliseconds boundToRead{5000};

NodeKind portKind()
{
    return {"a serial port", "/dev/", 0, "ports here", serialPorts(), "serialcomm list uart"};
}

bool isMultiplexer(const std::string& path)
{
    struct stat status {
    };
    return stat(path.c_str(), &status) == 0 && S_ISCHR(status.st_mode) && status.st_rdev == makedev(5, 2);
}

PortGone goneAt(const std::string& path)
{
    return {{TransferFailed, path + " is gone: unplugged, or closed at the other side"}};
}

bool isHungUp(int fd)
{
    struct pollfd port = {fd, 0, 0};
    return poll(&port, 1, 0) > 0 && (port.revents & (POLLHUP | POLLERR)) != 0;
}

/// A signal ends it early.
void pause(milliseconds time)
{
    poll(nullptr, 0, static_cast<int>(time.count()));
    throwIfSignalled();
}

}  // namespace

std::vector<Node> serialPorts()
{
    std::vector<Node> ports;
    for (const std::string& name : namesBelow("/sys/class/tty", "")) {
        const std::string device = "/sys/class/tty/" + name + "/device";
        // A port that the driver for PC ports keeps in reserve has the type 0. A container may lack the node.
        if (access(device.c_str(), F_OK) != 0 || firstLine("/sys/class/tty/" + name + "/type") == "0" ||
            access(("/dev/" + name).c_str(), F_OK) != 0)
            continue;
        // On USB the product's name stands at the device above the interface.
        const std::string product = firstLine(device + "/../product") + firstLine(device + "/../../product");
        // Newer kernels put two devices of their own, with the driver "port", between the tty and the hardware.
        const bool direct = linkTarget(device + "/driver") != "port";
        const std::string driver = linkTarget(device + (direct ? "/driver" : "/../../driver"));
        std::string what = product.empty() ? driver : product;
        if (!product.empty())
            what.append(" (").append(driver).append(")");
        ports.push_back({"/dev/" + name, what});
    }
    return ports;
}

std::string Line::settings() const
{
    return lineSettings(baudRate, parity, stopBits);
}

Port::Own::~Own()
{
    if (found)
        tcsetattr(fd, TCSANOW, &*found);
    if (fd >= 0)
        close(fd);
}

Port::Port(const Line& settings) : line(settings), uart(line.path, line.baudRate, line.stopBits, line.parity, true)
{
    const bool isPty = isMultiplexer(line.path);
    if (!isPty)
        openTty();
    const bool open = uart.init();
    const auto error = takeLibraryError();
    if (!open || error) {
        throwIfSignalled();
        throw Failure{CannotOpen, line.path + ": " + (error ? error->message : "could not be opened")};
    }
    if (isPty)
        findMaster();
}

Port::~Port()
{
    if (waiting() > 0)  // closing would wait for them, up to half a minute
        tcflush(own.fd, TCOFLUSH);
}

void Port::openTty()
{
    own.fd = open(line.path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (own.fd < 0) {
        const int error = errno;
        throw openFailure(line.path, error, portKind());
    }
    struct termios attributes {
    };
    if (tcgetattr(own.fd, &attributes) != 0)
        throw Failure{CannotOpen, line.path + " is not a serial port"};
    if (flock(own.fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        throw Failure{CannotOpen, line.path + " is in use by " + otherUser(line.path)};
    if ((attributes.c_cflag & CLOCAL) == 0) {  // opening it would wait for a modem's carrier
        own.found = attributes;
        attributes.c_cflag |= CLOCAL;
        tcsetattr(own.fd, TCSANOW, &attributes);
    }
}

void Port::findMaster()
{
    slaveName = announcedSlave();
    for (const std::string& number : namesBelow("/proc/self/fd", "")) {
        const int fd = std::stoi(number);
        std::array<char, 64> name{};
        if (ptsname_r(fd, name.data(), name.size()) == 0 && slaveName == name.data()) {
            own.fd = fcntl(fd, F_DUPFD_CLOEXEC, 0);
            break;
        }
    }
    // Once the slave was open and is closed again, the master is hung up until somebody opens it.
    const int peer = open(slaveName.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (own.fd < 0 || peer < 0)
        throw Failure{CannotOpen, slaveName + ": " + strerror(errno)};
    close(peer);
    // A mark that means nothing here, and goes when the peer sets up its port: both sides have the same settings.
    struct termios attributes {
    };
    tcgetattr(own.fd, &attributes);
    attributes.c_iflag |= IGNBRK;
    tcsetattr(own.fd, TCSANOW, &attributes);
}

bool Port::peerIsSetUp() const
{
    struct termios attributes {
    };
    return tcgetattr(own.fd, &attributes) != 0 || (attributes.c_iflag & IGNBRK) == 0;
}

void Port::waitForPeer()
{
    if (slaveName.empty())
        return;
    struct pollfd master = {own.fd, 0, 0};
    while (poll(&master, 1, 0) > 0 && (master.revents & POLLHUP) != 0)
        pause(tick);
    // Who opens a port sets it up first, and that drops what is waiting there; some do neither.
    const auto start = steady_clock::now();
    while (!peerIsSetUp() && steady_clock::now() - start < boundToSetUp)
        pause(tick);
}

Port::Ready Port::wait(std::optional<milliseconds> most, int other)
{
    const auto start = steady_clock::now();
    bool masterAlone = false;
    for (;;) {
        throwIfSignalled();
        milliseconds left{3600'000};
        if (most)
            left = *most - std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
        if (left.count() < 0)
            return Ready::Silence;

        // A master without a peer is hung up all the time: look at it now and then.
        struct pollfd ports[] = {{masterAlone ? -1 : own.fd, POLLIN, 0}, {other, POLLIN, 0}};
        poll(ports, 2, static_cast<int>(masterAlone ? tick.count() : left.count()));
        const bool bytes = (ports[0].revents & POLLIN) != 0;
        if (ports[1].revents != 0 && (!bytes || bytesLast)) {  // they take turns
            bytesLast = false;
            return Ready::Other;
        }
        if (bytes) {
            bytesLast = true;
            return Ready::Bytes;
        }
        if (ports[0].revents != 0 && slaveName.empty())
            throw goneAt(line.path);
        masterAlone = ports[0].revents != 0;
    }
}

ByteArray Port::receive(size_t most, std::optional<milliseconds> silence)
{
    while (wait(silence) == Ready::Bytes) {
        bool failed = false;
        ByteArray bytes = uart.read(std::min(most, burstSize), &failed);
        const auto error = takeLibraryError();
        if (!bytes.empty())
            return bytes;
        throwIfSignalled();
        if (failed && !slaveName.empty() && error && error->error == EIO)
            continue;  // the other side has just closed; somebody else may open it
        if (failed && error && error->error != EIO)
            throw Failure{TransferFailed, line.path + ": " + error->text()};
        // Readable and yet empty, at once: hung up. Otherwise somebody else took the bytes.
        if (failed || isHungUp(own.fd))
            throw goneAt(line.path);
    }
    return {};
}

ByteArray Port::receiveBurst(size_t most, std::optional<milliseconds> silence)
{
    ByteArray burst = receive(most, silence);
    const size_t end = std::min(most, burstSize);
    const auto start = steady_clock::now();
    try {
        while (!burst.empty() && burst.size() < end && steady_clock::now() - start < longestBurst) {
            const ByteArray more = receive(end - burst.size(), pauseAfterBurst);
            if (more.empty())
                break;
            burst.insert(burst.end(), more.begin(), more.end());
        }
    } catch (const PortGone&) {
        return burst;  // the next call says so again
    } catch (const Interrupted&) {
        return burst;
    }
    return burst;
}

void Port::send(const ByteArray& bytes)
{
    throwIfSignalled();
    errno = 0;  // a short write leaves it alone
    const bool sent = uart.write(bytes);
    const auto error = takeLibraryError();
    if (!sent) {
        throwIfSignalled();
        if (isHungUp(own.fd))
            throw goneAt(line.path);
        if (!error || error->error == 0)
            throw Failure{TransferFailed,
                          line.path + ": not all of " + std::to_string(bytes.size()) + " bytes went out"};
        throw Failure{TransferFailed, line.path + ": " + error->text()};
    }
    drain(bytes.size());
}

void Port::waitUntilRead()
{
    if (slaveName.empty())
        return;
    const auto start = steady_clock::now();
    const int peer = open(slaveName.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    struct pollfd input = {peer, POLLIN, 0};
    // Unlike FIONREAD, poll sees what the kernel is still carrying across.
    while (poll(&input, 1, 0) > 0 && !signalled() && steady_clock::now() - start < boundToRead)
        poll(nullptr, 0, static_cast<int>(tick.count()));
    int unread = 0;
    if (peer >= 0) {
        ioctl(peer, FIONREAD, &unread);
        close(peer);
    }
    throwIfSignalled();
    if (unread > 0)
        throw Failure{TransferFailed,
                      line.path + ": " + std::to_string(unread) + " bytes were not read at the other side"};
}

int Port::waiting() const
{
    int count = 0;
    return own.fd >= 0 && ioctl(own.fd, TIOCOUTQ, &count) == 0 ? count : 0;
}

void Port::drain(size_t sent)
{
    const auto bound = milliseconds{2000 + sent * 12 * 1000 / static_cast<size_t>(line.baudRate)};
    const auto start = steady_clock::now();
    while (waiting() > 0) {
        if (steady_clock::now() - start > bound)
            throw Failure{TransferFailed,
                          line.path + ": " + std::to_string(waiting()) + " bytes did not go out at " + line.settings()};
        pause(milliseconds{2});
    }
    tcdrain(own.fd);  // what is left is in the chip's own.fd buffer, a few bytes
}
