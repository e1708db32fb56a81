#pragma once

#include <string>
#include <vector>

/// The candidates for the last of the words, one per line, for bash completion.
std::string completions(const std::vector<std::string>& words);
