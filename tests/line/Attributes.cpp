// In a file of its own: <asm/termbits.h> and <termios.h> cannot be included in one.
#include "Attributes.h"

#include <asm/termbits.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>

/// Describes them without allocating: it runs in a process that was forked off one with threads.
static int describe(const char* path, std::array<char, 256>& text)
{
    const int fd = open(path, O_RDWR | O_NOCTTY | O_NONBLOCK);
    termios2 attributes{};
    if (fd < 0 || ioctl(fd, TCGETS2, &attributes) != 0) {
        return std::snprintf(text.data(), text.size(), "?");
    }
    const tcflag_t flags = attributes.c_cflag;
    static const char* const sizes[] = {"CS5", "CS6", "CS7", "CS8"};
    return std::snprintf(
        text.data(), text.size(), "%s%u %u %s%s%s%s%s%s%s%s%s%s", (flags & CBAUD) == BOTHER ? "BOTHER " : "",
        attributes.c_ispeed, attributes.c_ospeed, sizes[(flags & CSIZE) / CS6], (flags & CSTOPB) != 0 ? " CSTOPB" : "",
        (flags & PARENB) != 0 ? " PARENB" : "", (flags & PARODD) != 0 ? " PARODD" : "",
        (flags & CMSPAR) != 0 ? " CMSPAR" : "", (flags & CRTSCTS) != 0 ? " CRTSCTS" : "",
        (flags & CLOCAL) != 0 ? " CLOCAL" : "", (flags & HUPCL) != 0 ? " HUPCL" : "",
        (attributes.c_iflag & IXON) != 0 ? " IXON" : "", (attributes.c_iflag & IXOFF) != 0 ? " IXOFF" : "");
}

std::string attributesSeenByAnotherProcess(const std::string& path)
{
    int ends[2];
    if (pipe(ends) != 0) {
        return "?";
    }
    const pid_t child = fork();
    if (child == 0) {
        std::array<char, 256> text{};
        const int size = describe(path.c_str(), text);
        const ssize_t written = write(ends[1], text.data(), static_cast<size_t>(size));
        _exit(written == size ? 0 : 1);
    }
    close(ends[1]);
    std::array<char, 256> text{};
    const ssize_t size = read(ends[0], text.data(), text.size());
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return size < 0 ? "?" : std::string(text.data(), static_cast<size_t>(size));
}
