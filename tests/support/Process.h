#pragma once

#include <dirent.h>

#include <fstream>

/// What a process must not gain by working.
struct Process {
    size_t descriptors = 0;
    long residentKiB = 0;
};

inline Process thisProcess()
{
    Process process;
    DIR* directory = opendir("/proc/self/fd");
    while (readdir(directory) != nullptr) {
        ++process.descriptors;
    }
    closedir(directory);

    std::ifstream statm{"/proc/self/statm"};
    long pages = 0;
    statm >> pages >> pages;
    process.residentKiB = pages * 4;
    return process;
}
