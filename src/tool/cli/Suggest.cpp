#include "cli/Suggest.h"

#include "cli/Verbs.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>

namespace
{

/// Names that other programs use for the same verbs.
constexpr std::array<std::pair<const char*, const char*>, 26> synonyms = {{
    {"detect", "scan"},   {"probe", "scan"},    {"ping", "scan"},      {"ls", "list"},       {"devices", "list"},
    {"send", "write"},    {"put", "write"},     {"receive", "read"},   {"recv", "read"},     {"cat", "read"},
    {"xfer", "transfer"}, {"config", "info"},   {"query", "ask"},      {"terminal", "term"}, {"console", "term"},
    {"monitor", "term"},  {"miniterm", "term"}, {"serial", "uart"},    {"tty", "uart"},      {"loopback", "echo"},
    {"spidev", "spi"},    {"i2c-dev", "i2c"},   {"enumerate", "list"}, {"readreg", "get"},   {"writereg", "set"},
    {"eeprog", "eeprom"},
}};

/// How many letters have to be inserted, removed or changed to turn one word into the other.
size_t distance(const std::string& from, const std::string& to)
{
    std::vector<size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < from.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i + 1);
        for (size_t j = 0; j < to.size(); ++j) {
            const size_t changed = diagonal + (from[i] == to[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

using Words = std::vector<std::string>;

std::string lowerCase(std::string word)
{
    std::transform(word.begin(), word.end(), word.begin(), [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + 32) : letter;
    });
    return word;
}

Words busNames()
{
    Words names;
    for (const Verb& verb : allVerbs()) {
        if (*verb.bus != '\0' && (names.empty() || names.back() != verb.bus))
            names.emplace_back(verb.bus);
    }
    return names;
}

/// The verbs of a bus; for an empty name, the verbs without a bus.
Words verbNames(const std::string& bus)
{
    Words names;
    for (const Verb& verb : allVerbs()) {
        if (bus == verb.bus)
            names.emplace_back(verb.name);
    }
    return names;
}

/// The bus that a device name seems to belong to; empty if it fits none.
std::string busOf(const std::string& device)
{
    const auto has = [&](const char* text) { return device.find(text) != std::string::npos; };
    if (has("spidev"))
        return "spi";
    if (has("tty") || has("pts") || has("serial") || device == "pty")
        return "uart";
    if (has("i2c"))
        return "i2c";
    if (device.empty() || device.find_first_not_of("0123456789.") != std::string::npos)
        return {};
    return has(".") ? "spi" : "i2c";
}

/// A verb without its bus, "scan 4": adds the bus that has this verb; of several, the one that fits the device.
Words withBus(const std::string& word, const Words& rest)
{
    Words found;
    for (const std::string& bus : busNames()) {
        const std::string verb = suggestion(word, verbNames(bus));
        if (verb.empty())
            continue;
        if (!rest.empty() && busOf(rest.front()) == bus)
            return {bus, verb};
        found = found.empty() ? Words{bus, verb} : Words{"", ""};
    }
    return found.empty() || found[0].empty() ? Words{} : found;
}

/// "i2cget", "spi-transfer": a bus and a verb in one word.
Words splitWord(const std::string& word)
{
    for (const std::string& bus : busNames()) {
        if (word.compare(0, bus.size(), bus) != 0 || word.size() == bus.size())
            continue;
        const std::string verb =
            suggestion(word.substr(word[bus.size()] == '-' ? bus.size() + 1 : bus.size()), verbNames(bus));
        if (!verb.empty())
            return {bus, verb};
    }
    return {};
}

/// The verb's names that were probably meant, and how many of the words they replace.
std::pair<Words, size_t> correction(const Words& words)
{
    const std::string first = lowerCase(words[0]);
    const Words rest(words.begin() + 1, words.end());
    const std::string bus = isBus(first) ? first : suggestion(first, busNames());
    if (!bus.empty() && !rest.empty()) {
        const std::string second = lowerCase(rest[0]);
        const std::string forAnyBus = suggestion(second, verbNames(""));
        if (forAnyBus == "list" || forAnyBus == "doctor")
            return {{forAnyBus, bus}, 2};
        const std::string verb = suggestion(second, verbNames(bus));
        if (!verb.empty())
            return {{bus, verb}, 2};
    }
    const std::string alone = suggestion(first, verbNames(""));
    if (!alone.empty())
        return {{alone}, 1};
    const Words split = splitWord(first);
    if (!split.empty())
        return {split, 1};
    const Words named = withBus(first, rest);
    if (!named.empty())
        return {named, 1};
    return {bus.empty() ? Words{} : Words{bus}, words.size()};  // which lists the bus's verbs
}

std::string shellWord(const std::string& word)
{
    const bool plain = !word.empty() && word.find_first_of(" \t\n'\"\\$`*?[](){}<>|&;!#~") == std::string::npos;
    if (plain)
        return word;
    std::string text = "'";
    for (const char character : word)
        text += character == '\'' ? std::string{"'\\''"} : std::string{character};
    return text + "'";
}

}  // namespace

std::string suggestion(const std::string& word, const std::vector<std::string>& known)
{
    const auto isKnown = [&](const std::string& name) {
        return std::find(known.begin(), known.end(), name) != known.end();
    };
    if (isKnown(word))
        return word;
    for (const auto& [other, ours] : synonyms) {
        if (word == other && isKnown(ours))
            return ours;
    }

    std::string best;
    size_t bestDistance = 3;
    for (const std::string& name : known) {
        const size_t steps = distance(word, name);
        const bool hasOneLetter = name.size() <= 2;  // an option such as -t is no guess for -q
        if (!hasOneLetter && steps < bestDistance && steps * 2 < name.size() + 1) {
            best = name;
            bestDistance = steps;
        }
    }
    return best;
}

Failure unknownVerb(const std::vector<std::string>& words)
{
    const auto isOption = [](const std::string& word) { return word.size() > 1 && word[0] == '-'; };
    const Words plain(std::find_if_not(words.begin(), words.end(), isOption), words.end());
    if (plain.empty())
        return {WrongCommandLine, words.front() + ": no verb given", "serialcomm help"};
    std::string name = plain[0].empty() ? "\"\"" : plain[0];
    if (isBus(plain[0]) && plain.size() > 1)
        name += ' ' + (plain[1].empty() ? "\"\"" : plain[1]);

    const auto [names, replaced] = correction(plain);
    Words meant = names;
    meant.insert(meant.end(), plain.begin() + static_cast<std::ptrdiff_t>(replaced), plain.end());
    std::string hint = "serialcomm";
    for (const std::string& word : meant)
        hint += ' ' + shellWord(word);
    return {WrongCommandLine, name + ": unknown verb", names.empty() ? "serialcomm help" : hint};
}
