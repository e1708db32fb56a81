// How to test a chip driver without the chip: GoogleMock stands in for the bus, or a session, or a chip with registers.
#include "../Dps310.h"
#include "../Flash.h"
#include "../PayloadLog.h"
#include "../Tmp105.h"

#include <serialComm/testing/RegisterChip.h>
#include <serialComm/testing/SessionBus.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <log4cplus/appender.h>

#include <thread>

using serialComm::testing::RegisterChip;
using serialComm::testing::SessionBus;
using testing::InSequence;
using testing::Return;
using testing::StrictMock;

class MockBus : public SyncSerialBase
{
public:
    MOCK_METHOD(bool, init, (), (override));
    MOCK_METHOD(ByteArray, read, (size_t), (override));
    MOCK_METHOD(bool, write, (const ByteArray&), (override));
    MOCK_METHOD(ByteArray, writeRead, (const ByteArray&, size_t), (override));
    MOCK_METHOD(bool, setMaxSpeed, (int), (override));
};

// A DPS310 on either bus: the expected reads and writes, in order.
class Barometer : public testing::TestWithParam<Dps310::Bus>
{
protected:
    Barometer()  // by default, a read fails
    {
        ON_CALL(bus, writeRead).WillByDefault([](const ByteArray&, size_t len) {
            return GetParam() == Dps310::Bus::i2c ? ByteArray{} : ByteArray(len);
        });
    }

    void reads(uint8_t reg, const ByteArray& bytes)
    {
        if (GetParam() == Dps310::Bus::i2c) {
            EXPECT_CALL(bus, writeRead(ByteArray{reg}, bytes.size())).WillOnce(Return(bytes));
            return;
        }
        ByteArray reply{0xff};  // received while the register address is sent
        reply.insert(reply.end(), bytes.begin(), bytes.end());
        EXPECT_CALL(bus, writeRead(ByteArray{static_cast<uint8_t>(reg | 0x80)}, reply.size())).WillOnce(Return(reply));
    }

    void failsToRead() { EXPECT_CALL(bus, writeRead); }
    void writes(uint8_t reg, uint8_t value) { EXPECT_CALL(bus, write(ByteArray{reg, value})).WillOnce(Return(true)); }

    void resets()
    {
        reads(0x08, {0xd0});  // ready, with a pressure measurement that another program started
        writes(0x0c, 0x09);
        reads(0x08, {0xc0});
    }

    void starts(const ByteArray& factors)
    {
        resets();
        reads(0x10, factors);
        writes(0x07, 0x80);
        writes(0x08, 0xc7);
        reads(0x06, {0x00, 0x80, 0xe7, 0x00});
    }

    StrictMock<MockBus> bus;
    InSequence inThisOrder;
    Dps310 sensor{bus, GetParam()};
};

INSTANTIATE_TEST_SUITE_P(OnI2c, Barometer, testing::Values(Dps310::Bus::i2c));
INSTANTIATE_TEST_SUITE_P(OnSpi, Barometer, testing::Values(Dps310::Bus::spi));

// 18 bytes of factors, 6 unused bytes, and the thermometer that the factors belong to.
static const ByteArray typical{0x0e, 0x1e, 0xdd, 0x13, 0xca, 0x5f, 0x21, 0x52, 0xf9, 0xc6, 0x04, 0xd1, 0xdb,
                               0x47, 0x00, 0x5b, 0xfb, 0x3a, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x90};
static const ByteArray opposite{0xf1, 0xf1, 0x23, 0xec, 0x35, 0xa0, 0xde, 0xae, 0x06, 0x3a, 0xfb, 0x2f, 0x24,
                                0xb9, 0xff, 0xa5, 0x04, 0xc6, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x80};
static const ByteArray extreme{0x80, 0x07, 0xff, 0x80, 0x00, 0x07, 0xff, 0xff, 0x80, 0x00, 0x7f, 0xff, 0x80,
                               0x00, 0x7f, 0xff, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x80};

TEST_P(Barometer, CompensatesByTheChipsFactors)
{
    struct Row {
        const char* title;
        ByteArray factors;
        ByteArray pressureAndTemperature;
        double celsius;
        double pascal;
    };
    const Row rows[] = {
        {"a room", typical, {0xfe, 0x2f, 0xee, 0x02, 0x69, 0xa6}, 24.738430, 92946.311422},
        {"every sign inverted", opposite, {0x01, 0xd0, 0x12, 0xfd, 0x96, 0x5a}, -200.261570, -68042.756089},
        {"ends of the ranges", extreme, {0x80, 0x00, 0x00, 0x7f, 0xff, 0xff}, 31727.996096, 242217217.062958},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.title);
        starts(row.factors);
        ASSERT_TRUE(sensor.init());

        ByteArray bytes = row.pressureAndTemperature;
        bytes.insert(bytes.end(), {0x00, 0x80, 0xc7});  // settings, and the status, which the read has cleared
        reads(0x08, {0xf7});
        reads(0x00, bytes);
        const auto measured = sensor.measure();
        ASSERT_TRUE(measured);
        EXPECT_NEAR(measured->celsius, row.celsius, 1e-6);
        EXPECT_NEAR(measured->pascal, row.pascal, 1e-5);
    }
}

TEST_P(Barometer, IsNotWrittenToBeforeItAnswers)
{
    failsToRead();
    EXPECT_FALSE(sensor.init());

    const ByteArray notReady{0x00, 0xff, 0x40, 0x80};  // line stuck low, stuck high; factors or sensor not ready
    for (const uint8_t flags : notReady) {
        reads(0x08, {flags});
        EXPECT_FALSE(sensor.init());
    }
}

TEST_P(Barometer, DoesNotStartAfterAFailedRead)
{
    reads(0x08, {0xc0});
    writes(0x0c, 0x09);
    failsToRead();  // the status after the reset
    EXPECT_FALSE(sensor.init());

    resets();
    failsToRead();  // the factors
    EXPECT_FALSE(sensor.init());

    resets();
    reads(0x10, typical);
    writes(0x07, 0x80);
    writes(0x08, 0xc7);
    failsToRead();  // the settings
    EXPECT_FALSE(sensor.init());
}

TEST_P(Barometer, DoesNotStartAfterAFailedWrite)
{
    const ByteArray settings[] = {
        {0x00, 0x00, 0xc7, 0x00},  // thermometer not selected
        {0x00, 0x80, 0xc0, 0x00},  // measurement not started
        {0x33, 0x80, 0xc7, 0x00},  // not reset: another program's settings
        {0x00, 0x80, 0xc7, 0x04},
    };
    for (const ByteArray& readBack : settings) {
        resets();
        reads(0x10, typical);
        writes(0x07, 0x80);
        writes(0x08, 0xc7);
        reads(0x06, readBack);
        EXPECT_FALSE(sensor.init());
    }

    reads(0x08, {0xc0});
    EXPECT_CALL(bus, write).WillOnce(Return(false));  // as I2c reports a failure
    EXPECT_FALSE(sensor.init());
}

TEST_P(Barometer, NoticesEachFailedTransferOfItsStart)
{
    const auto startsWithFailure = [](size_t call) {
        RegisterChip chip{GetParam() == Dps310::Bus::i2c ? RegisterChip::Kind::i2c : RegisterChip::Kind::spi};
        chip.registers[0x08] = 0xc0;
        std::copy(typical.begin(), typical.end(), chip.registers.begin() + 0x10);
        chip.failOnCall(call);
        return Dps310{chip, GetParam()}.init();
    };
    EXPECT_TRUE(startsWithFailure(0));
    for (size_t call = 1; call <= 7; ++call) {
        const bool unseen = call == 2;  // the reset: a chip that was not reset answers as one that was
        EXPECT_EQ(startsWithFailure(call), unseen && GetParam() == Dps310::Bus::spi) << "transfer " << call;
    }
}

TEST_P(Barometer, ReturnsNothingWithoutANewMeasurement)
{
    const ByteArray nothingNew{0xc7, 0xd7, 0xe7, 0xc0,
                               0xff};  // none or one of the two new; chip reset; line stuck high
    for (const uint8_t flags : nothingNew) {
        reads(0x08, {flags});
        EXPECT_FALSE(sensor.measure());
    }
    failsToRead();
    EXPECT_FALSE(sensor.measure());

    reads(0x08, {0xf7});
    failsToRead();
    EXPECT_FALSE(sensor.measure());
}

TEST(Tmp105, ReadsBothSidesOfZero)
{
    SessionBus bus{"S 48 W 00 Sr 48 R 19 80 P", "S 48 W 00 Sr 48 R ff 80 P", "S 48 W 00 Sr 48 R c9 00 P",
                   "S 48 W 00 Sr 48 R 7f f0 P", "S 48 W 00 Sr 48 R [2] NA ETIMEDOUT"};
    Tmp105 sensor{bus};
    for (const double celsius : {25.5, -0.5, -55.0, 127.9375})
        EXPECT_EQ(sensor.celsius(), celsius);
    EXPECT_EQ(sensor.celsius(), std::nullopt);
}

static void logError()
{
    log4cplus::Logger logger = log4cplus::Logger::getInstance("SerialComm");
    LOG4CPLUS_ERROR(logger, "SPI can't send/read message. ret:-1");
}

TEST(ErrorWatch, SeesTheErrorsOfItsThreadWhileItLives)
{
    const ErrorWatch outer;
    EXPECT_FALSE(outer.failed());
    logError();
    {
        const ErrorWatch inner;
        EXPECT_FALSE(inner.failed());
        logError();
        EXPECT_TRUE(inner.failed());
    }
    EXPECT_TRUE(outer.failed());

    const ErrorWatch later;
    std::thread{logError}.join();
    EXPECT_FALSE(later.failed());
}

TEST(ErrorWatch, SeesErrorsOnly)
{
    const ErrorWatch watch;
    LOG4CPLUS_INFO(log4cplus::Logger::getInstance("SerialComm"), "Leave");
    EXPECT_FALSE(watch.failed());
}

// What Spi does after a failure: it logs an ERROR and returns as after a success.
static ByteArray failedTransfer(const ByteArray&, size_t len)
{
    logError();
    return ByteArray(len);
}

TEST(Flash, ErasesAndWaitsUntilTheChipIsDone)
{
    StrictMock<MockBus> bus;
    InSequence inThisOrder;
    EXPECT_CALL(bus, write(ByteArray{0x06})).WillOnce(Return(true));
    EXPECT_CALL(bus, write(ByteArray{0x20, 0x01, 0x20, 0x00})).WillOnce(Return(true));
    EXPECT_CALL(bus, writeRead(ByteArray{0x05}, 2)).WillOnce(Return(ByteArray{0xff, 0x03}));
    EXPECT_CALL(bus, writeRead(ByteArray{0x05}, 2)).WillOnce(Return(ByteArray{0xff, 0x00}));
    EXPECT_TRUE(Flash{bus}.eraseSector(0x012000));
}

TEST(Flash, GivesUpOnAChipThatStaysBusy)
{
    StrictMock<MockBus> bus;
    EXPECT_CALL(bus, write).Times(2).WillRepeatedly(Return(true));
    EXPECT_CALL(bus, writeRead).WillRepeatedly(Return(ByteArray{0xff, 0x01}));
    EXPECT_FALSE(Flash{bus}.program(0x0100, {0x01}));
}

TEST(Flash, NoticesAFailedTransferInTheLog)
{
    StrictMock<MockBus> bus;
    EXPECT_CALL(bus, writeRead).WillOnce(failedTransfer);
    EXPECT_EQ(Flash{bus}.read(0, 16), std::nullopt);

    EXPECT_CALL(bus, write).WillOnce([](const ByteArray& data) { return failedTransfer(data, 0).empty(); });
    EXPECT_FALSE(Flash{bus}.eraseSector(0));  // the erase command itself is not sent
}

TEST(Flash, RejectsALineThatIsStuck)
{
    for (const uint8_t level : {uint8_t{0x00}, uint8_t{0xff}}) {
        StrictMock<MockBus> bus;
        EXPECT_CALL(bus, writeRead(ByteArray{0x9f}, 4)).WillOnce(Return(ByteArray(4, level)));
        EXPECT_EQ(Flash{bus}.id(), std::nullopt);
    }
}

TEST(Flash, RefusesToWrapAroundInAPage)
{
    StrictMock<MockBus> bus;  // nothing is sent
    EXPECT_FALSE(Flash{bus}.program(0x01ff, {0x01, 0x02}));
}

class Lines : public log4cplus::Appender
{
public:
    explicit Lines(std::string& output) : text(output) {}
    ~Lines() override { destructorImpl(); }
    void close() override { closed = true; }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override { text += event.getMessage() + "\n"; }

private:
    std::string& text;
};

TEST(PayloadLog, PassesCallsOnAndLogsBytes)
{
    log4cplus::Logger logger = log4cplus::Logger::getInstance("Payload");
    std::string text;
    log4cplus::SharedAppenderPtr lines{new Lines{text}};
    logger.addAppender(lines);

    StrictMock<MockBus> bus;
    EXPECT_CALL(bus, write(ByteArray{0x01, 0xa0})).WillOnce(Return(false));
    EXPECT_CALL(bus, read(2)).WillOnce(Return(ByteArray{0x0f, 0xff}));
    EXPECT_CALL(bus, writeRead(ByteArray{0x9f}, 2)).WillOnce(Return(ByteArray{}));

    PayloadLog payload{bus};
    EXPECT_FALSE(payload.write({0x01, 0xa0}));
    EXPECT_EQ(payload.read(2), (ByteArray{0x0f, 0xff}));
    EXPECT_EQ(payload.writeRead({0x9f}, 2), ByteArray{});
    EXPECT_EQ(text, "write 01 a0\nread 0f ff\nwriteRead 9f ->\n");
    logger.removeAppender(lines);
}
