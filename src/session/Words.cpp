#include "Words.h"

#include "Traffic.h"

#include <cerrno>
#include <cstdlib>

namespace session
{

namespace
{

constexpr auto blanks = " \t\r";
constexpr auto marks = ";,";

bool isOneOf(char character, const char* set)
{
    return std::string{set}.find(character) != std::string::npos;
}

/// The text that starts after the quotation mark at `at`, which then is behind the closing one.
std::string takeText(const std::string& line, size_t& at)
{
    std::string text;
    for (++at; at < line.size() && line[at] != '"'; ++at) {
        if (line[at] != '\\') {
            text += line[at];
            continue;
        }
        const char escaped = ++at < line.size() ? line[at] : '\0';
        switch (escaped) {
        case 'n':
            text += '\n';
            break;
        case 'r':
            text += '\r';
            break;
        case 't':
            text += '\t';
            break;
        case '"':
        case '\\':
            text += escaped;
            break;
        case 'x': {
            const std::string digits = line.substr(at + 1, 2);
            if (digits.size() != 2 || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
                throw SyntaxError("\\x needs two hexadecimal digits");
            text += static_cast<char>(std::strtoul(digits.c_str(), nullptr, 16));
            at += 2;
            break;
        }
        default:
            throw SyntaxError(R"(unknown escape in a text; there are \n, \r, \t, \", \\ and \x1b)");
        }
    }
    if (at == line.size())
        throw SyntaxError("a text without its closing quotation mark");
    ++at;
    return text;
}

}  // namespace

Words::Words(const std::string& line)
{
    size_t at = 0;
    while ((at = line.find_first_not_of(blanks, at)) != std::string::npos && line[at] != '#') {
        if (line[at] == '"') {
            words.push_back({Word::Kind::text, takeText(line, at)});
        } else if (isOneOf(line[at], marks)) {
            words.push_back({Word::Kind::mark, {line[at++]}});
        } else {
            const size_t end = line.find_first_of(std::string{blanks} + marks + '"', at);
            words.push_back({Word::Kind::plain, line.substr(at, end - at)});
            at = end;
        }
    }
}

const Word& Words::peek() const
{
    static const Word none;
    return atEnd() ? none : words[next];
}

bool Words::nextIs(const std::string& plain) const
{
    return !atEnd() && peek().kind == Word::Kind::plain && peek().value == plain;
}

bool Words::nextIsMark(char mark) const
{
    return !atEnd() && peek().kind == Word::Kind::mark && peek().value[0] == mark;
}

Word Words::take()
{
    Word word = peek();
    next += atEnd() ? 0 : 1;
    return word;
}

bool Words::take(const std::string& plain)
{
    const bool is = nextIs(plain);
    next += is ? 1 : 0;
    return is;
}

bool Words::takeMark(char mark)
{
    const bool is = nextIsMark(mark);
    next += is ? 1 : 0;
    return is;
}

void Words::expected(const std::string& what) const
{
    if (atEnd())
        throw SyntaxError("the line ends too early; expected " + what);
    const Word& word = peek();
    const std::string shown = word.kind == Word::Kind::text ? quoted(word.value) : "'" + word.value + "'";
    throw SyntaxError("unexpected " + shown + "; expected " + what);
}

void Words::expectEnd() const
{
    if (!atEnd())
        expected("the end of the line");
}

std::string quoted(const std::string& text)
{
    std::string result = "\"";
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (character == '\n')
            result += "\\n";
        else if (character == '\r')
            result += "\\r";
        else if (character == '\t')
            result += "\\t";
        else if (character == '"' || character == '\\')
            result += {'\\', character};
        else if (byte < 0x20 || byte >= 0x7f)
            result += {'\\', 'x', "0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 0xf]};
        else
            result += character;
    }
    return result + '"';
}

unsigned long takeNumber(Words& words, unsigned long most, const std::string& what)
{
    const std::string& word = words.peek().value;
    const bool hex = word.rfind("0x", 0) == 0;
    const std::string digits = hex ? word.substr(2) : word;
    if (words.peek().kind != Word::Kind::plain || digits.empty() || digits.size() > 10 ||
        digits.find_first_not_of(hex ? "0123456789abcdefABCDEF" : "0123456789") != std::string::npos)
        words.expected(what);
    const unsigned long long number = std::strtoull(digits.c_str(), nullptr, hex ? 16 : 10);
    if (number > most)
        words.expected(what + ", at most " + std::to_string(most));
    words.take();
    return static_cast<unsigned long>(number);
}

}  // namespace session
