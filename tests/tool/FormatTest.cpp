// Values to text.

#include "Format.h"

#include "Values.h"

#include <gtest/gtest.h>

#include <numeric>

namespace
{

Bytes upTo(size_t size)
{
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), uint8_t{0});
    return bytes;
}

TEST(Format, BytesAreSixteenALineAndCanBePastedBack)
{
    EXPECT_EQ("", hexLines({}));
    EXPECT_EQ("00\n", hexLines(upTo(1)));
    EXPECT_EQ("00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f\n", hexLines(upTo(16)));
    EXPECT_EQ("00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f\n10\n", hexLines(upTo(17)));
    EXPECT_EQ(upTo(256), parseBytes({hexLines(upTo(256))}));
}

TEST(Format, DumpShowsWhatDidNotAnswerAndTheText)
{
    Row row;
    row.fill(uint8_t{0});
    row[0] = 'A';
    row[1] = std::nullopt;
    row[2] = ' ';
    row[3] = '~';
    row[4] = 0x7f;
    row[15] = 0xff;
    EXPECT_EQ(dumpHeader() + "\n" + dumpRow(0xf0, row),
              "     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f    0123456789abcdef\n"
              "f0: 41 XX 20 7e 7f 00 00 00 00 00 00 00 00 00 00 ff    AX ~............");
}

TEST(Format, ScanDrawsAGrid)
{
    std::array<Answer, 16> answers{};
    answers.fill(Answer::None);
    answers[0] = Answer::NotAsked;
    answers[8] = Answer::Yes;
    answers[9] = Answer::InUse;
    answers[15] = Answer::NotAsked;
    EXPECT_EQ(scanHeader() + "\n" + scanRow(0x40, answers), "     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f\n"
                                                            "40:    -- -- -- -- -- -- -- 48 UU -- -- -- -- --");
}

TEST(Format, TrafficIsInTheKernelsNotation)
{
    EXPECT_EQ("S 48 W P", i2cWriteTraffic(0x48, {}));
    EXPECT_EQ("S 08 W de ad P", i2cWriteTraffic(8, {0xde, 0xad}));
    EXPECT_EQ("S 48 R [2] P", i2cReadTraffic(0x48, 2));
    EXPECT_EQ("S 48 W 00 Sr 48 R [2] P", i2cWriteReadTraffic(0x48, {0}, 2));
    EXPECT_EQ("S 50 W 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f ... (17 bytes) P",
              i2cWriteTraffic(0x50, upTo(17)));
    EXPECT_EQ("MOSI 9f 00 x 3\nMISO -- x 1 [3]\nmode 0x0b, 10000000 Hz", spiTraffic({0x9f}, 3, 1, 3, 0x0b, 10000000));
    EXPECT_EQ("MOSI 06\nMISO -- x 1\nmode 0x00, 500000 Hz", spiTraffic({6}, 0, 1, 0, 0, 500000));
    EXPECT_EQ("MOSI 00 x 4\nMISO [4]\nmode 0x00, 500000 Hz", spiTraffic({}, 4, 0, 4, 0, 500000));
    EXPECT_EQ("9600 8E2", lineSettings(9600, "even", 2));
    EXPECT_EQ("115200 8N1", lineSettings(115200, "none", 1));
    EXPECT_EQ("110 8O1", lineSettings(110, "odd", 1));
}

}  // namespace
