// Receives from a port and shows the bytes, with the options that read and ask have in common.
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

/// Shows received bytes as they arrive: as text; in hex, one line per burst; or as JSON, one object per burst.
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

    /// Ends the last line on a terminal, so that the shell's prompt does not overwrite it.
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

/// How much was received, and why the reception ended.
struct Reception {
    size_t count = 0;
    bool complete = false;    ///< the line, the number of bytes or an ending was received
    size_t ending = 0;        ///< its index
    bool atDeadline = false;  ///< otherwise, if not complete, at the timeout
};

/// Receives and shows bytes. Ignores `echo` if they begin with it.
Reception receive(Port& port, const ReceptionOptions& options, size_t most, ByteArray echo, Output& output);

/// The limit that ended the reception: "2 s".
std::string limitText(const Reception& reception, const ReceptionOptions& options);

/// "the timeout of 2 s", "the deadline of 10 s".
std::string endText(const Reception& reception, const ReceptionOptions& options);

/// Throws if an ending or a line was requested and not received.
void throwIfIncomplete(const Reception& reception, const ReceptionOptions& options, const std::string& path);

/// Ends the program with the status of the ending that was received.
void reportEnding(const Reception& reception);

}  // namespace uart
