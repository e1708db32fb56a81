// The verb watch: what it was asked for.
#pragma once

#include "base/Verb.h"

#include <optional>

namespace watch
{

struct Request : NoTraffic {
    enum class Times { start, relative, wall };

    std::vector<std::string> words;
    std::vector<std::string> buses;  ///< paths: "/dev/i2c-4"
    std::vector<std::string> chips;  ///< "/dev/spidev2.0"
    std::optional<int> address;
    std::string process;  ///< name or number
    size_t count = 0;     ///< 0: any number
    std::optional<milliseconds> duration;
    Times times = Times::start;
    std::string sessionFile;
    std::string captureFile;
    bool summary = false;
    std::vector<std::string> program;
};

void run(const Request& request, Output& output);

}  // namespace watch

void addWatchVerb(Verbs& verbs);
