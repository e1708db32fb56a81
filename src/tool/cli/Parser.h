// The only part of the tool that uses CLI11.
#pragma once

#include "base/Verb.h"

#include <string>
#include <vector>

/// Options that every verb takes.
struct CommonOptions {
    std::string logConfig;
    bool help = false;
    bool version = false;
};

/// Adds the options that every verb takes to the grammar of one.
void addCommonOptions(Command& command, CommonOptions& options);

/// Fills in the request behind the grammar. `name` is the verb's, for messages: "i2c get".
void parse(const Grammar& grammar, const std::string& name, const std::vector<std::string>& words);
