// The grammar: every verb, option and help text, in one place.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

struct Command {
    int verbosity = 0;
    std::optional<std::string> logConfig;
    std::function<void()> run;
};

/// The command that the words ask for; its run() does it. Help and version are commands as well. Throws a Failure for
/// words that make no command.
Command parseCommandLine(const std::vector<std::string>& words);
