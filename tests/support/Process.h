#pragma once

#include <dirent.h>
#include <sys/types.h>

#include <fstream>
#include <string>

/// Resources that a process must not accumulate.
struct Resources {
    size_t descriptors = 0;
    long residentKiB = 0;
};

inline Resources resourcesInUse()
{
    Resources resources;
    DIR* directory = opendir("/proc/self/fd");
    while (readdir(directory) != nullptr) {
        ++resources.descriptors;
    }
    closedir(directory);

    std::ifstream statm{"/proc/self/statm"};
    long pages = 0;
    statm >> pages >> pages;
    resources.residentKiB = pages * 4;
    return resources;
}

/// Whether a thread of this process sleeps in a system call.
inline bool isSleeping(pid_t thread)
{
    std::ifstream file{"/proc/self/task/" + std::to_string(thread) + "/stat"};
    std::string text;
    std::getline(file, text);
    return text.find(") S ") != std::string::npos;  // number, name in parentheses, state
}
