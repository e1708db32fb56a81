// The grammar: every verb and option with its help text.
#pragma once

#include "Common.h"
#include "I2cCommands.h"
#include "SpiCommands.h"
#include "UartCommands.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <optional>
#include <string>
#include <vector>

/// Everything that a command line can say. One verb fills in its part.
struct Arguments {
    Common common;
    std::optional<std::string> logConfig;
    std::string bus;
    I2cArguments i2c;
    SpiArguments spi;
    UartArguments uart;
    std::function<void()> run;
};

/// CLI11 takes "[1,2]" among repeated arguments apart, into two, and looks for options behind "--": such words go
/// through with a mark before them, which the grammar takes off again, and the first "--" goes.
std::vector<std::string> marked(const std::vector<std::string>& words);
std::string unmarked(const std::string& word);

/// Parsing with `app` fills in `arguments`.
void addVerbs(CLI::App& app, Arguments& arguments);
