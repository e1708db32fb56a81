#include "base/Verb.h"

#include <algorithm>

std::string Argument::choiceText() const
{
    std::string text;
    for (size_t i = 0; i < choices.size(); ++i)
        text += (i == 0 ? "" : i + 1 == choices.size() ? " or " : ", ") + choices[i];
    return text;
}

bool Argument::isNamed(const std::string& word) const
{
    return isOption() && ("," + name + ",").find("," + word + ",") != std::string::npos;
}

Argument& Argument::complete(Candidates what)
{
    candidates = what;
    return *this;
}

Argument& Argument::choose(std::vector<std::string> all)
{
    choices = std::move(all);
    return *this;
}

Argument& Argument::suggest(std::vector<std::string> some)
{
    suggestions = std::move(some);
    return *this;
}

Argument& Argument::exclude(const std::string& option)
{
    excludes.push_back(option);
    return *this;
}

Argument& Argument::show(const std::string& text)
{
    synopsis = text;
    return *this;
}

Argument& Argument::takeMany()
{
    many = true;
    return *this;
}

Argument& Argument::require()
{
    required = true;
    return *this;
}

Argument& Grammar::add(Argument argument)
{
    return *all.emplace_back(std::make_unique<Argument>(std::move(argument)));
}

Argument& Grammar::withDefault(Argument& argument, const std::string& text)
{
    argument.defaultText = text;
    if (!text.empty())
        argument.take({text});
    return argument;
}

Argument& Grammar::words(const std::string& name, const std::string& help, std::vector<std::string>& field)
{
    return add(
        {name, "", help, "", {}, "", Candidates::None, true, true, {}, [&field](const std::vector<std::string>& given) {
             field = given;
         }});
}

Argument& Grammar::optionalWords(const std::string& name, const std::string& help, std::vector<std::string>& field)
{
    Argument& argument = words(name, help, field);
    argument.required = false;
    return argument;
}

Argument& Grammar::program(const std::string& name, const std::string& help, std::vector<std::string>& field)
{
    Argument& argument = words(name, help, field);
    argument.isProgram = true;
    return argument;
}

Argument& Grammar::optionalProgram(const std::string& name, const std::string& help, std::vector<std::string>& field)
{
    Argument& argument = program(name, help, field);
    argument.required = false;
    argument.isBehindDashes = true;
    return argument;
}

size_t Grammar::ownWords(const std::vector<std::string>& words) const
{
    size_t before = 0;  // words in front of the program
    auto argument = all.begin();
    for (; argument != all.end() && !(*argument)->isProgram; ++argument)
        before += (*argument)->isOption() ? 0 : 1;
    if (argument == all.end())
        return words.size();
    if ((*argument)->isBehindDashes) {
        const auto dashes = std::find(words.begin(), words.end(), "--");
        return static_cast<size_t>(dashes - words.begin()) + (dashes == words.end() ? 0 : 1);
    }

    bool isValue = false;
    bool isLiteral = false;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        const bool isOption = !isLiteral && !isValue && word.size() > 1 && word[0] == '-';
        if (isValue) {
            isValue = false;
        } else if (isOption) {
            isLiteral = word == "--";
            isValue = std::any_of(all.begin(), all.end(),
                                  [&](const auto& each) { return each->isNamed(word) && !each->isFlag(); });
        } else if (before-- == 0) {
            return i;
        }
    }
    return words.size();
}

Argument& Grammar::repeatedOption(const std::string& name, const std::string& value, const std::string& help,
                                  std::vector<std::string>& field)
{
    return add({name,
                value,
                help,
                "",
                {},
                "",
                Candidates::None,
                false,
                true,
                {},
                [&field](const std::vector<std::string>& given) { field = given; }});
}

Argument& Grammar::flag(const std::string& name, const std::string& help, bool& field)
{
    return add({name,
                "",
                help,
                "",
                {},
                "",
                Candidates::None,
                false,
                false,
                {},
                [&field](const std::vector<std::string>& /*given*/) { field = true; }});
}

Argument& Grammar::count(const std::string& name, const std::string& help, int& field)
{
    return add({name,
                "",
                help,
                "",
                {},
                "",
                Candidates::None,
                false,
                true,
                {},
                [&field](const std::vector<std::string>& given) { field = static_cast<int>(given.size()); }});
}

void Grammar::output(OutputOptions& options, bool json, bool bytes)
{
    if (json)
        flag("--json", "One JSON object per line", options.json);
    if (bytes) {
        flag("--raw", "Bytes as they are, not in hex", options.raw).exclude("--json");
        flag("--hexdump", "Offset, hex and ASCII", options.hexDump).exclude("--json").exclude("--raw");
    }
}
