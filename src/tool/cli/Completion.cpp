#include "cli/Completion.h"

#include "cli/Parser.h"
#include "cli/Verbs.h"
#include "device/Node.h"

#include <algorithm>
#include <sstream>

namespace
{

using Words = std::vector<std::string>;

/// Names of nodes in the form in which the word was started: "ttyUSB0" or "/dev/ttyUSB0".
Words devicesOf(const NodeKind& kind, const std::string& current)
{
    const bool asPath = !current.empty() && current[0] == '/';
    Words names;
    for (const Node& node : kind.nodes())
        names.push_back(asPath ? node.path : node.path.substr(std::string{"/dev/"}.size()));
    return names;
}

Words candidatesOf(const Argument& argument, const std::string& current)
{
    switch (argument.candidates) {
    case Candidates::I2cBuses:
        return devicesOf(i2cBuses, current);
    case Candidates::SpiDevices:
        return devicesOf(spiDevices, current);
    case Candidates::SerialPorts: {
        Words names = devicesOf(serialPorts, current);
        names.emplace_back("pty");
        return names;
    }
    case Candidates::Buses:  // depends on the words before
        break;
    case Candidates::Files:
        return {"--files"};  // the shell completes file names itself
    case Candidates::None:
        break;
    }
    return argument.choices.empty() ? argument.suggestions : argument.choices;
}

/// For words that are a bus and its device in turns: "i2c", "4".
Words busesOrDevices(const Words& before, const std::string& current)
{
    const std::string last = before.empty() ? "" : before.back();
    if (last == i2cBuses.bus)
        return devicesOf(i2cBuses, current);
    if (last == spiDevices.bus)
        return devicesOf(spiDevices, current);
    return {i2cBuses.bus, spiDevices.bus, "--"};
}

/// Candidates after a verb: values of the preceding option, names of options, or the next word.
Words argumentsOf(const Verb& verb, const Words& before, const std::string& current)
{
    const auto command = verb.make();
    CommonOptions common;
    addCommonOptions(*command, common);
    const auto& arguments = command->grammar.arguments();
    const bool isProgram =
        command->grammar.ownWords(before) < before.size() || (!before.empty() && before.back() == "--");
    if (isProgram)
        return {"--files"};

    const Argument* valueOf = nullptr;
    size_t position = 0;
    for (const std::string& word : before) {
        if (valueOf != nullptr || word.empty() || word[0] != '-') {
            position += valueOf == nullptr ? 1 : 0;
            valueOf = nullptr;
            continue;
        }
        for (const auto& argument : arguments) {
            if (argument->isNamed(word) && !argument->isFlag())
                valueOf = argument.get();
        }
    }
    if (valueOf != nullptr)
        return candidatesOf(*valueOf, current);

    Words names;
    for (const auto& argument : arguments) {
        if (argument->candidates == Candidates::Buses && current.compare(0, 1, "-") != 0)
            return busesOrDevices(before, current);
        if (!argument->isOption() && current.compare(0, 1, "-") != 0 && position-- == 0)
            return candidatesOf(*argument, current);
        if (!argument->isOption() || current.compare(0, 1, "-") != 0)
            continue;
        std::istringstream list{argument->name};
        for (std::string name; std::getline(list, name, ',');)
            names.push_back(name);
    }
    return names;
}

Words namesOfVerbs(const Words& names)
{
    Words all;
    for (const Verb& verb : allVerbs()) {
        const std::string first = *verb.bus == '\0' ? verb.name : verb.bus;
        const std::string name = names.empty() ? first : (names[0] == verb.bus ? verb.name : "");
        if (!name.empty() && std::find(all.begin(), all.end(), name) == all.end())
            all.push_back(name);
    }
    if (names.empty())
        all.insert(all.end(), {"help", "version"});
    return all;
}

Words allCandidates(const Words& before, const std::string& current)
{
    Words names;
    Words rest;
    for (const std::string& word : before) {
        const bool isName = findVerb(names) == nullptr && !word.empty() && word[0] != '-';
        (isName ? names : rest).push_back(word);
    }
    const bool wantsHelp = !names.empty() && names[0] == "help";
    if (wantsHelp)
        names.erase(names.begin());
    const Verb* verb = findVerb(names);
    return verb == nullptr ? namesOfVerbs(names) : wantsHelp ? Words{} : argumentsOf(*verb, rest, current);
}

}  // namespace

std::string completions(const std::vector<std::string>& words)
{
    const std::string current = words.empty() ? "" : words.back();
    const Words before(words.begin(), words.empty() ? words.end() : words.end() - 1);
    std::string lines;
    for (const std::string& candidate : allCandidates(before, current)) {
        if (candidate.compare(0, current.size(), current) == 0 || candidate == "--files")
            lines += candidate + '\n';
    }
    return lines;
}
