// LineReader on pseudo-terminals: what arrives in pieces is put together, and what is too much is kept.
#include "serialComm/LineReader.h"

#include "support/RealKernel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr milliseconds soon{5000};

class LineReaderTest : public RealKernel
{
protected:
    LineReaderTest() { EXPECT_TRUE(uart.init() && line.init()); }

    /// Sends pieces, each once the one before is no longer in the kernel: so that they are read one by one.
    std::thread sends(std::vector<ByteArray> pieces)
    {
        return std::thread{[this, pieces = std::move(pieces)] {
            for (const ByteArray& piece : pieces) {
                EXPECT_TRUE(master->write(piece));
                while (line.unread() != 0U) {
                    std::this_thread::sleep_for(milliseconds{1});
                }
                std::this_thread::sleep_for(milliseconds{2});
            }
        }};
    }

    std::optional<Uart> master{std::in_place, "/dev/ptmx", 115200, 1, "none", true};
    const std::string name = slaveOf(*master);
    Uart uart{name, 115200, 1, "none", true};
    Line line{name};
    LineReader reader{uart, line};
    bool failed = true;
};

TEST_F(LineReaderTest, LinesComeInPiecesAndSeveralAtOnce)
{
    std::thread sender = sends({bytes("fir"), bytes("st\nsecond\n\nfo"), bytes("urth"), bytes("\n")});
    for (const char* wanted : {"first", "second", "", "fourth"}) {
        EXPECT_EQ(bytes(wanted), reader.until('\n', soon, &failed));
        EXPECT_FALSE(failed);
    }
    sender.join();
    EXPECT_EQ(std::nullopt, reader.until('\n', milliseconds{0}, &failed));
    EXPECT_FALSE(failed) << "silence is no failure";
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(LineReaderTest, ALengthIsReceivedAndTheRestIsKept)
{
    std::thread sender = sends({bytes("0123"), bytes("456789")});
    EXPECT_EQ(bytes("01234"), reader.exactly(5, soon, &failed));
    EXPECT_EQ(ByteArray{}, reader.exactly(0, soon, &failed));
    EXPECT_FALSE(failed);
    EXPECT_EQ(bytes("567"), reader.exactly(3, milliseconds{0})) << "kept: needs no waiting";
    EXPECT_EQ(bytes("89"), reader.takeRest());
    EXPECT_EQ(ByteArray{}, reader.takeRest());
    sender.join();
}

static size_t lengthField(const ByteArray& received)
{
    return received.size() < 3 ? 0 : 3 + size_t{received[1]} * 256 + received[2];
}

/// Up to a delimiter; SLIP has c0, COBS 00.
template <uint8_t delimiter>
static size_t delimited(const ByteArray& received)
{
    const auto end = std::find(received.begin(), received.end(), delimiter);
    return end == received.end() ? 0 : static_cast<size_t>(end - received.begin()) + 1;
}

TEST_F(LineReaderTest, FramesEndWhereTheCallersFunctionSays)
{
    const struct {
        const char* title;
        LineReader::FrameLength length;
        std::vector<ByteArray> pieces;
        std::vector<ByteArray> frames;
    } table[] = {
        {"length field",
         lengthField,
         {{0x7e, 0x00}, {0x02, 0x0a, 0x0b, 0x7e, 0x00, 0x00, 0x7e}, {0x00, 0x01, 0xff}},
         {{0x7e, 0x00, 0x02, 0x0a, 0x0b}, {0x7e, 0x00, 0x00}, {0x7e, 0x00, 0x01, 0xff}}},
        {"SLIP", delimited<0xc0>, {{0x01, 0xdb}, {0xdc, 0xc0, 0x02, 0xc0}}, {{0x01, 0xdb, 0xdc, 0xc0}, {0x02, 0xc0}}},
        {"COBS", delimited<0x00>, {{0x03, 0x11}, {0x22, 0x00, 0x01}, {0x00}}, {{0x03, 0x11, 0x22, 0x00}, {0x01, 0x00}}},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.title);
        std::thread sender = sends(row.pieces);
        for (const ByteArray& wanted : row.frames) {
            EXPECT_EQ(wanted, reader.frame(row.length, soon, &failed));
        }
        sender.join();
        EXPECT_EQ(ByteArray{}, reader.takeRest());
    }
}

TEST_F(LineReaderTest, ADeadlineOfMillisecondsHoldsAndThePartIsKept)
{
    ASSERT_TRUE(master->write(bytes("half")));
    steady_clock::duration shortest = soon;
    for (int i = 0; i < 5; ++i) {  // one of them is not held up by a busy machine
        const steady_clock::time_point start = steady_clock::now();
        EXPECT_EQ(std::nullopt, reader.until('\n', milliseconds{20}, &failed));
        EXPECT_FALSE(failed);
        EXPECT_GE(steady_clock::now() - start, milliseconds{20});
        shortest = std::min(shortest, steady_clock::now() - start);
    }
    EXPECT_LT(shortest, milliseconds{400}) << "less than the half second of a read";
    std::thread sender = sends({bytes(" a"), bytes(" line\n")});
    EXPECT_EQ(bytes("half a line"), reader.until('\n', milliseconds::max()));
    sender.join();
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(LineReaderTest, ASteadyStreamDoesNotPutOffTheDeadline)
{
    std::atomic<bool> done{false};
    std::thread talker{[&] {
        while (!done) {
            EXPECT_TRUE(master->write({1}));
            std::this_thread::sleep_for(milliseconds{1});
        }
    }};
    const steady_clock::time_point start = steady_clock::now();
    EXPECT_EQ(std::nullopt, reader.until(0, milliseconds{50}));
    EXPECT_LT(steady_clock::now() - start, soon);
    done = true;
    talker.join();
}

TEST_F(LineReaderTest, ASignalDoesNotEndIt)
{
    std::thread sender;
    {
        const Interrupter interrupter;  // one signal every 100 ms
        sender = std::thread{[this] {
            std::this_thread::sleep_for(milliseconds{250});
            EXPECT_TRUE(master->write(bytes("late\n")));
        }};
        EXPECT_EQ(bytes("late"), reader.until('\n', soon, &failed));
    }
    sender.join();
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(LineReaderTest, APortThatDoesNotWaitLogsNothingWhileItIsSilent)
{
    Uart returns{name, 115200, 1, "none", false};
    ASSERT_TRUE(returns.init());
    LineReader polled{returns, line};
    EXPECT_EQ(std::nullopt, polled.until('\n', milliseconds{30}, &failed));
    EXPECT_FALSE(failed);
    std::thread sender = sends({bytes("a"), bytes("b\n")});
    EXPECT_EQ(bytes("ab"), polled.until('\n', soon));
    sender.join();
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(LineReaderTest, APortThatIsGoneFailsAtOnceAndKeepsWhatItHas)
{
    ASSERT_TRUE(master->write(bytes("the la")));
    EXPECT_EQ(std::nullopt, reader.until('\n', milliseconds{0}));
    master.reset();
    const steady_clock::time_point start = steady_clock::now();
    EXPECT_EQ(std::nullopt, reader.until('\n', milliseconds{60000}, &failed));
    EXPECT_LT(steady_clock::now() - start, soon);
    EXPECT_TRUE(failed);
    EXPECT_THAT(lines(), ElementsAre("ERROR Line reader on " + name + ": the port is gone"));
    EXPECT_EQ(bytes("the la"), reader.takeRest());
}

TEST_F(LineReaderTest, AClosedLineOrUartFails)
{
    Line closedLine{name};
    EXPECT_EQ(std::nullopt, (LineReader{uart, closedLine}.until('\n', soon, &failed)));
    EXPECT_TRUE(failed);
    EXPECT_THAT(lines(), ElementsAre("ERROR Line poll failed on " + name + ": not open"));

    ASSERT_TRUE(master->write({1}));
    Uart closedUart{name, 115200, 1, "none", true};
    EXPECT_EQ(std::nullopt, (LineReader{closedUart, line}.exactly(1, soon, &failed)));
    EXPECT_TRUE(failed);
    EXPECT_THAT(lines(), ElementsAre("ERROR Uart read failed: closed"));
}

TEST_F(LineReaderTest, WhatHasNoEndIsDroppedAfterAMebibyteAndTheNextCallBeginsAnew)
{
    std::thread talker{[this] {
        for (int i = 0; i < 257; ++i) {
            EXPECT_TRUE(master->write(ByteArray(4096, 'x')));
        }
        EXPECT_TRUE(master->write(bytes("\nnext\n")));
    }};
    EXPECT_EQ(std::nullopt, reader.until('\n', milliseconds{60000}, &failed));
    EXPECT_TRUE(failed);
    EXPECT_THAT(lines(), ElementsAre(StartsWith("ERROR Line reader on " + name + ": no end of a frame in 10")));
    EXPECT_TRUE(reader.until('\n', soon));
    EXPECT_EQ(bytes("next"), reader.until('\n', soon));
    talker.join();
}
