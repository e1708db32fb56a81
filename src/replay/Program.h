// The program that is recorded or replayed.
#pragma once

#include <sys/types.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace replay
{

/// What keeps a recording or a replay from beginning: one line, and the exit status.
class Problem : public std::runtime_error
{
public:
    Problem(const std::string& text, int exitStatus) : std::runtime_error(text), status(exitStatus) {}

    int status;
};

struct Command {
    std::string program;
    std::vector<std::string> arguments;
};

/// "./thermometer /dev/i2c-4 0x48", in quotation marks where a word needs them.
std::string toText(const Command& command);

/// Where the library to be preloaded is: in an installed tree, or in the build folder.
///
/// @throws Problem
std::string preloadLibrary();

/// One line on standard error: its calls were not seen.
void warnNotLoaded(const Command& command);

class Program
{
public:
    enum class Output { shown, dropped };

    /// Starts it with the library preloaded. Interrupts from the terminal are left to the program while this object
    /// lives; what else would end this process ends the program.
    ///
    /// @param socketName Channel::name()
    /// @param output dropped: neither standard output nor standard error, nor any input; and a process group of its
    /// own.
    /// @throws Problem when it cannot be started, or is linked statically.
    Program(const Command& command, const std::string& library, const std::string& socketName, Output output);

    /// The same without a library.
    ///
    /// @throws Problem when it cannot be started.
    explicit Program(const Command& command);
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    ~Program();

    /// For poll(): readable when the program has ended.
    [[nodiscard]] int descriptor() const { return processDescriptor; }

    /// Waits for its end: its exit status, or 128 and the signal's number.
    int wait();

    /// The signal that ended it; 0 for none. After wait().
    [[nodiscard]] int endedBySignal() const { return signalNumber; }

    /// Ends it and its children.
    void kill();

private:
    void start(const Command& command, const std::vector<std::string>& environment, Output output);

    pid_t process = -1;
    int processDescriptor = -1;
    int signalNumber = 0;
    bool ownGroup = false;
    bool ended = false;
};

}  // namespace replay
