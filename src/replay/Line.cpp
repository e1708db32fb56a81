#include "Line.h"

#include <asm/ioctls.h>
#include <asm/termbits.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace replay
{

namespace
{

bool getTermios(int descriptor, struct termios2& record)
{
    return syscall(SYS_ioctl, descriptor, TCGETS2, &record) == 0;
}

struct Rate {
    uint32_t baudRate;
    uint32_t code;
};
constexpr Rate rates[] = {
    {110, B110},         {150, B150},         {200, B200},         {300, B300},         {600, B600},
    {1200, B1200},       {1800, B1800},       {2400, B2400},       {4800, B4800},       {9600, B9600},
    {19200, B19200},     {38400, B38400},     {57600, B57600},     {115200, B115200},   {230400, B230400},
    {460800, B460800},   {500000, B500000},   {576000, B576000},   {921600, B921600},   {1000000, B1000000},
    {1152000, B1152000}, {1500000, B1500000}, {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000},
    {3500000, B3500000}, {4000000, B4000000},
};

/// The code of a rate, which programs can save and put back without knowing others.
uint32_t codeOf(uint32_t baudRate)
{
    for (const Rate& rate : rates) {
        if (rate.baudRate == baudRate)
            return rate.code;
    }
    return BOTHER;
}

LineState lineFrom(const TermiosFlags& flags, uint32_t baudRate)
{
    LineState line = {};
    line.baudRate = baudRate;
    const uint32_t size = flags.control & CSIZE;
    line.dataBits = static_cast<uint8_t>(size == CS5 ? 5 : size == CS6 ? 6 : size == CS7 ? 7 : 8);
    const char odd = (flags.control & PARODD) != 0 ? 'O' : 'E';
    line.parity = static_cast<uint8_t>((flags.control & PARENB) == 0 ? 'N' : odd);
    line.stopBits = static_cast<uint8_t>((flags.control & CSTOPB) != 0 ? 2 : 1);
    line.rtsCts = static_cast<uint8_t>((flags.control & CRTSCTS) != 0);
    line.xonXoff = static_cast<uint8_t>((flags.input & (IXON | IXOFF)) != 0);
    return line;
}

}  // namespace

bool readLine(int descriptor, LineState& line)
{
    struct termios2 record = {};
    if (!getTermios(descriptor, record))
        return false;
    line = lineFrom({record.c_iflag, record.c_oflag, record.c_cflag, record.c_lflag}, record.c_ospeed);
    return true;
}

bool makeRaw(int descriptor, const LineState& line)
{
    struct termios2 record = {};
    if (!getTermios(descriptor, record))
        return false;
    record.c_iflag = line.xonXoff != 0 ? IXON | IXOFF : 0;
    record.c_oflag = 0;
    record.c_lflag = 0;
    record.c_cflag = codeOf(line.baudRate) | CREAD | CS8 | CLOCAL;
    if (line.stopBits == 2)
        record.c_cflag |= CSTOPB;
    if (line.rtsCts != 0)
        record.c_cflag |= CRTSCTS;
    record.c_ospeed = line.baudRate;
    record.c_ispeed = line.baudRate;
    record.c_cc[VMIN] = 1;
    record.c_cc[VTIME] = 0;
    return syscall(SYS_ioctl, descriptor, TCSETS2, &record) == 0;
}

LineState askedLine(int descriptor, const TermiosFlags& flags)
{
    struct termios2 record = {};
    getTermios(descriptor, record);
    return lineFrom(flags, record.c_ospeed);
}

void makeTransparent(TermiosFlags& flags)
{
    flags.output &= ~static_cast<uint32_t>(OPOST);
    flags.local &= ~static_cast<uint32_t>(ECHO | ECHONL);
}

void showFrame(TermiosFlags& flags, const LineState& line)
{
    flags.control &= ~static_cast<uint32_t>(CSIZE | PARENB | PARODD);
    const int size = line.dataBits == 5 ? CS5 : line.dataBits == 6 ? CS6 : line.dataBits == 7 ? CS7 : CS8;
    flags.control |= static_cast<uint32_t>(size);
    if (line.parity != 'N')
        flags.control |= static_cast<uint32_t>(line.parity == 'O' ? PARENB | PARODD : PARENB);
}

size_t setSize(unsigned long request)
{
    switch (request) {
    case TCSETS:
    case TCSETSW:
    case TCSETSF:
        return sizeof(struct termios);
    case TCSETS2:
    case TCSETSW2:
    case TCSETSF2:
        return sizeof(struct termios2);
    default:
        return 0;
    }
}

size_t getSize(unsigned long request)
{
    return request == TCGETS ? sizeof(struct termios) : request == TCGETS2 ? sizeof(struct termios2) : 0;
}

unsigned long withoutFlush(unsigned long request)
{
    return request == TCSETSF ? TCSETSW : request == TCSETSF2 ? TCSETSW2 : request;
}

bool isFlush(unsigned long request)
{
    return request == TCFLSH;
}

}  // namespace replay
