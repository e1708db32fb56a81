#include "spi/Chip.h"

#include "base/Bytes.h"
#include "base/Values.h"
#include "device/Node.h"
#include "spi/Traffic.h"

#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace spi
{

Settings settingsOf(const std::string& path)
{
    Settings settings;
    const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    const bool known = fd >= 0 && ioctl(fd, SPI_IOC_RD_MODE, &settings.mode) == 0 &&
                       ioctl(fd, SPI_IOC_RD_BITS_PER_WORD, &settings.bits) == 0 &&
                       ioctl(fd, SPI_IOC_RD_MAX_SPEED_HZ, &settings.speedHz) == 0;
    const int error = errno;
    if (fd >= 0)
        close(fd);
    if (!known)
        throw openFailure(path, error, spiDevices);
    return settings;
}

size_t longestMessage()
{
    constexpr size_t unlessSet = 4096;
    return numberOf(firstLine("/sys/module/spidev/parameters/bufsiz"), 10).value_or(unlessSet);
}

Chip::Chip(const ChipRequest& request, Output& shown)
    : Chip(request, request.mode ? *request.mode : settingsOf(request.device).mode, shown)
{
}

Chip::Chip(const ChipRequest& request, uint8_t mode, Output& shown)
    : OpenBus(shown, request.device, request.speedHz, mode), settings("\n" + settingsLine(request, mode))
{
    const ErrorScope errors;
    const bool open = device.init();
    throwIfSignalled();
    if (!open)
        throw openFailure(path, errors.first() ? errors.first()->error : 0, spiDevices);
    if (errors.first())
        throw setUpFailure(mode, *errors.first());
}

ByteArray Chip::read(size_t count)
{
    return transfer(withSettings(readTraffic(count)), count, [&](Spi& spi) { return spi.read(count); });
}

void Chip::write(const ByteArray& bytes)
{
    transfer(withSettings(writeTraffic(bytes)), bytes.size(), [&](Spi& spi) { return spi.write(bytes); });
}

ByteArray Chip::exchange(const ByteArray& bytes)
{
    return transfer(withSettings(exchangeTraffic(bytes)), bytes.size(),
                    [&](Spi& spi) { return spi.writeRead(bytes, bytes.size()); });
}

ByteArray Chip::writeRead(const ByteArray& bytes, size_t count)
{
    const size_t size = bytes.size() + count;
    const ByteArray received = transfer(withSettings(writeReadTraffic(bytes, count)), size,
                                        [&](Spi& spi) { return spi.writeRead(bytes, size); });
    return {received.begin() + static_cast<std::ptrdiff_t>(bytes.size()), received.end()};
}

Failure Chip::setUpFailure(uint8_t mode, const LibraryError& error) const
{
    const uint8_t actual = settingsOf(path).mode;
    if (actual != mode)
        return {CannotOpen,
                path + ": mode " + hexNumber(mode) + " refused by the driver; it stays at " + hexNumber(actual)};
    return {CannotOpen, path + ": " + error.message};
}

Failure Chip::failure(size_t longest, const LibraryError& error) const
{
    if (error.error == EMSGSIZE) {
        size_t enough = 65536;
        while (enough < longest)
            enough *= 2;
        return {TransferFailed,
                path + ": " + std::to_string(longest) + " bytes in one transfer; spidev accepts at most " +
                    std::to_string(longestMessage()),
                "spidev.bufsiz=" + std::to_string(enough) + " on the kernel command line"};
    }
    if (error.error == ESHUTDOWN || error.error == ENODEV)
        return {TransferFailed, path + " is gone: its driver was unbound"};
    return {TransferFailed, path + ": " + error.text()};
}

std::string Chip::withSettings(const std::string& traffic)
{
    return traffic + std::exchange(settings, {});
}

}  // namespace spi
