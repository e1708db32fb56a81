// Arguments to values: what is taken, and what is said about what is not.

#include "Values.h"
#include "Failure.h"
#include "Format.h"
#include "Suggest.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace
{

struct Row {
    std::string text;
    std::string outcome;  ///< the value, or the message
};

void expectOutcomes(const std::vector<Row>& rows, const std::function<std::string(const std::string&)>& parse)
{
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        try {
            EXPECT_EQ(row.outcome, parse(row.text));
        } catch (const Failure& failure) {
            EXPECT_EQ(row.outcome, failure.message);
            EXPECT_EQ(WrongCommandLine, failure.status);
        }
    }
}

std::string repeated(const std::string& text, size_t times)
{
    std::string all;
    for (size_t i = 0; i < times; ++i)
        all += text;
    return all;
}

TEST(Values, DevicesAreNumbersNamesOrPaths)
{
    expectOutcomes({{"4", "/dev/i2c-4"},
                    {"i2c-4", "/dev/i2c-4"},
                    {"/dev/i2c-4", "/dev/i2c-4"},
                    {"./bus", "./bus"},
                    {"2.0", "/dev/2.0"},
                    {"", "the device is an empty word"}},
                   i2cPath);
    expectOutcomes({{"2.0", "/dev/spidev2.0"}, {"spidev2.0", "/dev/spidev2.0"}, {"/dev/x", "/dev/x"}}, spiPath);
    expectOutcomes({{"ttyUSB0", "/dev/ttyUSB0"},
                    {"pty", "/dev/ptmx"},
                    {"/dev/serial/by-id/usb-x", "/dev/serial/by-id/usb-x"},
                    {"0", "port 0: write its name, such as ttyS0 or ttyUSB0"}},
                   uartPath);
}

TEST(Values, AddressesAreSevenBitsInHex)
{
    expectOutcomes(
        {{"0x48", "72"},
         {"0X7F", "127"},
         {"0x0", "0"},
         {"48", "address 48: write 0x48, or 0x30 if decimal 48 is meant"},
         {"5f", "address 5f: write 0x5f"},
         {"104", "address 104: write 0x68 if decimal 104 is meant"},
         {"0x80", "address 0x80 is above 0x7f; data sheets that say 0x80 to write and 0x81 to read mean 0x40"},
         {"0xa1", "address 0xa1 is above 0x7f; data sheets that say 0xa0 to write and 0xa1 to read mean 0x50"},
         {"0x100", "address 0x100 is above 0x7f"},
         {"0xfffffffffffffffff", "address 0xfffffffffffffffff is above 0x7f"},
         {"0x", "address \"0x\": write it in hex, such as 0x48"},
         {"0x4g", "address \"0x4g\": write it in hex, such as 0x48"},
         {"-1", "address \"-1\": write it in hex, such as 0x48"},
         {"", "address \"\": write it in hex, such as 0x48"}},
        [](const std::string& text) { return std::to_string(parseAddress(text)); });
}

TEST(Values, RegistersAreAsWideAsTheyAreWritten)
{
    expectOutcomes({{"0x10", "10"},
                    {"0x0010", "00 10"},
                    {"0xABCD", "ab cd"},
                    {"0x123", "register 0x123: write 0x23 for one byte, 0x0123 for two"},
                    {"0x5", "register 0x5: write 0x05 for one byte, 0x0005 for two"},
                    {"0x12345", "register 0x12345: at most two bytes, as in 0x0123"},
                    {"10", "register 10: write 0x10, or 0x0a if decimal 10 is meant"},
                    {"100", "register 100: write 0x0100, or 0x64 if decimal 100 is meant"},
                    {"300", "register 300: write 0x0300, or 0x012c if decimal 300 is meant"},
                    {"1", "register 1: write 0x01"}},
                   [](const std::string& text) { return hexLine(parseRegister(text)); });
}

TEST(Values, BytesAreHexPairsInAnyGrouping)
{
    expectOutcomes({{"de ad", "de ad"},
                    {"dead", "de ad"},
                    {"DE:ad", "de ad"},
                    {"0xde 0xad", "de ad"},
                    {"0xdead\n be,ef ", "de ad be ef"},
                    {"", ""},
                    {"abc", "bytes \"abc\": odd number of hex digits; write 0a bc, or ab 0c"},
                    {"de a", "bytes \"a\": odd number of hex digits; write 0a"},
                    {"0xabc", "bytes \"0xabc\": odd number of hex digits; write 0a bc, or ab 0c"},
                    {repeated("abc", 7), "bytes \"" + repeated("abc", 7) + "\": odd number of hex digits"},
                    {"0x", "bytes \"0x\": not hex digits"},
                    {"de xy", "bytes \"xy\": not hex digits"},
                    {"de-ad", "bytes \"de-ad\": not hex digits"},
                    {"+2", "bytes \"+2\": not hex digits"}},
                   [](const std::string& text) { return hexLine(parseBytes({text})); });
    EXPECT_EQ("de ad be", hexLine(parseBytes({"de", "adbe"})));
}

TEST(Values, CountsAreDecimalAndBounded)
{
    expectOutcomes({{"1", "1"},
                    {"65535", "65535"},
                    {"007", "7"},
                    {"0", "count 0: at least 1"},
                    {"65536", "65536 bytes: a unit holds at most 65535"},
                    {"99999999999999999999999", "99999999999999999999999 bytes: a unit holds at most 65535"},
                    {"0x10", "count \"0x10\": counts are decimal; write 16"},
                    {"-1", "count \"-1\": counts are decimal"},
                    {"1.5", "count \"1.5\": counts are decimal"},
                    {"", "count \"\": counts are decimal"}},
                   [](const std::string& text) { return std::to_string(parseCount(text, 65535, "a unit")); });
    expectOutcomes({{"+16", "16, left 1"},
                    {"16", "0, left 2"},
                    {"+", "count \"\": counts are decimal"},
                    {"++1", "count \"+1\": counts are decimal"}},
                   [](const std::string& text) {
                       std::vector<std::string> words{"de", text};
                       const size_t count = takePlusCount(words, 100, "a unit");
                       return std::to_string(count) + ", left " + std::to_string(words.size());
                   });
}

TEST(Values, SpiModesAndSpeeds)
{
    const std::string mode = ": 0 to 3, or the mode byte in hex, 0x00 to 0xff";
    expectOutcomes({{"0", "0x00"},
                    {"3", "0x03"},
                    {"0x0b", "0x0b"},
                    {"0xff", "0xff"},
                    {"4", "mode \"4\"" + mode},
                    {"0x100", "mode \"0x100\"" + mode},
                    {"b", "mode \"b\"" + mode},
                    {"", "mode \"\"" + mode}},
                   [](const std::string& text) { return hexNumber(parseMode(text)); });
    expectOutcomes({{"500000", "500000"},
                    {"500k", "500000"},
                    {"10M", "10000000"},
                    {"2147483647", "2147483647"},
                    {"2148M", "speed 2148M: 1 Hz to 2147 MHz"},
                    {"2147483648", "speed 2147483648: 1 Hz to 2147 MHz"},
                    {"18446744073709551615k", "speed 18446744073709551615k: 1 Hz to 2147 MHz"},
                    {"0", "speed 0: 1 Hz to 2147 MHz"},
                    {"k", "speed \"k\": hertz, such as 500000, 500k or 10M"},
                    {"1.5M", "speed \"1.5M\": hertz, such as 500000, 500k or 10M"},
                    {"-1", "speed \"-1\": hertz, such as 500000, 500k or 10M"}},
                   [](const std::string& text) { return std::to_string(parseSpeed(text)); });
}

TEST(Values, LineSettings)
{
    expectOutcomes({{"115200", "115200"},
                    {"110", "110"},
                    {"4000000", "4000000"},
                    {"14400", "baud rate 14400: no Linux constant; next to it: 9600, 19200"},
                    {"1", "baud rate 1: no Linux constant; next to it: 110"},
                    {"5000000", "baud rate 5000000: no Linux constant; next to it: 4000000"},
                    {"1800", "baud rate 1800: not supported; next to it: 1200, 2400"},
                    {"9600x", "baud rate \"9600x\": a decimal number, such as 115200"}},
                   [](const std::string& text) { return std::to_string(parseBaudRate(text)); });
    expectOutcomes({{"1", "1"}, {"2", "2"}, {"0", "stop bits \"0\": 1 or 2"}, {"1.5", "stop bits \"1.5\": 1 or 2"}},
                   [](const std::string& text) { return std::to_string(parseStopBits(text)); });
    expectOutcomes({{"even", "taken"}, {"Even", "parity \"Even\": none, even or odd"}}, [](const std::string& text) {
        checkParity(text);
        return "taken";
    });
    expectOutcomes(
        {{"cr", "0d"}, {"lf", "0a"}, {"crlf", "0d 0a"}, {"none", ""}, {"x", "line end \"x\": cr, lf, crlf or none"}},
        [](const std::string& text) { return hexLine(parseLineEnd(text)); });
}

TEST(Values, TextHasEscapes)
{
    const std::string rule = R"(: a backslash starts \r \n \t \\ or \xNN)";
    expectOutcomes({{"hi", "68 69"},
                    {R"(\r\n\t\\)", "0d 0a 09 5c"},
                    {R"(\x00\xfFa)", "00 ff 61"},
                    {"\xc3\xa9", "c3 a9"},
                    {R"(\q)", R"(text "\q")" + rule},
                    {R"(\)", R"(text "\")" + rule},
                    {R"(\x1)", R"(text "\x1")" + rule},
                    {R"(\xg0)", R"(text "\xg0")" + rule}},
                   [](const std::string& text) { return hexLine(parseText({text})); });
    EXPECT_EQ("61 20 62", hexLine(parseText({"a", "b"})));
}

TEST(Values, TimeoutsGoInHalfSeconds)
{
    const std::string rule = ": seconds in steps of 0.5, from 0.5 to 86400";
    expectOutcomes({{"1", "1000"},
                    {"0.5", "500"},
                    {"2.50", "2500"},
                    {"3.0", "3000"},
                    {"86400", "86400000"},
                    {"0", "timeout \"0\"" + rule},
                    {"0.0", "timeout \"0.0\"" + rule},
                    {"0.7", "timeout \"0.7\"" + rule},
                    {"1.", "timeout \"1.\"" + rule},
                    {".5", "timeout \".5\"" + rule},
                    {"86400.5", "timeout \"86400.5\"" + rule},
                    {"86401", "timeout \"86401\"" + rule},
                    {"-1", "timeout \"-1\"" + rule},
                    {"1s", "timeout \"1s\"" + rule}},
                   [](const std::string& text) { return std::to_string(parseTimeout(text).count()); });
}

TEST(Values, AnUnknownWordGetsTheOneThatWasMeant)
{
    const auto meant = [](const std::string& word) {
        return suggestion(word, {"scan", "get", "set", "dump", "read", "write", "transfer", "term", "--speed"});
    };
    expectOutcomes({{"detect", "scan"},
                    {"sacn", "scan"},
                    {"reed", "read"},
                    {"tranfser", "transfer"},
                    {"send", "write"},
                    {"--sped", "--speed"},
                    {"frobnicate", ""},
                    {"", ""}},
                   meant);
}

}  // namespace
