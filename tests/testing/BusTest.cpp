// The buses for unit tests against the behaviour and the log lines of I2c and Spi.
#include "serialComm/testing/RegisterChip.h"
#include "serialComm/testing/SessionBus.h"

#include <gtest/gtest.h>
#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <fstream>
#include <stdexcept>

using serialComm::testing::RegisterChip;
using serialComm::testing::SessionBus;

class BusLog : public log4cplus::Appender
{
public:
    ~BusLog() override { destructorImpl(); }
    void close() override { closed = true; }
    std::string lines;

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override { lines += event.getMessage() + '\n'; }
};

class Testing : public ::testing::Test
{
protected:
    Testing()
    {
        log4cplus::Logger logger = log4cplus::Logger::getInstance("SerialComm");
        logger.removeAllAppenders();
        logger.addAppender(log);
        logger.setAdditivity(false);
    }

    const std::string& logged() { return static_cast<BusLog&>(*log).lines; }

    log4cplus::SharedAppenderPtr log{new BusLog};
    std::string failures;
    serialComm::testing::FailureHandler fail = [this](const std::string& text) { failures += text; };
};

TEST_F(Testing, SessionOnI2c)
{
    SessionBus bus{"open i2c  ENOENT",
                   "open i2c",
                   "S 48 W 01 60 P",
                   "S 48 R 19 80 P",
                   "S 48 W 00 Sr 48 R 19 -- P",
                   "S 48 W 00 Sr 48 R [2] NA ETIMEDOUT",
                   "S 48 R 19 [1] P",
                   "S 48 R [2] NA ENXIO",
                   "S 48 W 01 [1] P",
                   "S 48 W 01 60 NA ENXIO"};
    EXPECT_FALSE(bus.init());
    EXPECT_TRUE(bus.init());
    EXPECT_TRUE(bus.write({0x01, 0x60}));
    EXPECT_EQ((ByteArray{0x19, 0x80}), bus.read(2));
    EXPECT_EQ((ByteArray{0x19, 0x00}), bus.writeRead({0x00}, 2));
    EXPECT_EQ("", logged());
    EXPECT_EQ(ByteArray{}, bus.writeRead({0x00}, 2));
    EXPECT_EQ(ByteArray{}, bus.read(2));
    EXPECT_EQ(ByteArray{}, bus.read(2));
    EXPECT_FALSE(bus.write({0x01, 0x60}));
    EXPECT_FALSE(bus.write({0x01, 0x60}));
    EXPECT_FALSE(bus.setMaxSpeed(1));
    EXPECT_EQ("I2C ioctl I2C_RDWR failed, return: -1 error: Connection timed out\n"
              "I2C read failed, requested: 2, returned: 1\n"
              "I2C read failed, requested: 2, returned: -1\n"
              "I2C write failed, requested: 2, written: 1\n"
              "I2C write failed, requested: 2, written: -1\n"
              "I2C set max speed is not supported\n",
              logged());
}

TEST_F(Testing, SessionOnSpi)
{
    SessionBus bus{"speed 1 MHz  EINVAL",        "MOSI 9f 00 00 MISO -- x 1 ef 40", "MOSI 00 00 MISO 12 34",
                   "MOSI 06 MISO -- x 1",        "MOSI 9f 00 MISO [2]  ESHUTDOWN",  "MOSI 00 MISO [1]  ESHUTDOWN",
                   "MOSI 06 MISO [1]  ESHUTDOWN"};
    EXPECT_TRUE(bus.init());
    EXPECT_TRUE(bus.setMaxSpeed(1'000'000));
    EXPECT_EQ((ByteArray{0x00, 0xef, 0x40}), bus.writeRead({0x9f}, 3));
    EXPECT_EQ((ByteArray{0x12, 0x34}), bus.read(2));
    EXPECT_TRUE(bus.write({0x06}));
    EXPECT_EQ((ByteArray{0x00, 0x00}), bus.writeRead({0x9f, 0x00}, 1));
    EXPECT_EQ((ByteArray{0x00}), bus.read(1));
    EXPECT_TRUE(bus.write({0x06}));
    EXPECT_EQ("SPI can't set write max speed hz\n"
              "SPI can't send/read message. ret:-1\n"
              "SPI can't read spi message. errno: 108\n"
              "SPI can't send message. errno: 108\n",
              logged());
}

TEST_F(Testing, SessionFailsTheTest)
{
    {
        SessionBus bus{{"S 48 W 00 P", "repeat {", "  S 48 R 01 P", "}", "S 48 W 02 P"}, fail};
        EXPECT_FALSE(bus.write({0x01}));
        EXPECT_EQ("session:1: expected  S 48 W 00 P\n           came      S 48 W 01 P\n", failures);
        failures.clear();
        EXPECT_TRUE(bus.write({0x00}));
        EXPECT_EQ(ByteArray{0x01}, bus.read(1));
        EXPECT_EQ(ByteArray{0x01}, bus.read(1));
        EXPECT_EQ("", failures);
    }
    EXPECT_EQ("session:5: never asked for: S 48 W 02 P\n", failures);
}

TEST_F(Testing, SessionFromAFileIsAboutOneChip)
{
    const std::string path = ::testing::TempDir() + "two.session";
    std::ofstream{path} << "serialcomm session 1\n"
                           "i2c-4 S 48 W 00 Sr 48 R 19 80 P\n"
                           "i2c-4 S 50 W 00 P\n"
                           "spidev0.0 MOSI 9f MISO 00\n"
                           "i2c-4 S 48 W 01 P\n";
    {
        SessionBus bus = SessionBus::fromFile(path, "/dev/i2c-4", 0x48, fail);
        EXPECT_EQ((ByteArray{0x19, 0x80}), bus.writeRead({0x00}, 2));
    }
    EXPECT_EQ(path + ":5: never asked for: i2c-4  S 48 W 01 P\n", failures);
    EXPECT_THROW(SessionBus::fromFile(path, "/dev/i2c-5", 0x48), std::invalid_argument);
    EXPECT_THROW(SessionBus::fromFile(path + "?", "/dev/i2c-4", 0x48), std::invalid_argument);
}

TEST_F(Testing, SessionRefusesWhatItCannotPlay)
{
    const char* const lines[] = {"", "S 48 W 00", "S 48 W 00 P\nS 49 W 00 P", "S 48 W 00 P\nMOSI 9f MISO 00",
                                 "> \"a\""};
    for (const char* line : lines) {
        EXPECT_THROW((SessionBus{line, fail}), std::invalid_argument) << line;
    }
    EXPECT_EQ("", failures);
}

TEST_F(Testing, RegistersOnBothBuses)
{
    RegisterChip i2c;
    EXPECT_TRUE(i2c.init());
    EXPECT_TRUE(i2c.write({0xff, 0x01, 0x02}));  // the number wraps around
    EXPECT_TRUE(i2c.write({0xff}));
    EXPECT_EQ((ByteArray{0x01, 0x02}), i2c.read(2));
    i2c.registers[0x10] = 0xab;
    EXPECT_EQ((ByteArray{0xab, 0x00}), i2c.writeRead({0x10}, 2));
    EXPECT_EQ((std::vector<RegisterChip::Written>{{0xff, {0x01, 0x02}}}), i2c.written);
    EXPECT_EQ(4U, i2c.calls());

    RegisterChip spi{RegisterChip::Kind::spi};
    EXPECT_TRUE(spi.write({0x10, 0xab}));
    EXPECT_EQ((ByteArray{0xff, 0xab, 0x00}), spi.writeRead({0x90}, 3));
    EXPECT_EQ((std::vector<RegisterChip::Written>{{0x10, {0xab}}}), spi.written);
    EXPECT_EQ("", logged());
}

TEST_F(Testing, RegistersFailOnTheCallThatIsNamed)
{
    RegisterChip i2c;
    i2c.failOnCall(2);
    EXPECT_TRUE(i2c.write({0x10, 0x01}));
    EXPECT_FALSE(i2c.write({0x10, 0x02}));
    EXPECT_EQ(ByteArray{0x01}, i2c.writeRead({0x10}, 1));
    EXPECT_EQ("I2C write failed, requested: 2, written: -1\n", logged());

    RegisterChip spi{RegisterChip::Kind::spi};
    spi.failOnCall(1, EREMOTEIO);
    EXPECT_EQ((ByteArray{0x00, 0x00}), spi.writeRead({0x90}, 2));
    EXPECT_EQ("I2C write failed, requested: 2, written: -1\nSPI can't send/read message. ret:-1\n", logged());
}
