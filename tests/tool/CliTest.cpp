// Command lines: positions of options, completion, suggestions for wrong words, batches.

#include "FakeKernel.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace
{

std::string firstLine(const std::string& text)
{
    return text.substr(0, text.find('\n'));
}

TEST(CommandLine, TakesOptionsInEveryPlace)
{
    for (const char* const line :
         {"-n --json i2c get 4 0x48 0x00 2", "-n i2c --json get 4 0x48 0x00 2", "i2c get --json 4 0x48 -n 0x00 2",
          "i2c -v --log-config x get -n 4 0x48 0x00 2 -h -- x", "--log-config x -n i2c get 4 0x48 0x00 2 --version"}) {
        SCOPED_TRACE(line);
        const Outcome outcome = tool(std::string{line});
        EXPECT_EQ(0, outcome.status);
        EXPECT_EQ("", outcome.err);
        const std::string first = firstLine(outcome.out);
        EXPECT_TRUE(first == R"({"traffic":"S 48 W 00 Sr 48 R [2] P"})" || first.find("read N bytes") == 0 ||
                    first.find("serialcomm 0.") == 0)
            << first;
    }
}

struct Mistake {
    std::string line;
    std::string message;  ///< after "serialcomm: "
    std::string hint;     ///< after "  try: "
};

TEST(CommandLine, AMistakeGetsAHintThatWorks)
{
    const Mistake mistakes[] = {
        {"scan 4", "scan: unknown verb", "serialcomm i2c scan 4"},
        {"term ttyUSB0", "term: unknown verb", "serialcomm uart term ttyUSB0"},
        {"write 2.0 06", "write: unknown verb", "serialcomm spi write 2.0 06"},
        {"read ttyUSB0 5", "read: unknown verb", "serialcomm uart read ttyUSB0 5"},
        {"read", "read: unknown verb", "serialcomm help"},
        {"i2c list", "i2c list: unknown verb", "serialcomm list i2c"},
        {"spi doctor", "spi doctor: unknown verb", "serialcomm doctor spi"},
        {"i2c detect 4", "i2c detect: unknown verb", "serialcomm i2c scan 4"},
        {"i2c Get 4 0x48 0x00", "i2c Get: unknown verb", "serialcomm i2c get 4 0x48 0x00"},
        {"i2cget 4 0x48 0x00", "i2cget: unknown verb", "serialcomm i2c get 4 0x48 0x00"},
        {"i2cdetect 4", "i2cdetect: unknown verb", "serialcomm i2c scan 4"},
        {"spi-transfer 2.0 9f +3", "spi-transfer: unknown verb", "serialcomm spi transfer 2.0 9f +3"},
        {"uart monitor ttyUSB0", "uart monitor: unknown verb", "serialcomm uart term ttyUSB0"},
        {"serial console ttyS0", "serial: unknown verb", "serialcomm uart term ttyS0"},
        {"i2x scan 4", "i2x: unknown verb", "serialcomm i2c scan 4"},
        {"-v scan 4", "scan: unknown verb", "serialcomm i2c scan 4"},
        {"ls", "ls: unknown verb", "serialcomm list"},
        {"frobnicate", "frobnicate: unknown verb", "serialcomm help"},
        {"help frobnicate", "frobnicate: unknown verb", "serialcomm help"},
        {"i2c frobnicate", "i2c frobnicate: unknown verb", "serialcomm i2c"},
        {"i2c get 4", "i2c get: ADDR is required", "serialcomm i2c get --help"},
        {"i2c get 4 0x48 0x00 --jsn", "i2c get: --jsn: unknown option; did you mean --json?",
         "serialcomm i2c get --help"},
        {"i2c get 4 0x48 0x00 -v=5", "i2c get: -v=5: unknown option; did you mean -v?", "serialcomm i2c get --help"},
        {"i2c get 4 0x48 0x00 2 3", "i2c get: 3: one argument too many", "serialcomm i2c get --help"},
        {"i2c get 4 0x48 0x00 --dry-run=no", "i2c get: --dry-run takes no value", "serialcomm i2c get --help"},
        {"i2c get 4 0x48 0x00 --raw --json", "i2c get: --raw and --json cannot be combined",
         "serialcomm i2c get --help"},
        {"list can", "list: BUS \"can\": must be i2c, spi or uart", "serialcomm list --help"},
        {"--frobnicate", "--frobnicate: no verb given", "serialcomm --help"},
        {"help --dry-run", "--dry-run: no verb given", "serialcomm help"},
    };
    for (const Mistake& mistake : mistakes) {
        SCOPED_TRACE(mistake.line);
        const Outcome outcome = tool(mistake.line);
        EXPECT_EQ(2, outcome.status);
        EXPECT_EQ("", outcome.out);
        EXPECT_EQ("serialcomm: " + mistake.message + "\n  try: " + mistake.hint + "\n", outcome.err);
    }
    EXPECT_EQ("serialcomm: \x22\x22: unknown verb\n  try: serialcomm help\n", tool(std::vector<std::string>{""}).err);
    EXPECT_EQ("serialcomm: i2c read: \"\": one argument too many\n  try: serialcomm i2c read --help\n",
              tool(std::vector<std::string>{"i2c", "read", "4", "0x48", "2", ""}).err);
    EXPECT_EQ("serialcomm: send: unknown verb\n  try: serialcomm uart write ttyS0 'a b'\n",
              tool(std::vector<std::string>{"send", "ttyS0", "a b"}).err);
    EXPECT_EQ("serialcomm: \\x1b[2J: unknown verb\n  try: serialcomm help\n",
              tool(std::vector<std::string>{"\x1b[2J"}).err);
}

TEST(Completion, ListsWhatCanComeNext)
{
    const auto candidates = [](std::vector<std::string> words) {
        words.insert(words.begin(), "--complete");
        std::string line;
        std::istringstream lines{tool(words).out};
        for (std::string candidate; std::getline(lines, candidate);)
            line += (line.empty() ? "" : " ") + candidate;
        return line;
    };
    EXPECT_EQ("list doctor i2c spi uart watch record replay batch help version", candidates({""}));
    EXPECT_EQ("i2c", candidates({"i"}));
    EXPECT_EQ("get", candidates({"-v", "i2c", "ge"}));
    EXPECT_EQ("i2c", candidates({"help", "i"}));
    EXPECT_EQ("spi", candidates({"list", "s"}));
    EXPECT_EQ("--json", candidates({"i2c", "get", "4", "--js"}));
    EXPECT_EQ("-n -v -h", [&] {
        std::string shortOnes;
        std::istringstream all{candidates({"i2c", "write", "-"})};
        for (std::string name; all >> name;)
            shortOnes += name[1] == '-' ? "" : (shortOnes.empty() ? "" : " ") + name;
        return shortOnes;
    }());
    EXPECT_EQ("--files", candidates({"i2c", "get", "--log-config", "x"}));
    EXPECT_EQ("", candidates({"i2c", "get", "4", ""}));
    EXPECT_EQ("", candidates({"frobnicate", ""}));
    EXPECT_EQ("", candidates({"$(touch x)", "\x01s/x/w y/", ""}));
}

struct Batch : testing::Test {
    Batch()
    {
        sensor->memory = {0x19, 0x80};
        bus->chips[0x48] = sensor;
        kernel.devices["/dev/i2c-4"] = bus;
    }

    FakeKernel kernel;
    std::shared_ptr<FakeI2cBus> bus = std::make_shared<FakeI2cBus>();
    std::shared_ptr<FakeRegisters> sensor = std::make_shared<FakeRegisters>(2);
};

TEST_F(Batch, StopsAtTheFirstFailureWithItsLine)
{
    const Outcome outcome = tool("batch", "# a comment\n"
                                          "i2c get 4 0x48 0x00 2  # and another\n"
                                          "\n"
                                          "'i2c' \"get\" 4 0x\\48 0x01\n"
                                          "i2c get 4 0x49 0x00\n"
                                          "i2c get 4 0x48 0x00\n");
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ("19 80\n80\n", outcome.out);
    EXPECT_EQ("serialcomm: standard input:5: no answer from 0x49 on /dev/i2c-4\n  try: serialcomm i2c scan 4\n",
              outcome.err);
}

TEST_F(Batch, ReportsWhatIsWrongWithALine)
{
    const std::string line = "serialcomm: standard input:1: ";
    EXPECT_EQ(line + "no closing '\n", tool("batch", "i2c 'get").err);
    EXPECT_EQ(line + "batch: not allowed in a batch\n", tool("batch", "batch x").err);
    EXPECT_EQ(line + "i2c x: unknown verb\n  try: serialcomm i2c\n", tool("batch", "i2c x").err);
    EXPECT_EQ(2, tool("batch", "i2c x").status);
    EXPECT_EQ("serialcomm: /none: No such file or directory\n", tool("batch /none").err);
    EXPECT_EQ(3, tool("batch /none").status);
    EXPECT_EQ("19\n", tool("batch", "i2c get 4 0x48 0x00").out) << "the last line needs no line end";
    EXPECT_EQ(0, tool("batch", "").status);
}

/// At -v traffic and the library's log from DEBUG on, at -vv from TRACE on.
TEST_F(Batch, VerbosityHasTwoLevels)
{
    EXPECT_EQ("", tool("i2c get 4 0x48 0x00").err);
    EXPECT_EQ("S 48 W 00 Sr 48 R [1] P\n", tool("-v i2c get 4 0x48 0x00").err);
    EXPECT_EQ("TRACE Enter bool I2c::init(): path: /dev/i2c-4 address 72\nTRACE Leave bool I2c::init(): \n"
              "S 48 W 00 Sr 48 R [1] P\n",
              tool("i2c get 4 0x48 0x00 -vv").err);
    EXPECT_EQ("", tool("i2c get 4 0x48 0x00").err) << "each command has its own";
}

}  // namespace
