#include "serialComm/I2c.h"
#include "serialComm/Spi.h"
#include "serialComm/Uart.h"

#include "support/Process.h"
#include "support/ScriptedKernel.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

/// Opens a device whose descriptor is /dev/zero: reads and writes of any length succeed, every ioctl() fails.
template <class Device>
static void openOnZero(Device& device, size_t answersAfterOpen)
{
    const int zero = open("/dev/zero", O_RDWR);
    Script script{answers(zero)};
    script.resize(1 + answersAfterOpen);
    ScriptedKernel kernel{script};
    EXPECT_TRUE(device.init());
}

TEST(Log, ADisabledStatementCostsOneLevelCheckAndNothingElse)
{
    I2c i2c{"/dev/i2c-4", 0x48};
    Spi spi{"/dev/spidev2.0", 500000, 0};
    Uart uart{"/dev/ttyS1", 9600, 1, "none", true};
    openOnZero(i2c, 1);
    openOnZero(spi, 4);
    openOnZero(uart, 4);
    const ByteArray data(16);

    const struct {
        const char* title;
        std::function<void()> call;
        int levelChecks;
        int allocations;
    } table[] = {
        {"I2c::write", [&] { i2c.write(data); }, 2, 0},
        {"I2c::read", [&] { i2c.read(16); }, 2, 1},
        {"I2c::read, length 0", [&] { i2c.read(0); }, 2, 0},
        {"I2c::readRegister", [&] { i2c.readRegister(1, 16); }, 2, 1},
        {"I2c::writeRegister", [&] { i2c.writeRegister(1, data); }, 2, 1},
        {"I2c::writeRead, failed", [&] { i2c.writeRead(data, 16); }, 1, 1},
        {"I2c::setMaxSpeed", [&] { i2c.setMaxSpeed(1); }, 1, 0},
        {"Spi::write, failed", [&] { spi.write(data); }, 3, 0},
        {"Spi::read, failed", [&] { spi.read(16); }, 3, 1},
        {"Spi::writeRead, failed", [&] { spi.writeRead(data, 16); }, 1, 1},
        {"Spi::writeRead with a copy, failed", [&] { spi.writeRead(data, 17); }, 1, 2},
        {"Spi::setMaxSpeed, failed", [&] { spi.setMaxSpeed(1); }, 4, 0},
        {"Uart::write", [&] { uart.write(data); }, 0, 0},
        {"Uart::read", [&] { uart.read(16); }, 0, 1},
    };

    recordLog(log4cplus::OFF_LOG_LEVEL);
    for (const auto& row : table) {
        SCOPED_TRACE(row.title);
        counts() = {};
        row.call();
        const Counts counted = counts();
        EXPECT_EQ(row.levelChecks, counted.levelChecks);
        EXPECT_EQ(row.allocations, counted.allocations);
        EXPECT_EQ(0, counted.scopesFormatted);
    }
}

TEST(Log, EachTraceLineCallsScopedFunction)
{
    recordLog();
    I2c device{"/dev/i2c-4", 0x48};
    counts() = {};
    ScriptedKernel kernel{{fails(EBADF), fails(EBADF)}};
    device.write({1});
    device.write({1});
    EXPECT_EQ(2, counts().scopesFormatted);
}

/// Collects the message of each record and the line of source code that the record names.
class StatementKeeper : public log4cplus::Appender
{
public:
    ~StatementKeeper() override { destructorImpl(); }
    void close() override { closed = true; }
    std::vector<std::pair<std::string, std::string>> statements;

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        std::ifstream source{FOLDER "/../../" + event.getFile()};
        std::string line;
        for (int number = 0; number < event.getLine(); ++number) {
            std::getline(source, line);
        }
        statements.emplace_back(event.getMessage(), line);
    }
};

TEST(Log, ARecordNamesTheLineOfItsStatement)
{
    const log4cplus::SharedAppenderPtr keeper{new StatementKeeper};
    log4cplus::Logger logger = log4cplus::Logger::getInstance("SerialComm");
    logger.removeAllAppenders();
    logger.addAppender(keeper);
    logger.setAdditivity(false);
    logger.setLogLevel(log4cplus::ERROR_LOG_LEVEL);

    I2c{"", 0}.setMaxSpeed(1);
    Spi{"", 0, 0}.setMaxSpeed(1);
    Uart{"", 0, 0, "", true}.write({1});
    const auto& statements = static_cast<StatementKeeper&>(*keeper).statements;
    EXPECT_EQ(4U, statements.size());
    for (const auto& [message, line] : statements) {
        EXPECT_EQ("LOG(ERROR, \"" + message + "\");", line.substr(line.find_first_not_of(' ')));
    }
    logger.removeAllAppenders();
}

TEST(Log, TheLevelDecidesWhichLinesAreWritten)
{
    const struct {
        log4cplus::LogLevel level;
        const char* timeline;
    } table[] = {
        {log4cplus::DEBUG_LOG_LEVEL,
         "DEBUG SPI set speed Hz: 500000\nINFO Leave: SPI initialized with speed Hz: 500000\n"},
        {log4cplus::INFO_LOG_LEVEL, "INFO Leave: SPI initialized with speed Hz: 500000\n"},
        {log4cplus::ERROR_LOG_LEVEL, ""},
    };
    for (const auto& row : table) {
        recordLog(row.level);
        ScriptedKernel kernel{{answers(7), answers(0), answers(0), answers(0), answers(0), answers(0)}};
        {
            Spi device{"/dev/spidev2.0", 500000, 0};
            device.init();
        }
        std::string lines;
        std::istringstream timeline{kernel.timeline()};
        for (std::string line; std::getline(timeline, line);) {
            lines += line.find("DEBUG ") == 0 || line.find("INFO ") == 0 || line.find("TRACE ") == 0 ? line + '\n' : "";
        }
        EXPECT_EQ(row.timeline, lines);
    }
}

TEST(Load, AHundredThousandTransfersOfEachKindLeakNothing)
{
    const WillingKernel kernel;
    I2c i2c{"/dev/i2c-4", 0x48};
    Spi spi{"/dev/spidev2.0", 500000, 0};
    Uart uart{"/dev/ttyS1", 9600, 1, "none", true};
    ASSERT_TRUE(i2c.init() && spi.init() && uart.init());
    const ByteArray data(16);

    recordLog(log4cplus::ERROR_LOG_LEVEL);
    const int before = counts().blocks;
    const Resources processBefore = resourcesInUse();
    size_t done = 0;
    for (int i = 0; i < 100000; ++i) {
        done += i2c.write(data) && i2c.writeRegister(1, data) && spi.write(data) && uart.write(data) ? 4 : 0;
        done += i2c.read(16).size() + i2c.writeRead(data, 16).size() + i2c.readRegister(1, 16).size();
        done += spi.read(16).size() + spi.writeRead({1, 2}, 16).size() + uart.read(16).size();
    }
    EXPECT_EQ(100000U * (4 + 6 * 16), done);
    EXPECT_EQ(before, counts().blocks);
    EXPECT_EQ(processBefore.descriptors, resourcesInUse().descriptors);
#ifndef __SANITIZE_ADDRESS__  // it keeps freed memory for a while, and detects leaks itself
    EXPECT_LT(resourcesInUse().residentKiB - processBefore.residentKiB, 256);
#endif
}
