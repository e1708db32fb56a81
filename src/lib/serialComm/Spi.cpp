#include "serialComm/Spi.h"

#include "serialComm/Log.h"

#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

/// Transfers one full-duplex message. A null `tx` sends zero bytes, a null `rx` drops the received bytes.
///
/// @return The driver's result: the number of bytes transferred; less than 1 is a failure. -1 with errno EMSGSIZE,
/// without a system call, if the length does not fit into the 32-bit field of the record.
static int transfer(int fd, const uint8_t* tx, uint8_t* rx, size_t len, int speedHz)
{
    if (len > UINT32_MAX) {
        errno = EMSGSIZE;
        return -1;
    }

    struct spi_ioc_transfer message {
    };
    message.tx_buf = reinterpret_cast<uintptr_t>(tx);
    message.rx_buf = reinterpret_cast<uintptr_t>(rx);
    message.len = static_cast<uint32_t>(len);
    message.speed_hz = static_cast<uint32_t>(speedHz);
    message.bits_per_word = 8;
    return ::ioctl(fd, SPI_IOC_MESSAGE(1), &message);
}

Spi::Spi(const std::string& device, int maxSpeedHz, unsigned char modeByte)
    : speedHz(maxSpeedHz), path(device), mode(modeByte)
{
}

Spi::~Spi()
{
    if (fd >= 0) {
        ::close(fd);
        fd = -1;
    }
}

bool Spi::init()
{
    TRACE_ENTER("path: " << path);

    if (fd >= 0) {
        ::close(fd);
    }
    fd = ::open(path.c_str(), O_RDWR);
    if (fd < 0) {
        LOG(ERROR, "Failed to open spi device: " << path);
        return false;
    }

    if (::ioctl(fd, SPI_IOC_WR_MODE, &mode) == -1) {
        LOG(ERROR, "SPI can't set spi write mode");
    }
    if (::ioctl(fd, SPI_IOC_RD_MODE, &mode) == -1) {
        LOG(ERROR, "SPI can't set spi read mode");
    }
    setMaxSpeed(speedHz);

    INFO_LEAVE("SPI initialized with speed Hz: " << speedHz);
    return true;
}

ByteArray Spi::read(size_t len)
{
    TRACE_ENTER("");

    ByteArray result(len);
    if (transfer(fd, nullptr, result.data(), len, speedHz) < 1) {
        const int errorNumber = errno;
        LOG(ERROR, "SPI can't read spi message. errno: " << errorNumber);
    }

    TRACE_LEAVE("");
    return result;
}

bool Spi::write(const ByteArray& data)
{
    TRACE_ENTER("");

    if (transfer(fd, data.data(), nullptr, data.size(), speedHz) < 1) {
        const int errorNumber = errno;
        LOG(ERROR, "SPI can't send message. errno: " << errorNumber);
    }

    TRACE_LEAVE("");
    return true;
}

ByteArray Spi::writeRead(const ByteArray& data, size_t len)
{
    if (data.size() < len) {
        ByteArray padded(len);
        std::copy(data.begin(), data.end(), padded.begin());
        return Spi::writeRead(padded, len);
    }

    ByteArray result(data.size());
    const int ret = transfer(fd, data.data(), result.data(), result.size(), speedHz);
    if (ret < 1) {
        LOG(ERROR, "SPI can't send/read message. ret:" << ret);
    }
    return result;
}

bool Spi::setMaxSpeed(int hz)
{
    TRACE_ENTER("Speed: " << hz);

    const auto requestedHz = static_cast<uint32_t>(hz);
    if (::ioctl(fd, SPI_IOC_WR_MAX_SPEED_HZ, &requestedHz) == -1) {
        LOG(ERROR, "SPI can't set write max speed hz");
    }
    if (::ioctl(fd, SPI_IOC_RD_MAX_SPEED_HZ, &speedHz) == -1) {
        LOG(ERROR, "SPI can't get max speed hz");
    }

    LOG(DEBUG, "SPI set speed Hz: " << speedHz);
    return true;
}
