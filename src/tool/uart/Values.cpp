#include "uart/Values.h"

#include "base/Bytes.h"

#include <algorithm>
#include <array>

namespace uart
{
namespace
{

/// The baud rates of Uart, in ascending order.
constexpr std::array<uint32_t, 26> baudRates = {
    110,    150,    200,    300,    600,    1200,    2400,    4800,    9600,    19200,   38400,   57600,   115200,
    230400, 460800, 500000, 576000, 921600, 1000000, 1152000, 1500000, 2000000, 2500000, 3000000, 3500000, 4000000};

std::vector<std::string> baudRateTexts()
{
    std::vector<std::string> texts;
    std::transform(baudRates.begin(), baudRates.end(), std::back_inserter(texts),
                   [](uint32_t rate) { return std::to_string(rate); });
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

std::string parseTty(const std::string& text)
{
    std::string path = parsePort(text);
    if (path == "/dev/ptmx")
        refuse("port " + text + ": would be a new pseudo-terminal; name a port that exists");
    return path;
}

}  // namespace

std::string PortSettings::text() const
{
    const char* const letter = parity == "none" ? "N" : parity == "even" ? "E" : "O";
    return std::to_string(baudRate) + " 8" + letter + std::to_string(stopBits);
}

std::string PortSettings::traffic() const
{
    std::string steps = text();
    if (dtr)
        steps += *dtr ? ", DTR on" : ", DTR off";
    if (rts)
        steps += *rts ? ", RTS on" : ", RTS off";
    return sendBreak ? steps + ", break" : steps;
}

Argument& describeSwitch(Grammar& grammar, const std::string& name, const std::string& help, std::optional<bool>& field)
{
    return grammar.option(name, "STATE", help, field, [](const std::string& text) { return text == "on"; })
        .choose({"on", "off"});
}

void describeModemLines(Grammar& grammar, std::optional<bool>& dtr, std::optional<bool>& rts, bool& sendBreak)
{
    describeSwitch(grammar, "--dtr", "Set DTR", dtr);
    describeSwitch(grammar, "--rts", "Set RTS", rts);
    grammar.flag("--break", "Send a break of 0.25 s", sendBreak);
}

void describeFrame(Grammar& grammar, PortSettings& settings)
{
    grammar.option("--parity", "P", "Parity", settings.parity, parseWord, "none").choose({"none", "even", "odd"});
    grammar.option("--stop-bits", "N", "Stop bits", settings.stopBits, parseStopBits, "1").choose({"1", "2"});
    grammar.flag("--no-reset", "Keep DTR and RTS asserted when the port closes, so that the next open resets no board",
                 settings.noReset);
    describeModemLines(grammar, settings.dtr, settings.rts, settings.sendBreak);
}

void describePort(Grammar& grammar, PortSettings& settings)
{
    grammar
        .word("PORT", "ttyUSB0, a path, or pty for a new pseudo-terminal; opening discards waiting input",
              settings.path, parsePort)
        .complete(Candidates::SerialPorts);
    grammar.option("-b,--baud", "N", "Any baud rate", settings.baudRate, parseBaudRate, "115200")
        .suggest(baudRateTexts());
    describeFrame(grammar, settings);
}

void describeTty(Grammar& grammar, std::string& path)
{
    grammar.word("PORT", "ttyUSB0, or a path; opening asserts DTR and RTS, which resets some boards", path, parseTty)
        .complete(Candidates::SerialPorts);
}

void describeBaud(Grammar& grammar, std::optional<uint32_t>& baudRate)
{
    grammar.option("-b,--baud", "N", "Any baud rate", baudRate, parseBaudRate).suggest(baudRateTexts());
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

uint32_t parseBaudRate(const std::string& text)
{
    const auto rate = numberOf(text, 10);
    if (!rate)
        refuse("baud rate \"" + text + "\": must be a decimal number, such as 115200");
    if (*rate == 0 || *rate > UINT32_MAX)
        refuse("baud rate " + text + ": must be 1 to " + std::to_string(UINT32_MAX));
    return static_cast<uint32_t>(*rate);
}

bool isRateOfUart(uint32_t rate)
{
    return std::binary_search(baudRates.begin(), baudRates.end(), rate);
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
