#include "i2c/Chip.h"

#include "base/Bytes.h"
#include "device/Node.h"
#include "i2c/Traffic.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace i2c
{
namespace
{

constexpr size_t driverLimit = 8192;  // i2c-dev, in one message

std::string nameOf(const std::string& path, int address)
{
    return hexNumber(static_cast<unsigned int>(address)) + " on " + path;
}

std::string inUse(const std::string& path, int address)
{
    const std::string driver = i2cDriver(path, address);
    return nameOf(path, address) + " is in use by " +
           (driver.empty() ? "a kernel driver" : "the kernel driver " + driver);
}

}  // namespace

bool meansNoAnswer(int error)
{
    return error == ENXIO || error == EREMOTEIO || error == ETIMEDOUT || error == EIO;
}

unsigned long busFunctions(const std::string& path)
{
    unsigned long functions = 0;
    const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    const bool known = fd >= 0 && ioctl(fd, I2C_FUNCS, &functions) == 0;
    const int error = errno;
    if (fd >= 0)
        close(fd);
    if (!known)
        throw openFailure(path, error, i2cBuses);
    if ((functions & I2C_FUNC_I2C) == 0)
        throw Failure{CannotOpen, path + ": the adapter supports only SMBus commands, no plain I2C messages"};
    return functions;
}

Failure chipOpenFailure(const std::string& path, int address, int error)
{
    if (error != EBUSY)
        return openFailure(path, error, i2cBuses);
    const std::string driver = i2cDriver(path, address);
    const std::string device = i2cDeviceName(path, address);
    return {CannotOpen, inUse(path, address),
            "use the driver's files below /sys/bus/i2c/devices/" + device +
                (driver.empty()
                     ? ""
                     : ", or unbind the driver: echo " + device + " > /sys/bus/i2c/drivers/" + driver + "/unbind") +
                ", or use --force"};
}

Chip::Chip(const ChipRequest& request, Output& shown)
    : OpenBus(shown, request.bus, request.address), address(request.address)
{
    const ErrorScope errors;
    bool open = device.init();
    throwIfSignalled();
    const int error = errors.first() ? errors.first()->error : 0;
    if (!open && error == EBUSY && request.force) {
        printError(inUse(path, address) + "; using it anyway, through I2C_RDWR (--force)");
        open = device.openForced();
    }
    if (!open)
        throw chipOpenFailure(path, address, error);
}

bool Chip::write(const ByteArray& bytes)
{
    return transfer(writeTraffic(address, bytes), bytes.size(), [&](I2c& i2c) { return i2c.write(bytes); });
}

ByteArray Chip::read(size_t count)
{
    return transfer(readTraffic(address, count), count, [&](I2c& i2c) { return i2c.read(count); });
}

ByteArray Chip::writeRead(const ByteArray& bytes, size_t count)
{
    return transfer(writeReadTraffic(address, bytes, count), std::max(bytes.size(), count),
                    [&](I2c& i2c) { return i2c.writeRead(bytes, count); });
}

template <typename Call>
bool Chip::answers(const std::string& traffic, Call call)
{
    throwIfSignalled();
    output.traffic(traffic);
    const ErrorScope errors;
    call(device);
    if (errors.first() && !meansNoAnswer(errors.first()->error))
        throw failure(0, *errors.first());
    return !errors.first();
}

std::optional<uint8_t> Chip::registerValue(const ByteArray& reg)
{
    ByteArray value;
    const bool answered = answers(writeReadTraffic(address, reg, 1), [&](I2c& i2c) { value = i2c.writeRead(reg, 1); });
    return answered ? std::optional{value.front()} : std::nullopt;
}

bool Chip::acknowledges(const ByteArray& bytes)
{
    return answers(writeTraffic(address, bytes), [&](I2c& i2c) { i2c.write(bytes); });
}

std::string Chip::name() const
{
    return nameOf(path, address);
}

Failure Chip::noAnswer() const
{
    const std::string prefix = i2cBuses.prefix;
    const std::string bus = path.compare(0, prefix.size(), prefix) == 0 ? path.substr(prefix.size()) : path;
    return {TransferFailed, "no answer from " + name(), "serialcomm i2c scan " + bus};
}

Failure Chip::failure(size_t longest, const LibraryError& error) const
{
    throwIfSignalled();
    if (longest > driverLimit)
        return {TransferFailed, path + ": " + std::to_string(longest) +
                                    " bytes in one message; i2c-dev accepts at most " + std::to_string(driverLimit)};
    if (meansNoAnswer(error.error))
        return noAnswer();
    if (error.error == EOPNOTSUPP)
        busFunctions(path);  // throws if messages are not supported
    return {TransferFailed, path + ": " + error.text()};
}

}  // namespace i2c
