#include "Suggest.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>

namespace
{

/// What the same thing is called elsewhere.
constexpr std::array<std::pair<const char*, const char*>, 18> synonyms = {{
    {"detect", "scan"},
    {"probe", "scan"},
    {"ping", "scan"},
    {"ls", "list"},
    {"devices", "list"},
    {"send", "write"},
    {"put", "write"},
    {"receive", "read"},
    {"recv", "read"},
    {"cat", "read"},
    {"xfer", "transfer"},
    {"config", "info"},
    {"query", "ask"},
    {"terminal", "term"},
    {"console", "term"},
    {"serial", "uart"},
    {"tty", "uart"},
    {"loopback", "echo"},
}};

/// How many letters have to be put in, left out or changed to make one word of the other.
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

}  // namespace

std::string suggestion(const std::string& word, const std::vector<std::string>& known)
{
    const auto isKnown = [&](const std::string& name) {
        return std::find(known.begin(), known.end(), name) != known.end();
    };
    for (const auto& [other, ours] : synonyms) {
        if (word == other && isKnown(ours))
            return ours;
    }

    std::string best;
    size_t bestDistance = 3;
    for (const std::string& name : known) {
        const size_t steps = distance(word, name);
        if (steps < bestDistance && steps < name.size()) {
            best = name;
            bestDistance = steps;
        }
    }
    return best;
}
