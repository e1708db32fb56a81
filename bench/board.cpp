// Times operations on the board's chips, with the real drivers: the operations of bus.cpp with the EEPROM and the
// flash, and two steps of an application, one sample of the temperature sensor and one page of the flash. Prints the
// median times, in nanoseconds, of repetitions in random order: as many as take half a second, and no more than 301.
#include "Devices.h"
#include "Operation.h"

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
#include <random>
#include <vector>

const char* const i2cDevice = "/dev/i2c-4";
const char* const spiDevice = "/dev/spidev2.0";

static const int sensorAddress = 0x48;
static const uint8_t configurationRegister = 1;
static const uint8_t temperatureRegister = 0;
static const uint8_t twelveBits = 0x60;

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

static double celsius(const uint8_t* bytes)
{
    return static_cast<int16_t>(bytes[0] << 8 | bytes[1]) / 256.0;
}

static bool plausible(double temperature)
{
    return temperature >= -55 && temperature <= 128;
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

/// The steps of an application, with one descriptor for each chip.
static void addApplication(Operations& operations)
{
    static I2c sensor{i2cDevice, sensorAddress};
    static Spi flash{spiDevice, flashClockHz, 0};
    const int sensorFd = ::open(i2cDevice, O_RDWR);
    const int flashFd = ::open(spiDevice, O_RDWR);
    if (!sensor.init() || !flash.init() || ::ioctl(sensorFd, I2C_SLAVE, sensorAddress) != 0 || flashFd < 0) {
        fputs("time_board: no sensor or no flash here; run it on the board\n", stderr);
        exit(EXIT_FAILURE);
    }

    add(operations, "sensor sample", 0, "bare", [=] { return sampleBare(sensorFd); });
    add(operations, "sensor sample", 0, "serialComm", [] { return sampleWithSerialComm(sensor); });
    add(operations, "flash page", 0, "bare", [=] { return pageBare(flashFd); });
    add(operations, "flash page", 0, "serialComm", [] { return pageWithSerialComm(flash); });
}

struct Timed {
    Operation* operation;
    std::chrono::nanoseconds total{};
    std::vector<std::chrono::nanoseconds> times = {};

    void run()
    {
        const auto start = std::chrono::steady_clock::now();
        operation->run();
        times.emplace_back(std::chrono::steady_clock::now() - start);
        total += times.back();
    }

    std::chrono::nanoseconds median()
    {
        const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
        std::nth_element(times.begin(), middle, times.end());
        return *middle;
    }
};

int main()
{
    const log4cplus::Initializer initializer;
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);

    Operations operations;
    addApplication(operations);
    addOperations(operations);

    std::vector<Timed> contestants;
    for (const auto& operation : operations) {
        contestants.push_back({operation.get()});
    }

    const int rounds = 301;
    const std::chrono::milliseconds share{500};
    std::minstd_rand random;
    for (int round = 0; round < rounds; ++round) {
        std::shuffle(contestants.begin(), contestants.end(), random);
        for (Timed& contestant : contestants) {
            if (contestant.total < share) {
                contestant.run();
            }
        }
    }
    for (Timed& contestant : contestants) {
        const Operation& operation = *contestant.operation;
        printf("%s\t%zu\t%s\t%lld\n", operation.name.c_str(), operation.size, operation.contestant.c_str(),
               static_cast<long long>(contestant.median().count()));
    }
}
