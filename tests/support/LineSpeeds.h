#pragma once

#include <termios.h>

/// A line speed in bits per second, the constant that the C library takes, and the kernel's code in c_cflag. Since
/// glibc 2.42 constant and code differ.
struct LineSpeed {
    int baud;
    speed_t constant;
    unsigned code;
};

/// Every speed that Uart supports, in the codes of x86 and Arm.
inline constexpr LineSpeed lineSpeeds[] = {
    {110, B110, 3},
    {150, B150, 5},
    {200, B200, 6},
    {300, B300, 7},
    {600, B600, 8},
    {1200, B1200, 9},
    {2400, B2400, 11},
    {4800, B4800, 12},
    {9600, B9600, 13},
    {19200, B19200, 14},
    {38400, B38400, 15},
    {57600, B57600, 4097},
    {115200, B115200, 4098},
    {230400, B230400, 4099},
    {460800, B460800, 4100},
    {500000, B500000, 4101},
    {576000, B576000, 4102},
    {921600, B921600, 4103},
    {1000000, B1000000, 4104},
    {1152000, B1152000, 4105},
    {1500000, B1500000, 4106},
    {2000000, B2000000, 4107},
    {2500000, B2500000, 4108},
    {3000000, B3000000, 4109},
    {3500000, B3500000, 4110},
    {4000000, B4000000, 4111},
};

struct ParityFlags {
    const char* name;
    unsigned flags;
};
inline constexpr ParityFlags parities[] = {{"none", 0}, {"even", PARENB}, {"odd", PARENB | PARODD}};

/// Flags that every port has: 8 data bits, the receiver on, modem lines ignored.
constexpr unsigned commonFlags = CS8 | CREAD | CLOCAL;
