// The same UART operations by Boost.Asio and libserialport.
#include "PseudoTerminal.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/serial_port.hpp>
#include <libserialport.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>

// libserialport accepts only ports that /sys/class/tty lists and that have modem lines. The functions below pretend
// both for a pseudo-terminal; only the set-up calls them, not the transfers.

static bool namesPseudoTerminal(const char* path)
{
    return strncmp(path, "/sys/class/tty/pts/", strlen("/sys/class/tty/pts/")) == 0;
}

/// The lstat() of libraries built against an older glibc.
extern "C" int __lxstat(int, const char* path, struct stat* status)
{
    if (!namesPseudoTerminal(path)) {
        return lstat(path, status);
    }
    *status = {};
    status->st_mode = S_IFLNK;
    return 0;
}

ssize_t readlink(const char* path, char* target, size_t size) noexcept
{
    if (!namesPseudoTerminal(path)) {
        return syscall(SYS_readlinkat, AT_FDCWD, path, target, size);
    }
    const char device[] = "../../devices/pts";
    const size_t length = std::min(size, sizeof device - 1);
    memcpy(target, device, length);
    return static_cast<ssize_t>(length);
}

int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    switch (request) {
    case TIOCMGET:
    case TIOCMSET:
    case TIOCMBIS:
    case TIOCMBIC:
        return 0;
    default:
        return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
    }
}

static sp_port* openPort(const char* path)
{
    sp_port* port = nullptr;
    if (sp_get_port_by_name(path, &port) != SP_OK || sp_open(port, SP_MODE_READ_WRITE) != SP_OK ||
        sp_set_baudrate(port, 115200) != SP_OK) {
        char* reason = sp_last_error_message();
        fprintf(stderr, "libserialport refuses %s: %s\n", path, reason);
        exit(EXIT_FAILURE);
    }
    return port;
}

void addPeers(Operations& operations)
{
    using boost::asio::buffer;
    static PseudoTerminal asioLine;
    static PseudoTerminal libserialportLine;
    static boost::asio::io_context context;
    static boost::asio::serial_port asio{context, asioLine.path()};
    static sp_port* const port = openPort(libserialportLine.path());
    static const unsigned timeoutMilliseconds = 500;

    for (const size_t size : {1, 16, 256, 4095}) {
        const ByteArray data(size, 'U');

        asioLine.receiveFrom(
            add(operations, "UART write", size, "Boost.Asio", [=] { return asio.write_some(buffer(data)) == size; }));
        asioLine.sendTo(add(operations, "UART read", size, "Boost.Asio",
                            [=, bytes = ByteArray(size)]() mutable { return asio.read_some(buffer(bytes)) == size; }));

        libserialportLine.receiveFrom(add(operations, "UART write", size, "libserialport", [=] {
            return sp_blocking_write(port, data.data(), size, timeoutMilliseconds) == static_cast<int>(size);
        }));
        libserialportLine.sendTo(
            add(operations, "UART read", size, "libserialport", [=, bytes = ByteArray(size)]() mutable {
                return sp_blocking_read(port, bytes.data(), size, timeoutMilliseconds) == static_cast<int>(size);
            }));
    }
}
