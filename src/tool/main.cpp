// serialcomm: a bench tool for I2C, SPI and serial ports.

#include "CommandLine.h"
#include "Failure.h"
#include "LibraryLog.h"
#include "Output.h"
#include "Signals.h"

#include <exception>
#include <string>
#include <vector>

static int run(const std::vector<std::string>& words)
{
    try {
        const Command command = parseCommandLine(words);
        setUpLog(command.verbosity, command.logConfig);
        command.run();
        return Done;
    } catch (const Failure& failure) {
        say(failure.message + (failure.hint.empty() ? "" : "\n  try: " + failure.hint));
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
