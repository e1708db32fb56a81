// serialcomm: a bench tool for I2C, SPI and serial ports.

#include "CommandLine.h"
#include "Failure.h"
#include "Format.h"
#include "LibraryLog.h"
#include "Output.h"
#include "Signals.h"

#include <cstdint>
#include <exception>
#include <string>
#include <vector>

/// A message is one line, whatever the words that it repeats.
static std::string inOneLine(const std::string& message)
{
    std::string line;
    for (const char character : message) {
        const auto byte = static_cast<uint8_t>(character);
        line += byte < 0x20 || byte == 0x7f ? "\\x" + hexNumber(byte).substr(2) : std::string{character};
    }
    return line;
}

static int run(const std::vector<std::string>& words)
{
    try {
        const Command command = parseCommandLine(words);
        setUpLog(command.verbosity, command.logConfig);
        command.run();
        return Done;
    } catch (const Failure& failure) {
        say(inOneLine(failure.message) + (failure.hint.empty() ? "" : "\n  try: " + inOneLine(failure.hint)));
        return failure.status;
    } catch (const Interrupted& interrupted) {
        return 128 + interrupted.signal;
    } catch (const std::exception& error) {  // out of memory
        say(error.what());
        return TransferFailed;
    }
}

int main(int argc, char** argv)
{
    fillStandardDescriptors();
    noteSignals();
    return run({argv + 1, argv + argc});
}
