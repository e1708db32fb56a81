#pragma once

#include <string>
#include <vector>

/// What could stand in place of the last of the words, a candidate a line: what bash completion asks for.
std::string completions(const std::vector<std::string>& words);
