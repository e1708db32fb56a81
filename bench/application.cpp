// An application's view of the board's chips: one sample of the temperature sensor and one page of the flash, with
// serialComm and with bare system calls. Prints the median times, in nanoseconds, of repetitions in random order.
#include "serialComm/I2c.h"
#include "serialComm/Spi.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <vector>

static const char* const sensorNode = "/dev/i2c-4";
static const int sensorAddress = 0x48;
static const uint8_t configurationRegister = 1;
static const uint8_t temperatureRegister = 0;
static const uint8_t twelveBits = 0x60;

static const char* const flashNode = "/dev/spidev2.0";
static const int flashClockHz = 10000000;
static const uint8_t writeEnable = 0x06;
static const uint8_t readStatus = 0x05;
static const uint8_t busy = 0x01;
static const ByteArray pageProgram = [] {
    ByteArray message(4 + 256, 0x55);
    message[0] = 0x02;
    message[1] = message[2] = message[3] = 0;
    return message;
}();

/// To the flash, 256 times no operation.
static const ByteArray quiet(256, 0x00);

static double celsius(const uint8_t* bytes)
{
    return static_cast<int16_t>(bytes[0] << 8 | bytes[1]) / 256.0;
}

static bool plausible(double temperature)
{
    return temperature >= -55 && temperature <= 128;
}

static bool readBare(int fd)
{
    uint8_t bytes[16];
    return ::read(fd, bytes, sizeof bytes) == sizeof bytes;
}

static bool sampleWithSerialComm(I2c& sensor)
{
    if (!sensor.writeRegister(configurationRegister, {twelveBits})) {
        return false;
    }
    const ByteArray bytes = sensor.writeRead({temperatureRegister}, 2);
    return bytes.size() == 2 && plausible(celsius(bytes.data()));
}

static bool sampleBare(int fd)
{
    const uint8_t configuration[] = {configurationRegister, twelveBits};
    if (::write(fd, configuration, sizeof configuration) != sizeof configuration) {
        return false;
    }
    uint8_t reg = temperatureRegister;
    uint8_t bytes[2];
    struct i2c_msg messages[2]{};
    messages[0].addr = sensorAddress;
    messages[0].len = 1;
    messages[0].buf = &reg;
    messages[1].addr = sensorAddress;
    messages[1].flags = I2C_M_RD;
    messages[1].len = sizeof bytes;
    messages[1].buf = bytes;
    struct i2c_rdwr_ioctl_data request {
    };
    request.msgs = messages;
    request.nmsgs = 2;
    return ::ioctl(fd, I2C_RDWR, &request) == 2 && plausible(celsius(bytes));
}

static bool pageWithSerialComm(Spi& flash)
{
    flash.write({writeEnable});
    flash.write(pageProgram);
    ByteArray status;
    do {
        status = flash.writeRead({readStatus}, 2);
    } while ((status[1] & busy) != 0);
    return true;
}

static bool exchange(int fd, const uint8_t* tx, uint8_t* rx, size_t length)
{
    struct spi_ioc_transfer transfer {
    };
    transfer.tx_buf = reinterpret_cast<uintptr_t>(tx);
    transfer.rx_buf = reinterpret_cast<uintptr_t>(rx);
    transfer.len = static_cast<uint32_t>(length);
    transfer.speed_hz = flashClockHz;
    transfer.bits_per_word = 8;
    return ::ioctl(fd, SPI_IOC_MESSAGE(1), &transfer) >= 1;
}

static bool pageBare(int fd)
{
    const uint8_t poll[2] = {readStatus, 0};
    uint8_t status[2];
    if (!exchange(fd, &writeEnable, nullptr, 1) || !exchange(fd, pageProgram.data(), nullptr, pageProgram.size())) {
        return false;
    }
    do {
        if (!exchange(fd, poll, status, sizeof status)) {
            return false;
        }
    } while ((status[1] & busy) != 0);
    return true;
}

int main()
{
    const log4cplus::Initializer initializer;
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);

    I2c sensor{sensorNode, sensorAddress};
    Spi flash{flashNode, flashClockHz, 0};
    const int sensorFd = ::open(sensorNode, O_RDWR);
    const int flashFd = ::open(flashNode, O_RDWR);
    if (!sensor.init() || !flash.init() || ::ioctl(sensorFd, I2C_SLAVE, sensorAddress) != 0 || flashFd < 0) {
        fputs("application: no sensor or no flash here; run it on the board\n", stderr);
        return EXIT_FAILURE;
    }

    struct Contestant {
        const char* name;
        std::function<bool()> run;
        std::vector<std::chrono::nanoseconds> times = {};
    } contestants[] = {
        {"I2C read, 16 bytes\tbare", [=] { return readBare(sensorFd); }},
        {"I2C read, 16 bytes\tserialComm", [&] { return sensor.read(16).size() == 16; }},
        {"SPI write, 256 bytes\tbare", [=] { return exchange(flashFd, quiet.data(), nullptr, quiet.size()); }},
        {"SPI write, 256 bytes\tserialComm", [&] { return flash.write(quiet); }},
        {"sensor sample\tbare", [=] { return sampleBare(sensorFd); }},
        {"sensor sample\tserialComm", [&] { return sampleWithSerialComm(sensor); }},
        {"flash page\tbare", [=] { return pageBare(flashFd); }},
        {"flash page\tserialComm", [&] { return pageWithSerialComm(flash); }},
    };

    const int repetitions = 301;
    std::minstd_rand random;
    for (int i = 0; i < repetitions; ++i) {
        std::shuffle(std::begin(contestants), std::end(contestants), random);
        for (Contestant& contestant : contestants) {
            const auto start = std::chrono::steady_clock::now();
            const bool succeeded = contestant.run();
            contestant.times.emplace_back(std::chrono::steady_clock::now() - start);
            if (!succeeded) {
                fprintf(stderr, "application: %s failed\n", contestant.name);
                return EXIT_FAILURE;
            }
        }
    }
    for (Contestant& contestant : contestants) {
        const auto median = contestant.times.begin() + repetitions / 2;
        std::nth_element(contestant.times.begin(), median, contestant.times.end());
        printf("%s\t%lld\n", contestant.name, static_cast<long long>(median->count()));
    }
}
