// What comes from a port and how it is shown: options that read and ask have in common.
#pragma once

#include "base/Output.h"
#include "base/Verb.h"
#include "uart/Port.h"

#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

namespace uart
{

/// Shows what comes, in pieces as it comes: as text; in hex, a burst a line; or as JSON, an object a burst.
class Display
{
public:
    Display(Output& shown, bool inHex)
        : output(shown), hex(inHex), onTerminal(!inHex && !shown.json() && isatty(STDOUT_FILENO) == 1)
    {
    }
    ~Display() = default;
    Display(const Display&) = delete;
    Display& operator=(const Display&) = delete;

    [[nodiscard]] bool inBursts() const { return hex || output.json(); }

    void show(const ByteArray& bytes);

    /// A line without its end.
    void showLine(const ByteArray& line);

    /// Ends the last line on a terminal, where the shell's prompt would overwrite it.
    void end();

private:
    /// The text of a burst; a character that it does not complete begins the text of the next.
    std::string textOf(const ByteArray& bytes);

    Output& output;
    bool hex;
    bool onTerminal;
    std::string unfinishedCharacter;
    uint8_t last = '\n';
};

/// How long to receive.
struct ReceptionOptions {
    bool hex = false;
    bool line = false;
    std::optional<milliseconds> timeout;
    std::optional<milliseconds> deadline;
    std::vector<std::string> endings;  ///< --until as given
};

void describeHex(Grammar& grammar, bool& hex);
void describeReception(Grammar& grammar, ReceptionOptions& options, const std::string& timeout);
void check(const ReceptionOptions& options);

/// What was received, and why it ended.
struct Reception {
    size_t count = 0;
    bool complete = false;    ///< the line, the number of bytes or an ending came
    size_t ending = 0;        ///< which
    bool atDeadline = false;  ///< otherwise, if not complete, silence
};

/// Receives and shows. `echo` is ignored where the first bytes are these.
Reception receive(Port& port, const ReceptionOptions& options, size_t most, ByteArray echo, Output& output);

/// The limit that ended it: "2 s".
std::string limitText(const Reception& reception, const ReceptionOptions& options);

/// "2 s of silence", "the deadline of 10 s".
std::string endText(const Reception& reception, const ReceptionOptions& options);

/// Throws where an ending or a line was asked for and did not come.
void throwIfIncomplete(const Reception& reception, const ReceptionOptions& options, const std::string& path);

/// Ends the program with the status of the ending that came.
void reportEnding(const Reception& reception);

}  // namespace uart
