// Causes, looked up after something failed: the node, its group, the kernel's drivers, who else has it open.
#pragma once

#include "Failure.h"

#include <string>
#include <vector>

/// Names in a directory that begin with `prefix`, without it, in natural order; none when there is no such directory.
std::vector<std::string> namesBelow(const std::string& directory, const std::string& prefix);

/// First line of a small file such as those in sysfs; empty when it can't be read.
std::string firstLine(const std::string& path);

/// Last component of where a symbolic link leads; empty when there is none.
std::string linkTarget(const std::string& path);

/// "serialcomm (process 4711)" for another process that has the node open, if possible locked; "another program" where
/// it can't be seen.
std::string otherUser(const std::string& path);

/// A device node that is here, and what is behind it.
struct Node {
    std::string path;
    std::string what;
};

struct NodeKind {
    std::string name;           ///< "an I2C bus"
    std::string prefix;         ///< "/dev/i2c-": its nodes can be named without it
    unsigned int majorNumber;   ///< of its nodes; 0 when there are several
    std::string others;         ///< "buses here"
    std::vector<Node> present;  ///< those others
    std::string missingHint;    ///< what to try when there is no such node
};

/// A node that could not be opened: missing, forbidden, of another kind, busy, or else what `error` says.
Failure openFailure(const std::string& path, int error, const NodeKind& kind);

/// The minor number of a character device with this major number; -1 for any other file.
int minorNumber(const std::string& path, unsigned int majorNumber);

/// "yes", or why this user may not open the node: "no: group i2c".
std::string mayOpen(const std::string& path);
