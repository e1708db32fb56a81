// Makes every system call of every operation fail in every way, and checks the log lines, the result, that nothing
// leaks and that the next call works.
#include "serialComm/I2c.h"
#include "serialComm/Spi.h"
#include "serialComm/Uart.h"

#include "support/ScriptedKernel.h"

#include <gtest/gtest.h>

#include <string.h>

#include <log4cplus/logger.h>

#include <cerrno>
#include <functional>
#include <iostream>
#include <optional>
#include <sstream>

/// One system call of an operation, and the consequences of its failure.
struct Step {
    Answer success;
    std::vector<long> failures;  ///< Results that are failures; -1 is tried with every errno.
    std::string line;            ///< ERROR line with <result>, <errno> and <error>; empty if there is none.
    std::string returned;        ///< Result of the operation; empty if the operation continues.
    size_t cleanUp = 0;          ///< Number of system calls that follow if it does not continue.
};

struct Operation {
    const char* name;
    std::vector<Step> steps;
    std::string returned;
    std::function<std::string()> call;
    std::string levels;           ///< Levels of all lines other than ERROR, with the logger at TRACE.
    std::string levelsOnFailure;  ///< The same if a failure ends the operation.
};

/// A system call whose failure has no consequence.
static Step ignored(const Answer& success = answers(0))
{
    return {success, {-1}, "", "", 0};
}

static std::string text(bool result)
{
    return result ? "true" : "false";
}

static std::string text(const ByteArray& result)
{
    return "[" + hex(result.data(), result.size()) + "]";
}

static std::string filledIn(std::string line, const Answer& failure)
{
    const int error = failure.errorNumber != 0 ? failure.errorNumber : nonsense;
    const std::pair<std::string, std::string> values[] = {
        {"<result>", std::to_string(failure.result)}, {"<errno>", std::to_string(error)}, {"<error>", strerror(error)}};
    for (const auto& [name, value] : values) {
        if (const size_t at = line.find(name); at != std::string::npos) {
            line.replace(at, name.size(), value);
        }
    }
    return line;
}

/// The text of the ERROR lines, and the levels of the other lines.
static std::pair<std::string, std::string> logOf(const std::string& timeline)
{
    std::string errors;
    std::string levels;
    std::istringstream stream{timeline};
    for (std::string line; std::getline(stream, line);) {
        const std::string level = line.substr(0, line.find(' '));
        if (level == "ERROR") {
            errors += line.substr(strlen("ERROR "));
        } else if (level == "TRACE" || level == "DEBUG" || level == "INFO") {
            levels += (levels.empty() ? "" : " ") + level;
        }
    }
    return {errors, levels};
}

/// Runs an operation whose `failing` step, if any, gets the answer `failure`.
static void runWith(const Operation& operation, const Step* failing, const Answer& failure, log4cplus::LogLevel level)
{
    Script script;
    std::string returned = operation.returned;
    std::string levels = operation.levels;
    for (const Step& step : operation.steps) {
        script.push_back(&step == failing ? failure : step.success);
        if (&step == failing && !step.returned.empty()) {
            script.resize(script.size() + step.cleanUp);
            returned = step.returned;
            levels = operation.levelsOnFailure;
            break;
        }
    }

    ScriptedKernel kernel{script};
    EXPECT_EQ(returned, operation.call());
    const auto [errors, others] = logOf(kernel.timeline());
    EXPECT_EQ(failing != nullptr && level <= log4cplus::ERROR_LOG_LEVEL ? filledIn(failing->line, failure) : "",
              errors);
    EXPECT_EQ(level == log4cplus::TRACE_LOG_LEVEL ? levels : "", others);
}

/// Runs an operation once for each failure of each of its steps.
///
/// @return The number of failures tried.
static int runWithEachFailure(const Operation& operation, log4cplus::LogLevel level)
{
    constexpr int lastErrno = EHWPOISON;
    int cases = 0;
    for (const Step& step : operation.steps) {
        for (const long result : step.failures) {
            for (int error = result == -1 ? 1 : 0; error <= (result == -1 ? lastErrno : 0); ++error) {
                SCOPED_TRACE(operation.name + std::string{", call "} +
                             std::to_string(&step - operation.steps.data() + 1) + ": " + std::to_string(result) +
                             ", errno " + std::to_string(error));
                const int before = counts().blocks;
                runWith(operation, &step, {result, error, {}, {}}, level);
                runWith(operation, nullptr, {}, level);
                EXPECT_EQ(before, counts().blocks) << "a block of memory leaks";
                ++cases;
            }
        }
    }
    return cases;
}

TEST(Faults, EachCallOfEachOperationFailsInEachWay)
{
    // Devices that stay open during the test. `kernel` is declared first because it answers when they are closed.
    std::optional<ScriptedKernel> kernel;
    I2c i2c{"/dev/i2c-4", 0x48};
    Spi spi{"/dev/spidev2.0", 500000, 0};
    Uart uart{"/dev/ttyS1", 9600, 1, "none", true};
    kernel.emplace(Script{answers(7), answers(0), answers(7), answers(0), answers(0), answers(0), answers(0),
                          answers(7), answers(0), answers(0), answers(0), names("")});
    recordLog();
    ASSERT_TRUE(i2c.init() && spi.init() && uart.init());
    kernel.reset();

    const ByteArray four{1, 2, 3, 4};
    const std::vector<long> shortOfFour{-1, 0, 1, 2, 3};
    const Step spiMode{answers(0), {-1}, "SPI can't set spi write mode", "", 0};
    const Step spiModeBack{answers(0), {-1}, "SPI can't set spi read mode", "", 0};
    const Step spiSpeed{answers(0), {-1}, "SPI can't set write max speed hz", "", 0};
    const Step spiSpeedBack{answers(0), {-1}, "SPI can't get max speed hz", "", 0};
    const std::string uartPath = "Cannot open serial device on path /dev/ptmx";
    const std::string uartUnlock = "Failed to unlock pts /dev/pts/9";
    const Operation operations[] = {
        {"I2c::init",
         {{answers(8), {-1}, "Failed to open i2c device: /dev/i2c-5", "false", 0},
          {answers(0), {-1, 1, -22}, "ioctl failed", "false", 1},
          ignored()},
         "true",
         [] {
             return text(I2c{"/dev/i2c-5", 0x50}.init());
         },
         "TRACE TRACE",
         "TRACE"},
        {"I2c::read",
         {{answers(4, four), shortOfFour, "I2C read failed, requested: 4, returned: <result>", "[]", 0}},
         "[01 02 03 04]",
         [&] { return text(i2c.read(4)); },
         "TRACE TRACE",
         "TRACE"},
        {"I2c::write",
         {{answers(4), shortOfFour, "I2C write failed, requested: 4, written: <result>", "false", 0}},
         "true",
         [&] { return text(i2c.write(four)); },
         "TRACE TRACE",
         "TRACE"},
        {"I2c::writeRead",
         {{answers(2, four), {-1}, "I2C ioctl I2C_RDWR failed, return: <result> error: <error>", "[]", 0}},
         "[01 02 03 04]",
         [&] { return text(i2c.writeRead(four, 4)); },
         "",
         ""},
        {"I2c::readRegister",
         {{answers(1), {-1, 0}, "I2C write register address failed, requested: 1, written: <result>", "[]", 0},
          {answers(4, four), shortOfFour, "I2C read from register failed, requested: 4, returned: <result>", "[]", 0}},
         "[01 02 03 04]",
         [&] { return text(i2c.readRegister(0x10, 4)); },
         "TRACE TRACE",
         "TRACE"},
        {"I2c::writeRegister",
         {{answers(5),
           {-1, 0, 1, 2, 3, 4},
           "I2C write to register failed, requested: 4, written: <result>",
           "false",
           0}},
         "true",
         [&] { return text(i2c.writeRegister(0x10, four)); },
         "TRACE TRACE",
         "TRACE"},
        {"Spi::init",
         {{answers(8), {-1}, "Failed to open spi device: /dev/spidev2.1", "false", 0},
          spiMode,
          spiModeBack,
          spiSpeed,
          spiSpeedBack,
          ignored()},
         "true",
         [] {
             return text(Spi{"/dev/spidev2.1", 1000, 0}.init());
         },
         "TRACE TRACE DEBUG INFO",
         "TRACE"},
        {"Spi::setMaxSpeed",
         {spiSpeed, spiSpeedBack},
         "true",
         [&] { return text(spi.setMaxSpeed(1000)); },
         "TRACE DEBUG",
         ""},
        {"Spi::read",
         {{answers(4, four), {-1, 0}, "SPI can't read spi message. errno: <errno>", "[00 00 00 00]", 0}},
         "[01 02 03 04]",
         [&] { return text(spi.read(4)); },
         "TRACE TRACE",
         "TRACE TRACE"},
        {"Spi::write",
         {{answers(4), {-1, 0}, "SPI can't send message. errno: <errno>", "true", 0}},
         "true",
         [&] { return text(spi.write(four)); },
         "TRACE TRACE",
         "TRACE TRACE"},
        {"Spi::writeRead",
         {{answers(4, four), {-1, 0}, "SPI can't send/read message. ret:<result>", "[00 00 00 00]", 0}},
         "[01 02 03 04]",
         [&] { return text(spi.writeRead({1}, 4)); },
         "",
         ""},
        {"Uart::init",
         {{answers(8), {-1}, uartPath, "false", 0},
          ignored(),
          {answers(0), {-1}, "Cannot clear terminal attributes", "", 0},
          {answers(0), {-1}, "Failed to set new attributes", "false", 2},
          {names("/dev/pts/9"), {}, "", "", 0},
          {answers(0), {-1}, uartUnlock, "false", 2},
          {answers(0), {-1}, uartUnlock, "false", 2},
          ignored(),
          ignored()},
         "true",
         [] {
             return text(Uart{"/dev/ptmx", 9600, 1, "none", true}.init());
         },
         "DEBUG DEBUG INFO",
         "DEBUG DEBUG"},
        {"Uart::write",
         {{answers(4), shortOfFour, "Uart write failed: <errno>", "false", 0}},
         "true",
         [&] { return text(uart.write(four)); },
         "",
         ""},
        {"Uart::read",
         {{answers(4, four), {-1}, "Uart read failed: <errno>", "[] failed", 0}},
         "[01 02 03 04]",
         [&] {
             bool failed = true;
             const ByteArray result = uart.read(4, &failed);
             return text(result) + (failed ? " failed" : "");
         },
         "",
         ""},
    };

    int cases = 0;
    for (const log4cplus::LogLevel level :
         {log4cplus::OFF_LOG_LEVEL, log4cplus::ERROR_LOG_LEVEL, log4cplus::TRACE_LOG_LEVEL}) {
        recordLog(level);
        for (const Operation& operation : operations) {
            runWith(operation, nullptr, {}, level);
            cases += runWithEachFailure(operation, level);
        }
    }
    std::cout << "faults tried: " << cases << "\n";
    EXPECT_GT(cases, 5000);
    kernel.emplace(Script(4));
}
