// Files of /dev, /proc and /sys.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

/// The folder that takes the place of "/" in this file's functions; empty unless a test sets it.
extern const char* systemRoot;

bool exists(const std::string& path);

/// Nothing where there is no such file.
std::optional<struct stat> statusOf(const std::string& path);

/// 0 when this process may read and write the file, or errno.
int accessError(const std::string& path);

/// Names in a directory that begin with `prefix`, without it, in natural order; none when there is no such directory.
std::vector<std::string> namesBelow(const std::string& directory, const std::string& prefix);

/// First line of a small file such as those in sysfs, or first string of a property in the device tree; empty when it
/// cannot be read.
std::string firstLine(const std::string& path);

/// The whole of a small file.
std::string contentOf(const std::string& path);

/// The last name in the target of a symbolic link; empty when there is none.
std::string linkTarget(const std::string& path);

/// Where a symbolic link leads, as a whole path; empty when nowhere.
std::string realPath(const std::string& path);

struct Process {
    pid_t id;
    std::string name;

    /// "agetty (process 4711)"
    [[nodiscard]] std::string text() const;
};

/// Processes other than this one that have the device open or as their controlling terminal; those with a lock first.
/// Of other users' processes only the terminal can be seen.
std::vector<Process> usersOf(const std::string& path);

/// All processes of this name.
std::vector<Process> processesNamed(const std::string& name);
