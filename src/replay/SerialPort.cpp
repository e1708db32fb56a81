#include "SerialPort.h"

#include "Program.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

namespace replay
{

namespace
{

constexpr auto patience = std::chrono::seconds{1};

/// A terminal of a file system of its own, for a machine whose /dev has none.
int openUnmounted()
{
    const int context = fsopen("devpts", FSOPEN_CLOEXEC);
    if (context < 0)
        return -1;
    int master = -1;
    if (fsconfig(context, FSCONFIG_SET_STRING, "ptmxmode", "0600", 0) == 0 &&
        fsconfig(context, FSCONFIG_CMD_CREATE, nullptr, nullptr, 0) == 0) {
        const int mount = fsmount(context, FSMOUNT_CLOEXEC, 0);
        master = mount < 0 ? -1 : openat(mount, "ptmx", O_RDWR | O_NOCTTY | O_CLOEXEC);
        const int error = errno;
        if (mount >= 0)
            close(mount);
        errno = error;
    }
    const int error = errno;
    close(context);
    errno = error;
    return master;
}

int openMaster()
{
    const int master = open("/dev/ptmx", O_RDWR | O_NOCTTY | O_CLOEXEC);
    return master >= 0 ? master : openUnmounted();
}

}  // namespace

SerialPort::SerialPort(const LineState& line) : master(openMaster())
{
    int unlocked = 0;
    if (master < 0 || ioctl(master, TIOCSPTLCK, &unlocked) != 0)
        throw Problem(std::string{"a pseudo-terminal for a serial port: "} + strerror(errno), 1);
    peer = openPeer(O_RDWR);
    if (peer < 0 || !makeRaw(peer, line))
        throw Problem(std::string{"the other end of a pseudo-terminal: "} + strerror(errno), 1);
    fcntl(master, F_SETFL, O_NONBLOCK);
}

SerialPort::~SerialPort()
{
    if (master >= 0)
        close(master);
    if (peer >= 0)
        close(peer);
}

int SerialPort::openPeer(int flags) const
{
    return ioctl(master, TIOCGPTPEER, (flags & (O_ACCMODE | O_NONBLOCK)) | O_NOCTTY | O_CLOEXEC);
}

std::vector<uint8_t> SerialPort::receive()
{
    std::vector<uint8_t> bytes;
    uint8_t buffer[4096];
    ssize_t count = 0;
    while (master >= 0 && (count = read(master, buffer, sizeof buffer)) > 0)
        bytes.insert(bytes.end(), buffer, buffer + count);
    received += bytes.size();
    return bytes;
}

std::vector<uint8_t> SerialPort::receiveSent(uint32_t count)
{
    announced += count;
    std::vector<uint8_t> bytes = receive();
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (master >= 0 && received < announced && std::chrono::steady_clock::now() < deadline) {
        struct pollfd readable = {master, POLLIN, 0};
        poll(&readable, 1, 10);
        const std::vector<uint8_t> more = receive();
        bytes.insert(bytes.end(), more.begin(), more.end());
    }
    return bytes;
}

void SerialPort::send(const std::vector<uint8_t>& bytes)
{
    unsent.insert(unsent.end(), bytes.begin(), bytes.end());
    sendMore();
}

void SerialPort::sendMore()
{
    if (master < 0 || unsent.empty())
        return;
    const ssize_t count = write(master, unsent.data(), unsent.size());
    if (count > 0)
        unsent.erase(unsent.begin(), unsent.begin() + count);
}

void SerialPort::waitUntilRead()
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    int waiting = 1;
    while (std::chrono::steady_clock::now() < deadline) {
        sendMore();
        struct pollfd arriving = {peer, POLLIN, 0};
        poll(&arriving, 1, 0);  // so that what is on its way is counted
        if (unsent.empty() && (ioctl(peer, FIONREAD, &waiting) != 0 || waiting == 0))
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds{1});
    }
}

void SerialPort::hangUp()
{
    if (master < 0)
        return;
    waitUntilRead();
    close(master);
    master = -1;
}

}  // namespace replay
