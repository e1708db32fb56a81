// Runs a program and answers it from a session, without any device.
#pragma once

#include "Program.h"
#include "session/Player.h"

#include <chrono>
#include <optional>
#include <string>

namespace replay
{

struct ReplayOptions {
    bool times = false;                                ///< At the pace of the recording, where the session has times.
    std::optional<std::chrono::milliseconds> timeout;  ///< For one run; then the program is ended.
    std::string library;                               ///< To be preloaded.
};

class Replayer
{
public:
    /// @param file Session file.
    /// @throws Problem when it cannot be read or does not follow the format.
    Replayer(std::string file, ReplayOptions options);

    /// Runs the program to its end.
    ///
    /// @return Its exit status, 128 and the signal's number if one ended it; 1 when it did not do what is in the
    /// session, after lines on standard error that say where.
    /// @throws Problem when the program cannot be started.
    int run(const Command& command);

    /// Runs the program once for each failure that each transfer can have. Standard error gets a line for each run that
    /// crashed, hung or ended in 0 as if nothing had happened, and one for all.
    ///
    /// @return 0 when there was no such run, otherwise 1.
    /// @throws Problem when the program cannot be started, or does not do what is in the session when nothing fails.
    int failEach(const Command& command);

private:
    std::string path;
    ReplayOptions settings;
    session::Session session;
};

}  // namespace replay
