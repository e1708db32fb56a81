// Parsing of words into values, and rendering of bytes and text from outside.

#include "base/Bytes.h"
#include "base/Failure.h"
#include "base/Output.h"
#include "base/Values.h"
#include "i2c/Values.h"

#include "Terminals.h"

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
                    {"", "the device name is empty"}},
                   i2c::parseBus);
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
        [](const std::string& text) { return std::to_string(i2c::parseAddress(text)); });
}

TEST(Values, RegistersAreAsWideAsTheyAreWritten)
{
    expectOutcomes({{"0x10", "10"},
                    {"0x0010", "00 10"},
                    {"0xABCD", "ab cd"},
                    {"0x123", "register 0x123: write 0x23 for one byte, 0x0123 for two"},
                    {"0", "00"},
                    {"0x0", "00"},
                    {"0x5", "05"},
                    {"0x12345", "register 0x12345: at most two bytes, as in 0x0123"},
                    {"10", "register 10: write 0x10, or 0x0a if decimal 10 is meant"},
                    {"100", "register 100: write 0x0100, or 0x64 if decimal 100 is meant"},
                    {"300", "register 300: write 0x0300, or 0x012c if decimal 300 is meant"},
                    {"1", "register 1: write 0x01"}},
                   [](const std::string& text) { return hexLine(i2c::parseRegister(text)); });
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
                    {"0", "count 0: must be at least 1"},
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

TEST(Values, SecondsHaveUpToThreeDecimals)
{
    const std::string rule = ": must be 0.001 to 86400 seconds";
    expectOutcomes({{"1", "1000"},
                    {"0.5", "500"},
                    {"2.50", "2500"},
                    {"0.001", "1"},
                    {"86400", "86400000"},
                    {"0", "--deadline \"0\"" + rule},
                    {"0.000", "--deadline \"0.000\"" + rule},
                    {"0.0001", "--deadline \"0.0001\"" + rule},
                    {"1.", "--deadline \"1.\"" + rule},
                    {".5", "--deadline \".5\"" + rule},
                    {"86400.001", "--deadline \"86400.001\"" + rule},
                    {"99999999999999999999", "--deadline \"99999999999999999999\"" + rule},
                    {"-1", "--deadline \"-1\"" + rule},
                    {"1s", "--deadline \"1s\"" + rule}},
                   [](const std::string& text) { return std::to_string(parseSeconds("--deadline", text).count()); });
}

/// Text from outside cannot move the cursor or end a line.
TEST(Bytes, TextForTerminalsIsEscaped)
{
    expectOutcomes({{"FT232R USB UART", "FT232R USB UART"},
                    {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80", "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80"},
                    {"\x1b[31mred\x7f\n\t", R"(\x1b[31mred\x7f\x0a\x09)"},
                    {"\xc2\x9b"
                     "2J",
                     R"(\xc2\x9b2J)"},  // the control sequence introducer in UTF-8
                    {"\x80\x9b\xff", R"(\x80\x9b\xff)"},
                    {"\xc0\x80", R"(\xc0\x80)"},                  // overlong
                    {"\xed\xa0\x80", R"(\xed\xa0\x80)"},          // a surrogate
                    {"\xf4\x90\x80\x80", R"(\xf4\x90\x80\x80)"},  // above the last character
                    {"\xe2\x82", R"(\xe2\x82)"}},
                   printable);
}

TEST(Bytes, ADumpHasOffsetsHexAndText)
{
    ByteArray bytes(18, 0x41);
    bytes[1] = 0x00;
    bytes[17] = 0xff;
    EXPECT_EQ("000000f0: 41 00 41 41 41 41 41 41 41 41 41 41 41 41 41 41    A.AAAAAAAAAAAAAA\n"
              "00000100: 41 ff                                              A.\n",
              hexDump(bytes, 0xf0, 8));
    EXPECT_EQ("", hexDump({}, 0, 8));
}

/// What is written to standard error while the function runs, with a terminal there.
std::string onTerminal(const std::function<void()>& function)
{
    const Device terminal;
    const int before = dup(STDERR_FILENO);
    const int slave = open(terminal.name.c_str(), O_RDWR | O_NOCTTY);
    dup2(slave, STDERR_FILENO);
    close(slave);
    function();
    dup2(before, STDERR_FILENO);
    close(before);
    std::string text(100, '\0');
    text.resize(static_cast<size_t>(std::max(ssize_t{0}, read(terminal.master, text.data(), text.size()))));
    return text;
}

TEST(Output, ProgressIsShownOnATerminalAfterASecond)
{
    for (const int verbosity : {0, 1}) {
        OutputOptions options;
        options.verbosity = verbosity;
        const std::string shown = onTerminal([&] {
            Output output{options};
            output.progress("too early");
            poll(nullptr, 0, 1001);
            output.progress("1 of 2");
            output.result({}, "result");
            output.progress({});
        });
        EXPECT_EQ(verbosity == 0 ? "\r\x1b[K1 of 2\r\x1b[K" : "", shown);
    }
}

}  // namespace
