// UART operations over pseudo-terminals: the bare system call, into the caller's buffer and into a fresh one, and Uart.
#include "PseudoTerminal.h"

#include "serialComm/Uart.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

/// Opens, sets up and closes a tty without the library.
static bool openAndClose(const char* path)
{
    const int fd = ::open(path, O_RDWR | O_NOCTTY);
    struct termios saved {
    };
    struct termios attributes {
    };
    attributes.c_cflag = CS8 | CREAD | CLOCAL;
    attributes.c_cc[VTIME] = 5;
    ::cfsetispeed(&attributes, B115200);
    ::cfsetospeed(&attributes, B115200);
    return ::tcgetattr(fd, &saved) == 0 && ::tcflush(fd, TCIOFLUSH) == 0 &&
           ::tcsetattr(fd, TCSANOW, &attributes) == 0 && ::tcsetattr(fd, TCSANOW, &saved) == 0 && ::close(fd) == 0;
}

void addOperations(Operations& operations)
{
    static PseudoTerminal bareLine;
    static PseudoTerminal line;
    static Uart port{line.path(), 115200, 1, "none", true};
    if (!port.init()) {
        exit(EXIT_FAILURE);
    }
    const int fd = bareLine.descriptor();

    add(operations, "UART init", 0, "bare", [] { return openAndClose(bareLine.path()); });
    add(operations, "UART init", 0, "serialComm", [] { return Uart{line.path(), 115200, 1, "none", true}.init(); });

    for (const size_t size : {1, 16, 256, 4095}) {
        const ByteArray data(size, 'U');
        bareLine.receiveFrom(add(operations, "UART write", size, "bare",
                                 [=] { return ::write(fd, data.data(), data.size()) == static_cast<ssize_t>(size); }));
        line.receiveFrom(add(operations, "UART write", size, "serialComm", [=] { return port.write(data); }));

        bareLine.sendTo(add(operations, "UART read", size, "bare", [=, buffer = ByteArray(size)]() mutable {
            return ::read(fd, buffer.data(), size) == static_cast<ssize_t>(size);
        }));
        bareLine.sendTo(add(operations, "UART read", size, "fresh vector", [=] {
            ByteArray buffer(size);
            return ::read(fd, buffer.data(), size) == static_cast<ssize_t>(size);
        }));
        line.sendTo(add(operations, "UART read", size, "serialComm", [=] { return port.read(size).size() == size; }));
    }
}
