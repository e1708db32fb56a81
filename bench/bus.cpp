// I2C and SPI operations, on the fake kernel or the board: the bare system call, into the caller's buffer and into a
// fresh one, and I2c and Spi.
#include "Devices.h"
#include "Operation.h"

#include "serialComm/I2c.h"
#include "serialComm/Spi.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

static const int chipAddress = 0x50;
static const uint8_t chipRegister = 0x10;
static const int clockHz = 10000000;

/// Opens a chip without the library; returns the descriptor, or -1.
static int openI2c()
{
    const int fd = ::open(i2cDevice, O_RDWR);
    return ::ioctl(fd, I2C_SLAVE, chipAddress) == 0 ? fd : -1;
}

static int openSpi()
{
    const int fd = ::open(spiDevice, O_RDWR);
    uint8_t mode = SPI_MODE_0;
    uint32_t speedHz = clockHz;
    return ::ioctl(fd, SPI_IOC_WR_MODE, &mode) == 0 && ::ioctl(fd, SPI_IOC_RD_MODE, &mode) == 0 &&
                   ::ioctl(fd, SPI_IOC_WR_MAX_SPEED_HZ, &speedHz) == 0 &&
                   ::ioctl(fd, SPI_IOC_RD_MAX_SPEED_HZ, &speedHz) == 0
               ? fd
               : -1;
}

static bool wrote(int fd, const uint8_t* data, size_t size)
{
    return ::write(fd, data, size) == static_cast<ssize_t>(size);
}

static bool readInto(int fd, uint8_t* buffer, size_t size)
{
    return ::read(fd, buffer, size) == static_cast<ssize_t>(size);
}

static bool i2cCombined(int fd, const ByteArray& data, uint8_t* buffer, size_t size)
{
    struct i2c_msg messages[2]{};
    messages[0].addr = chipAddress;
    messages[0].len = static_cast<uint16_t>(data.size());
    messages[0].buf = const_cast<uint8_t*>(data.data());
    messages[1].addr = chipAddress;
    messages[1].flags = I2C_M_RD;
    messages[1].len = static_cast<uint16_t>(size);
    messages[1].buf = buffer;
    struct i2c_rdwr_ioctl_data request {
    };
    request.msgs = messages;
    request.nmsgs = 2;
    return ::ioctl(fd, I2C_RDWR, &request) == 2;
}

static bool spiTransfer(int fd, const uint8_t* tx, uint8_t* rx, size_t size)
{
    struct spi_ioc_transfer message {
    };
    message.tx_buf = reinterpret_cast<uintptr_t>(tx);
    message.rx_buf = reinterpret_cast<uintptr_t>(rx);
    message.len = static_cast<uint32_t>(size);
    message.speed_hz = clockHz;
    message.bits_per_word = 8;
    return ::ioctl(fd, SPI_IOC_MESSAGE(1), &message) >= 1;
}

/// Two contestants that differ in where the received bytes go; `receive` is called with a buffer of `size` bytes.
template <class Receive>
static void addReceivers(Operations& operations, const std::string& name, size_t size, Receive receive)
{
    add(operations, name, size, "bare", [=, buffer = ByteArray(size)]() mutable { return receive(buffer.data()); });
    add(operations, name, size, "fresh vector", [=] {
        ByteArray buffer(size);
        return receive(buffer.data());
    });
}

static void addInit(Operations& operations)
{
    add(operations, "I2C init", 0, "bare", [] { return ::close(openI2c()) == 0; });
    add(operations, "I2C init", 0, "serialComm", [] { return I2c{i2cDevice, chipAddress}.init(); });

    add(operations, "SPI init", 0, "bare", [] { return ::close(openSpi()) == 0; });
    add(operations, "SPI init", 0, "serialComm", [] { return Spi{spiDevice, clockHz, SPI_MODE_0}.init(); });
}

static void addI2c(Operations& operations, int fd, size_t size)
{
    static I2c chip{i2cDevice, chipAddress};
    static const bool open = chip.init();
    if (!open) {
        exit(EXIT_FAILURE);
    }
    const ByteArray data(size, 'U');

    add(operations, "I2C write", size, "bare", [=] { return wrote(fd, data.data(), size); });
    add(operations, "I2C write", size, "serialComm", [=] { return chip.write(data); });

    addReceivers(operations, "I2C read", size, [=](uint8_t* buffer) { return readInto(fd, buffer, size); });
    add(operations, "I2C read", size, "serialComm", [=] { return chip.read(size).size() == size; });

    addReceivers(operations, "I2C writeRead", size,
                 [=](uint8_t* buffer) { return i2cCombined(fd, data, buffer, size); });
    add(operations, "I2C writeRead", size, "serialComm", [=] { return chip.writeRead(data, size).size() == size; });

    addReceivers(operations, "I2C readRegister", size,
                 [=](uint8_t* buffer) { return wrote(fd, &chipRegister, 1) && readInto(fd, buffer, size); });
    add(operations, "I2C readRegister", size, "serialComm",
        [=] { return chip.readRegister(chipRegister, size).size() == size; });

    const auto send = [=](uint8_t* message) {
        message[0] = chipRegister;
        memcpy(&message[1], data.data(), size);
        return wrote(fd, message, 1 + size);
    };
    add(operations, "I2C writeRegister", size, "bare",
        [=, message = ByteArray(1 + size)]() mutable { return send(message.data()); });
    add(operations, "I2C writeRegister", size, "fresh vector", [=] {
        ByteArray message(1 + size);
        return send(message.data());
    });
    add(operations, "I2C writeRegister", size, "serialComm", [=] { return chip.writeRegister(chipRegister, data); });
}

static void addSpi(Operations& operations, int fd, size_t size)
{
    static Spi chip{spiDevice, clockHz, SPI_MODE_0};
    static const bool open = chip.init();
    if (!open) {
        exit(EXIT_FAILURE);
    }
    const ByteArray data(size, 0x00);  // no command for a flash

    add(operations, "SPI write", size, "bare", [=] { return spiTransfer(fd, data.data(), nullptr, size); });
    add(operations, "SPI write", size, "serialComm", [=] { return chip.write(data); });

    addReceivers(operations, "SPI read", size, [=](uint8_t* buffer) { return spiTransfer(fd, nullptr, buffer, size); });
    add(operations, "SPI read", size, "serialComm", [=] { return chip.read(size).size() == size; });

    addReceivers(operations, "SPI writeRead", size,
                 [=](uint8_t* buffer) { return spiTransfer(fd, data.data(), buffer, size); });
    add(operations, "SPI writeRead", size, "serialComm", [=] { return chip.writeRead(data, size).size() == size; });
}

void addOperations(Operations& operations)
{
    addInit(operations);
    const int i2c = openI2c();
    const int spi = openSpi();
    for (const size_t size : {1, 16, 256, 4096}) {
        addI2c(operations, i2c, size);
        addSpi(operations, spi, size);
    }
}
