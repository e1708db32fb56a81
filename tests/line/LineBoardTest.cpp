// Line on a UART with a driver of its own: that of the emulated board.
#include "serialComm/LineReader.h"

#include "Attributes.h"
#include "support/RealKernel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <optional>
#include <string>

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr milliseconds soon{10000};

class LineOnBoard : public RealKernel
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(uart->init());
        ASSERT_TRUE(line->init());
    }

    const std::string path = "/dev/ttymxc0";
    std::optional<Uart> uart{std::in_place, path, 9600, 1, "none", true};
    std::optional<Line> line{std::in_place, path};
};

TEST_F(LineOnBoard, AnyRateWhileAUartIsOpenAtAnother)
{
    const struct {
        uint32_t rate;
        const char* seen;
    } table[] = {
        {250000, "BOTHER 250000 250000 CS8 CLOCAL"},
        {14400, "BOTHER 14400 14400 CS8 CLOCAL"},
        {31250, "BOTHER 31250 31250 CS8 CLOCAL"},
        {115200, "115200 115200 CS8 CLOCAL"},  // the driver finds the constant itself
    };
    EXPECT_EQ("9600 9600 CS8 CLOCAL", attributesSeenByAnotherProcess(path)) << "as the Uart made it";
    for (const auto& row : table) {
        Line::Settings settings;
        settings.baudRate = row.rate;
        EXPECT_TRUE(line->setSettings(settings));
        EXPECT_EQ(row.rate, line->settings()->baudRate);
        EXPECT_EQ(row.seen, attributesSeenByAnotherProcess(path));
    }
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(LineOnBoard, SettingsStayWhenAllHaveClosedThePort)
{
    uart.reset();
    Line::Settings settings;
    settings.baudRate = 250000;
    settings.dataBits = 7;
    settings.parity = Line::Parity::Even;
    ASSERT_TRUE(line->setSettings(settings));
    line.reset();
    EXPECT_EQ("BOTHER 250000 250000 CS7 PARENB CLOCAL", attributesSeenByAnotherProcess(path));
}

TEST_F(LineOnBoard, TheDriverHasNoFiveOrSixBits)
{
    Line::Settings settings;
    settings.dataBits = 6;
    settings.parity = Line::Parity::Odd;
    EXPECT_FALSE(line->setSettings(settings));
    EXPECT_THAT(lines(),
                ElementsAre("ERROR Line settings differ on /dev/ttymxc0: asked for 9600 6O1, in force 9600 8O1"));
    settings.dataBits = 7;
    EXPECT_TRUE(line->setSettings(settings));
    EXPECT_EQ("9600 9600 CS7 PARENB PARODD CLOCAL", attributesSeenByAnotherProcess(path));
}

TEST_F(LineOnBoard, Rs485StaysWhenThePortCloses)
{
    Line::Rs485 bus;
    bus.rtsOnSend = false;
    bus.delayBeforeSendMs = 1;
    bus.delayAfterSendMs = 2;
    EXPECT_FALSE(line->setRs485(bus)) << "with this level this driver cannot switch the receiver off";
    EXPECT_THAT(lines(),
                ElementsAre("ERROR Line RS-485 differs on /dev/ttymxc0: asked for on, RTS 0 on send, delays 1 2 "
                            "ms, in force on, RTS 0 on send, delays 1 2 ms, receiving during send"));
    bus.receiveDuringSend = true;
    EXPECT_TRUE(line->setRs485(bus));
    uart.reset();
    line.reset();
    line.emplace(path);
    ASSERT_TRUE(line->init());
    const std::optional<Line::Rs485> found = line->rs485();
    ASSERT_TRUE(found);
    EXPECT_TRUE(found->enabled);
    EXPECT_FALSE(found->rtsOnSend);
    EXPECT_TRUE(found->receiveDuringSend);
    EXPECT_EQ(1U, found->delayBeforeSendMs);
    EXPECT_EQ(2U, found->delayAfterSendMs);
    EXPECT_THAT(lines(), IsEmpty());

    bus.delayAfterSendMs = 101;
    EXPECT_FALSE(line->setRs485(bus)) << "more than the kernel allows";
    EXPECT_THAT(lines(),
                ElementsAre("ERROR Line RS-485 differs on /dev/ttymxc0: asked for on, RTS 0 on send, delays 1 101 "
                            "ms, receiving during send, in force on, RTS 0 on send, delays 1 100 ms, receiving "
                            "during send"));
    bus.enabled = false;
    EXPECT_TRUE(line->setRs485(bus));
    EXPECT_FALSE(line->rs485()->enabled);
}

TEST_F(LineOnBoard, BytesAreCountedAndDrained)
{
    const std::optional<Line::Counters> before = line->counters();
    const ByteArray sent(1000, 'x');
    ASSERT_TRUE(uart->write(sent));
    EXPECT_TRUE(line->drain(soon));
    EXPECT_EQ(0U, line->unsent());
    EXPECT_EQ(1000U, line->counters()->sent - before->sent);
    if (std::getenv("UART_PEER") != nullptr) {  // it sends all of them back
        EXPECT_EQ(sent, (LineReader{*uart, *line}.exactly(1000, soon)));
        EXPECT_EQ(1000U, line->counters()->received - before->received);
    }
    EXPECT_TRUE(line->sendBreak(milliseconds{10}));
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(LineOnBoard, LinesAndLowLatencyAreSetAndReadBack)
{
    for (const bool on : {false, true}) {
        EXPECT_TRUE(line->setDtr(on));
        EXPECT_TRUE(line->setRts(!on));
        EXPECT_EQ(on, line->modemLines()->dtr);
        EXPECT_EQ(!on, line->modemLines()->rts);
        EXPECT_TRUE(line->setLowLatency(!on));
        EXPECT_EQ(!on, line->hardware()->lowLatency);
    }
    EXPECT_EQ(32U, line->hardware()->fifoBytes);
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(LineOnBoard, APortThatIsUnpluggedIsHungUp)
{
    const std::string driver = "/sys/bus/platform/drivers/imx-uart/";
    ASSERT_EQ(0, std::system(("echo 30860000.serial > " + driver + "unbind").c_str()));
    const std::optional<Line::Ready> ready = line->waitReadable(soon);
    EXPECT_TRUE(ready && ready->hungUp);
    EXPECT_FALSE(line->settings());
    EXPECT_FALSE(line->counters());
    EXPECT_FALSE(line->drain(soon));
    EXPECT_THAT(lines(), ElementsAre("ERROR Line TCGETS2 failed on /dev/ttymxc0: the port is gone, errno: 5",
                                     "ERROR Line TIOCGICOUNT failed on /dev/ttymxc0: the port is gone, errno: 5",
                                     "ERROR Line TIOCOUTQ failed on /dev/ttymxc0: the port is gone, errno: 5"));
    ASSERT_EQ(0, std::system(("echo 30860000.serial > " + driver + "bind").c_str()));
    EXPECT_TRUE(line->init()) << "it is back";
    EXPECT_TRUE(line->settings());
}
