#include "uart/Values.h"

#include "base/Bytes.h"

#include <algorithm>
#include <array>

namespace uart
{
namespace
{

/// The baud rates of the library, in ascending order.
constexpr std::array<int, 26> baudRates = {
    110,    150,    200,    300,    600,    1200,    2400,    4800,    9600,    19200,   38400,   57600,   115200,
    230400, 460800, 500000, 576000, 921600, 1000000, 1152000, 1500000, 2000000, 2500000, 3000000, 3500000, 4000000};

std::vector<std::string> textsOf(const std::array<int, 26>& rates)
{
    std::vector<std::string> texts;
    std::transform(rates.begin(), rates.end(), std::back_inserter(texts),
                   [](int rate) { return std::to_string(rate); });
    return texts;
}

int parseStopBits(const std::string& text)
{
    return text == "1" ? 1 : 2;
}

ByteArray parseLineEnd(const std::string& name)
{
    if (name == "cr")
        return {'\r'};
    if (name == "lf")
        return {'\n'};
    return name == "crlf" ? ByteArray{'\r', '\n'} : ByteArray{};
}

/// The byte that an escape such as "\r" stands for; moves to the last character of the escape.
uint8_t escapedByte(const std::string& text, size_t& at)
{
    const char kind = at + 1 < text.size() ? text[at + 1] : '\0';
    const std::string digits = text.substr(std::min(at + 2, text.size()), 2);
    if (kind == 'x' && digits.size() == 2 && numberOf(digits, 16)) {
        at += 3;
        return static_cast<uint8_t>(*numberOf(digits, 16));
    }
    ++at;
    switch (kind) {
    case 'r':
        return '\r';
    case 'n':
        return '\n';
    case 't':
        return '\t';
    case '\\':
        return '\\';
    default:
        refuse("text \"" + text + R"(": the escapes are \r \n \t \\ and \xNN)");
    }
}

}  // namespace

std::string Line::settings() const
{
    const char* const letter = parity == "none" ? "N" : parity == "even" ? "E" : "O";
    return std::to_string(baudRate) + " 8" + letter + std::to_string(stopBits);
}

void describeLine(Grammar& grammar, Line& line)
{
    grammar
        .word("PORT", "ttyUSB0, a path, or pty for a new pseudo-terminal; opening discards waiting input", line.path,
              parsePort)
        .complete(Candidates::SerialPorts);
    grammar.option("-b,--baud", "N", "Baud rate", line.baudRate, parseBaudRate, "115200").suggest(textsOf(baudRates));
    grammar.option("--parity", "P", "Parity", line.parity, parseWord, "none").choose({"none", "even", "odd"});
    grammar.option("--stop-bits", "N", "Stop bits", line.stopBits, parseStopBits, "1").choose({"1", "2"});
}

std::string byteCount(size_t count)
{
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

std::string secondsText(milliseconds time)
{
    std::string fraction = std::to_string(1000 + time.count() % 1000).substr(1);
    fraction.resize(fraction.find_last_not_of('0') + 1);
    return std::to_string(time.count() / 1000) + (fraction.empty() ? "" : ".") + fraction + " s";
}

std::string parsePort(const std::string& text)
{
    if (text == "pty")
        return "/dev/ptmx";
    if (consistsOf(text, "0123456789"))
        refuse("port " + text + ": write its name, such as ttyS0 or ttyUSB0");
    return nodePath(text, "", false);
}

int parseBaudRate(const std::string& text)
{
    const auto rate = numberOf(text, 10);
    if (!rate)
        refuse("baud rate \"" + text + "\": must be a decimal number, such as 115200");
    const auto* above = std::find_if(baudRates.begin(), baudRates.end(),
                                     [&](int known) { return static_cast<uint64_t>(known) >= *rate; });
    if (above != baudRates.end() && static_cast<uint64_t>(*above) == *rate)
        return *above;

    std::string nearest;
    if (above != baudRates.begin())
        nearest = std::to_string(*(above - 1));
    if (above != baudRates.end())
        nearest += (nearest.empty() ? "" : ", ") + std::to_string(*above);
    refuse("baud rate " + text + ": not supported; nearest: " + nearest);
}

ByteArray parseText(const std::vector<std::string>& words)
{
    ByteArray bytes;
    for (const std::string& word : words) {
        if (&word != &words.front())
            bytes.push_back(' ');
        for (size_t i = 0; i < word.size(); ++i)
            bytes.push_back(word[i] == '\\' ? escapedByte(word, i) : static_cast<uint8_t>(word[i]));
    }
    return bytes;
}

Argument& describeLineEnd(Grammar& grammar, ByteArray& lineEnd)
{
    return grammar.option("--eol", "E", "Line ending sent", lineEnd, parseLineEnd, "cr")
        .choose({"cr", "lf", "crlf", "none"});
}

}  // namespace uart
