// All verbs of the program.
#pragma once

#include "base/Verb.h"

#include <optional>
#include <string>
#include <vector>

/// In the order in which help lists them.
const Verbs& allVerbs();

/// The verb that the words name, "i2c" "get" or "list"; null if they name none.
const Verb* findVerb(const std::vector<std::string>& names);

bool isBus(const std::string& word);
