#include "session/Session.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

using namespace session;

static const std::string version = "serialcomm session 1\n";

TEST(Session, IsWrittenAsItIsRead)
{
    const std::string texts[] = {
        "i2c-4  open i2c\n"
        "i2c-4  address 48\n"
        "i2c-4  address 12c  EINVAL\n"
        "i2c-4  force-address 48\n"
        "i2c-4  tenbit 1\n"
        "i2c-4  pec 1\n"
        "i2c-4  timeout 100\n"
        "i2c-4  retries 3\n"
        "i2c-4  get functions 0x0eff0009\n"
        "i2c-4  get functions  ESHUTDOWN\n"
        "i2c-4  S 48 W 00 Sr 48 R 19 80 P\n"
        "i2c-4  S 48 W P\n"
        "i2c-4  S a0 W 00 NA ENXIO\n"
        "i2c-4  S 0190 W  EINVAL\n"
        "i2c-4  S 51 W 00 NA ETIMEDOUT\n"
        "i2c-4  S 51 W 00 Sr 51 R [2] NA ENXIO\n"
        "i2c-4  S 48 R 19 [2] P\n"
        "i2c-4  S 48 W 10 -- x 1 P\n"
        "i2c-4  S 3a5 W+nostart+0x0200 01 Sr 3a5 R+recv-len 02 19 80 P\n"
        "i2c-4  S 48 R [9000]  EINVAL\n"
        "i2c-4  S 50 W ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff Sr 50 R ff x 17 P\n",

        "spidev2.0  open spi  mode 0x00, 20000000 Hz\n"
        "spidev2.0  mode 0x03\n"
        "spidev2.0  mode 0x08  EINVAL\n"
        "spidev2.0  get mode 0x00\n"
        "spidev2.0  lsb-first 0\n"
        "spidev2.0  bits 16\n"
        "spidev2.0  speed 1234567 Hz\n"
        "spidev2.0  MOSI 9f 00 00 00 MISO -- x 1 ef 40 14  mode 0x00, 500000 Hz\n"
        "spidev2.0  MOSI 03 MISO -- x 1, 2 Hz, 16 bits, miso-lines 2, cs-change; "
        "MOSI 00 x 17 MISO ff x 17  mode as set, 1 Hz\n"
        "spidev2.0  MOSI 06 MISO -- x 1, mosi-lines 4  mode 0x44\n"
        "spidev2.0  MOSI MISO\n"
        "spidev2.0  MOSI 9f 00 MISO [2]  ESHUTDOWN\n"
        "spidev2.1  open spi  EACCES\n",

        "ttymxc0  open serial  9600 8N1\n"
        "ttymxc0  line 115200 7E2 rtscts xonxoff\n"
        "ttymxc0  > \"*IDN?\\n\"\n"
        "ttymxc0  < \"a \\\"quote\\\" \\\\ \\t\\r\\n\"\n"
        "ttymxc0  < 00 ff 41\n"
        "ttymxc0  > \"abc\" [3]\n"
        "ttymxc0  > [3]  EIO\n"
        "serial/by-id/usb-1:0  < \"x\"\n"
        "\"/dev/with blank\"  < \"x\"\n"
        "/tmp/tty  < \"x\"\n"
        "/dev/repeat  > \"y\"\n"
        "ttyS9  open serial  ENOENT\n"
        "ttyS8  open serial  E524\n",

        "+0.000000  i2c-4  S 48 R 19 P\n"
        "repeat {\n"
        "  +12.000150  i2c-4  S 48 R 19 P\n"
        "  unordered {\n"
        "    i2c-4  S 49 R 19 P\n"
        "    i2c-4  S 4a R 19 P\n"
        "  }\n"
        "  repeat {\n"
        "    i2c-4  S 48 R -- x 1 P\n"
        "  }\n"
        "}\n",
    };
    for (const std::string& text : texts) {
        const Session session = parse(version + text);
        EXPECT_EQ(version + text, toText(session));
        EXPECT_TRUE(parse(toText(session)) == session);
    }
}

TEST(Session, MayBeWrittenFreely)
{
    const Session session = parse("\n# what it is about\r\n"
                                  "  serialcomm   session 1   # the version\r\n"
                                  "\n"
                                  "\t+1.5 /dev/i2c-4 S 48 W \"A\\x00\" FF x 2 \\\n"
                                  "    Sr 48 R 0a P # read\n"
                                  "spidev0.0 MOSI 9f MISO --,1 kHz;MOSI 01 MISO -- -- x 0\n");
    EXPECT_EQ(version + "+1.500000  i2c-4  S 48 W 41 00 ff ff Sr 48 R 0a P\n"
                        "spidev0.0  MOSI 9f MISO -- x 1, 1000 Hz; MOSI 01 MISO -- x 1\n",
              toText(session));
    EXPECT_EQ(5U, session.items.at(0).event.fileLine);
    EXPECT_EQ(7U, session.items.at(1).event.fileLine);
}

TEST(Session, IsAsItsPageShowsIt)
{
    std::ifstream page{PAGE};
    std::string text;
    std::string block;
    int sessions = 0;
    for (std::string line; std::getline(page, line);) {
        if (line.rfind("```", 0) != 0) {
            text += line + '\n';
            continue;
        }
        if (block == "```session") {
            SCOPED_TRACE(text);
            EXPECT_NO_THROW(parse(text));
            ++sessions;
        }
        block = line;
        text.clear();
    }
    EXPECT_GE(sessions, 5);
}

TEST(Session, WrapsLongLinesBetweenWords)
{
    std::vector<uint8_t> bytes(100);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<uint8_t>(i);
    Session session;
    session.items.resize(2);
    session.items[0].event.device = "/dev/i2c-4";
    session.items[0].event.what = I2cTransfer{{{0x50, false, false, 0, known(bytes)}}, 0};
    session.items[1].event.device = "/dev/tty0";
    std::vector<uint8_t> text(200, 'a');
    text[100] = ' ';
    text[101] = '\\';
    text[102] = '"';
    session.items[1].event.what = SerialTransfer{false, known(text), 0};

    const std::string written = toText(session);
    EXPECT_TRUE(parse(written) == session) << written;
    size_t longest = 0;
    for (size_t at = 0; at < written.find("tty0"); at = written.find('\n', at) + 1)
        longest = std::max(longest, written.find('\n', at) - at);
    EXPECT_LE(longest, 120U) << written;
}

TEST(Session, NamesTheLineAndTheRemedyOfAnError)
{
    struct Row {
        std::string text;
        size_t line;
        std::string problem;
    };
    const std::string byteExpected = "a byte (two hexadecimal digits, --, 00 x 9 or a text in quotation marks)";
    const Row rows[] = {
        {"", 1, "no session: expected the line serialcomm session 1"},
        {"# only this\n", 1, "no session: expected the line serialcomm session 1"},
        {"i2c-4 S 48 R 19 P\n", 1, "no session: expected the line serialcomm session 1"},
        {"\x7f"
         "ELF\" \\\n",
         1, "no session: expected the line serialcomm session 1"},
        {"\nserialcomm session 2\n", 2, "a session of another version; this program reads serialcomm session 1"},
        {version + "\n\\\ni2c-4 S 48 X\n", 3, "unexpected 'X'; expected W or R"},
        {version + "i2c-4\n", 2,
         "the line ends too early; expected open, get, address, mode, line or another setting, or a traffic line"},
        {version + "spidev0.0 9f 00\n", 2,
         "unexpected '9f'; expected open, get, address, mode, line or another setting, or a traffic line"},
        {version + "spidev0.0 MOSI 9f MISO 00 mode as is\n", 2, "unexpected 'is'; expected set"},
        {version + "i2c-4 addr 48\n", 2,
         "unexpected 'addr'; expected open, get, address, mode, line or another setting, or a traffic line"},
        {version + "i2c-4 S 4 W P\n", 2,
         "unexpected '4'; expected an address: two hexadecimal digits, or three up to 3ff for one of ten "
         "bits"},
        {version + "i2c-4 S 48 W 0 P\n", 2,
         "unexpected '0'; expected " + byteExpected + ", P, Sr, NA or the name of an error"},
        {version + "i2c-4 S 48 W 00\n", 2,
         "the line ends too early; expected " + byteExpected + ", P, Sr, NA or the name of an error"},
        {version + "i2c-4 S 48 R [2] 00 P\n", 2,
         "unexpected '00'; expected " + byteExpected + ", P, Sr, NA or the name of an error"},
        {version + "i2c-4 S 48 R+fast 00 P\n", 2, "unknown flag 'fast' of a message"},
        {version + "i2c-4 S 48 R 00 P P\n", 2, "unexpected 'P'; expected the end of the line"},
        {version + "i2c-4 S 48 R 00 x 99999999 P\n", 2, "more than 16777216 bytes in one direction"},
        {version + "i2c-4 S 48 R 00 NA EFOO\n", 2,
         "unexpected 'EFOO'; expected " + byteExpected + ", P, Sr, NA or the name of an error"},
        {version + "spidev0.0 MOSI 9f 00\n", 2,
         "the line ends too early; expected " + byteExpected + ", or MISO and what is received"},
        {version + "i2c-4 S 48 R 00 x P\n", 2, "x needs a decimal number behind it, as in 00 x 9"},
        {version + "spidev0.0 MOSI 9f 00 MISO 00\n", 2, "SPI sends and receives as many bytes: not 2 and 1"},
        {version + "spidev0.0 MOSI 9f MISO 00, fast\n", 2,
         "unexpected 'fast'; expected a frequency, a number of bits, mosi-lines, miso-lines or cs-change"},
        {version + "spidev0.0 speed 5 GHz\n", 2, "unexpected 'GHz'; expected Hz, kHz or MHz"},
        {version + "spidev0.0 speed 5000 MHz\n", 2, "the frequency is above 4294967295 Hz"},
        {version + "spidev0.0 open usb\n", 2, "unexpected 'usb'; expected i2c, spi or serial"},
        {version + "tty0 line 9600 9N1\n", 2, "unexpected '9N1'; expected data bits, parity and stop bits, as in 8N1"},
        {version + "tty0 > \"abc\n", 2, "a text without its closing quotation mark"},
        {version + "tty0 > \"\\q\"\n", 2, R"(unknown escape in a text; there are \n, \r, \t, \", \\ and \x1b)"},
        {version + "tty0 > \"\\x1\"\n", 2, "\\x needs two hexadecimal digits"},
        {version + "+x tty0 > 00\n", 2, "unexpected '+x'; expected a time in seconds, as in +0.002150"},
        {version + "i2c-4 S 48 R 00 P\ni2c-4 MOSI 9f MISO 00\n", 3, "i2c-4 is i2c in line 2, and spi here"},
        {version + "\nrepeat {\ni2c-4 S 48 R 00 P\n", 3, "a block without its closing brace"},
        {version + "repeat\n", 2, "the line ends too early; expected {"},
        {version + "repeat {\n}\n", 2, "an empty block"},
        {version + "unordered {\nrepeat {\ni2c-4 S 48 R 00 P\n}\n}\n", 5, "an unordered block holds no other blocks"},
        {version + "unordered {\ntty0 < 00\n}\n", 3,
         "bytes of a serial port have an order; move them out of the block"},
        {version + "unordered {\ni2c-4 get pec 1\n}\n", 3,
         "a line with get belongs before or after an unordered block"},
        {version + "i2c-4 functions 1\n", 2, "functions cannot be set; expected get functions"},
        {version + "}\n", 2,
         "no device: \"}\"; expected a name in /dev, as in i2c-4, or a path that starts with / (in quotation marks "
         "where it holds other characters than letters, digits and ._/:@-)"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        try {
            parse(row.text);
            ADD_FAILURE() << "was taken";
        } catch (const FormatError& error) {
            EXPECT_EQ(row.line, error.fileLine);
            EXPECT_EQ(row.problem, error.what());
        }
    }
}

TEST(Traffic, ShowsAPlanAndCutsLongBytes)
{
    std::vector<uint8_t> bytes(20);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<uint8_t>(i);
    const std::string start = "00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f ... (20 bytes)";

    EXPECT_EQ("S 48 W 00 Sr 48 R [2] P",
              toText(I2cTransfer{{{0x48, false, false, 0, known({0x00})}, {0x48, false, true, 0, planned(2)}}, 0}));
    EXPECT_EQ("S 48 W " + start + " P", toText(I2cTransfer{{{0x48, false, false, 0, known(bytes)}}, 0}, Length::cut));
    EXPECT_EQ("MOSI 9f 00 00 00 MISO -- x 1 [3]  mode 0x00, 500000 Hz",
              toText(SpiTransfer{{{known({0x9f, 0, 0, 0}), Data{{std::nullopt}, 3}}}, 0, 500000}));
    EXPECT_EQ("MOSI 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 ... (128 bytes) MISO -- x 128",
              toText(SpiTransfer{{{known(std::vector<uint8_t>(128)), Data{std::vector<Byte>(128), 0}}}, {}, {}},
                     Length::cut));
    EXPECT_EQ("> " + start, toText(SerialTransfer{false, known(bytes), 0}, Length::cut));
    EXPECT_EQ("< \"" + std::string(64, 'a') + "\" ... (70 bytes)",
              toText(SerialTransfer{true, known(std::vector<uint8_t>(70, 'a')), 0}, Length::cut));
}
