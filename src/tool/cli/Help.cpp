#include "cli/Help.h"

#include "base/Failure.h"
#include "cli/Parser.h"
#include "cli/Suggest.h"
#include "cli/Verbs.h"

#include <algorithm>

namespace
{

constexpr size_t synopsisWidth = 49;
constexpr size_t nameWidth = 24;

std::string padded(std::string text, size_t width)
{
    text.resize(std::max(text.size() + 2, width), ' ');
    return text;
}

std::string synopsisOf(const Argument& argument)
{
    if (!argument.synopsis.empty())
        return argument.synopsis;
    const std::string name = argument.name + (argument.repeated ? "..." : "");
    return argument.required ? name : "[" + name + "]";
}

/// "  -b,--baud N           Baud rate; default: 115200"
std::string lineOf(const Argument& argument)
{
    std::string line = padded("  " + argument.name + (argument.value.empty() ? "" : " " + argument.value), nameWidth);
    line += argument.help;
    if (!argument.choices.empty())
        line += ": " + argument.choiceText();
    if (!argument.defaultText.empty())
        line += "; default: " + argument.defaultText;
    return line + '\n';
}

std::string helpForVerb(const Verb& verb)
{
    const auto command = verb.make();
    CommonOptions common;
    addCommonOptions(*command, common);
    std::string words;
    std::string options;
    std::string usage = synopsisOf(verb, *command);
    size_t optionsAt = usage.size();
    for (const auto& argument : command->grammar.arguments()) {
        (argument->isOption() ? options : words) += lineOf(*argument);
        if (argument->isProgram)
            optionsAt = synopsisOf(verb, Command{}).size();  // behind it they would be the program's
    }
    usage.insert(optionsAt, " [options]");
    return std::string{verb.summary} + "\nUsage: " + usage + '\n' + (words.empty() ? "" : "\nArguments:\n" + words) +
           "\nOptions:\n" + options + "\nExample: serialcomm " + verb.example + '\n';
}

}  // namespace

std::string synopsisOf(const Verb& verb, const Command& command)
{
    std::string synopsis = "serialcomm " + verb.words();
    for (const auto& argument : command.grammar.arguments()) {
        if (!argument->isOption() || argument->required)
            synopsis += ' ' + synopsisOf(*argument);
    }
    return synopsis;
}

std::string verbList(const std::vector<std::string>& names)
{
    std::string lines;
    for (const Verb& verb : allVerbs()) {
        if (names.empty() || names.front() == verb.bus)
            lines += padded(synopsisOf(verb, *verb.make()), synopsisWidth) + verb.summary + '\n';
    }
    if (names.empty())
        lines += padded("serialcomm help [VERB]", synopsisWidth) + "this text, or the help of a verb\n" +
                 padded("serialcomm version", synopsisWidth) + "the version\n";
    return lines;
}

std::string helpFor(const std::vector<std::string>& names)
{
    const Verb* verb = findVerb(names);
    if (verb != nullptr)
        return helpForVerb(*verb);
    if (!names.empty() && !(names.size() == 1 && isBus(names[0])))
        throw unknownVerb(names);
    const std::string usage = names.empty() ? "VERB" : names[0] + " VERB";
    return "Usage: serialcomm " + usage + " ARGUMENTS... [options]\n\n" + verbList(names) +
           "\nThe options of a verb: serialcomm help VERB\n";
}
