#include "SpiCommands.h"

#include "Failure.h"
#include "Format.h"
#include "Hints.h"
#include "LibraryLog.h"
#include "Output.h"
#include "Signals.h"
#include "Values.h"

#include <nlohmann/json.hpp>
#include <serialComm/Spi.h>

#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>

namespace
{

constexpr unsigned int spidevMajor = 153;
constexpr auto transfer = "an SPI transfer";

NodeKind spidevKind()
{
    return {"a spidev node",
            "/dev/spidev",
            spidevMajor,
            "spidev nodes here",
            spidevNodes(),
            "bind the spidev driver: the device tree names a chip for it, or driver_override in /sys/bus/spi/devices"};
}

struct Settings {
    uint8_t mode = 0;
    uint8_t bits = 0;
    uint32_t speedHz = 0;
};

/// Mode, word size and clock as the driver has them, read on a descriptor of our own.
std::optional<Settings> settingsOf(const std::string& path)
{
    const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        const int error = errno;
        throw openFailure(path, error, spidevKind());
    }
    Settings settings;
    const bool known = ioctl(fd, SPI_IOC_RD_MODE, &settings.mode) == 0 &&
                       ioctl(fd, SPI_IOC_RD_BITS_PER_WORD, &settings.bits) == 0 &&
                       ioctl(fd, SPI_IOC_RD_MAX_SPEED_HZ, &settings.speedHz) == 0;
    close(fd);
    return known ? std::optional{settings} : std::nullopt;
}

/// A device opened by the library at the mode and clock asked for. Each call ends in bytes or in a Failure with its
/// cause.
class Device
{
public:
    Device(const std::string& node, int speedHz, uint8_t mode) : path(node), spi(path, speedHz, mode)
    {
        const bool open = spi.init();
        const auto error = takeLibraryError();
        throwIfSignalled();
        if (!open)
            throw openFailure(path, error ? error->error : 0, spidevKind());
        if (error)
            throw setUpFailure(*error, mode);
    }

    template <typename Call>
    auto operator()(size_t size, Call call)
    {
        throwIfSignalled();
        auto result = call(spi);
        if (const auto error = takeLibraryError())
            throw failure(size, *error);
        return result;
    }

private:
    Failure setUpFailure(const LibraryError& error, uint8_t mode) const
    {
        const auto settings = settingsOf(path);
        if (!settings)
            return {CannotOpen, path + " is not a spidev node"};
        if (settings->mode != mode)
            return {CannotOpen, path + ": mode " + hexNumber(mode) + " refused by the driver; it stays at " +
                                    hexNumber(settings->mode)};
        return {CannotOpen, path + ": " + error.message};
    }

    Failure failure(size_t size, const LibraryError& error) const
    {
        throwIfSignalled();
        if (error.error == EMSGSIZE) {
            const std::string limit = firstLine("/sys/module/spidev/parameters/bufsiz");
            size_t enough = 65536;
            while (enough < size)
                enough *= 2;
            return {TransferFailed,
                    path + ": " + std::to_string(size) + " bytes in one transfer, spidev takes " +
                        (limit.empty() ? "fewer" : limit),
                    "spidev.bufsiz=" + std::to_string(enough) + " on the kernel command line"};
        }
        if (error.error == ESHUTDOWN || error.error == ENODEV)
            return {TransferFailed, path + " is gone: its driver was unbound"};
        return {TransferFailed, path + ": " + error.text()};
    }

    std::string path;
    Spi spi;
};

Bytes outgoing(const std::vector<std::string>& words)
{
    Bytes bytes = words == std::vector<std::string>{"-"} ? readStandardInput(maxBytes) : parseBytes(words);
    if (bytes.empty())
        throw Failure{WrongCommandLine, "no bytes to write"};
    return bytes;
}

void show(const Bytes& bytes, const Common& common, const SpiArguments& arguments, const std::string& path)
{
    if (common.json)
        printJson({{"device", path}, {"bytes", bytes}});
    else if (arguments.raw)
        printBytes(bytes);
    else
        print(hexLines(bytes));
}

}  // namespace

std::vector<Node> spidevNodes()
{
    std::vector<Node> nodes;
    for (const std::string& number : namesBelow("/dev", "spidev"))
        nodes.push_back({"/dev/spidev" + number, firstLine("/sys/bus/spi/devices/spi" + number + "/modalias")});
    return nodes;
}

void spiInfo(const Common& common, const SpiArguments& arguments)
{
    const std::string path = spiPath(arguments.device);
    const auto settings = settingsOf(path);
    if (!settings)
        throw Failure{CannotOpen, path + " is not a spidev node"};
    if (common.json)
        printJson({{"device", path},
                   {"mode", settings->mode},
                   {"speed", settings->speedHz},
                   {"bits", settings->bits == 0 ? 8 : settings->bits}});
    else
        printLine(path + ": mode " + hexNumber(settings->mode) + ", " + std::to_string(settings->speedHz) + " Hz, " +
                  std::to_string(settings->bits == 0 ? 8 : settings->bits) + " bits a word");
}

void spiRead(const Common& common, const SpiArguments& arguments)
{
    const std::string path = spiPath(arguments.device);
    const uint8_t mode = parseMode(arguments.mode);
    const int speedHz = parseSpeed(arguments.speed);
    const size_t count = parseCount(arguments.count, maxBytes, transfer);
    if (showTraffic(common, spiTraffic({}, count, 0, count, mode, speedHz)))
        return;

    Device device{path, speedHz, mode};
    show(device(count, [&](Spi& spi) { return spi.read(count); }), common, arguments, path);
}

void spiWrite(const Common& common, const SpiArguments& arguments)
{
    const std::string path = spiPath(arguments.device);
    const uint8_t mode = parseMode(arguments.mode);
    const int speedHz = parseSpeed(arguments.speed);
    const Bytes bytes = outgoing(arguments.bytes);
    if (showTraffic(common, spiTraffic(bytes, 0, bytes.size(), 0, mode, speedHz)))
        return;

    Device device{path, speedHz, mode};
    device(bytes.size(), [&](Spi& spi) { return spi.write(bytes); });
}

void spiTransfer(const Common& common, const SpiArguments& arguments)
{
    const std::string path = spiPath(arguments.device);
    const uint8_t mode = parseMode(arguments.mode);
    const int speedHz = parseSpeed(arguments.speed);
    std::vector<std::string> words = arguments.bytes;
    const size_t count = takePlusCount(words, maxBytes, transfer);
    const Bytes bytes = outgoing(words);
    const size_t size = bytes.size() + count;
    checkSize(size, maxBytes, transfer);
    // With +N only what comes after the bytes counts, without it everything.
    const size_t unseen = count > 0 ? bytes.size() : 0;
    if (showTraffic(common, spiTraffic(bytes, count, unseen, size - unseen, mode, speedHz)))
        return;

    Device device{path, speedHz, mode};
    const Bytes received = device(size, [&](Spi& spi) { return spi.writeRead(bytes, size); });
    show({received.begin() + static_cast<std::ptrdiff_t>(unseen), received.end()}, common, arguments, path);
}
