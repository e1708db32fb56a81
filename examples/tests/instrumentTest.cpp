// A pseudo-terminal stands in for the instrument: the test uses the master side, the driver the slave.
#include "../Instrument.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <functional>
#include <thread>

using namespace std::chrono_literals;

class InstrumentTest : public testing::Test
{
protected:
    InstrumentTest() { grantpt(master), unlockpt(master); }
    ~InstrumentTest() override { close(master); }

    void send(const std::string& text) const
    {
        ASSERT_EQ(write(master, text.data(), text.size()), ssize_t(text.size()));
    }

    std::string receive() const
    {
        char bytes[64];
        const ssize_t count = read(master, bytes, sizeof bytes);
        return count < 0 ? "" : std::string(bytes, static_cast<size_t>(count));
    }

    int master = posix_openpt(O_RDWR | O_NOCTTY);
};

TEST_F(InstrumentTest, JoinsTheParts)
{
    Uart port{ptsname(master), 9600, 1, "none", true};
    ASSERT_TRUE(port.init());

    std::string question;
    std::thread instrument{[this, &question] {
        question = receive();
        send("ACME,");
        std::this_thread::sleep_for(20ms);  // so that the driver needs two reads
        send("7\r\n");
    }};
    EXPECT_EQ(Instrument{port}.ask("*IDN?", 5s), "ACME,7");
    instrument.join();
    EXPECT_EQ(question, "*IDN?\n");
}

TEST_F(InstrumentTest, TakesALineEndingInTwoParts)
{
    Uart port{ptsname(master), 9600, 1, "none", true};
    ASSERT_TRUE(port.init());

    std::thread instrument{[this] {
        for (const char* answer : {"first\r", "\nsecond\r", "\nthird\r\n"}) {
            receive();
            send(answer);
        }
    }};
    Instrument driver{port};
    EXPECT_EQ(driver.ask("1?", 5s), "first");
    EXPECT_EQ(driver.ask("2?", 5s), "second");
    EXPECT_EQ(driver.ask("3?", 5s), "third");
    instrument.join();
}

TEST_F(InstrumentTest, StopsWaitingAfterTheTimeout)
{
    Uart port{ptsname(master), 9600, 1, "none", true};
    ASSERT_TRUE(port.init());
    EXPECT_EQ(Instrument{port}.ask("*IDN?", 100ms), std::nullopt);
}

TEST_F(InstrumentTest, NoticesThatThePortIsGone)
{
    Uart port{ptsname(master), 9600, 1, "none", true};
    ASSERT_TRUE(port.init());

    std::thread instrument{[this] {
        receive();
        close(std::exchange(master, -1));
    }};
    const auto asked = std::chrono::steady_clock::now();
    EXPECT_EQ(Instrument{port}.ask("*IDN?", 60s), std::nullopt);
    EXPECT_LT(std::chrono::steady_clock::now() - asked, 10s);
    instrument.join();
}
