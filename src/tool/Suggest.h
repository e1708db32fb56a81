#pragma once

#include <string>
#include <vector>

/// The known word that was probably meant, or nothing.
std::string suggestion(const std::string& word, const std::vector<std::string>& known);
