// Timelines that cannot be read must fail: otherwise a case could pass without being played.
#include "support/Timeline.h"
#include "support/ScriptedKernel.h"

#include <gtest/gtest.h>

#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <functional>

static std::string errorOf(const std::function<void()>& action)
{
    try {
        action();
    } catch (const TimelineError& error) {
        return error.what();
    }
    return "no error";
}

TEST(Timeline, RejectsMisspeltLines)
{
    const struct {
        std::vector<std::string> lines;
        const char* error;
    } table[] = {
        {{"> "}, "a word is missing: "},
        {{"> I3c /dev/i2c-4 0x48"}, "unknown word I3c: I3c /dev/i2c-4 0x48"},
        {{"> I2c /dev/i2c-4"}, "a word is missing: I2c /dev/i2c-4"},
        {{"> I2c /dev/i2c-4 48h"}, "unknown word 48h: I2c /dev/i2c-4 48h"},
        {{"> I2c /dev/i2c-4 0x48, opened"}, "unknown word opened: I2c /dev/i2c-4 0x48, opened"},
        {{"> Spi /dev/spidev2.0 1000"}, "a word is missing: Spi /dev/spidev2.0 1000"},
        {{"> Uart /dev/ttyS1 9600 1 none"}, "a word is missing: Uart /dev/ttyS1 9600 1 none"},
        {{"> Uart /dev/ttyS1 9600 1 none waits"}, "unknown word waits: Uart /dev/ttyS1 9600 1 none waits"},
        {{"> read 1"}, "unknown word read: read 1"},
        {{"> I2c /dev/i2c-4 0x48", "> peek 1"}, "unknown word peek: peek 1"},
        {{"> I2c /dev/i2c-4 0x48", "> read"}, "a word is missing: read"},
        {{"> I2c /dev/i2c-4 0x48", "> read -1"}, "unknown word -1: read -1"},
        {{"> I2c /dev/i2c-4 0x48", "> read 1 2"}, "unknown word 2: read 1 2"},
        {{"> I2c /dev/i2c-4 0x48", "> write 100"}, "unknown word 100: write 100"},
        {{"> I2c /dev/i2c-4 0x48", "> write x*00"}, "unknown word x: write x*00"},
        {{"> I2c /dev/i2c-4 0x48", "> readRegister 10"}, "a word is missing: readRegister 10"},
        {{"> Spi /dev/spidev2.0 1000 00", "> readRegister 10 1"}, "unknown word readRegister: readRegister 10 1"},
        {{"> Uart /dev/ttyS1 9600 1 none blocking", "> read 1 +"}, "unknown word +: read 1 +"},
        {{"> level LOUD"}, "unknown word LOUD: level LOUD"},
        {{"> end", "close(7) = "}, "a word is missing: "},
        {{"> end", "close(7) = x"}, "unknown word x: x"},
        {{"> end", "close(7) = -1 EWRONG"}, "unknown word EWRONG: -1 EWRONG"},
        {{"> end", "tcgetattr(7, {}) = 0 [{cflag}]"}, "not terminal attributes: {cflag}"},
    };
    for (const auto& row : table) {
        EXPECT_EQ(row.error, errorOf([&] { play({"", 1, "", row.lines}, Kernel::scripted); }));
    }
}

TEST(Timeline, RejectsFilesWithoutCases)
{
    const struct {
        const char* text;
        const char* error;
    } table[] = {
        {"", ": the file cannot be read or has no case"},
        {"> end\n# late\n> end\n", ":1: no title before this line: > end"},
        {"# first\n> end\n\n# second\n", ":4: no call in this case"},
    };
    for (const auto& row : table) {
        char file[] = "/tmp/serialComm-test-XXXXXX";
        close(mkstemp(file));
        std::ofstream{file} << row.text;
        EXPECT_EQ(file + std::string{row.error}, errorOf([&] { readCases(file); }));
        unlink(file);
    }
    EXPECT_EQ("/no/such.timeline: the file cannot be read or has no case",
              errorOf([] { readCases("/no/such.timeline"); }));
}
