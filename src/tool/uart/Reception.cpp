#include "uart/Reception.h"

#include "base/Bytes.h"
#include "base/Failure.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

namespace uart
{
namespace
{

bool isLineEnd(uint8_t byte)
{
    return byte == '\r' || byte == '\n';
}

/// How many bytes at the end are the beginning of an incomplete UTF-8 character.
size_t unfinishedBytes(const std::string& text)
{
    for (size_t count = 1; count <= std::min<size_t>(3, text.size()); ++count) {
        const auto byte = static_cast<uint8_t>(text[text.size() - count]);
        if ((byte & 0xc0) == 0x80)
            continue;
        const size_t length = byte >= 0xf0 ? 4 : byte >= 0xe0 ? 3 : byte >= 0xc2 ? 2 : 1;
        return length > count && byte <= 0xf4 ? count : 0;
    }
    return 0;
}

/// Removes an echo from the beginning of the received bytes.
class EchoFilter
{
public:
    explicit EchoFilter(ByteArray expected) : echo(std::move(expected)) {}

    /// The bytes that are not part of the echo. A device may add LF to the CR that it echoes.
    ByteArray pass(const ByteArray& bytes)
    {
        auto next = bytes.begin();
        for (; next != bytes.end() && seen < echo.size() && *next == echo[seen]; ++next)
            ++seen;
        if (next == bytes.end())
            return {};
        if (!echo.empty() && seen == echo.size() && echo.back() == '\r' && *next == '\n')
            ++next;
        ByteArray rest = withheld();
        rest.insert(rest.end(), next, bytes.end());
        return rest;
    }

    /// Bytes that looked like the beginning of the echo; none once it was complete.
    ByteArray withheld()
    {
        ByteArray bytes;
        if (seen < echo.size())
            bytes.assign(echo.begin(), echo.begin() + static_cast<std::ptrdiff_t>(seen));
        echo.clear();
        seen = 0;
        return bytes;
    }

private:
    ByteArray echo;
    size_t seen = 0;
};

/// Searches the received bytes for endings.
class EndingSearch
{
public:
    explicit EndingSearch(const ReceptionOptions& options)
    {
        for (const std::string& text : options.endings)
            endings.push_back(options.hex ? parseBytes({text}) : parseText({text}));
        for (const ByteArray& ending : endings)
            longest = std::max(longest, ending.size());
    }

    /// The one that was complete first.
    std::optional<size_t> find(const ByteArray& bytes)
    {
        tail.insert(tail.end(), bytes.begin(), bytes.end());
        std::optional<size_t> found;
        auto foundEnd = tail.end();
        for (size_t i = 0; i < endings.size(); ++i) {
            const ByteArray& ending = endings[i];
            const auto at = std::search(tail.begin(), tail.end(), ending.begin(), ending.end());
            if (at == tail.end())
                continue;
            const auto end = at + static_cast<std::ptrdiff_t>(ending.size());
            if (!found || end < foundEnd) {
                found = i;
                foundEnd = end;
            }
        }
        if (tail.size() > longest)
            tail.erase(tail.begin(), tail.end() - static_cast<std::ptrdiff_t>(longest));
        return found;
    }

private:
    std::vector<ByteArray> endings;
    size_t longest = 0;
    ByteArray tail;  ///< last received bytes, in which an ending may have begun
};

/// Collects the first line that is not empty.
class LineReader
{
public:
    /// Whether the line is complete.
    bool add(const ByteArray& bytes)
    {
        bool complete = false;
        for (size_t i = 0; i < bytes.size() && !complete; ++i) {
            complete = isLineEnd(bytes[i]) && !text.empty();
            if (!isLineEnd(bytes[i]))
                text.push_back(bytes[i]);
        }
        return complete;
    }

    ByteArray text;
};

}  // namespace

void Display::show(const ByteArray& bytes)
{
    if (bytes.empty())
        return;
    if (inBursts()) {
        output.result({{"bytes", bytes}, {"text", output.json() ? textOf(bytes) : ""}}, hexLine(bytes));
        return;
    }
    std::string text;
    for (const uint8_t byte : bytes) {
        if (onTerminal && last == '\r' && byte != '\n')
            text += '\n';
        text += static_cast<char>(byte);
        last = byte;
    }
    print(text);
}

void Display::showLine(const ByteArray& line)
{
    show(line);
    if (!inBursts())
        show({'\n'});
}

void Display::end()
{
    if (onTerminal && last != '\n')
        show({'\n'});
}

std::string Display::textOf(const ByteArray& bytes)
{
    std::string text = unfinishedCharacter + std::string(bytes.begin(), bytes.end());
    unfinishedCharacter = text.substr(text.size() - unfinishedBytes(text));
    text.resize(text.size() - unfinishedCharacter.size());
    return text;
}

void describeHex(Grammar& grammar, bool& hex)
{
    grammar.flag("--hex", "Hex instead of text, one line per burst", hex);
}

void describeReception(Grammar& grammar, ReceptionOptions& options, const std::string& timeout)
{
    const auto secondsOf = [](const char* name) {
        return [name](const std::string& text) { return parseSeconds(name, text); };
    };
    grammar.option("--timeout", "S", "Stop after this many seconds without data", options.timeout,
                   secondsOf("--timeout"), timeout);
    grammar.option("--deadline", "S", "Stop after this many seconds in all", options.deadline, secondsOf("--deadline"));
    grammar.repeatedOption(
        "--until", "TEXT",
        "Stop as soon as this is received; repeatable: status 0 for the first, 12 for the second, 13 ...; "
        "1 for none",
        options.endings);
    grammar
        .flag("--line", "Stop after one non-empty line, printed without its line ending; status 1 if none came",
              options.line)
        .exclude("--until");
}

void check(const ReceptionOptions& options)
{
    for (const std::string& ending : options.endings) {
        if ((options.hex ? parseBytes({ending}) : parseText({ending})).empty())
            refuse("--until: must not be empty");
    }
    if (options.endings.size() > 100)
        refuse("--until: at most 100 times");
}

Reception receive(Port& port, const ReceptionOptions& options, size_t most, ByteArray echo, Output& output)
{
    Limits limits{options.timeout};
    if (options.deadline)
        limits.deadline = steady_clock::now() + *options.deadline;
    EchoFilter echoFilter{std::move(echo)};
    EndingSearch endings{options};
    LineReader line;
    Display display{output, options.hex};
    Reception result;
    const auto add = [&](const ByteArray& bytes) {
        result.count += bytes.size();
        if (options.line) {
            result.complete = line.add(bytes);
            return;
        }
        display.show(bytes);
        const auto ending = endings.find(bytes);
        result.ending = ending.value_or(0);
        result.complete = ending || result.count == most;
    };
    try {
        while (!result.complete) {
            const bool inBursts = display.inBursts() && !options.line;
            const size_t left = most - result.count;
            const ByteArray bytes = inBursts ? port.receiveBurst(left, limits) : port.receive(left, limits);
            add(bytes.empty() ? echoFilter.withheld() : echoFilter.pass(bytes));
            if (bytes.empty())
                break;
        }
        if (!line.text.empty())
            display.showLine(line.text);
    } catch (...) {
        display.end();
        throw;
    }
    display.end();
    result.atDeadline = limits.deadline && steady_clock::now() >= *limits.deadline;
    return result;
}

std::string limitText(const Reception& reception, const ReceptionOptions& options)
{
    return secondsText(*(reception.atDeadline ? options.deadline : options.timeout));
}

std::string endText(const Reception& reception, const ReceptionOptions& options)
{
    const std::string limit = limitText(reception, options);
    return reception.atDeadline ? "the deadline of " + limit : "the timeout of " + limit;
}

void throwIfIncomplete(const Reception& reception, const ReceptionOptions& options, const std::string& path)
{
    std::string wanted;
    for (const std::string& ending : options.endings)
        wanted += (wanted.empty() ? "\"" : " or \"") + ending + '"';
    if (options.line)
        wanted = "line end";
    if (!reception.complete && !wanted.empty())
        throw Failure{TransferFailed, path + ": received " + byteCount(reception.count) + ", but no " + wanted +
                                          " before " + endText(reception, options)};
}

void reportEnding(const Reception& reception)
{
    if (reception.ending > 0)
        throw ExitStatus{static_cast<int>(10 + reception.ending + 1)};
}

}  // namespace uart
