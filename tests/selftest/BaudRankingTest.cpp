// The ranking, with bytes as a UART samples them: bits are sent at one rate and received at others.
#include "BaudRanking.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <string>
#include <vector>

/// How a peer sends, and what the driver tells of it.
struct Peer {
    uint32_t baudRate;
    size_t pause = 3;  ///< Bits of idle line after each fourth byte.
    bool errorsAreCounted = true;
};

/// What a UART at one rate receives of what a peer sends at another.
static BaudSample receivedAt(uint32_t baudRate, const Peer& peer, const ByteArray& bytes)
{
    const uint32_t sentAt = peer.baudRate;
    std::vector<bool> levels(20, true);  // idle, then 8N1 frames
    for (size_t i = 0; i < bytes.size(); ++i) {
        levels.push_back(false);
        for (int bit = 0; bit < 8; ++bit) {
            levels.push_back((bytes[i] >> bit & 1) != 0);
        }
        levels.insert(levels.end(), i % 4 == 3 ? 1 + peer.pause : 1, true);
    }
    // Time is counted in sixteenths of a bit at the receiver's rate, as such a chip does.
    const auto isHigh = [&](uint64_t time) {
        const uint64_t bit = time * sentAt / 16 / baudRate;
        return bit >= levels.size() || levels[bit];
    };
    const uint64_t end = levels.size() * 16 * baudRate / sentAt;

    BaudSample sample;
    sample.baudRate = baudRate;
    for (uint64_t time = 0; time < end; ++time) {
        if (isHigh(time)) {
            continue;
        }
        uint8_t byte = 0;  // a start bit: the middle of each bit after it counts
        for (uint64_t bit = 0; bit < 8; ++bit) {
            byte = static_cast<uint8_t>(byte | (isHigh(time + 24 + 16 * bit) ? 1U << bit : 0U));
        }
        sample.bytes.push_back(byte);
        time += 152;
        if (!isHigh(time)) {
            sample.framingErrors += peer.errorsAreCounted ? 1 : 0;
        }
        while (!isHigh(time)) {  // the next start bit comes after a high level
            ++time;
        }
    }
    return sample;
}

static const std::vector<uint32_t> rates = {4800, 9600, 14400, 19200, 38400, 57600, 115200};

static BaudRanking ranking(const Peer& peer, const ByteArray& bytes)
{
    std::vector<BaudSample> samples;
    std::transform(rates.begin(), rates.end(), std::back_inserter(samples),
                   [&](uint32_t rate) { return receivedAt(rate, peer, bytes); });
    return rankBaudRates(samples);
}

static ByteArray text()
{
    std::string lines;
    for (int i = 0; i < 6; ++i) {
        lines += "$GPGGA," + std::to_string(92750 + i) + ".000,5321.6802,N,00630.3372,W,1,8,1.03,61.7,M*76\r\n";
    }
    return {lines.begin(), lines.end()};
}

static ByteArray unordered()
{
    std::minstd_rand numbers;
    ByteArray bytes(300);
    for (uint8_t& byte : bytes) {
        byte = static_cast<uint8_t>(numbers() >> 8);
    }
    return bytes;
}

TEST(BaudRanking, TheSamplingOfThisTestIsRight)
{
    EXPECT_EQ(text(), receivedAt(9600, {9600}, text()).bytes);
    EXPECT_EQ(0U, receivedAt(9600, {9600}, unordered()).framingErrors);
    EXPECT_GT(receivedAt(19200, {9600}, unordered()).framingErrors, 30U);
    EXPECT_GT(receivedAt(14400, {19200}, unordered()).framingErrors, 30U);
}

TEST(BaudRanking, TextIsFoundAtEveryRate)
{
    for (const uint32_t rate : rates) {
        for (const Peer& peer : {Peer{rate}, Peer{rate, 3, false}, Peer{rate, 0}, Peer{rate, 0, false}}) {
            const BaudRanking found = ranking(peer, text());
            EXPECT_EQ(rate, found.scores[0].baudRate);
            EXPECT_TRUE(found.decided) << rate << ", next " << found.scores[1].baudRate << " " << found.scores[1].score;
        }
    }
}

TEST(BaudRanking, BinaryDataIsFoundByFramingErrorsAtAHigherRate)
{
    for (const uint32_t rate : rates) {
        for (const size_t pause : {0U, 3U, 20U}) {
            const BaudRanking found = ranking({rate, pause}, unordered());
            EXPECT_EQ(rate, found.scores[0].baudRate);
            EXPECT_EQ(rate != rates.back(), found.decided) << rate << ", pause " << pause;
            EXPECT_FALSE(ranking({rate, pause, false}, unordered()).decided) << rate << ", no errors counted";
        }
    }
}

TEST(BaudRanking, UndecidedWhenItIs)
{
    const ByteArray some = text();
    const auto sample = [](uint32_t rate, const ByteArray& bytes, uint32_t errors) {
        return BaudSample{rate, bytes, errors};
    };
    EXPECT_FALSE(rankBaudRates({}).decided);
    EXPECT_FALSE(rankBaudRates({sample(9600, {}, 0), sample(19200, {}, 0)}).decided) << "silence";
    EXPECT_FALSE(rankBaudRates({sample(9600, ByteArray(15, 'x'), 0)}).decided) << "too few bytes";
    EXPECT_TRUE(rankBaudRates({sample(9600, ByteArray(16, 'x'), 0)}).decided);
    EXPECT_FALSE(rankBaudRates({sample(9600, some, 0), sample(19200, some, 0)}).decided) << "two rates are alike";
    EXPECT_FALSE(ranking({9600}, ByteArray(100, 0xff)).decided) << "fits several rates";
    EXPECT_FALSE(ranking({230400}, text()).decided) << "twice the highest rate tried";
    EXPECT_FALSE(ranking({230400}, unordered()).decided) << "twice the highest rate tried";
}
