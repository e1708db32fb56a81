#include "session/Player.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

using namespace session;

static std::vector<std::string> linesOf(const std::string& text)
{
    std::istringstream stream{text};
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

static Session sessionOf(const std::string& text)
{
    return parse(versionLine() + text);
}

/// What the player answers to each line of `asked`: the number of the line in the session, "accepted: ..." for one that
/// is not there, or "deviates". For bytes of a serial port all the lines that they pass.
static std::string play(Player& player, const std::string& asked)
{
    std::string played;
    for (const std::string& line : linesOf(asked)) {
        const Event event = sessionOf(line).items.at(0).event;
        std::vector<const Event*> answers;
        if (const auto* transfer = std::get_if<SerialTransfer>(&event.what)) {
            std::vector<uint8_t> bytes;
            for (const Byte& byte : transfer->data.bytes) {
                bytes.push_back(byte.value());
            }
            answers = player.exchange(event.device, bytes);
        } else {
            answers = {player.answer(event)};
        }
        played += played.empty() ? "" : ", ";
        std::string numbers;
        for (const Event* answer : answers) {
            numbers += numbers.empty() ? "" : "+";
            if (answer == nullptr) {
                numbers += "deviates";
            } else {
                numbers += answer->fileLine != 0 ? std::to_string(answer->fileLine) : "accepted: " + action(*answer);
            }
        }
        played += numbers.empty() ? "-" : numbers;
    }
    return played;
}

TEST(Player, AnswersWithTheLinesOfTheSession)
{
    struct Row {
        const char* title;
        std::string session;
        std::string asked;
        std::string played;
        std::string report;
    };
    const Row rows[] = {
        {"lines in their order, with any byte where the session says so",
         "i2c-4 open i2c\ni2c-4 address 48\ni2c-4 S 48 W 01 -- P\ni2c-4 S 48 R 19 [1] P\n",
         "i2c-4 open i2c\ni2c-4 address 48\ni2c-4 S 48 W 01 60 P\ni2c-4 S 48 R [2] P\n", "2, 3, 4, 5", ""},
        {"other bytes, another length, another address, another direction", "i2c-4 S 48 W 00 Sr 48 R 19 80 P\n",
         "i2c-4 S 48 W 01 Sr 48 R [2] P\ni2c-4 S 48 W 00 Sr 48 R [3] P\ni2c-4 S 49 W 00 Sr 49 R [2] P\n"
         "i2c-4 S 48 W 00 P\ni2c-4 S 48 W 00 Sr 48 R [2] P\ni2c-4 S 48 W 00 P\n",
         "deviates, deviates, deviates, deviates, 2, deviates",
         "x:2: expected  i2c-4  S 48 W 00 Sr 48 R 19 80 P\n     came      i2c-4  S 48 W 01 Sr 48 R [2] P\n"
         "x:2: expected  i2c-4  S 48 W 00 Sr 48 R 19 80 P\n     came      i2c-4  S 48 W 00 Sr 48 R [3] P\n"
         "x:2: expected  i2c-4  S 48 W 00 Sr 48 R 19 80 P\n     came      i2c-4  S 49 W 00 Sr 49 R [2] P\n"
         "x:2: expected  i2c-4  S 48 W 00 Sr 48 R 19 80 P\n     came      i2c-4  S 48 W 00 P\n"
         "x: not in the session: i2c-4  S 48 W 00 P\n"},
        {"devices are independent; one that is not in the session; what was never asked for",
         "i2c-4 S 48 W 00 P\ni2c-5 S 48 W 01 P\ni2c-4 S 48 W 02 P\n",
         "i2c-5 S 48 W 01 P\ni2c-6 S 48 W 01 P\ni2c-4 S 48 W 00 P\n", "3, deviates, 2",
         "x: not in the session: i2c-6  S 48 W 01 P\nx:4: never asked for: i2c-4  S 48 W 02 P\n"},
        {"what is not mentioned is accepted", "spidev0.0 MOSI 9f 00 MISO -- x 1 12\n",
         "spidev0.0 open spi\nspidev0.0 mode 0x03\nspidev0.0 get mode 0x00\nspidev0.0 get bits 0\nspidev0.0 MOSI 9f 00 "
         "MISO [2]\n",
         "accepted: open spi, accepted: mode 0x03, accepted: get mode 0x03, accepted: get bits 8, 2", ""},
        {"what is mentioned has to come as it stands",
         "spidev0.0 open spi mode 0x01, 5000000 Hz\nspidev0.0 mode 0x00\nspidev0.0 MOSI 9f MISO 00\n",
         "spidev0.0 open spi\nspidev0.0 get mode 0x00\nspidev0.0 get speed 0 Hz\nspidev0.0 mode 0x03\n"
         "spidev0.0 open spi\nspidev0.0 mode 0x00\nspidev0.0 MOSI 9f MISO [1]\n",
         "2, accepted: get mode 0x01, accepted: get speed 5000000 Hz, deviates, deviates, 3, 4",
         "x:3: expected  spidev0.0  mode 0x00\n     came      spidev0.0  mode 0x03\n"
         "x:3: expected  spidev0.0  mode 0x00\n     came      spidev0.0  open spi\n"},
        {"mode, clock, bits and segments of SPI are compared where both are known",
         "spidev0.0 MOSI 9f MISO 00 mode 0x00, 1000000 Hz\n",
         "spidev0.0 MOSI 9f MISO [1] mode 0x01\nspidev0.0 MOSI 9f MISO [1] mode 0x00, 2000000 Hz\nspidev0.0 MOSI 9f "
         "MISO [1], 16 bits\n"
         "spidev0.0 MOSI 9f MISO [1]; MOSI 00 MISO [1]\nspidev0.0 MOSI 9f MISO [1], cs-change\nspidev0.0 MOSI 9f MISO "
         "[1], 8 bits mode 0x00\n",
         "deviates, deviates, deviates, deviates, deviates, 2",
         "x:2: expected  spidev0.0  MOSI 9f MISO 00  mode 0x00, 1000000 Hz\n     came      spidev0.0  MOSI 9f MISO [1] "
         " mode 0x01\n"
         "x:2: expected  spidev0.0  MOSI 9f MISO 00  mode 0x00, 1000000 Hz\n     came      spidev0.0  MOSI 9f MISO [1] "
         " mode 0x00, 2000000 Hz\n"
         "x:2: expected  spidev0.0  MOSI 9f MISO 00  mode 0x00, 1000000 Hz\n     came      spidev0.0  MOSI 9f MISO "
         "[1], 16 bits\n"
         "x:2: expected  spidev0.0  MOSI 9f MISO 00  mode 0x00, 1000000 Hz\n     came      spidev0.0  MOSI 9f MISO "
         "[1]; MOSI 00 MISO [1]\n"
         "x:2: expected  spidev0.0  MOSI 9f MISO 00  mode 0x00, 1000000 Hz\n     came      spidev0.0  MOSI 9f MISO "
         "[1], cs-change\n"},
        {"facts for who asks, in their place", "i2c-4 get functions 0x01\ni2c-4 S 48 W P\ni2c-4 get pec 1\n",
         "i2c-4 get pec 0\ni2c-4 get functions 0x0\ni2c-4 S 48 W P\ni2c-4 get functions 0x0\n",
         "accepted: get pec 0, 2, 3, accepted: get functions 0x00000001", ""},
        {"repeat: what follows has precedence, and once is needed",
         "repeat {\nspidev0.0 MOSI 05 00 MISO -- x 1 03\n}\nspidev0.0 MOSI 05 00 MISO -- x 1 00\n",
         "spidev0.0 MOSI 05 00 MISO [2]\nspidev0.0 MOSI 05 00 MISO [2]\nspidev0.0 MOSI 05 00 MISO [2]\n",
         "3, 5, deviates", "x: not in the session: spidev0.0  MOSI 05 00 MISO [2]\n"},
        {"repeat: as often as it is asked for; blocks in blocks",
         "repeat {\ni2c-4 S 48 W 00 P\nrepeat {\ni2c-4 S 48 R 01 P\n}\n}\ni2c-4 S 48 W 02 P\n",
         "i2c-4 S 48 W 00 P\ni2c-4 S 48 R [1] P\ni2c-4 S 48 R [1] P\ni2c-4 S 48 W 00 P\ni2c-4 S 48 R [1] P\n"
         "i2c-4 S 48 W 02 P\n",
         "3, 5, 5, 3, 5, 8", ""},
        {"repeat: not left before its end, nor without any pass", "repeat {\ni2c-4 S 48 W 00 P\ni2c-4 S 48 R 01 P\n}\n",
         "i2c-4 S 48 R [1] P\ni2c-4 S 48 W 00 P\n", "deviates, 3",
         "x:3: expected  i2c-4  S 48 W 00 P\n     came      i2c-4  S 48 R [1] P\n"
         "x:4: never asked for: i2c-4  S 48 R 01 P\n"},
        {"unordered: once each, also when repeated",
         "repeat {\nunordered {\ni2c-4 S 48 R 01 P\ni2c-4 S 49 R 02 P\n}\n}\ni2c-4 S 4a R 03 P\n",
         "i2c-4 S 49 R [1] P\ni2c-4 S 49 R [1] P\ni2c-4 S 48 R [1] P\ni2c-4 S 48 R [1] P\n", "5, deviates, 4, 4",
         "x:4: expected  i2c-4  S 48 R 01 P\n     came      i2c-4  S 49 R [1] P\n"
         "x:5: never asked for: i2c-4  S 49 R 02 P\nx:8: never asked for: i2c-4  S 4a R 03 P\n"},
        {"a serial port's bytes, in pieces and together",
         "tty0 < \"hello\"\ntty0 > \"id?\\n\"\ntty0 < \"7\\n\"\ntty0 > \"a\" --\ntty0 > \"b\"\n",
         "tty0 >\ntty0 > \"i\"\ntty0 > \"d?\\n\"  \"ax\"\ntty0 > \"b\"\n", "2, -, 3+4+5, 6", ""},
        {"other bytes, and too few", "tty0 > \"id\"\ntty0 > \"more\"\n", "tty0 > \"ix\"\ntty0 > \"idm\"\n", "-, 2",
         "x:2: expected  tty0  > \"id\"\n     came      tty0  > \"ix\"\n"
         "x:3: expected  tty0  > \"more\"\n     came      tty0  > \"m\"\n"},
        {"a serial port that fails once it is there", "tty0 > \"a\"\ntty0 > [1] EIO\n", "tty0 > \"a\"\n", "2+3", ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.title);
        Player player{sessionOf(row.session)};
        EXPECT_EQ(row.played, play(player, row.asked));
        player.finish();
        EXPECT_EQ(row.report, player.report("x"));
    }
}

TEST(Player, ReportsTheFirstOfManyDeviations)
{
    std::string lines;
    for (int i = 0; i < 12; ++i) {
        lines += "i2c-4 S 48 W 00 P\n";
    }
    Player player{sessionOf(lines)};
    for (int i = 0; i < 15; ++i) {
        play(player, "i2c-4 S 48 W 01 P\n");
    }
    const std::vector<std::string> report = linesOf(player.report("x"));
    ASSERT_EQ(10U * 2 + 1 + 10 + 1, report.size());
    EXPECT_EQ("x: further deviations: 5", report[20]);
    EXPECT_EQ("x: further lines never asked for: 1", report.back());
}
