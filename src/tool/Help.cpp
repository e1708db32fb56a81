#include "Help.h"

#include <algorithm>

namespace
{

bool isPositional(const CLI::Option* option)
{
    return option->get_positional();
}

/// "BYTES...", "[N]"; the type name says it where that is not enough.
std::string synopsis(const CLI::Option* option)
{
    if (!option->get_type_name().empty())
        return option->get_type_name();
    const std::string name = option->get_name(true) + (option->get_items_expected_max() > 1 ? "..." : "");
    return option->get_required() ? name : "[" + name + "]";
}

/// "serialcomm i2c get BUS ADDR REG [N]"
std::string callOf(const CLI::App& app)
{
    std::string call = app.get_name();
    for (const CLI::App* above = app.get_parent(); above != nullptr; above = above->get_parent())
        call.insert(0, above->get_name() + ' ');
    for (const CLI::Option* option : app.get_options(isPositional))
        call += ' ' + synopsis(option);
    return call;
}

}  // namespace

std::string verbList(const CLI::App& app)
{
    std::string lines;
    for (const CLI::App* below : app.get_subcommands({})) {
        std::string line = callOf(*below);
        line.resize(std::max(line.size() + 2, size_t{49}), ' ');
        lines += below->get_subcommands({}).empty() ? line + below->get_description() + '\n' : verbList(*below);
    }
    return lines;
}

std::string HelpFormat::make_usage(const CLI::App* app, std::string /*name*/) const
{
    return "Usage: " + callOf(*app) + (app->get_subcommands({}).empty() ? " [options]\n" : " ...\n");
}

std::string HelpFormat::make_subcommands(const CLI::App* app, CLI::AppFormatMode /*mode*/) const
{
    return app->get_subcommands({}).empty() ? "" : "\n" + verbList(*app);
}

std::string HelpFormat::make_option_opts(const CLI::Option* option) const
{
    return isPositional(option) || option->get_type_size() == 0 ? "" : " " + option->get_type_name();
}
