#include "I2cCommands.h"

#include "Failure.h"
#include "Format.h"
#include "Hints.h"
#include "LibraryLog.h"
#include "Output.h"
#include "Signals.h"
#include "Values.h"

#include <nlohmann/json.hpp>
#include <serialComm/I2c.h>

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/major.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

namespace
{

constexpr unsigned int i2cMajor = 89;
constexpr size_t driverLimit = 8192;  // i2c-dev, in one message
constexpr auto message = "an I2C message";

NodeKind busKind()
{
    std::vector<std::string> numbers = namesBelow("/dev", "i2c-");
    return {"an I2C bus", i2cMajor, "buses here", numbers,
            "modprobe i2c-dev, if the bus exists in /sys/bus/i2c/devices"};
}

/// "4-0068": the chip's name in sysfs.
std::string deviceName(const std::string& path, int address)
{
    return std::to_string(minorNumber(path, i2cMajor)) + "-" +
           hexNumber(static_cast<unsigned int>(address), 4).substr(2);
}

std::string driverOf(const std::string& path, int address)
{
    return linkTarget("/sys/bus/i2c/devices/" + deviceName(path, address) + "/driver");
}

Failure initFailure(const std::string& path, int address, int error)
{
    if (error == EBUSY) {
        const std::string driver = driverOf(path, address);
        const std::string device = deviceName(path, address);
        return {CannotOpen,
                hexNumber(static_cast<unsigned int>(address)) + " on " + path + " is in use by " +
                    (driver.empty() ? "a kernel driver" : "the kernel driver " + driver),
                "read it below /sys/bus/i2c/devices/" + device +
                    (driver.empty() ? "" : ", or: echo " + device + " > /sys/bus/i2c/drivers/" + driver + "/unbind")};
    }
    return openFailure(path, error, busKind());
}

/// One chip on a bus, opened by the library. Each call ends in bytes or in a Failure with its cause.
class Chip
{
public:
    Chip(const std::string& bus, int chipAddress) : path(bus), address(chipAddress), chip(path, address)
    {
        const bool open = chip.init();
        const auto error = takeLibraryError();
        if (!open)
            throw initFailure(path, address, error ? error->error : 0);
    }

    template <typename Call>
    auto operator()(size_t longestMessage, Call call)
    {
        throwIfSignalled();
        auto result = call(chip);
        if (const auto error = takeLibraryError())
            throw failure(longestMessage, *error);
        return result;
    }

private:
    Failure failure(size_t longestMessage, const LibraryError& error) const
    {
        throwIfSignalled();
        if (longestMessage > driverLimit)
            return {TransferFailed, path + ": " + std::to_string(longestMessage) +
                                        " bytes in one message, i2c-dev takes " + std::to_string(driverLimit)};
        for (const int noAnswer : {ENXIO, EREMOTEIO, ETIMEDOUT, EIO}) {
            if (error.error == noAnswer)
                return {TransferFailed,
                        "no answer from " + hexNumber(static_cast<unsigned int>(address)) + " on " + path,
                        "serialcomm i2c scan " + path};
        }
        return {TransferFailed, path + ": " + error.message};
    }

    std::string path;
    int address;
    I2c chip;
};

Bytes outgoing(const I2cArguments& arguments)
{
    Bytes bytes =
        arguments.bytes == std::vector<std::string>{"-"} ? readStandardInput(maxI2cBytes) : parseBytes(arguments.bytes);
    if (bytes.empty())
        throw Failure{WrongCommandLine, "no bytes to write"};
    checkSize(bytes.size(), maxI2cBytes, message);
    return bytes;
}

void show(const Bytes& bytes, const Common& common, const I2cArguments& arguments, const std::string& path)
{
    if (common.json) {
        nlohmann::ordered_json object{{"device", path}, {"address", arguments.address}};
        if (!arguments.reg.empty())
            object["register"] = arguments.reg;
        object["bytes"] = bytes;
        printJson(object);
    } else if (arguments.raw) {
        printBytes(bytes);
    } else {
        print(hexLines(bytes));
    }
}

}  // namespace

void i2cGet(const Common& common, const I2cArguments& arguments)
{
    const std::string path = i2cPath(arguments.bus);
    const int address = parseAddress(arguments.address);
    const Bytes reg = parseRegister(arguments.reg);
    const size_t count = parseCount(arguments.count, maxI2cBytes, message);
    if (showTraffic(common, arguments.stop ? i2cWriteTraffic(address, reg) + " " + i2cReadTraffic(address, count)
                                           : i2cWriteReadTraffic(address, reg, count)))
        return;

    Chip chip{path, address};
    show(chip(count,
              [&](I2c& i2c) {
                  if (!arguments.stop)
                      return i2c.writeRead(reg, count);
                  if (reg.size() == 1)
                      return i2c.readRegister(reg[0], count);
                  return i2c.write(reg) ? i2c.read(count) : Bytes{};
              }),
         common, arguments, path);
}

void i2cSet(const Common& common, const I2cArguments& arguments)
{
    const std::string path = i2cPath(arguments.bus);
    const int address = parseAddress(arguments.address);
    const Bytes reg = parseRegister(arguments.reg);
    const Bytes bytes = outgoing(arguments);
    Bytes whole = reg;
    whole.insert(whole.end(), bytes.begin(), bytes.end());
    checkSize(whole.size(), maxI2cBytes, message);
    if (showTraffic(common, i2cWriteTraffic(address, whole)))
        return;

    Chip chip{path, address};
    chip(whole.size(), [&](I2c& i2c) { return reg.size() == 1 ? i2c.writeRegister(reg[0], bytes) : i2c.write(whole); });
}

void i2cRead(const Common& common, const I2cArguments& arguments)
{
    const std::string path = i2cPath(arguments.bus);
    const int address = parseAddress(arguments.address);
    const size_t count = parseCount(arguments.count, maxI2cBytes, message);
    if (showTraffic(common, i2cReadTraffic(address, count)))
        return;

    Chip chip{path, address};
    show(chip(count, [&](I2c& i2c) { return i2c.read(count); }), common, arguments, path);
}

void i2cWrite(const Common& common, const I2cArguments& arguments)
{
    const std::string path = i2cPath(arguments.bus);
    const int address = parseAddress(arguments.address);
    const Bytes bytes = outgoing(arguments);
    if (showTraffic(common, i2cWriteTraffic(address, bytes)))
        return;

    Chip chip{path, address};
    chip(bytes.size(), [&](I2c& i2c) { return i2c.write(bytes); });
}

void i2cTransfer(const Common& common, const I2cArguments& given)
{
    I2cArguments arguments = given;
    const std::string path = i2cPath(arguments.bus);
    const int address = parseAddress(arguments.address);
    const size_t count = takePlusCount(arguments.bytes, maxI2cBytes, message);
    if (count == 0)
        throw Failure{WrongCommandLine, "i2c transfer: +N, the number of bytes to read, stands last",
                      "serialcomm i2c transfer " + arguments.bus + " " + arguments.address + " 00 +2"};
    const Bytes bytes = outgoing(arguments);
    if (showTraffic(common, i2cWriteReadTraffic(address, bytes, count)))
        return;

    Chip chip{path, address};
    show(chip(std::max(bytes.size(), count), [&](I2c& i2c) { return i2c.writeRead(bytes, count); }), common, arguments,
         path);
}

void i2cScan(const Common&, const I2cArguments&) {}
void i2cDump(const Common&, const I2cArguments&) {}
