#pragma once

#include <string>

/// The settings of a port as a program of its own sees them: it opens the port, asks the kernel, and ends.
/// "BOTHER 250000 250000 CS8 CLOCAL": the rate in and out, and the flags; "?" if it could not.
std::string attributesSeenByAnotherProcess(const std::string& path);
