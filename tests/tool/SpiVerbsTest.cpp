// The verbs of SPI against a device in this process: what goes over the wire, what is printed, how they end.

#include "FakeKernel.h"

#include "base/Bytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <regex>
#include <sstream>

namespace
{

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream{text};
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

/// The bytes of "MOSI 03 00 x 2", up to those that "..." stands for; `size` is how many there are altogether.
ByteArray mosiOf(const std::string& line, size_t& size)
{
    std::istringstream words{line.substr(4)};
    ByteArray bytes;
    std::string last;
    size = 0;
    for (std::string word; words >> word; last = word) {
        if (word == "x" || last == "x" || word == "..." || word == "bytes)") {
            if (last == "x") {
                bytes.pop_back();
                bytes.resize(bytes.size() + std::stoul(word));
            }
        } else if (word[0] == '(') {
            size = std::stoul(word.substr(1));
        } else {
            bytes.push_back(static_cast<uint8_t>(std::stoul(word, nullptr, 16)));
        }
    }
    size = std::max(size, bytes.size());
    return bytes;
}

/// Expects that the messages are those that a dry run announced.
void expectPlanned(const std::string& plan, const std::vector<std::string>& sent)
{
    size_t i = 0;
    for (const std::string& line : linesOf(plan)) {
        if (line.compare(0, 4, "MOSI") != 0)
            continue;
        ASSERT_LT(i, sent.size()) << line;
        size_t size = 0;
        const std::string start = hexLine(mosiOf(line, size));
        EXPECT_EQ(start, sent[i].substr(0, start.size())) << line;
        EXPECT_EQ(3 * size - 1, sent[i].size()) << line;
        ++i;
    }
    EXPECT_EQ(i, sent.size());
}

/// A file as sysfs has them.
struct FakeFile : FakeDevice {
    explicit FakeFile(std::string text) : content(std::move(text)) {}
    long read(uint8_t* buffer, size_t /*count*/) override
    {
        std::copy(content.begin(), content.end(), buffer);
        return static_cast<long>(content.size());
    }
    long ioctl(unsigned long /*request*/, void* /*argument*/) override { return -ENOTTY; }

    std::string content;
};

struct SpiVerbs : testing::Test {
    SpiVerbs()
    {
        bus->mode = 1;
        kernel.devices["/dev/spidev2.0"] = bus;
        kernel.devices[bufsizPath] = std::make_shared<FakeFile>("4096\n");
    }

    /// The chip answers with these bytes, then with zeros.
    void answerWith(const ByteArray& bytes)
    {
        bus->exchange = [bytes](const ByteArray& out) {
            ByteArray in = bytes;
            in.resize(out.size());
            return in;
        };
    }

    static constexpr auto bufsizPath = "/sys/module/spidev/parameters/bufsiz";
    FakeKernel kernel;
    std::shared_ptr<FakeSpi> bus = std::make_shared<FakeSpi>();
};

TEST_F(SpiVerbs, DoWhatADryRunPrints)
{
    const char* const lines[] = {
        "spi read 2.0 4",
        "spi write 2.0 06 de ad",
        "spi write 2.0 000102030405060708090a0b0c0d0e0f1011",
        "spi transfer 2.0 9f 01 02",
        "spi transfer 2.0 9f +3",
        "spi transfer 2.0 9f +3 --count 3",
    };
    for (const char* const line : lines) {
        SCOPED_TRACE(line);
        const std::string plan = tool(std::string{line} + " -n").out;
        ASSERT_TRUE(bus->sent.empty());
        EXPECT_EQ(0, tool(line).status);
        expectPlanned(plan, bus->sent);
        bus->sent.clear();
    }
}

struct Case {
    const char* line;
    const char* out;
};

TEST_F(SpiVerbs, PrintWhatComesIn)
{
    const Case cases[] = {
        {"spi info 2.0", "/dev/spidev2.0: mode 0x01, 20000000 Hz, 8 bits a word\n"},
        {"spi info 2.0 --json", "{\"device\":\"/dev/spidev2.0\",\"mode\":1,\"speed\":20000000,\"bits\":8}\n"},
        {"spi read 2.0 3", "41 ef 0a\n"},
        {"spi read 2.0 3 --json", "{\"device\":\"/dev/spidev2.0\",\"bytes\":[65,239,10]}\n"},
        {"spi read 2.0 3 --raw", "A\xef\n"},
        {"spi read 2.0 3 --hexdump", "00000000: 41 ef 0a                                           A..\n"},
        {"spi transfer 2.0 01 02 03", "41 ef 0a\n"},
        {"spi transfer 2.0 01 +2", "ef 0a\n"},
        {"spi transfer 2.0 01 +2 --json", "{\"device\":\"/dev/spidev2.0\",\"bytes\":[239,10]}\n"},
        {"spi transfer 2.0 01 +2 --raw", "\xef\n"},
        {"spi transfer 2.0 01 +2 --hexdump", "00000000: ef 0a                                              ..\n"},
        {"spi transfer 2.0 01 +2 --count 2", "ef 0a\nef 0a\n"},
        {"spi write 2.0 01 02 03", ""},
    };
    answerWith({0x41, 0xef, 0x0a});
    for (const auto& [line, out] : cases) {
        SCOPED_TRACE(line);
        const Outcome outcome = tool(line);
        EXPECT_EQ(0, outcome.status);
        EXPECT_EQ(out, outcome.out);
        EXPECT_EQ("", outcome.err);
    }
}

TEST_F(SpiVerbs, SendStandardInputAsItIs)
{
    EXPECT_EQ(0, tool("spi write 2.0 -", std::string{"\0\n\xff", 3}).status);
    EXPECT_EQ("00\n", tool("spi transfer 2.0 - +1", "\x9f").out);
    EXPECT_EQ((std::vector<std::string>{"00 0a ff", "9f 00"}), bus->sent);
}

/// Without --mode the device keeps the mode that it has.
TEST_F(SpiVerbs, SetOnlyTheModeThatIsAskedFor)
{
    struct {
        const char* options;
        uint8_t mode;
        uint32_t speedHz;
        const char* settings;
        const char* planned;
    } const cases[] = {
        {"", 1, 500'000, "mode 0x01 as set, 500000 Hz", "mode as set, 500000 Hz"},
        {" --speed 10M", 1, 10'000'000, "mode 0x01 as set, 10000000 Hz", "mode as set, 10000000 Hz"},
        {" --mode 3 --speed 100k", 3, 100'000, "mode 0x03, 100000 Hz", "mode 0x03, 100000 Hz"},
        {"", 3, 500'000, "mode 0x03 as set, 500000 Hz", "mode as set, 500000 Hz"},
        {" --mode 0", 0, 500'000, "mode 0x00, 500000 Hz", "mode 0x00, 500000 Hz"},
    };
    for (const auto& [options, mode, speedHz, settings, planned] : cases) {
        for (const std::string verb : {"spi read 2.0 1", "spi write 2.0 00", "spi transfer 2.0 00"}) {
            const std::string line = verb + options;
            SCOPED_TRACE(line);
            EXPECT_EQ(planned, linesOf(tool(line + " -n").out).back());
            const std::string shown = tool(line + " -v").err;
            EXPECT_NE(std::string::npos, shown.find(std::string{settings} + "\n")) << shown;
            EXPECT_EQ(mode, bus->mode);
            EXPECT_EQ(speedHz, bus->usedSpeeds.back());
        }
    }
}

TEST_F(SpiVerbs, NameTheCauseOfAFailure)
{
    const std::string huge = "spidev.bufsiz=65536 on the kernel command line";
    const std::string gone = "serialcomm: /dev/spidev2.0 is gone: its driver was unbound\n";
    const std::string tooMany = "bytes: an SPI transfer holds at most 16777216\n";
    struct {
        std::string line;
        int error;
        int status;
        std::string message;
    } const cases[] = {
        {"spi read 2.0 4097", 0, 1,
         "serialcomm: /dev/spidev2.0: 4097 bytes in one transfer, spidev takes 4096\n  try: " + huge + "\n"},
        {"spi transfer 2.0 9f +70000", 0, 1,
         "serialcomm: /dev/spidev2.0: 70001 bytes in one transfer, spidev takes 4096\n"
         "  try: spidev.bufsiz=131072 on the kernel command line\n"},
        {"spi read 2.0 1", ESHUTDOWN, 1, gone},
        {"spi write 2.0 01", ESHUTDOWN, 1, gone},
        {"spi transfer 2.0 01 +1", ENODEV, 1, gone},
        {"spi transfer 2.0 01", EIO, 1,
         "serialcomm: /dev/spidev2.0: SPI can't send/read message. ret:-1: Input/output error\n"},
        {"spi read 2.0 1", EIO, 1,
         "serialcomm: /dev/spidev2.0: SPI can't read spi message. errno: 5: Input/output error\n"},
        {"spi read 2.0 1 --mode 0x0b", 0, 3,
         "serialcomm: /dev/spidev2.0: mode 0x0b refused by the driver; it stays at 0x01\n"},
        {"spi info /dev/null", 0, 3, "serialcomm: /dev/null is not a spidev node\n"},
        {"spi read /dev/null 1", 0, 3, "serialcomm: /dev/null is not a spidev node\n"},
        {"spi read /dev/null 1 --mode 0", 0, 3, "serialcomm: /dev/null is not a spidev node\n"},
        {"spi read 2.0 16777217", 0, 2, "serialcomm: 16777217 " + tooMany},
        {"spi transfer 2.0 01 +16777216", 0, 2, "serialcomm: 16777217 " + tooMany},
        {"spi read 2.0 1 --raw --json", 0, 2,
         "serialcomm: spi read: --raw and --json cannot be combined\n  try: serialcomm spi read --help\n"},
    };
    for (const auto& [line, error, status, message] : cases) {
        SCOPED_TRACE(line);
        bus->error = error;
        const Outcome outcome = tool(line);
        EXPECT_EQ(status, outcome.status);
        EXPECT_EQ(message, outcome.err);
        EXPECT_EQ("", outcome.out);
    }
    bus->error = 0;
    const Outcome outcome = tool("spi write 2.0 -", std::string(16 * 1024 * 1024 + 1, '\0'));
    EXPECT_EQ(2, outcome.status);
    EXPECT_EQ("serialcomm: standard input: more than 16777216 bytes\n", outcome.err);
    bus->limit = SIZE_MAX;
    EXPECT_EQ(16U * 1024 * 1024, tool("spi read 2.0 16777216 --raw").out.size());
}

TEST_F(SpiVerbs, RepeatATransfer)
{
    uint8_t next = 0;
    bus->exchange = [&](const ByteArray& out) { return ByteArray(out.size(), ++next); };
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ("01 01\n02 02\n03 03\n", tool("spi transfer 2.0 9f +2 --every 0.03 --count 3").out);
    EXPECT_LE(std::chrono::milliseconds{60}, std::chrono::steady_clock::now() - start);
    EXPECT_EQ(3U, bus->sent.size());

    EXPECT_TRUE(std::regex_match(tool("spi transfer 2.0 9f 00 --count 2 -t").out,
                                 std::regex{R"((\[\d\d:\d\d:\d\d\.\d{3}\] 0(4 04|5 05)\n){2})"}));
    EXPECT_TRUE(
        std::regex_match(tool("spi transfer 2.0 9f --count 2 -t --json").out,
                         std::regex{R"((\{"time":\d+\.\d+,"device":"/dev/spidev2.0","bytes":\[[67]\]\}\n){2})"}));
}

}  // namespace
