// The I2C verbs with a fake bus in this process: traffic, output, exit status.

#include "FakeKernel.h"

#include "base/Files.h"
#include "base/Signals.h"
#include "cli/CommandLine.h"

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <linux/i2c.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <numeric>
#include <string_view>
#include <thread>

namespace
{

/// Registers: some do not answer, some bits cannot be set, and some are set after a number of reads.
class OddRegisters : public FakeRegisters
{
public:
    using FakeRegisters::FakeRegisters;

    bool write(const ByteArray& bytes) override
    {
        if (!bytes.empty() && std::count(missing.begin(), missing.end(), bytes[0]) > 0)
            return false;
        FakeRegisters::write(bytes);
        for (uint8_t& byte : memory)
            byte &= writable;
        return true;
    }

    std::optional<ByteArray> read(size_t count) override
    {
        std::this_thread::sleep_for(readingTakes);
        if (readsUntilReady > 0 && --readsUntilReady == 0)
            memory[0] |= 0x80;
        return FakeRegisters::read(count);
    }

    std::vector<uint8_t> missing;
    uint8_t writable = 0xff;
    int readsUntilReady = 0;
    std::chrono::milliseconds readingTakes{0};
};

/// A block of an EEPROM: a write wraps at the end of its page, and the chip does not answer for a while afterwards.
class FakeEeprom : public FakeChip
{
public:
    FakeEeprom(size_t size, size_t wordWidth, size_t pageSize) : memory(size, 0xff), width(wordWidth), page(pageSize) {}

    bool write(const ByteArray& bytes) override
    {
        if (busy > 0 && busy-- > 0)
            return false;
        pointer = 0;
        for (size_t i = 0; i < width; ++i)
            pointer = pointer << 8 | bytes.at(i);
        pointer %= memory.size();
        for (size_t i = width; i < bytes.size(); ++i) {
            if (!writeProtected)
                memory[pointer] = bytes[i];
            pointer = pointer / page * page + (pointer + 1) % page;
        }
        if (bytes.size() > width)
            busy = looksWhileBusy;
        if (bytes.size() > width && signalAtPage > 0 && --signalAtPage == 0)
            raise(SIGINT);
        return true;
    }

    std::optional<ByteArray> read(size_t count) override
    {
        ByteArray bytes;
        for (size_t i = 0; i < count; ++i)
            bytes.push_back(memory[std::exchange(pointer, (pointer + 1) % memory.size())]);
        return bytes;
    }

    ByteArray memory;
    int looksWhileBusy = 2;
    bool writeProtected = false;
    int signalAtPage = 0;  ///< SIGINT while this page is written, counted from 1

private:
    size_t width;
    size_t page;
    size_t pointer = 0;
    int busy = 0;
};

std::string countingUp(size_t size)
{
    std::string text(size, '\0');
    std::iota(text.begin(), text.end(), '\x01');
    return text;
}

std::string asText(const ByteArray& bytes)
{
    return {bytes.begin(), bytes.end()};
}

struct Row {
    std::string_view line;
    int status = 0;
    std::string_view out = {};
    std::string_view err = {};
    std::string_view traffic = {};  ///< not compared if empty
};

struct I2cVerbs : testing::Test {
    I2cVerbs()
    {
        sensor->memory = {0x19, 0x80, 0x60, 0xa0};
        bus->chips[0x48] = sensor;
        wide->memory[0x0102] = 0x12;
        wide->memory[0x0201] = 0x21;
        bus->chips[0x40] = wide;
        kernel.devices["/dev/i2c-4"] = bus;
    }

    std::string takeTraffic()
    {
        std::string lines;
        for (const std::string& transaction : bus->traffic)
            lines += transaction + '\n';
        bus->traffic.clear();
        return lines;
    }

    void expect(std::initializer_list<Row> rows, const std::string& input = {})
    {
        for (const Row& row : rows) {
            SCOPED_TRACE(row.line);
            bus->traffic.clear();
            const Outcome outcome = tool(std::string{row.line}, input);
            EXPECT_EQ(row.status, outcome.status);
            EXPECT_EQ(row.out, outcome.out);
            EXPECT_EQ(row.err, outcome.err);
            if (!row.traffic.empty()) {
                EXPECT_EQ(row.traffic, takeTraffic());
            }
        }
    }

    /// An EEPROM with a chip at each address that it uses.
    std::vector<std::shared_ptr<FakeEeprom>> addEeprom(int address, size_t blocks, size_t blockSize, size_t page)
    {
        std::vector<std::shared_ptr<FakeEeprom>> eeprom;
        for (size_t i = 0; i < blocks; ++i) {
            eeprom.push_back(std::make_shared<FakeEeprom>(blockSize, blockSize > 256 ? 2 : 1, page));
            bus->chips[address + static_cast<int>(i)] = eeprom.back();
        }
        return eeprom;
    }

    FakeKernel kernel;
    std::shared_ptr<FakeI2cBus> bus = std::make_shared<FakeI2cBus>();
    std::shared_ptr<OddRegisters> sensor = std::make_shared<OddRegisters>(4);
    std::shared_ptr<FakeRegisters> wide = std::make_shared<FakeRegisters>(0x400, 2);
};

/// A dry run and -v print the traffic that the bus sees.
TEST_F(I2cVerbs, DoWhatADryRunPrints)
{
    for (const auto& block : addEeprom(0x50, 4, 256, 16))
        block->looksWhileBusy = 0;
    bus->chips[0x38] = sensor;
    const std::string lines[] = {
        "i2c get 4 0x48 0x00 2",
        "i2c get 4 0x40 0x0102 2",
        "i2c get 4 0x48 0x00 2 --stop",
        "i2c get 4 0x48 0x00 2 --stop --count 3",
        "i2c set 4 0x48 0x02 4b 00",
        "i2c set 4 0x48 0x02 4b 00 --verify",
        "i2c read 4 0x48 2",
        "i2c write 4 0x48 01 de",
        "i2c transfer 4 0x48 00 +3",
        "i2c dump 4 0x48",
        "i2c dump 4 0x40 0x00fe 0x0111",
        "i2c scan 4",
        "i2c scan 4 --any-address",
        "i2c eeprom 4 0x50 read --size 1024",
        "i2c eeprom 4 0x50 write 0x1f8 - --size 1024",
        "i2c eeprom 4 0x50 verify 0x1f8 - --size 1024",
    };
    const std::string input = countingUp(40);
    for (const std::string& line : lines) {
        SCOPED_TRACE(line);
        const std::string planned = tool(line + " -n", input).out;
        ASSERT_EQ("", takeTraffic());
        const Outcome outcome = tool(line, input);
        EXPECT_EQ(0, outcome.status) << outcome.err;
        EXPECT_EQ(planned, takeTraffic());

        std::string shown;
        std::istringstream err{tool(line + " -v", input).err};
        for (std::string text; std::getline(err, text);)
            shown += text.compare(0, 2, "S ") == 0 ? text + '\n' : "";
        EXPECT_EQ(planned, shown);
        takeTraffic();
    }
}

TEST_F(I2cVerbs, ShowBytesInTheRequestedForm)
{
    const std::string device = R"({"device":"/dev/i2c-4","address":"0x48",)";
    addEeprom(0x50, 1, 256, 8)[0]->memory[0x21] = 'B';
    expect({
        {"i2c get 4 0x48 0x01", 0, "80\n", "", "S 48 W 01 Sr 48 R [1] P\n"},
        {"i2c get i2c-4 0x48 0x0 2", 0, "19 80\n"},
        {"i2c get /dev/i2c-4 0X048 0 2 --stop", 0, "19 80\n", "", "S 48 W 00 P\nS 48 R [2] P\n"},
        {"i2c get 4 0x40 0x0102", 0, "12\n", "", "S 40 W 01 02 Sr 40 R [1] P\n"},
        {"i2c get 4 0x40 0x0201 --stop", 0, "21\n", "", "S 40 W 02 01 P\nS 40 R [1] P\n"},
        {"i2c get 4 0x48 0x02 2 --json", 0, device + R"("register":"0x02","bytes":[96,160]})" + "\n"},
        {"i2c get 4 0x48 0x02 --raw", 0, "`"},
        {"i2c get 4 0x40 0x0102 2 --hexdump", 0, "00000102: 12 00                                              ..\n"},
        {"i2c transfer 4 0x48 02 +1", 0, "60\n", "", "S 48 W 02 Sr 48 R [1] P\n"},
        {"i2c transfer 4 0x48 02 +1 --json", 0, device + R"("bytes":[96]})" + "\n"},
        {"i2c transfer 4 0x48 02 +1 --raw", 0, "`"},
        {"i2c transfer 4 0x48 02 +1 --hexdump", 0, "00000000: 60                                                 `\n"},
        {"i2c write 4 0x48 02", 0, "", "", "S 48 W 02 P\n"},
        {"i2c read 4 0x48 2", 0, "60 a0\n", "", "S 48 R [2] P\n"},
        {"i2c read 4 0x48 2 --json", 0, device + R"("bytes":[25,128]})" + "\n"},
        {"i2c read 4 0x48 1 --raw", 0, "`"},
        {"i2c read 4 0x48 1 --hexdump", 0, "00000000: a0                                                 .\n"},
        {"i2c dump 4 0x48 0x02 0x03 --raw", 0, "`\xa0"},
        {"i2c dump 4 0x48 0x02 0x03 --hexdump", 0, "00000002: 60 a0                                              `.\n"},
        {"i2c eeprom 4 0x50 read 0x20 3", 0, "ff 42 ff\n"},
        {"i2c eeprom 4 0x50 read 0x21 1 --raw", 0, "B"},
        {"i2c eeprom 4 0x50 read 0x20 2 --json", 0,
         R"({"device":"/dev/i2c-4","address":"0x50","offset":32,"bytes":[255,66]})"
         "\n"},
        {"i2c eeprom 4 0x50 read 0x21 2 --hexdump", 0,
         "00000021: 42 ff                                              B.\n"},
        {"i2c set 4 0x48 0x01 12", 0, "", "", "S 48 W 01 12 P\n"},
        {"i2c get 4 0x48 0x01", 0, "12\n"},
    });
}

/// The errno of a missing acknowledgement depends on the adapter.
TEST_F(I2cVerbs, ExitWithOneWithoutAnAnswer)
{
    const std::string verbs[] = {
        "get 4 0x51 0x00", "get 4 0x51 0x00 --stop", "set 4 0x51 0x00 01",    "set 4 0x51 0x00 01 --mask 01",
        "read 4 0x51 1",   "write 4 0x51 00",        "transfer 4 0x51 00 +1", "eeprom 4 0x51 read"};
    for (const int error : {ENXIO, EREMOTEIO, ETIMEDOUT, EIO}) {
        bus->noAnswerError = error;
        for (const std::string& verb : verbs) {
            expect({{"i2c " + verb, 1, "",
                     "serialcomm: no answer from 0x51 on /dev/i2c-4\n  try: serialcomm i2c scan 4\n"}});
        }
        const Outcome dump = tool("i2c dump 4 0x51 0x00 0x00 --json");
        EXPECT_EQ(1, dump.status);
        EXPECT_EQ("serialcomm: no answer from 0x51 on /dev/i2c-4\n  try: serialcomm i2c scan 4\n", dump.err);
    }
    expect({{"i2c eeprom 4 0x51 write 0 -", 1, "",
             "serialcomm: no answer from 0x51 on /dev/i2c-4; wrote 0 of 3 bytes\n  try: serialcomm i2c scan 4\n"}},
           "abc");
    bus->noAnswerError = EAGAIN;
    const std::string cause = ": I2C ioctl I2C_RDWR failed, return: -1 error: Resource temporarily unavailable\n";
    expect({{"i2c get 4 0x51 0x00", 1, "", "serialcomm: /dev/i2c-4" + cause},
            {"i2c dump 4 0x51 0x00 0x01 --raw", 1, "", "serialcomm: /dev/i2c-4" + cause},
            {"i2c scan 4 --json", 1, "",
             "serialcomm: 0x08 on /dev/i2c-4: I2C write failed, requested: 0, written: -1: Resource temporarily "
             "unavailable\n"}});
}

TEST_F(I2cVerbs, ReportWhyABusDoesNotOpen)
{
    bus->openError = EMFILE;
    for (const std::string line : {"i2c get 4 0x48 0x00", "i2c get 4 0x48 0x00 --force", "i2c scan 4"})
        expect({{line, 3, "", "serialcomm: /dev/i2c-4: Too many open files\n"}});
    bus->openError = 0;
    bus->functions = ~0UL & ~static_cast<unsigned long>(I2C_FUNC_I2C);
    for (const std::string line :
         {"i2c get 4 0x48 0x00", "i2c write 4 0x48 00", "i2c scan 4", "i2c eeprom 4 0x50 read"}) {
        expect({{line, 3, "",
                 "serialcomm: /dev/i2c-4: the adapter supports only SMBus commands, no plain I2C messages\n"}});
    }
}

TEST_F(I2cVerbs, ShowTrafficAtVAndTraceAtVv)
{
    const std::string traffic = "S 48 W 00 Sr 48 R [1] P\n";
    expect({{"-v i2c get 4 0x48 0x00", 0, "19\n", traffic},
            {"i2c -vv get 4 0x48 0x00", 0, "19\n",
             "TRACE Enter bool I2c::init(): path: /dev/i2c-4 address 72\n"
             "TRACE Leave bool I2c::init(): \n" +
                 traffic}});
}

TEST_F(I2cVerbs, LimitTheSizeOfAMessage)
{
    const std::string limit = "serialcomm: 65536 bytes: an I2C message holds at most 65535\n";
    const std::string driver = "serialcomm: /dev/i2c-4: 8193 bytes in one message; i2c-dev accepts at most 8192\n";
    expect({{"i2c read 4 0x48 65535 -n", 0, "S 48 R [65535] P\n"},
            {"i2c read 4 0x48 65536 -n", 2, "", limit},
            {"i2c get 4 0x48 0x00 65536 -n", 2, "", limit},
            {"i2c transfer 4 0x48 00 +65536 -n", 2, "", limit},
            {"i2c read 4 0x48 8193", 1, "", driver},
            {"i2c transfer 4 0x48 00 +8193", 1, "", driver}});
    EXPECT_EQ(8192U, tool("i2c read 4 0x48 8192 --raw").out.size());
    const std::string tooMuch = "serialcomm: standard input: more than 65535 bytes\n";
    expect({{"i2c write 4 0x48 - -n", 2, "", tooMuch}, {"i2c transfer 4 0x48 - +1 -n", 2, "", tooMuch}},
           std::string(65536, 'x'));
    expect({{"i2c set 4 0x48 0x00 - -n", 2, "", limit},
            {"i2c set 4 0x48 0x0000 - -n", 2, "", "serialcomm: 65537 bytes: an I2C message holds at most 65535\n"}},
           std::string(65535, 'x'));
    EXPECT_EQ(0, tool("i2c set 4 0x48 0x00 - -n", std::string(65534, 'x')).status);
    EXPECT_EQ(0, tool("i2c write 4 0x48 - -n", std::string(65535, 'x')).status);
    expect({{"i2c write 4 0x48 -", 1, "", driver}}, std::string(8193, 'x'));
    const std::string words = ' ' + std::string(size_t{2} * 65536, '0');
    expect(
        {{"i2c write 4 0x48" + words + " -n", 2, "", limit}, {"i2c transfer 4 0x48" + words + " +1 -n", 2, "", limit}});
}

TEST_F(I2cVerbs, DumpRegisters)
{
    const auto chip = std::make_shared<OddRegisters>(256);
    std::iota(chip->memory.begin(), chip->memory.end(), uint8_t{0});
    chip->missing = {0x45, 0xff};
    bus->chips[0x20] = chip;

    const Outcome all = tool("i2c dump 4 0x20");
    EXPECT_EQ(0, all.status);
    std::vector<std::string> lines;
    std::istringstream out{all.out};
    for (std::string line; std::getline(out, line);)
        lines.push_back(line);
    ASSERT_EQ(17U, lines.size());
    EXPECT_EQ("     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f    0123456789abcdef", lines[0]);
    EXPECT_EQ("00: 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f    ................", lines[1]);
    EXPECT_EQ("40: 40 41 42 43 44 XX 46 47 48 49 4a 4b 4c 4d 4e 4f    @ABCDXFGHIJKLMNO", lines[5]);
    EXPECT_EQ("f0: f0 f1 f2 f3 f4 f5 f6 f7 f8 f9 fa fb fc fd fe XX    ...............X", lines[16]);
    EXPECT_EQ(256U, bus->traffic.size());

    const std::string device = R"({"device":"/dev/i2c-4","address":"0x20","register":)";
    const std::string header = "0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f    0123456789abcdef\n";
    expect({
        {"i2c dump 4 0x20 0x44 0x52 --json", 0,
         device + R"("0x44","bytes":[68,null,70,71,72,73,74,75,76,77,78,79]})" + "\n" + device +
             R"("0x50","bytes":[80,81,82]})" + "\n"},
        {"i2c dump 4 0x20 0x7d 0x81", 0,
         "     " + header + "70:                                        7d 7e 7f                 }~.\n" +
             "80: 80 81                                              ..\n"},
        {"i2c dump 4 0x20 0xfd", 0,
         "     " + header + "f0:                                        fd fe XX                 ..X\n"},
        {"i2c dump 4 0x40 --wide 0x02 0x02", 0,
         "       " + header + "0000:       00                                             .\n", "",
         "S 40 W 00 02 Sr 40 R [1] P\n"},
        {"i2c dump 4 0x40 0x0102 0x0102 --json", 0,
         R"({"device":"/dev/i2c-4","address":"0x40","register":"0x0102","bytes":[18]})"
         "\n"},
        {"i2c dump 4 0x20 0x44 0x46 --raw", 1, "",
         "serialcomm: 0x20 on /dev/i2c-4: 1 of 3 registers did not answer; without --raw and --hexdump they show as "
         "XX\n"},
        {"i2c dump 4 0x20 0x44 0x46 --hexdump", 1, "",
         "serialcomm: 0x20 on /dev/i2c-4: 1 of 3 registers did not answer; without --raw and --hexdump they show as "
         "XX\n"},
    });
    EXPECT_EQ(65536U * std::string{"S 40 W 00 00 Sr 40 R [1] P\n"}.size(),
              tool("i2c dump 4 0x40 --wide -n").out.size());
}

TEST_F(I2cVerbs, ScanTheBus)
{
    bus->inUse = {0x49};
    const std::string grid = tool("i2c scan 4").out;
    EXPECT_EQ("     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f\n"
              "00:                         -- -- -- -- -- -- -- --\n"
              "10: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- --\n"
              "20: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- --\n"
              "30: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- --\n"
              "40: 40 -- -- -- -- -- -- -- 48 UU -- -- -- -- -- --\n"
              "50: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- --\n"
              "60: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- --\n"
              "70: -- -- -- -- -- -- -- --\n",
              grid);
    const std::string traffic = takeTraffic();
    EXPECT_EQ(std::string::npos, traffic.find("S 49"));
    for (const std::string line : {"S 08 W P", "S 2f W P\nS 30 R [1] P", "S 37 R [1] P\nS 38 W P",
                                   "S 4f W P\nS 50 R [1] P", "S 5f R [1] P\nS 60 W P", "S 77 W P"})
        EXPECT_NE(std::string::npos, traffic.find(line)) << line;
    expect({{"i2c scan 4 --json", 0,
             R"({"device":"/dev/i2c-4","address":"0x40","in_use":false,"driver":null})"
             "\n"
             R"({"device":"/dev/i2c-4","address":"0x48","in_use":false,"driver":null})"
             "\n"
             R"({"device":"/dev/i2c-4","address":"0x49","in_use":true,"driver":null})"
             "\n"}});

    bus->bindError = EPERM;
    EXPECT_EQ("serialcomm: /dev/i2c-4: Operation not permitted\n", tool("i2c scan 4").err);
    bus->bindError = 0;
    bus->functions = I2C_FUNC_I2C;  // no empty write
    takeTraffic();
    tool("i2c scan 4");
    EXPECT_EQ("S 08 R [1] P", bus->traffic.at(0));
    EXPECT_EQ(111U, bus->traffic.size());

    bus->functions = ~0UL;
    bus->inUse.clear();
    bus->chips = {{0x03, sensor}};
    EXPECT_EQ("00: -- -- -- 03 -- -- -- -- -- -- -- -- -- -- -- --",
              tool("i2c scan 4 --any-address").out.substr(52, 51));
    const Outcome nothing = tool("i2c scan 4 --json");
    EXPECT_EQ(1, nothing.status);
    EXPECT_EQ("serialcomm: nothing answered on /dev/i2c-4\n  try: check power, wiring and pull-ups of the chips\n",
              nothing.err);
    for (int address = 0x08; address <= 0x77; ++address)
        bus->chips[address] = sensor;
    const Outcome every = tool("i2c scan 4");
    EXPECT_EQ(0, every.status);
    EXPECT_NE(std::string::npos, every.err.find("every address seems to answer")) << every.err;
}

/// Registers that on some of the reads, counted from 1, do not answer or have a bit flipped.
class UnreliableRegisters : public FakeRegisters
{
public:
    using FakeRegisters::FakeRegisters;

    std::optional<ByteArray> read(size_t count) override
    {
        ++reads;
        if (std::count(silent.begin(), silent.end(), reads) > 0)
            return {};
        auto bytes = FakeRegisters::read(count);
        if (std::count(flipped.begin(), flipped.end(), reads) > 0)
            bytes->front() ^= 0x01;
        return bytes;
    }

    std::vector<int> silent;
    std::vector<int> flipped;

private:
    int reads = 0;
};

TEST_F(I2cVerbs, TestReadsAgainAndAgain)
{
    const std::string remedy =
        "\n  try: stronger pull-ups, shorter wires, a lower bus clock; registers that keep their value\n";
    const auto unreliable = [this](const std::vector<int>& silent, const std::vector<int>& flipped) {
        const auto chip = std::make_shared<UnreliableRegisters>(4);
        chip->memory = {0x19, 0x80, 0x60, 0xa0};
        chip->silent = silent;
        chip->flipped = flipped;
        bus->chips[0x48] = chip;
    };
    expect({{"i2c test 4 0x48 --read 0x00 0x02 --count 2", 0,
             "register 0x00: 2 reads, always 19\nregister 0x02: 2 reads, always 60\n", "",
             "S 48 W 00 Sr 48 R [1] P\nS 48 W 02 Sr 48 R [1] P\nS 48 W 00 Sr 48 R [1] P\nS 48 W 02 Sr 48 R [1] P\n"},
            {"i2c test 4 0x48 --read 0x00 --read 0x02 --count 1 -n", 0,
             "S 48 W 00 Sr 48 R [1] P\nS 48 W 02 Sr 48 R [1] P\n"},
            {"i2c test 4 0x48 --read 0x03", 0, "register 0x03: 100 reads, always a0\n"},
            {"i2c test 4 0x40 --read 0x0102 --count 1", 0, "register 0x0102: 1 read, always 12\n"},
            {"i2c test 4 0x48 --read 0x00 --count 1 --json", 0,
             R"({"device":"/dev/i2c-4","address":"0x48","register":"0x00","reads":1,"errors":0,"changes":0,"value":25})"
             "\n"},
            {"i2c test 4 0x49 --read 0x00 --count 2", 1, "register 0x00: 2 reads, 2 without an answer\n",
             "serialcomm: no answer from 0x49 on /dev/i2c-4\n  try: serialcomm i2c scan 4\n"},
            {"i2c test 4 0x48", 2, "", "serialcomm: i2c test: --read is required\n  try: serialcomm i2c test --help\n"},
            {"i2c test 4 0x48 --read 5", 2, "", tool("i2c get 4 0x48 5").err}});
    unreliable({2, 5}, {});
    expect(
        {{"i2c test 4 0x48 --read 0x00 0x02 --count 3", 1,
          "register 0x00: 3 reads, 1 without an answer\nregister 0x02: 3 reads, 1 without an answer\n",
          "serialcomm: 0x48 on /dev/i2c-4: 2 of 6 reads without an answer, 0 with another value than the one before" +
              remedy}});
    unreliable({1}, {3});
    expect(
        {{"i2c test 4 0x48 --read 0x00 --count 5", 1,
          "register 0x00: 5 reads, 1 without an answer, 2 changes, the first at read 3: 19, then 18\n",
          "serialcomm: 0x48 on /dev/i2c-4: 1 of 5 reads without an answer, 2 with another value than the one before" +
              remedy}});
}

TEST_F(I2cVerbs, RepeatARead)
{
    expect(
        {{"i2c get 4 0x48 0x00 2 --count 3", 0, "19 80\n19 80\n19 80\n"},
         {"i2c get 4 0x40 0x0000 17 --count 2", 0,
          "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00\n00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00\n"},
         {"i2c get 4 0x48 0x02 --count 2 --raw", 0, "``"},
         {"i2c get 4 0x48 0x00 --every 2 -n", 0, "S 48 W 00 Sr 48 R [1] P\n"}});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ("19\n19\n19\n", tool("i2c get 4 0x48 0x00 --every 0.05 --count 3").out);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds{100});

    const std::string line = tool("i2c get 4 0x48 0x00 -t").out;
    EXPECT_THAT(line, testing::MatchesRegex("\\[[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}\\] 19\n"));
    const auto object = nlohmann::json::parse(tool("i2c get 4 0x48 0x00 -t --json").out);
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    EXPECT_TRUE(object["time"].is_number_float());
    EXPECT_NEAR(std::chrono::duration<double>(now).count(), object["time"].get<double>(), 5);
    EXPECT_EQ(nlohmann::json{25}, object["bytes"]);
}

TEST_F(I2cVerbs, WaitForBits)
{
    sensor->readsUntilReady = 3;
    expect({{"i2c get 4 0x48 0x00 --until-bits 0x80=0x80 --deadline 5 --every 0.001", 0, "99\n", "",
             "S 48 W 00 Sr 48 R [1] P\nS 48 W 00 Sr 48 R [1] P\nS 48 W 00 Sr 48 R [1] P\n"},
            {"i2c get 4 0x48 0x00 2 --until-bits 0x0100=0x0100 --deadline 5 --stop", 0, "99 80\n", "",
             "S 48 W 00 P\nS 48 R [2] P\n"},
            {"i2c get 4 0x48 0x00 2 --until-bits 0x0101=0x0001 --deadline 0.02", 1, "",
             "serialcomm: 0x48 on /dev/i2c-4: register 0x00 is 99 80, not 0x0101=0x0001, after 20 ms\n"}});
    sensor->memory[0] = 0;
    const std::string once = "S 48 W 00 Sr 48 R [1] P\n";
    expect({{"i2c get 4 0x48 0x00 --until-bits 0x80=0x80 --deadline 0.1 --every 10", 1, "",
             "serialcomm: 0x48 on /dev/i2c-4: register 0x00 is 00, not 0x80=0x80, after 100 ms\n", once + once}});
    sensor->readsUntilReady = 2;  // ready at the last read, after the deadline
    expect({{"i2c get 4 0x48 0x00 --until-bits 0x80=0x80 --deadline 0.01 --every 10", 0, "80\n"}});
    sensor->memory[0] = 0;
    sensor->readsUntilReady = 2;
    sensor->readingTakes = std::chrono::milliseconds{2};  // longer than the deadline
    expect({{"i2c get 4 0x48 0x00 --until-bits 0x80=0x80 --deadline 0.001", 0, "80\n"}});
}

TEST_F(I2cVerbs, ChangeSomeBits)
{
    expect({{"i2c set 4 0x48 0x00 06 --mask 0x0f -v", 0, "", "S 48 W 00 Sr 48 R [1] P\nS 48 W 00 16 P\n"},
            {"i2c set 4 0x48 0x00 0600 --mask 0fff -n", 0,
             "S 48 W 00 Sr 48 R [2] P\nS 48 W 00 (read & f0 00 | 06 00) P\n"},
            {"i2c set 4 0x48 0x01 00ff --mask 80ff --verify", 0, "", "",
             "S 48 W 01 Sr 48 R [2] P\nS 48 W 01 00 ff P\nS 48 W 01 Sr 48 R [2] P\n"},
            {"i2c set 4 0x48 0x02 00 --verify", 0}});
    sensor->writable = 0x7f;
    expect({{"i2c set 4 0x48 0x01 f0 81 --verify", 1, "",
             "serialcomm: 0x48 on /dev/i2c-4: register 0x01: wrote f0 81, read 70 01\n"},
            {"i2c set 4 0x48 0x01 80 --mask 80 --verify", 1, "",
             "serialcomm: 0x48 on /dev/i2c-4: register 0x01: wrote f0, read 70\n"},
            {"i2c set 4 0x48 0x01 f0", 0}});
    // A bit outside the mask changes before it is read back.
    sensor->writable = 0xff;
    sensor->memory[0] = 0;
    sensor->readsUntilReady = 2;
    expect({{"i2c set 4 0x48 0x00 01 --mask 01 --verify", 0}});
    EXPECT_EQ(0x81, sensor->memory[0]);
}

TEST_F(I2cVerbs, WriteAnEepromPageByPage)
{
    const auto eeprom = addEeprom(0x50, 1, 256, 8)[0];
    const std::string traffic = "S 50 W 0d 01 02 03 P\nS 50 W 0d P\nS 50 W 0d P\nS 50 W 0d P\n"
                                "S 50 W 10 04 05 06 07 08 09 0a 0b P\nS 50 W 10 P\nS 50 W 10 P\nS 50 W 10 P\n"
                                "S 50 W 18 0c P\nS 50 W 18 P\nS 50 W 18 P\nS 50 W 18 P\n"
                                "S 50 W 0d Sr 50 R [12] P\n";
    expect({{"i2c eeprom 4 0x50 write 0x0d -", 0, "", "", traffic}}, countingUp(12));
    EXPECT_EQ("\xff\xff" + countingUp(12) + "\xff", asText({eeprom->memory.begin() + 11, eeprom->memory.begin() + 26}));
    expect({{"i2c eeprom 4 0x50 verify 0x0d -", 0, "", "", "S 50 W 0d Sr 50 R [12] P\n"},
            {"i2c eeprom 4 0x50 verify 0x0c -", 1, "",
             "serialcomm: 0x50 on /dev/i2c-4: 12 of 12 bytes differ, first at 0x000c: expected 01, read ff\n"}},
           countingUp(12));
    eeprom->memory[0x12] = 0;
    expect({{"i2c eeprom 4 0x50 verify 0x0d -", 1, "",
             "serialcomm: 0x50 on /dev/i2c-4: 1 of 12 bytes differ, first at 0x0012: expected 06, read 00\n"}},
           countingUp(12));

    const std::string path = testing::TempDir() + "eeprom.bin";
    std::ofstream{path} << "abc";
    expect({{"i2c eeprom 4 0x50 write 0xfd " + path, 0}, {"i2c eeprom 4 0x50 read 0xfd --raw", 0, "abc"}});
    expect({{"i2c eeprom 4 0x50 read 0xfe 2 -o " + path, 0}, {"i2c eeprom 4 0x50 read 0xfe 1 -o -", 0, "b"}});
    EXPECT_EQ("bc", asText(readFile(path, 10)));
    expect({{"i2c eeprom 4 0x50 read -o " + path + "/x", 3, "", "serialcomm: " + path + "/x: Not a directory\n", ""}});
    unlink(path.c_str());
    expect({{"i2c eeprom 4 0x50 write 0xfd " + path, 3, "", "serialcomm: " + path + ": No such file or directory\n"}});

    eeprom->writeProtected = true;
    expect({{"i2c eeprom 4 0x50 write 0 -", 1, "",
             "serialcomm: 0x50 on /dev/i2c-4: 9 of 9 bytes differ, first at 0x0000: expected 01, read ff\n"}},
           countingUp(9));
    eeprom->writeProtected = false;
    eeprom->looksWhileBusy = 1'000'000;
    expect({{"i2c eeprom 4 0x50 write 0 - --deadline 0.02", 1, "",
             "serialcomm: 0x50 on /dev/i2c-4: still busy 20 ms after a page was sent to 0x0000; wrote 0 of 9 bytes\n"}},
           countingUp(9));
}

TEST_F(I2cVerbs, ReportWhatWasWrittenWhenInterrupted)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const std::string path = testing::TempDir() + "interrupted.bin";
    std::ofstream{path} << countingUp(20);
    const auto eeprom = addEeprom(0x50, 1, 256, 8)[0];
    EXPECT_EXIT(
        {
            catchSignals();
            eeprom->signalAtPage = 3;
            runCommandLine({"i2c", "eeprom", "4", "0x50", "write", "0", path});
        },
        testing::KilledBySignal(SIGINT), "interrupted: wrote 16 of 20 bytes");
    unlink(path.c_str());
}

TEST_F(I2cVerbs, ReachAllOfAnEeprom)
{
    const auto blocks = addEeprom(0x54, 4, 256, 16);  // 24c08
    expect({{"i2c eeprom 4 0x54 write 0x1f8 - --size 1024", 0, "", "",
             "S 55 W f8 01 02 03 04 05 06 07 08 P\nS 55 W f8 P\nS 55 W f8 P\nS 55 W f8 P\n"
             "S 56 W 00 09 0a P\nS 56 W 00 P\nS 56 W 00 P\nS 56 W 00 P\n"
             "S 55 W f8 Sr 55 R [8] P\nS 56 W 00 Sr 56 R [2] P\n"},
            {"i2c eeprom 4 0x54 read 0x1fe 4 --size 1024", 0, "07 08 09 0a\n"}},
           countingUp(10));

    const auto large = addEeprom(0x50, 2, 65536, 128);  // 24cm01
    for (const auto& block : large)
        block->looksWhileBusy = 0;
    takeTraffic();
    std::string image = countingUp(200'000);
    image.resize(131072);
    EXPECT_EQ(0, tool("i2c eeprom 4 0x50 write 0 - --size 131072", image).status);
    EXPECT_EQ("S 50 W 00 80 81 82 83 84 85 86 87 88 89 8a 8b 8c 8d 8e ... (130 bytes) P", bus->traffic.at(2));
    EXPECT_EQ(image, asText(large[0]->memory) + asText(large[1]->memory));
    EXPECT_EQ(image, tool("i2c eeprom 4 0x50 read --raw --size 131072").out);

    // Two-byte addresses of a chip smaller than 4096 bytes, and another page.
    const auto small = addEeprom(0x57, 1, 512, 32)[0];
    small->looksWhileBusy = 0;
    expect({{"i2c eeprom 4 0x57 write 0x1c - --size 512 --width 2 --page 4", 0, "", "",
             "S 57 W 00 1c 01 02 03 04 P\nS 57 W 00 1c P\nS 57 W 00 20 05 P\nS 57 W 00 20 P\n"
             "S 57 W 00 1c Sr 57 R [5] P\n"}},
           countingUp(5));

    const std::pair<const char*, const char*> pages[] = {{"128", "8"},    {"256", "8"},    {"512", "16"},
                                                         {"2048", "16"},  {"4096", "32"},  {"8192", "32"},
                                                         {"16384", "64"}, {"32768", "64"}, {"65536", "128"}};
    for (const auto& [size, page] : pages) {
        const std::string line = std::string{"i2c eeprom 4 0x50 write 0 - -n --size "} + size;
        EXPECT_EQ(tool(line + " --page " + page, countingUp(128)).out, tool(line, countingUp(128)).out) << size;
        EXPECT_NE(tool(line + " --page 4", countingUp(128)).out, tool(line, countingUp(128)).out) << size;
    }
}

TEST_F(I2cVerbs, ReachAChipThatADriverUses)
{
    bus->inUse = {0x48, 0x50};
    addEeprom(0x50, 1, 256, 8);
    expect({{"i2c get 4 0x48 0x00", 3, "",
             "serialcomm: 0x48 on /dev/i2c-4 is in use by a kernel driver\n"
             "  try: use the driver's files below /sys/bus/i2c/devices/4-0048, or use --force\n"}});
    EXPECT_TRUE(bus->traffic.empty());
    const std::string said = "serialcomm: 0x48 on /dev/i2c-4 is in use by a kernel driver; using it anyway, "
                             "through I2C_RDWR (--force)\n";
    expect({{"i2c get 4 0x48 0x00 2 --force", 0, "19 80\n", said, "S 48 W 00 Sr 48 R [2] P\n"},
            {"i2c get 4 0x48 0x00 2 --force --stop", 0, "19 80\n", said, "S 48 W 00 P\nS 48 R [2] P\n"},
            {"i2c set 4 0x48 0x03 ab --force --verify", 0, "", said, "S 48 W 03 ab P\nS 48 W 03 Sr 48 R [1] P\n"},
            {"i2c transfer 4 0x48 03 +1 --force", 0, "ab\n", said},
            {"i2c write 4 0x48 01 --force", 0, "", said},
            {"i2c read 4 0x48 1 --force -v", 0, "80\n", "ERROR ioctl failed\n" + said + "S 48 R [1] P\n"},
            {"i2c dump 4 0x48 0x03 0x03 --force --raw", 0, "\xab", said},
            {"i2c transfer 4 0x48 00 +8193 --force", 1, "",
             said + "serialcomm: /dev/i2c-4: 8193 bytes in one message; i2c-dev accepts at most 8192\n"}});
    EXPECT_EQ(0, tool("i2c eeprom 4 0x50 write 0 - --force", "abc").status);
    bus->chips.clear();
    expect({{"i2c read 4 0x48 1 --force", 1, "",
             said + "serialcomm: no answer from 0x48 on /dev/i2c-4\n  try: serialcomm i2c scan 4\n"}});
    bus->inUse.clear();
    bus->chips[0x48] = sensor;
    expect({{"i2c get 4 0x48 0x00 --force", 0, "19\n"}});
}

/// Nothing is opened.
TEST_F(I2cVerbs, RefuseInvalidArguments)
{
    const auto refused = [this](const std::string& line, const std::string& message) {
        expect({{line, 2, "", "serialcomm: " + message + "\n"}});
    };
    const std::string reserved = " is reserved by the I2C standard; --any-address uses it anyway";
    refused("i2c get 4 0x07 0x00", "address 0x07" + reserved);
    refused("i2c dump 4 0x78", "address 0x78" + reserved);
    refused("i2c eeprom 4 0x07 read", "address 0x07" + reserved);
    refused("i2c dump 4 0x50 0x20 0x10", "i2c dump: FIRST 0x20 is above LAST 0x10");
    refused("i2c get 4 0x48 0x00 --until-bits 0x80=0x80", "i2c get: --until-bits and --deadline must be used together");
    refused("i2c get 4 0x48 0x00 --deadline 1", "i2c get: --until-bits and --deadline must be used together");
    refused("i2c get 4 0x48 0x00 2 --until-bits 0x80=0x80 --deadline 1",
            "i2c get: --until-bits is 1 byte wide, N is 2");
    refused("i2c get 4 0x48 0x00 --until-bits 0x80 --deadline 1",
            "bits \"0x80\": MASK=VALUE in hex, both equally wide, such as 0x80=0x00");
    refused("i2c get 4 0x48 0x00 --until-bits 0x80=0x0080 --deadline 1",
            "bits \"0x80=0x0080\": MASK=VALUE in hex, both equally wide, such as 0x80=0x00");
    refused("i2c get 4 0x48 0x00 --until-bits 0x80=0x81 --deadline 1",
            "bits 0x80=0x81: the value has bits outside the mask");
    refused("i2c get 4 0x48 0x00 --every 0", "--every \"0\": must be 0.001 to 86400 seconds");
    refused("i2c get 4 0x48 0x00 --count 0", "--count \"0\": must be 1 to 1000000");
    refused("i2c get 4 0x48 0x00 --count 1000001", "--count \"1000001\": must be 1 to 1000000");
    refused("i2c set 4 0x48 0x00 01 --mask 0fff", "i2c set: --mask is 2 bytes wide, BYTES are 1");
    refused("i2c set 4 0x48 0x00 10 --mask 0f", "i2c set: BYTES 10 have bits outside --mask 0f");
    refused("i2c set 4 0x48 0x00 10 --mask ,", "mask \",\": must be hex, as wide as BYTES");
    refused("i2c eeprom 4 0x50 read 0x100", "i2c eeprom: offset 0x100, count 1: beyond the EEPROM's 256 bytes; "
                                            "set its size with --size");
    refused("i2c eeprom 4 0x50 read 0xff 2", "i2c eeprom: offset 0xff, count 2: beyond the EEPROM's 256 bytes; "
                                             "set its size with --size");
    refused("i2c eeprom 4 0x50 read 16", "offset 16: write 0x16, or 0x10 if decimal 16 is meant");
    refused("i2c eeprom 4 0x50 write 0", "i2c eeprom write: OFFSET and FILE are required");
    refused("i2c eeprom 4 0x50 verify 0 - --json",
            "i2c eeprom verify: -o, --json, --raw and --hexdump are only for read");
    refused("i2c eeprom 4 0x50 write 0 - --raw", "i2c eeprom write: -o, --json, --raw and --hexdump are only for read");
    refused("i2c eeprom 4 0x50 write 0 - -o file",
            "i2c eeprom write: -o, --json, --raw and --hexdump are only for read");
    refused("i2c eeprom 4 0x50 write 0 - --hexdump",
            "i2c eeprom write: -o, --json, --raw and --hexdump are only for read");
    refused("i2c eeprom 4 0x50 write 0 -", "no bytes to write");
    refused("i2c eeprom 4 0x52 read --size 2048", "i2c eeprom: --size 2048 uses 8 addresses; ADDR must be the first of "
                                                  "them, 0x50");
    refused("i2c eeprom 4 0x50 read --size 4096 --width 1", "i2c eeprom: --size 4096 needs --width 2");
    refused("i2c eeprom 4 0x50 read --size 300", "--size \"300\": must be a power of two, in decimal, at most 262144");
    refused("i2c eeprom 4 0x50 read --page 512", "--page \"512\": must be a power of two, in decimal, at most 256");
    refused("i2c eeprom 4 0x50 read --size 16 --page 32", "i2c eeprom: --page 32 is more than --size 16");
    const std::pair<const char*, const char*> pairs[] = {
        {"--raw", "--json"}, {"--hexdump", "--json"}, {"--hexdump", "--raw"}, {"-t", "--raw"}, {"-t", "--hexdump"}};
    for (const auto& [one, other] : pairs) {
        const std::string words = std::string{one} + " and " + other + " cannot be combined";
        refused(std::string{"i2c get 4 0x48 0x00 "} + one + " " + other,
                "i2c get: " + words + "\n  try: serialcomm i2c get --help");
    }
    EXPECT_EQ(2, tool("i2c get 4 0x48 0x00 --until-bits 0x80=0x80 --deadline 1 --count 2").status);
    EXPECT_TRUE(bus->traffic.empty());
    EXPECT_EQ(1, tool("i2c get 4 0x07 0x00 --any-address").status);
    expect({{"i2c read 4 0x08 1 -n", 0, "S 08 R [1] P\n"}, {"i2c read 4 0x77 1 -n", 0, "S 77 R [1] P\n"}});
}

}  // namespace
