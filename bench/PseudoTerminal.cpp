#include "PseudoTerminal.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

/// The line discipline holds this many bytes for a reader.
static const size_t capacity = 4095;

static int orThrow(int result, const char* call)
{
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), call);
    }
    return result;
}

PseudoTerminal::PseudoTerminal() : master(orThrow(::posix_openpt(O_RDWR | O_NOCTTY), "posix_openpt"))
{
    orThrow(::grantpt(master), "grantpt");
    orThrow(::unlockpt(master), "unlockpt");
    slavePath = ::ptsname(master);
    slave = orThrow(::open(slavePath.c_str(), O_RDWR | O_NOCTTY), "open");

    struct termios attributes {
    };
    attributes.c_cflag = CS8 | CREAD | CLOCAL;
    attributes.c_cc[VTIME] = 5;
    ::cfsetispeed(&attributes, B115200);
    ::cfsetospeed(&attributes, B115200);
    orThrow(::tcsetattr(slave, TCSANOW, &attributes), "tcsetattr");
}

PseudoTerminal::~PseudoTerminal()
{
    ::close(slave);
    ::close(master);
}

void PseudoTerminal::receiveFrom(Operation& operation)
{
    operation.batch = std::clamp<size_t>(capacity / operation.size, 1, 64);
    operation.after = [this, size = operation.size](size_t runs) {
        char buffer[capacity];
        for (size_t missing = runs * size; missing > 0;) {
            missing -= static_cast<size_t>(orThrow(static_cast<int>(::read(master, buffer, sizeof buffer)), "read"));
        }
    };
}

void PseudoTerminal::sendTo(Operation& operation)
{
    operation.batch = std::clamp<size_t>(capacity / operation.size, 1, 64);
    operation.before = [this, size = operation.size, bytes = std::string(capacity, 'U')](size_t runs) {
        const size_t length = runs * size;
        orThrow(static_cast<int>(::write(master, bytes.data(), length)), "write");
        int waiting = 0;
        while (static_cast<size_t>(waiting) < length) {
            orThrow(::ioctl(slave, FIONREAD, &waiting), "FIONREAD");
        }
    };
}
