#include "serialComm/Uart.h"

#include "serialComm/Log.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <cerrno>
#include <map>

// The kernel's code for a speed: 13 for 9600 bits per second. Up to glibc 2.41, B9600 is that code. From 2.42 on, B9600
// is the number 9600, and the code is __B9600.
#ifdef __B9600
#define CODE(baud) __B##baud
#else
#define CODE(baud) B##baud
#endif

/// Bits per second to the kernel's code in c_cflag.
static const std::map<int, long> baudRateMap = {
    {110, CODE(110)},         {150, CODE(150)},         {200, CODE(200)},         {300, CODE(300)},
    {600, CODE(600)},         {1200, CODE(1200)},       {2400, CODE(2400)},       {4800, CODE(4800)},
    {9600, CODE(9600)},       {19200, CODE(19200)},     {38400, CODE(38400)},     {57600, CODE(57600)},
    {115200, CODE(115200)},   {230400, CODE(230400)},   {460800, CODE(460800)},   {500000, CODE(500000)},
    {576000, CODE(576000)},   {921600, CODE(921600)},   {1000000, CODE(1000000)}, {1152000, CODE(1152000)},
    {1500000, CODE(1500000)}, {2000000, CODE(2000000)}, {2500000, CODE(2500000)}, {3000000, CODE(3000000)},
    {3500000, CODE(3500000)}, {4000000, CODE(4000000)},
};

/// The speed for cfsetispeed() and cfsetospeed(), which take the C library's B9600 for 9600 bits per second.
static speed_t librarySpeed(int baudRate, long kernelCode)
{
    return static_cast<speed_t>(B9600 == 9600 ? baudRate : kernelCode);
}

/// Number of stop bits to the flag in c_cflag.
static const std::map<int, long> stopBitsMap = {{1, 0}, {2, CSTOPB}};

/// Parity to the flags in c_cflag.
static const std::map<std::string, long> parityMap = {{"none", 0}, {"even", PARENB}, {"odd", PARENB | PARODD}};

static void restoreAndClose(int fd, const struct termios& savedAttributes)
{
    if (fd >= 0) {
        ::tcsetattr(fd, TCSANOW, &savedAttributes);
        ::close(fd);
    }
}

Uart::Uart(const std::string& device, int baud, int stopBitCount, const std::string& parityName, bool waits)
    : path(device), baudRate(baud), stopBits(stopBitCount), parity(parityName), blocking(waits), savedAttributes(),
      attributes()
{
}

Uart::~Uart()
{
    restoreAndClose(fd, savedAttributes);
}

bool Uart::init()
{
    const auto baudRateEntry = baudRateMap.find(baudRate);
    if (baudRateEntry == baudRateMap.end()) {
        LOG(ERROR, "Unsupported baud rate: " << baudRate);
        return false;
    }
    const long speed = baudRateEntry->second;
    LOG(DEBUG, "Baud rate: " << speed);

    const auto parityEntry = parityMap.find(parity);
    if (parityEntry == parityMap.end()) {
        LOG(ERROR, "Wrong parity set: " << parity);
        return false;
    }
    const long parityFlags = parityEntry->second;
    LOG(DEBUG, "Parity: " << parityFlags);

    const auto stopBitsEntry = stopBitsMap.find(stopBits);
    if (stopBitsEntry == stopBitsMap.end()) {
        LOG(ERROR, "Unsupported stop bits: " << stopBits);
        return false;
    }
    const long stopBitsFlag = stopBitsEntry->second;

    restoreAndClose(fd, savedAttributes);
    fd = ::open(path.c_str(), blocking ? O_RDWR | O_NOCTTY : O_RDWR | O_NOCTTY | O_NONBLOCK);
    if (fd < 0) {
        LOG(ERROR, "Cannot open serial device on path " << path);
        return false;
    }
    ::tcgetattr(fd, &savedAttributes);

    // Raw mode: all flags are off. With VMIN 0 and VTIME 5, a blocking read waits at most 0.5 s for the first byte.
    memset(&attributes, 0, sizeof attributes);
    attributes.c_cflag = static_cast<tcflag_t>(speed | parityFlags | stopBitsFlag | CS8 | CREAD | CLOCAL);
    attributes.c_cc[VTIME] = 5;
    ::cfsetispeed(&attributes, librarySpeed(baudRate, speed));
    ::cfsetospeed(&attributes, librarySpeed(baudRate, speed));

    if (::tcflush(fd, TCIOFLUSH) < 0) {
        LOG(ERROR, "Cannot clear terminal attributes");
    }
    if (::tcsetattr(fd, TCSANOW, &attributes) < 0) {
        LOG(ERROR, "Failed to set new attributes");
        return false;
    }

    const char* slave = ::ptsname(fd);
    if (slave == nullptr) {
        return true;
    }
    if (::grantpt(fd) < 0 || ::unlockpt(fd) < 0) {
        LOG(ERROR, "Failed to unlock pts " << slave);
        return false;
    }
    LOG(INFO, "UART slave pts: " << slave);
    return true;
}

bool Uart::write(const ByteArray& data)
{
    if (fd < 0) {
        LOG(ERROR, "Uart write failed: closed");
        return false;
    }

    const ssize_t written = ::write(fd, data.data(), data.size());
    if (static_cast<size_t>(written) != data.size()) {
        const int errorNumber = errno;
        LOG(ERROR, "Uart write failed: " << errorNumber);
        return false;
    }
    return true;
}

ByteArray Uart::read(size_t size, bool* error)
{
    ByteArray result(size);

    if (fd < 0) {
        if (error != nullptr) {
            *error = true;
        }
        LOG(ERROR, "Uart read failed: closed");
        return {};
    }

    const ssize_t received = ::read(fd, result.data(), size);
    if (received < 0) {
        const int errorNumber = errno;
        if (error != nullptr) {
            *error = true;
        }
        LOG(ERROR, "Uart read failed: " << errorNumber);
        return {};
    }

    if (error != nullptr) {
        *error = false;
    }
    result.resize(static_cast<size_t>(received));
    return result;
}
