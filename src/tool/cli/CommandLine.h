// Executes a command line.
#pragma once

#include <string>
#include <vector>

/// Parses the words, sets up the log and runs the verb. Help and version are commands as well. Throws a Failure for
/// an invalid command line, and whatever the verb throws.
void execute(const std::vector<std::string>& words);

/// The same with errors on standard error; returns the exit status. A signal ends the program.
int runCommandLine(const std::vector<std::string>& words);
