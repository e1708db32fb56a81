// Help texts, made from the grammar.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

class HelpFormat : public CLI::Formatter
{
public:
    HelpFormat() { column_width(24); }
    std::string make_usage(const CLI::App* app, std::string name) const override;
    std::string make_subcommands(const CLI::App* app, CLI::AppFormatMode mode) const override;
    std::string make_option_opts(const CLI::Option* option) const override;
};

/// The short list of verbs: what is below `app`.
std::string verbList(const CLI::App& app);
