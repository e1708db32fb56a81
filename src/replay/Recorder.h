// Runs a program and writes what it does to its devices into a session file.
#pragma once

#include "Program.h"

#include <string>

namespace replay
{

struct RecordOptions {
    bool times = false;   ///< With the time of each line.
    std::string library;  ///< To be preloaded.
};

class Recorder
{
public:
    /// @param file Session file to be written; an existing one is replaced once the program runs.
    Recorder(std::string file, RecordOptions options);

    /// Runs the program to its end.
    ///
    /// @return Its exit status, 128 and the signal's number if one ended it.
    /// @throws Problem when the program cannot be started or the file not be written.
    int run(const Command& command);

private:
    std::string path;
    RecordOptions settings;
};

}  // namespace replay
