// How a chip's driver is tested without the chip: GoogleMock plays the bus.
#include "../Flash.h"
#include "../Lis3dh.h"
#include "../PayloadLog.h"
#include "../Tmp105.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <log4cplus/appender.h>

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

TEST(Lis3dh, StartsOnEitherBus)
{
    struct Row {
        const char* title;
        Lis3dh::Bus bus;
        uint8_t readFlags;
        ByteArray in_front;
    };
    const Row rows[] = {
        {"on I2C the reply is the register", Lis3dh::Bus::i2c, 0x80, {}},
        {"on SPI a byte stands before it", Lis3dh::Bus::spi, 0xc0, {0xff}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.title);
        const auto reply = [&row](uint8_t value) {
            ByteArray bytes = row.in_front;
            bytes.push_back(value);
            return bytes;
        };
        const auto readCommand = [&row](int reg) { return ByteArray{static_cast<uint8_t>(reg | row.readFlags)}; };

        StrictMock<MockBus> bus;
        InSequence inThisOrder;
        EXPECT_CALL(bus, writeRead(readCommand(0x0f), reply(0).size())).WillOnce(Return(reply(0x33)));
        EXPECT_CALL(bus, write(ByteArray{0x20, 0x57})).WillOnce(Return(true));
        EXPECT_CALL(bus, writeRead(readCommand(0x20), reply(0).size())).WillOnce(Return(reply(0x57)));
        EXPECT_TRUE(Lis3dh(bus, row.bus).init());
    }
}

TEST(Lis3dh, StaysOffWithoutTheRightChip)
{
    const ByteArray answers[] = {{}, {0x00}, {0x32}};  // none, a dead line, another chip
    for (const ByteArray& answer : answers) {
        StrictMock<MockBus> bus;  // fails the test if anything is written
        EXPECT_CALL(bus, writeRead).WillOnce(Return(answer));
        EXPECT_FALSE(Lis3dh(bus, Lis3dh::Bus::i2c).init());
    }
}

TEST(Lis3dh, TellsAFailedTransferFromAcceleration)
{
    struct Row {
        const char* title;
        Lis3dh::Bus bus;
        ByteArray reply;
        std::optional<std::array<double, 3>> axes;
    };
    const Row rows[] = {
        {"lying flat", Lis3dh::Bus::i2c, {0x0f, 0x00, 0x00, 0x00, 0xe0, 0x00, 0x40}, {{0.0, -0.5, 1.0}}},
        {"the same over SPI", Lis3dh::Bus::spi, {0xff, 0x0f, 0x00, 0x00, 0x00, 0xe0, 0x00, 0x40}, {{0.0, -0.5, 1.0}}},
        {"no new value", Lis3dh::Bus::i2c, {0x00, 0x00, 0x00, 0x00, 0xe0, 0x00, 0x40}, {}},
        {"failed on I2C: empty", Lis3dh::Bus::i2c, {}, {}},
        {"failed on SPI: zeros, not 0 g", Lis3dh::Bus::spi, ByteArray(8), {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.title);
        StrictMock<MockBus> bus;
        EXPECT_CALL(bus, writeRead).WillOnce(Return(row.reply));
        EXPECT_EQ(Lis3dh(bus, row.bus).acceleration(), row.axes);
    }
}

TEST(Tmp105, ReadsBothSidesOfZero)
{
    struct Row {
        ByteArray answer;
        std::optional<double> celsius;
    };
    const Row rows[] = {
        {{0x19, 0x80}, 25.5}, {{0xff, 0x80}, -0.5}, {{0xc9, 0x00}, -55.0}, {{0x7f, 0xf0}, 127.9375}, {{}, std::nullopt},
    };
    for (const Row& row : rows) {
        StrictMock<MockBus> bus;
        EXPECT_CALL(bus, writeRead(ByteArray{0x00}, 2)).WillOnce(Return(row.answer));
        EXPECT_EQ(Tmp105{bus}.celsius(), row.celsius);
    }
}

// What Spi does after a failure: an ERROR line, and a result like any other.
static ByteArray failedTransfer(const ByteArray&, size_t len)
{
    log4cplus::Logger logger = log4cplus::Logger::getInstance("SerialComm");
    LOG4CPLUS_ERROR(logger, "SPI can't send/read message. ret:-1");
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

TEST(Flash, KnowsFromTheLogThatATransferFailed)
{
    StrictMock<MockBus> bus;
    EXPECT_CALL(bus, writeRead).WillOnce(failedTransfer);
    EXPECT_EQ(Flash{bus}.read(0, 16), std::nullopt);

    EXPECT_CALL(bus, write).WillOnce([](const ByteArray& data) { return failedTransfer(data, 0).empty(); });
    EXPECT_FALSE(Flash{bus}.eraseSector(0));  // and the erase command itself does not go out
}

TEST(Flash, RefusesADeadLine)
{
    for (const uint8_t level : {uint8_t{0x00}, uint8_t{0xff}}) {
        StrictMock<MockBus> bus;
        EXPECT_CALL(bus, writeRead(ByteArray{0x9f}, 4)).WillOnce(Return(ByteArray(4, level)));
        EXPECT_EQ(Flash{bus}.id(), std::nullopt);
    }
}

TEST(Flash, RefusesToWrapAroundInAPage)
{
    StrictMock<MockBus> bus;  // nothing goes out
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

TEST(PayloadLog, PassesOnAndLogsBytes)
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
