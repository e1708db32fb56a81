#include "I2cChip.h"

#include "Format.h"
#include "Hints.h"
#include "I2cCommands.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

namespace
{

constexpr unsigned int i2cMajor = 89;
constexpr size_t driverLimit = 8192;  // i2c-dev, in one message

NodeKind busKind()
{
    return {"an I2C bus", "/dev/i2c-", i2cMajor,
            "buses here", i2cBuses(),  "modprobe i2c-dev, if the bus exists in /sys/bus/i2c/devices"};
}

std::string nameOf(int address)
{
    return hexNumber(static_cast<unsigned int>(address));
}

/// "4-0068": the chip's name in sysfs.
std::string deviceName(const std::string& path, int address)
{
    return std::to_string(minorNumber(path, i2cMajor)) + "-" +
           hexNumber(static_cast<unsigned int>(address), 4).substr(2);
}

bool meansNoAnswer(int error)
{
    return error == ENXIO || error == EREMOTEIO || error == ETIMEDOUT || error == EIO;
}

}  // namespace

std::vector<Node> i2cBuses()
{
    std::vector<Node> buses;
    for (const std::string& number : namesBelow("/dev", "i2c-"))
        buses.push_back({"/dev/i2c-" + number, firstLine("/sys/bus/i2c/devices/i2c-" + number + "/name")});
    return buses;
}

std::string i2cDriver(const std::string& path, int address)
{
    return linkTarget("/sys/bus/i2c/devices/" + deviceName(path, address) + "/driver");
}

unsigned long i2cFunctions(const std::string& path)
{
    unsigned long functions = 0;
    const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    const bool known = fd >= 0 && ioctl(fd, I2C_FUNCS, &functions) == 0;
    const int error = errno;
    if (fd >= 0)
        close(fd);
    if (!known)
        throw openFailure(path, error, busKind());
    if ((functions & I2C_FUNC_I2C) == 0)
        throw Failure{CannotOpen, path + ": the adapter does SMBus commands alone, no plain I2C messages"};
    return functions;
}

Failure i2cInitFailure(const std::string& path, int address, int error)
{
    if (error != EBUSY)
        return openFailure(path, error, busKind());
    const std::string driver = i2cDriver(path, address);
    const std::string device = deviceName(path, address);
    return {CannotOpen,
            nameOf(address) + " on " + path + " is in use by " +
                (driver.empty() ? "a kernel driver" : "the kernel driver " + driver),
            "read it below /sys/bus/i2c/devices/" + device +
                (driver.empty() ? "" : ", or: echo " + device + " > /sys/bus/i2c/drivers/" + driver + "/unbind")};
}

Chip::Chip(const std::string& bus, int chipAddress) : path(bus), address(chipAddress), chip(path, address)
{
    const bool open = chip.init();
    const auto error = takeLibraryError();
    throwIfSignalled();
    if (!open)
        throw i2cInitFailure(path, address, error ? error->error : 0);
}

std::optional<uint8_t> Chip::registerValue(uint8_t reg)
{
    throwIfSignalled();
    const ByteArray bytes = chip.writeRead({reg}, 1);
    const auto error = takeLibraryError();
    if (error && !meansNoAnswer(error->error))
        throw failure(1, *error);
    if (error || bytes.empty())
        return {};
    return bytes.front();
}

Failure Chip::noAnswer() const
{
    const std::string prefix = "/dev/i2c-";
    const std::string bus = path.compare(0, prefix.size(), prefix) == 0 ? path.substr(prefix.size()) : path;
    return {TransferFailed, "no answer from " + nameOf(address) + " on " + path, "serialcomm i2c scan " + bus};
}

Failure Chip::failure(size_t longestMessage, const LibraryError& error) const
{
    throwIfSignalled();
    if (longestMessage > driverLimit)
        return {TransferFailed, path + ": " + std::to_string(longestMessage) + " bytes in one message, i2c-dev takes " +
                                    std::to_string(driverLimit)};
    if (meansNoAnswer(error.error))
        return noAnswer();
    if (error.error == EOPNOTSUPP)
        i2cFunctions(path);  // throws where messages are what is not supported
    return {TransferFailed, path + ": " + error.text()};
}
