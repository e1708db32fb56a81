#include "Values.h"

#include "Failure.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cstdio>
#include <optional>

namespace
{

constexpr auto digits = "0123456789";
constexpr auto hexDigits = "0123456789abcdefABCDEF";

[[noreturn]] void refuse(const std::string& message)
{
    throw Failure{WrongCommandLine, message};
}

bool consistsOf(const std::string& text, const char* characters)
{
    return !text.empty() && text.find_first_not_of(characters) == std::string::npos;
}

bool startsWith(const std::string& text, const std::string& start)
{
    return text.compare(0, start.size(), start) == 0;
}

bool hasHexPrefix(const std::string& text)
{
    return startsWith(text, "0x") || startsWith(text, "0X");
}

/// The whole text as a number; the largest there is when it does not fit.
std::optional<uint64_t> number(const std::string& text, int base)
{
    if (!consistsOf(text, base == 16 ? hexDigits : digits))
        return {};
    uint64_t value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return result.ec == std::errc{} ? value : UINT64_MAX;
}

/// In two digits, or four.
std::string hex(uint64_t value)
{
    std::array<char, 20> text{};
    std::snprintf(text.data(), text.size(), "0x%0*llx", value > 0xff ? 4 : 2, static_cast<unsigned long long>(value));
    return text.data();
}

/// The digits after 0x, of a value up to `most`. Without the 0x nobody knows what is meant: say both, where both fit.
std::string hexDigitsOf(const std::string& what, const std::string& text, uint64_t most)
{
    if (hasHexPrefix(text) && consistsOf(text.substr(2), hexDigits))
        return text.substr(2);
    const auto asHex = number(text, 16);
    const auto decimal = number(text, 10);
    std::string choices;
    if (asHex && *asHex <= most && text.size() <= 4)
        choices = (text.size() % 2 == 0 ? "0x" : "0x0") + text;
    if (decimal && *decimal <= most && hex(*decimal) != choices)
        choices += (choices.empty() ? "" : ", or ") + hex(*decimal) + " if decimal " + text + " is meant";
    if (choices.empty())
        refuse(what + " \"" + text + "\": write it in hex, such as 0x48");
    refuse(what + " " + text + ": write " + choices);
}

uint8_t byteOf(const std::string& pair)
{
    return static_cast<uint8_t>(*number(pair, 16));
}

std::string paired(const std::string& evenDigits)
{
    std::string text;
    for (size_t i = 0; i < evenDigits.size(); i += 2)
        text += (i == 0 ? "" : " ") + evenDigits.substr(i, 2);
    return text;
}

[[noreturn]] void refuseOddDigits(const std::string& group, const std::string& run)
{
    std::string message = "bytes \"" + group + "\": odd number of hex digits";
    if (run.size() == 1)
        message += "; write 0" + run;
    else if (run.size() <= 15)
        message += "; write " + paired("0" + run) + ", or " + paired(run.substr(0, run.size() - 1) + "0" + run.back());
    refuse(message);
}

std::string nodePath(const std::string& device, const std::string& prefix, bool isNumber)
{
    if (device.empty())
        refuse("the device is an empty word");
    if (device.find('/') != std::string::npos)
        return device;
    return "/dev/" + (isNumber ? prefix : "") + device;
}

// What the library's Uart takes, and what Linux has besides.
constexpr std::array<int, 26> baudRates = {
    110,    150,    200,    300,    600,    1200,    2400,    4800,    9600,    19200,   38400,   57600,   115200,
    230400, 460800, 500000, 576000, 921600, 1000000, 1152000, 1500000, 2000000, 2500000, 3000000, 3500000, 4000000};
constexpr std::array<int, 5> otherBaudRates = {0, 50, 75, 134, 1800};

}  // namespace

std::string i2cPath(const std::string& device)
{
    return nodePath(device, "i2c-", consistsOf(device, digits));
}

std::string spiPath(const std::string& device)
{
    return nodePath(device, "spidev", consistsOf(device, "0123456789."));
}

std::string uartPath(const std::string& device)
{
    if (device == "pty")
        return "/dev/ptmx";
    if (consistsOf(device, digits))
        refuse("port " + device + ": write its name, such as ttyS" + device + " or ttyUSB" + device);
    return nodePath(device, "", false);
}

int parseAddress(const std::string& text)
{
    const uint64_t address = *number(hexDigitsOf("address", text, 0x7f), 16);
    if (address > 0xff)
        refuse("address " + text + " is above 0x7f");
    if (address > 0x7f)
        refuse("address " + text + " is above 0x7f; data sheets that say " + hex(address & 0xfe) + " to write and " +
               hex(address | 1) + " to read mean " + hex(address >> 1));
    return static_cast<int>(address);
}

Bytes parseRegister(const std::string& text)
{
    const std::string run = hexDigitsOf("register", text, UINT16_MAX);
    if (run.size() == 2)
        return {byteOf(run)};
    if (run.size() == 4)
        return {byteOf(run.substr(0, 2)), byteOf(run.substr(2))};
    if (run.size() > 4)
        refuse("register " + text + ": at most two bytes, as in 0x0123");
    const std::string padded = "000" + run;
    refuse("register " + text + ": write 0x" + padded.substr(padded.size() - 2) + " for one byte, 0x" +
           padded.substr(padded.size() - 4) + " for two");
}

Bytes parseBytes(const std::vector<std::string>& words)
{
    Bytes bytes;
    for (const std::string& word : words) {
        size_t at = 0;
        while ((at = word.find_first_not_of(" \t\r\n:,", at)) != std::string::npos) {
            const size_t end = std::min(word.find_first_of(" \t\r\n:,", at), word.size());
            const std::string group = word.substr(at, end - at);
            const std::string run = hasHexPrefix(group) ? group.substr(2) : group;
            if (!consistsOf(run, hexDigits))
                refuse("bytes \"" + group + "\": not hex digits");
            if (run.size() % 2 != 0)
                refuseOddDigits(group, run);
            for (size_t i = 0; i < run.size(); i += 2)
                bytes.push_back(byteOf(run.substr(i, 2)));
            at = end;
        }
    }
    return bytes;
}

void checkSize(size_t size, size_t most, const std::string& unit)
{
    if (size > most)
        refuse(std::to_string(size) + " bytes: " + unit + " holds at most " + std::to_string(most));
}

size_t parseCount(const std::string& text, size_t most, const std::string& unit)
{
    const auto count = number(text, 10);
    if (!count) {
        const uint64_t asHex = hasHexPrefix(text) ? number(text.substr(2), 16).value_or(0) : 0;
        const bool meant = asHex > 0 && asHex <= most;
        refuse("count \"" + text + "\": counts are decimal" + (meant ? "; write " + std::to_string(asHex) : ""));
    }
    if (*count == 0)
        refuse("count " + text + ": at least 1");
    if (*count > most)
        refuse(text + " bytes: " + unit + " holds at most " + std::to_string(most));
    return *count;
}

size_t takePlusCount(std::vector<std::string>& words, size_t most, const std::string& unit)
{
    if (words.empty() || !startsWith(words.back(), "+"))
        return 0;
    const size_t count = parseCount(words.back().substr(1), most, unit);
    words.pop_back();
    return count;
}

uint8_t parseMode(const std::string& text)
{
    const auto mode = hasHexPrefix(text) ? number(text.substr(2), 16) : number(text, 10);
    if (!mode || *mode > (hasHexPrefix(text) ? 0xff : 3))
        refuse("mode \"" + text + "\": 0 to 3, or the mode byte in hex, 0x00 to 0xff");
    return static_cast<uint8_t>(*mode);
}

int parseSpeed(const std::string& text)
{
    std::string figures = text;
    uint64_t unit = 1;
    if (!text.empty() && (text.back() == 'k' || text.back() == 'M')) {
        unit = text.back() == 'k' ? 1000 : 1000000;
        figures.pop_back();
    }
    const auto speed = number(figures, 10);
    if (!speed)
        refuse("speed \"" + text + "\": hertz, such as 500000, 500k or 10M");
    if (*speed == 0 || *speed > INT_MAX / unit)
        refuse("speed " + text + ": 1 Hz to 2147 MHz");
    return static_cast<int>(*speed * unit);
}

int parseBaudRate(const std::string& text)
{
    const auto rate = number(text, 10);
    if (!rate)
        refuse("baud rate \"" + text + "\": a decimal number, such as 115200");
    const auto* above = std::find_if(baudRates.begin(), baudRates.end(),
                                     [&](int known) { return static_cast<uint64_t>(known) >= *rate; });
    if (above != baudRates.end() && static_cast<uint64_t>(*above) == *rate)
        return *above;

    const bool linuxHasIt = std::any_of(otherBaudRates.begin(), otherBaudRates.end(),
                                        [&](int known) { return static_cast<uint64_t>(known) == *rate; });
    std::string message =
        "baud rate " + text + (linuxHasIt ? ": not supported" : ": no Linux constant") + "; next to it: ";
    if (above != baudRates.begin())
        message += std::to_string(*(above - 1));
    if (above != baudRates.begin() && above != baudRates.end())
        message += ", ";
    if (above != baudRates.end())
        message += std::to_string(*above);
    refuse(message);
}

int parseStopBits(const std::string& text)
{
    if (text != "1" && text != "2")
        refuse("stop bits \"" + text + "\": 1 or 2");
    return text == "1" ? 1 : 2;
}

void checkParity(const std::string& text)
{
    if (text != "none" && text != "even" && text != "odd")
        refuse("parity \"" + text + "\": none, even or odd");
}

Bytes parseText(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words)
        text += (&word == &words.front() ? "" : " ") + word;

    Bytes bytes;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            bytes.push_back(static_cast<uint8_t>(text[i]));
            continue;
        }
        const char letter = i + 1 < text.size() ? text[++i] : '\0';
        const std::string pair = text.substr(std::min(i + 1, text.size()), 2);
        if (letter == 'r')
            bytes.push_back('\r');
        else if (letter == 'n')
            bytes.push_back('\n');
        else if (letter == 't')
            bytes.push_back('\t');
        else if (letter == '\\')
            bytes.push_back('\\');
        else if (letter == 'x' && pair.size() == 2 && consistsOf(pair, hexDigits)) {
            bytes.push_back(byteOf(pair));
            i += 2;
        } else {
            refuse("text \"" + text + R"(": a backslash starts \r \n \t \\ or \xNN)");
        }
    }
    return bytes;
}

Bytes parseLineEnd(const std::string& name)
{
    if (name == "cr")
        return {'\r'};
    if (name == "lf")
        return {'\n'};
    if (name == "crlf")
        return {'\r', '\n'};
    if (name == "none")
        return {};
    refuse("line end \"" + name + "\": cr, lf, crlf or none");
}

std::chrono::milliseconds parseTimeout(const std::string& text)
{
    const size_t point = std::min(text.find('.'), text.size());
    const auto seconds = number(text.substr(0, point), 10);
    const std::string fraction = text.substr(point);
    const bool half = startsWith(fraction, ".5");
    if (!seconds || *seconds > (half ? 86399 : 86400) || fraction == "." ||
        !(fraction.empty() || consistsOf(fraction.substr(half ? 2 : 1) + "0", "0")) || (*seconds == 0 && !half))
        refuse("timeout \"" + text + "\": seconds in steps of 0.5, from 0.5 to 86400");
    return std::chrono::milliseconds{*seconds * 1000 + (half ? 500 : 0)};
}
