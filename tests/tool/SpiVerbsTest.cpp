// The SPI verbs with a fake device in this process: traffic, output, exit status.

#include "FakeKernel.h"
#include "Folder.h"

#include "base/Bytes.h"
#include "cli/CommandLine.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>
#include <utility>

using testing::MatchesRegex;

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

/// The bytes of "MOSI 03 00 x 2", up to "..."; `size` is set to the total number of bytes.
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

/// Expects the messages that a dry run printed.
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

/// A file as in sysfs.
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

TEST_F(SpiVerbs, PrintReceivedBytes)
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
TEST_F(SpiVerbs, SetOnlyARequestedMode)
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
         "serialcomm: /dev/spidev2.0: 4097 bytes in one transfer; spidev accepts at most 4096\n  try: " + huge + "\n"},
        {"spi transfer 2.0 9f +70000", 0, 1,
         "serialcomm: /dev/spidev2.0: 70001 bytes in one transfer; spidev accepts at most 4096\n"
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

    EXPECT_THAT(tool("spi transfer 2.0 9f 00 --count 2 -t").out,
                MatchesRegex("(\\[[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}\\] 0(4 04|5 05)\n){2}"));
    EXPECT_THAT(tool("spi transfer 2.0 9f --count 2 -t --json").out,
                MatchesRegex(R"((\{"time":[0-9]+\.[0-9]+,"device":"/dev/spidev2.0","bytes":\[[67]\]\})"
                             "\n){2}"));
}

TEST_F(SpiVerbs, TestComparesWhatComesBack)
{
    const Outcome outcome = tool("spi test 2.0 --speed 1M");
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("", outcome.err);
    EXPECT_THAT(outcome.out, MatchesRegex("/dev/spidev2.0: 22 bursts, 6574 bytes, [0-9]+ bytes/s, 0 failed\n"));
    std::string values;
    for (int value = 0; value < 256; ++value)
        values += (value == 0 ? "" : " ") + hexPair(static_cast<unsigned int>(value));
    EXPECT_EQ(values, bus->sent.front());
    EXPECT_EQ(std::vector<uint32_t>(22, 1'000'000), bus->usedSpeeds);
    const std::vector<std::string> sent = std::exchange(bus->sent, {});
    expectPlanned(tool("spi test 2.0 -n").out, sent);
    EXPECT_TRUE(bus->sent.empty());

    kernel.devices[bufsizPath] = std::make_shared<FakeFile>("64\n");
    EXPECT_THAT(tool("spi test 2.0").out,
                MatchesRegex("/dev/spidev2.0: 14 bursts, 325 bytes, [0-9]+ bytes/s, 0 failed\n"));
}

TEST_F(SpiVerbs, TestNamesTheFault)
{
    const auto shifted = [](const ByteArray& out) {  // all bits one place later, but for the last burst
        ByteArray in = out;
        if (in.size() == 4096) {
            in.back() ^= 0x80;
            return in;
        }
        uint8_t carried = 0;
        for (uint8_t& byte : in)
            carried = static_cast<uint8_t>(std::exchange(byte, static_cast<uint8_t>(carried | byte >> 1)) << 7);
        return in;
    };
    const struct {
        std::function<ByteArray(const ByteArray&)> echo;
        std::string firstLine;
        std::string message;
    } cases[] = {
        {[](const ByteArray& out) { return ByteArray(out.size(), 0xff); },
         "every value, 256 bytes: byte 0: sent 00, got ff; 255 bytes of 256 differ",
         "21 of 22 bursts came back different; all ff: MISO floats"},
        {[](const ByteArray& out) { return ByteArray(out.size()); },
         "every value, 256 bytes: byte 1: sent 01, got 00; 255 bytes of 256 differ",
         "21 of 22 bursts came back different; all 00: MISO is held low, or floats with a pull-down"},
        {shifted, "every value, 256 bytes: byte 1: sent 01, got 00; 255 bytes of 256 differ",
         "21 of 22 bursts came back different; shifted by one bit: try another mode"},
        {[](const ByteArray& out) {
             ByteArray in = out;
             if (in.size() == 256)
                 in[17] ^= 0x04;
             return in;
         },
         "every value, 256 bytes: byte 17: sent 11, got 15; 1 byte of 256 differs",
         "1 of 22 bursts came back different"},
        {[](const ByteArray& out) {  // a byte is dropped, and all behind it is early
             ByteArray in = out;
             if (in.size() == 64) {
                 in.erase(in.begin() + 5);
                 in.push_back(0);
             }
             return in;
         },
         "random, 64 bytes: byte 5: sent ", "1 of 22 bursts came back different"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.message);
        bus->exchange = row.echo;
        const Outcome outcome = tool("spi test 2.0");
        EXPECT_EQ(1, outcome.status);
        EXPECT_EQ(row.firstLine, linesOf(outcome.out).front().substr(0, row.firstLine.size()));
        const std::string failed = row.message.substr(0, row.message.find(' '));
        EXPECT_THAT(linesOf(outcome.out).back(),
                    MatchesRegex("/dev/spidev2.0: 22 bursts, 6574 bytes, [0-9]+ bytes/s, " + failed + " failed"));
        EXPECT_EQ("serialcomm: /dev/spidev2.0: " + row.message +
                      "\n  try: a jumper between MOSI and MISO, a lower --speed, another --mode\n",
                  outcome.err);
    }
    bus->exchange = cases[3].echo;
    const std::vector<std::string> lines = linesOf(tool("spi test 2.0 --json").out);
    EXPECT_EQ(23U, lines.size());
    EXPECT_EQ(R"({"device":"/dev/spidev2.0","burst":"every value, 256 bytes","size":256,)"
              R"("ok":false,"error":"changed","count":1,"position":17,"sent":17,"got":21})",
              lines[0]);
    EXPECT_EQ(
        R"({"device":"/dev/spidev2.0","burst":"00, 16 bytes","size":16,"ok":true,"error":null,"count":null,"position":null,)"
        R"("sent":null,"got":null})",
        lines[1]);
    EXPECT_THAT(lines[22], MatchesRegex(R"(\{"device":"/dev/spidev2.0","bursts":22,"failed":1,"bytes":6574,)"
                                        R"("bytes_per_second":[1-9][0-9]*\})"));
    bus->error = ESHUTDOWN;
    EXPECT_EQ("serialcomm: /dev/spidev2.0 is gone: its driver was unbound\n", tool("spi test 2.0").err);
}

/// A serial flash as data sheets describe it: a command that changes it requires write enable, a program command clears
/// bits and wraps inside its page, and commands during a busy period are ignored.
struct FakeFlash {
    explicit FakeFlash(size_t size) : memory(size, 0xff) {}

    ByteArray operator()(const ByteArray& out)
    {
        ByteArray in(out.size());
        const uint8_t command = out[0];
        if (command == 0x05) {
            const auto status = static_cast<uint8_t>((busyLeft > 0 ? 1 : 0) | (enabled ? 2 : 0));
            std::fill(in.begin() + 1, in.end(), noChip ? 0xff : status);
            busyLeft -= busyLeft > 0 ? 1 : 0;
        } else if (noChip) {
            std::fill(in.begin(), in.end(), uint8_t{0xff});
        } else if (busyLeft > 0) {
            ++ignored;
        } else if (command == 0x06) {
            enabled = !refusesWriteEnable;
        } else if (command == 0x9f) {
            answer(in, 1, {0xef, 0x40, 0x14}, 0);
        } else if (command == 0x5a) {
            answer(in, 5, sfdp, address(out, 3));
        } else if (command == 0x03 || command == 0x13) {
            const size_t width = command == 0x03 ? 3 : 4;
            answer(in, 1 + width, memory, address(out, width));
        } else if (enabled) {
            change(out);
        }
        return in;
    }

    ByteArray memory;
    ByteArray sfdp;
    size_t page = 256;
    int busyReads = 0;  ///< status reads that find it busy after a change
    bool refusesWriteEnable = false;
    bool protects = false;  ///< changes are accepted but have no effect
    bool noChip = false;    ///< the line stays high
    int busyLeft = 0;
    int ignored = 0;  ///< messages received while it was busy

private:
    static size_t address(const ByteArray& out, size_t width)
    {
        size_t value = 0;
        for (size_t i = 1; i <= width; ++i)
            value = value << 8 | out[i];
        return value;
    }

    static void answer(ByteArray& in, size_t front, const ByteArray& content, size_t first)
    {
        for (size_t i = front; i < in.size(); ++i)
            in[i] = first + i - front < content.size() ? content[first + i - front] : 0x00;
    }

    void change(const ByteArray& out)
    {
        enabled = false;
        busyLeft = busyReads;
        const bool wide = out[0] == 0x12 || out[0] == 0x21 || out[0] == 0xdc;
        const size_t first = address(out, wide ? 4 : 3);
        if (protects)
            return;
        if (out[0] == 0x02 || out[0] == 0x12) {
            for (size_t i = wide ? 5 : 4; i < out.size(); ++i) {
                const size_t offset = (first + i - (wide ? 5 : 4)) % page;
                memory[(first - first % page + offset) % memory.size()] &= out[i];
            }
            return;
        }
        const size_t sector = out[0] == 0x20 || out[0] == 0x21 ? 4096 : 65536;
        std::fill_n(memory.begin() + static_cast<std::ptrdiff_t>(first - first % sector), sector, 0xff);
    }

    bool enabled = false;
};

/// SFDP with a basic table at `pointer`: double words 1 and 2, the first two erase types, the exponent of the page
/// size.
ByteArray sfdpOf(uint32_t first, uint32_t density, uint32_t sectors, uint8_t pageExponent, size_t doubleWords = 16)
{
    constexpr uint8_t pointer = 0x30;
    ByteArray bytes = {'S',     'F', 'D', 'P', 6, 1, 0, 0xff, 0, 6, 1, static_cast<uint8_t>(doubleWords),
                       pointer, 0,   0,   0xff};
    bytes.resize(pointer + 4 * doubleWords);
    const auto set = [&](size_t number, uint32_t value) {
        for (size_t i = 0; i < 4 && number <= doubleWords; ++i)
            bytes[pointer + 4 * (number - 1) + i] = static_cast<uint8_t>(value >> (8 * i));
    };
    set(1, first);
    set(2, density);
    set(8, sectors);
    set(11, static_cast<uint32_t>(pageExponent) << 4);
    return bytes;
}

constexpr uint32_t only3Bytes = 0xfff120e5;
constexpr uint32_t only4Bytes = 0xfff520e5;
constexpr uint32_t sectorsOf4K = 0x520f200c;
constexpr uint32_t sectorsOf64K = 0x0000d810;

struct SpiFlash : SpiVerbs {
    SpiFlash()
    {
        bus->exchange = [this](const ByteArray& out) { return (*flash)(out); };
        for (size_t i = 0; i < image.size(); ++i)
            image[i] = static_cast<char>(i * 7 + i / 256);
    }

    [[nodiscard]] std::string content(size_t first, size_t count) const
    {
        const auto start = flash->memory.begin() + static_cast<std::ptrdiff_t>(first);
        return {start, start + static_cast<std::ptrdiff_t>(count)};
    }

    void fill(size_t first, const std::string& bytes) const
    {
        std::copy(bytes.begin(), bytes.end(), flash->memory.begin() + static_cast<std::ptrdiff_t>(first));
    }

    /// How often a command was sent.
    [[nodiscard]] long count(const std::string& command) const
    {
        return std::count_if(bus->sent.begin(), bus->sent.end(),
                             [&](const std::string& bytes) { return bytes.substr(0, command.size()) == command; });
    }

    std::shared_ptr<FakeFlash> flash = std::make_shared<FakeFlash>(65536);
    std::string image = std::string(10'000, '\0');
};

TEST_F(SpiFlash, DoesWhatADryRunPrints)
{
    struct {
        const char* line;
        std::string input;
    } const cases[] = {
        {"spi flash 2.0 id", ""},
        {"spi flash 2.0 read 0x10 5000", ""},
        {"spi flash 2.0 read 0xf000 --size 64k", ""},
        {"spi flash 2.0 read 0x10 5000 --address-bytes 4", ""},
        {"spi flash 2.0 write 0x20ff", "abcdef"},
        {"spi flash 2.0 write 0x30fe --page 1 -", "ab"},
        {"spi flash 2.0 write 0x4000 --erase", std::string(300, 'x')},
        {"spi flash 2.0 write 0x5010 --erase --address-bytes 4", "kept around"},
        {"spi flash 2.0 erase 0x6000 8k", ""},
        {"spi flash 2.0 verify 0x20ff", "abcdef"},
    };
    // A dry run shows the bytes that --erase keeps as zeros.
    std::fill(flash->memory.begin() + 0x4000, flash->memory.begin() + 0x6000, uint8_t{0});
    for (const auto& [line, input] : cases) {
        SCOPED_TRACE(line);
        const std::string plan = tool(std::string{line} + " -n", input).out;
        ASSERT_TRUE(bus->sent.empty());
        const Outcome outcome = tool(line, input);
        EXPECT_EQ(0, outcome.status) << outcome.err;
        expectPlanned(plan, bus->sent);
        bus->sent.clear();
    }
}

TEST_F(SpiFlash, IsIdentified)
{
    EXPECT_EQ("ef 40 14: no SFDP, sectors of 4096 bytes, pages of 256, 3 address bytes\n",
              tool("spi flash 2.0 id").out);
    EXPECT_EQ(R"({"device":"/dev/spidev2.0","id":[239,64,20],"sfdp":false,"size":null,"sector":4096,"page":256,)"
              "\"address_bytes\":3}\n",
              tool("spi flash 2.0 id --json").out);
    struct {
        ByteArray sfdp;
        const char* options;
        const char* out;
    } const cases[] = {
        {sfdpOf(only3Bytes, 0x007fffff, sectorsOf4K, 8), "",
         "1048576 bytes, sectors of 4096 bytes, pages of 256, 3 address bytes\n"},
        {sfdpOf(only3Bytes, 0x007fffff, sectorsOf64K, 9), "",
         "1048576 bytes, sectors of 65536 bytes, pages of 512, 3 address bytes\n"},
        {sfdpOf(only4Bytes, 0x007fffff, sectorsOf4K, 8), "",
         "1048576 bytes, sectors of 4096 bytes, pages of 256, 4 address bytes\n"},
        {sfdpOf(only3Bytes, 0x0fffffff, sectorsOf4K, 8), "",
         "33554432 bytes, sectors of 4096 bytes, pages of 256, 4 address bytes\n"},
        {sfdpOf(only3Bytes, 0x80000021, sectorsOf4K, 8), "",
         "1073741824 bytes, sectors of 4096 bytes, pages of 256, 4 address bytes\n"},
        {sfdpOf(only3Bytes, 0x007fffff, sectorsOf4K, 8, 9), "",
         "1048576 bytes, sectors of 4096 bytes, pages of 256, 3 address bytes\n"},
        {sfdpOf(only3Bytes, 0x007fffff, sectorsOf4K, 8), " --size 2M --page 1 --address-bytes 4",
         "2097152 bytes, sectors of 4096 bytes, pages of 1, 4 address bytes\n"},
    };
    for (const auto& [sfdp, options, out] : cases) {
        flash->sfdp = sfdp;
        EXPECT_EQ(std::string{"ef 40 14: "} + out, tool(std::string{"spi flash 2.0 id"} + options).out);
    }
}

TEST_F(SpiFlash, IsReadInPiecesThatSpidevAccepts)
{
    fill(0x123, image);
    const std::string line = "spi flash 2.0 read 0x123 10000";
    EXPECT_EQ(image, tool(line + " --raw").out);
    EXPECT_EQ(3, count("03"));

    kernel.devices[bufsizPath] = std::make_shared<FakeFile>("65536\n");
    bus->limit = 65536;
    bus->sent.clear();
    EXPECT_EQ(image, tool(line + " --raw").out);
    EXPECT_EQ(1, count("03"));

    // Several results, one form each.
    EXPECT_EQ("00 07 0e\n", tool("spi flash 2.0 read 0x123 3").out);
    EXPECT_EQ("00000123: 00 07 0e                                           ...\n",
              tool("spi flash 2.0 read 0x123 3 --hexdump").out);
    EXPECT_EQ("{\"device\":\"/dev/spidev2.0\",\"address\":291,\"bytes\":[0,7,14]}\n",
              tool("spi flash 2.0 read 0x123 3 --json").out);
}

TEST_F(SpiFlash, IsReadAsAWholeWhenItsSizeIsKnown)
{
    Outcome outcome = tool("spi flash 2.0 read --raw");
    EXPECT_EQ(2, outcome.status);
    EXPECT_EQ("serialcomm: spi flash read: the size of the chip is not known\n  try: --size, or ADDR and N\n",
              outcome.err);

    fill(0, image);
    EXPECT_EQ(content(0, 65536), tool("spi flash 2.0 read --size 64k --raw").out);
    flash->sfdp = sfdpOf(only3Bytes, 8 * 65536 - 1, sectorsOf4K, 8);
    EXPECT_EQ(content(0, 65536), tool("spi flash 2.0 read --raw").out);
    EXPECT_EQ(content(0x100, 65536 - 0x100), tool("spi flash 2.0 read 0x100 --raw").out);
}

TEST_F(SpiFlash, RefusesAddressesOutsideTheChip)
{
    flash->sfdp = sfdpOf(only3Bytes, 8 * 65536 - 1, sectorsOf4K, 8);
    for (const std::string line :
         {"read 0xffff 2", "read 0x10000", "erase 0xf000 8k", "verify 0xffff", "write 0xffff"}) {
        const Outcome outcome = tool("spi flash 2.0 " + line, "ab");
        EXPECT_EQ(2, outcome.status) << line;
        EXPECT_NE(std::string::npos, outcome.err.find("the chip ends before 0x010000\n")) << outcome.err;
    }
    EXPECT_EQ(0, count("03"));
    EXPECT_EQ(0, count("06"));

    const Outcome outcome = tool("spi flash 2.0 read 0x1000000 1 --size 32M --address-bytes 3");
    EXPECT_EQ("serialcomm: 1 bytes from 0x1000000 on: the chip ends before 0x1000000 with 3-byte addresses\n",
              outcome.err);
}

TEST_F(SpiFlash, IsWrittenPageByPage)
{
    flash->busyReads = 3;
    const Outcome outcome = tool("spi flash 2.0 write 0x0ff0", image);
    EXPECT_EQ("", outcome.err);
    EXPECT_EQ("/dev/spidev2.0: 10000 bytes written and verified from 0x000ff0 on\n", outcome.out);
    EXPECT_EQ(image, content(0x0ff0, image.size()));
    EXPECT_EQ(0xff, flash->memory[0x0fef]);
    EXPECT_EQ(0xff, flash->memory[0x0ff0 + image.size()]);
    EXPECT_EQ(40, count("02"));
    EXPECT_EQ(0, count("20"));
    EXPECT_EQ(0, flash->ignored);
    EXPECT_EQ("{\"device\":\"/dev/spidev2.0\",\"address\":4080,\"count\":10000}\n",
              tool("spi flash 2.0 write 0x0ff0 --json", image).out);
}

TEST_F(SpiFlash, IsWrittenInMessagesThatSpidevAccepts)
{
    kernel.devices[bufsizPath] = std::make_shared<FakeFile>("64\n");
    bus->limit = 64;
    EXPECT_EQ(0, tool("spi flash 2.0 write 0x10", image).status);
    EXPECT_EQ(image, content(0x10, image.size()));
}

TEST_F(SpiFlash, WithWideAddressesUsesTheirCommands)
{
    flash = std::make_shared<FakeFlash>(17 * 1024 * 1024);
    flash->sfdp = sfdpOf(only3Bytes, 8 * 17 * 1024 * 1024 - 1, sectorsOf4K, 8);
    flash->memory[0x1000001] = 0;
    EXPECT_EQ(0, tool("spi flash 2.0 write 0x1000100 --erase", image).status);
    EXPECT_EQ(image, content(0x1000100, image.size()));
    EXPECT_EQ(0, flash->memory[0x1000001]);
    EXPECT_EQ(image, tool("spi flash 2.0 read 0x1000100 10000 --raw").out);
    EXPECT_EQ(0, count("02") + count("03") + count("20"));
    flash->sfdp = sfdpOf(only3Bytes, 8 * 17 * 1024 * 1024 - 1, sectorsOf64K, 8);
    EXPECT_EQ(0, tool("spi flash 2.0 erase 0x1000000 64k").status);
    EXPECT_EQ(1, count("dc 01 00 00 00"));
}

TEST_F(SpiFlash, ErasesWholeSectors)
{
    fill(0, std::string(65536, '\0'));
    flash->busyReads = 2;
    EXPECT_EQ("/dev/spidev2.0: 8192 bytes erased and verified from 0x002000 on\n",
              tool("spi flash 2.0 erase 0x2000 8192").out);
    EXPECT_EQ(std::string(8192, '\xff'), content(0x2000, 8192));
    EXPECT_EQ(0, flash->memory[0x1fff]);
    EXPECT_EQ(0, flash->memory[0x4000]);
    for (const char* const part : {"0x2000 100", "0x2001 4096"}) {
        const Outcome outcome = tool(std::string{"spi flash 2.0 erase "} + part);
        EXPECT_EQ(2, outcome.status);
        EXPECT_NE(std::string::npos, outcome.err.find("a sector has 4096 bytes")) << outcome.err;
    }
    flash->sfdp = sfdpOf(only3Bytes, 8 * 65536 - 1, sectorsOf64K, 8);
    EXPECT_EQ(2, tool("spi flash 2.0 erase 0x0 4k").status);
    EXPECT_EQ(0, tool("spi flash 2.0 erase 0x0 64k").status);
    EXPECT_EQ(std::string(65536, '\xff'), content(0, 65536));
    EXPECT_EQ(0, flash->ignored);
}

TEST_F(SpiFlash, ErasesBeforeWritingOnlyOnRequest)
{
    fill(0, std::string(65536, '\x0f'));
    const Outcome refused = tool("spi flash 2.0 write 0x1ff8", "ABCDEFGHIJ");
    EXPECT_EQ(1, refused.status);
    EXPECT_EQ("", refused.out);
    EXPECT_EQ(
        "serialcomm: /dev/spidev2.0: verification failed: 10 of 10 bytes differ, the first at 0x001ff8: 01 instead "
        "of 41\n  try: --erase: without it, no 0 bit can become 1\n",
        refused.err);

    EXPECT_EQ(0, tool("spi flash 2.0 write 0x1ff8 --erase", "ABCDEFGHIJ").status);
    EXPECT_EQ("ABCDEFGHIJ", content(0x1ff8, 10));
    EXPECT_EQ(std::string(0x1ff8, '\x0f'), content(0, 0x1ff8));
    EXPECT_EQ(std::string(65536 - 0x2002, '\x0f'), content(0x2002, 65536 - 0x2002));
    EXPECT_EQ(2, count("20"));
}

TEST_F(SpiFlash, NamesTheCauseOfAFailure)
{
    const std::string path = "serialcomm: /dev/spidev2.0: ";
    const std::string check = "\n  try: check chip select, power, MISO and MOSI, --mode, and a lower --speed\n";
    struct {
        const char* line;
        std::function<void(FakeFlash&)> prepare;
        std::string message;
    } const cases[] = {
        {"verify 0x0",
         [](FakeFlash& chip) {
             chip.memory = ByteArray{'a', 'b', 'x'};
         },
         path + "verification failed: 1 of 3 bytes differ, the first at 0x000002: 78 instead of 63\n"},
        {"write 0x0", [](FakeFlash& chip) { chip.protects = true; },
         path + "verification failed: 3 of 3 bytes differ, the first at 0x000000: ff instead of 61\n"
                "  try: check whether these sectors are write-protected\n"},
        {"erase 0x0 4k", [](FakeFlash& chip) { chip.protects = true, chip.memory[7] = 0x7f; },
         path + "verification failed: 1 of 4096 bytes differ, the first at 0x000007: 7f instead of ff\n"
                "  try: check whether these sectors are write-protected\n"},
        {"write 0x0", [](FakeFlash& chip) { chip.refusesWriteEnable = true; },
         path + "the chip does not enable writing; its status is 00\n"
                "  try: serialcomm spi flash /dev/spidev2.0 id, which shows whether a flash answers\n"},
        {"erase 0x0 4k", [](FakeFlash& chip) { chip.refusesWriteEnable = true; },
         path + "the chip does not enable writing; its status is 00\n"
                "  try: serialcomm spi flash /dev/spidev2.0 id, which shows whether a flash answers\n"},
        {"write 0x0 --deadline 0.02", [](FakeFlash& chip) { chip.busyReads = 1'000'000; },
         path + "still busy after 20 ms; its status is 01\n  try: a longer --deadline\n"},
        {"read 0x0 1 --deadline 0.02", [](FakeFlash& chip) { chip.busyLeft = 1'000'000; },
         path + "still busy after 20 ms; its status is 01\n  try: a longer --deadline\n"},
        {"read 0x0 1", [](FakeFlash& chip) { chip.noChip = true; },
         path + "no flash answers, its status is ff" + check},
    };
    for (const auto& [line, prepare, message] : cases) {
        SCOPED_TRACE(line);
        flash = std::make_shared<FakeFlash>(65536);
        prepare(*flash);
        const Outcome outcome = tool(std::string{"spi flash 2.0 "} + line, "abc");
        EXPECT_EQ(1, outcome.status);
        EXPECT_EQ(message, outcome.err);
        EXPECT_EQ("", outcome.out);
    }
    bus->exchange = [](const ByteArray& out) { return ByteArray(out.size()); };
    const Outcome outcome = tool("spi flash 2.0 id");
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ(path + "no flash answers, its id is 00 00 00" + check, outcome.err);
}

TEST_F(SpiFlash, RefusesWhatContradictsTheAction)
{
    const char* const lines[] = {
        "id 0x0",
        "id --raw",
        "write",
        "verify",
        "erase",
        "erase 0x0",
        "write 0x0 --raw",
        "erase 0x0 4k -o x",
        "read 0x0 --erase",
        "read 4096",
        "read 0x0 64K",
        "erase 0x0 0",
        "write 0x0 absent",
        "read 0x0 1 --json -o x",
        "format",
        "read 0x100000000",
        "read 0x0 1 --address-bytes 2",
    };
    for (const char* const line : lines) {
        const Outcome outcome = tool(std::string{"spi flash 2.0 "} + line, "ab");
        EXPECT_EQ(std::string{line} == "write 0x0 absent" ? 3 : 2, outcome.status) << line;
        EXPECT_NE("", outcome.err) << line;
    }
    EXPECT_EQ("serialcomm: no bytes to write\n", tool("spi flash 2.0 write 0x0", "").err);
    EXPECT_TRUE(bus->sent.empty());
}

std::string contentOf(const std::string& path)
{
    std::ifstream file{path};
    return {std::istreambuf_iterator<char>{file}, {}};
}

TEST_F(SpiFlash, ReadsAndWritesFiles)
{
    const Folder folder;
    const std::string file = folder.path + "/image";
    std::ofstream{file} << image;
    EXPECT_EQ(0, tool("spi flash 2.0 write 0x0 " + file).status);
    EXPECT_EQ(0, tool("spi flash 2.0 verify 0x0 " + file).status);
    EXPECT_EQ(0, tool("spi flash 2.0 verify 0x0 -", image).status);
    EXPECT_EQ(image, content(0, image.size()));

    const std::string copy = folder.path + "/copy";
    std::ofstream{copy} << image << image;
    EXPECT_EQ(2, tool("spi flash 2.0 read 0x1000000 1 -o " + copy).status);
    EXPECT_EQ(image + image, contentOf(copy));  // kept until the new content is known
    const Outcome outcome = tool("spi flash 2.0 read 0x0 10000 -o " + copy);
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("", outcome.out);
    EXPECT_EQ(image, contentOf(copy));
    EXPECT_EQ(image, tool("spi flash 2.0 read 0x0 10000 -o -").out);
    EXPECT_EQ("serialcomm: " + folder.path + "/none/x: No such file or directory\n",
              tool("spi flash 2.0 read 0x0 1 -o " + folder.path + "/none/x").err);
}

TEST_F(SpiFlash, ShowsItsProgressOnATerminal)
{
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    std::array<char, 64> name{};
    ASSERT_EQ(0, grantpt(terminal) + unlockpt(terminal) + ptsname_r(terminal, name.data(), name.size()));
    const int slave = open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    const int saved = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    dup2(slave, STDERR_FILENO);
    bus->exchange = [this](const ByteArray& out) {
        std::this_thread::sleep_for(std::chrono::milliseconds{70});
        return (*flash)(out);
    };
    EXPECT_EQ(0, runCommandLine({"spi", "flash", "2.0", "read", "0x0", "64k", "-o", "/dev/null"}));
    dup2(saved, STDERR_FILENO);
    std::string shown;
    const std::string end = "%\r\x1b[K";
    struct pollfd arrival = {terminal, POLLIN, 0};
    while ((shown.size() < end.size() || shown.substr(shown.size() - end.size()) != end) &&
           poll(&arrival, 1, 5000) == 1) {
        std::array<char, 4096> output{};
        shown.append(output.data(),
                     static_cast<size_t>(std::max<ssize_t>(read(terminal, output.data(), output.size()), 0)));
    }
    EXPECT_THAT(shown, MatchesRegex("(\r\x1b\\[K/dev/spidev2.0: reading, [0-9]+ %)+\r\x1b\\[K"));
    for (const int fd : {saved, slave, terminal})
        close(fd);
}

}  // namespace
