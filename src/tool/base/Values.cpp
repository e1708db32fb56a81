#include "base/Values.h"

#include "base/Bytes.h"
#include "base/Failure.h"
#include "base/Output.h"

#include <charconv>
#include <sstream>

namespace
{

constexpr auto decimalDigits = "0123456789";

}  // namespace

void refuse(const std::string& message)
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

std::string restOfLine(const std::string& text, const std::string& start)
{
    std::istringstream lines{text};
    for (std::string line; std::getline(lines, line);) {
        if (startsWith(line, start))
            return line.substr(start.size());
    }
    return {};
}

bool hasHexPrefix(const std::string& text)
{
    return startsWith(text, "0x") || startsWith(text, "0X");
}

std::optional<uint64_t> numberOf(const std::string& text, int base)
{
    if (!consistsOf(text, base == 16 ? hexDigits : decimalDigits))
        return {};
    uint64_t value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return result.ec == std::errc{} ? value : UINT64_MAX;
}

std::string parseWord(const std::string& text)
{
    if (text.empty())
        refuse("must not be empty");
    return text;
}

std::string nodePath(const std::string& device, const std::string& prefix, bool isNumber)
{
    if (device.empty())
        refuse("the device name is empty");
    if (device.find('/') != std::string::npos)
        return device;
    return "/dev/" + (isNumber ? prefix : "") + device;
}

std::string hexDigitsOf(const std::string& what, const std::string& text, uint64_t most)
{
    if (hasHexPrefix(text) && consistsOf(text.substr(2), hexDigits))
        return text.substr(2);
    const auto wide = [](uint64_t value) { return hexNumber(value, value > 0xff ? 4 : 2); };
    const auto asHex = numberOf(text, 16);
    const auto decimal = numberOf(text, 10);
    std::string choices;
    if (asHex && *asHex <= most && text.size() <= 4)
        choices = (text.size() % 2 == 0 ? "0x" : "0x0") + text;
    if (decimal && *decimal <= most && wide(*decimal) != choices)
        choices += (choices.empty() ? "" : ", or ") + wide(*decimal) + " if decimal " + text + " is meant";
    if (choices.empty())
        refuse(what + " \"" + text + "\": write it in hex, such as 0x48");
    refuse(what + " " + text + ": write " + choices);
}

void checkSize(size_t size, size_t most, const std::string& unit)
{
    if (size > most)
        refuse(std::to_string(size) + " bytes: " + unit + " holds at most " + std::to_string(most));
}

std::string byteCount(size_t count)
{
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

size_t parseCount(const std::string& text, size_t most, const std::string& unit)
{
    const auto count = numberOf(text, 10);
    if (!count) {
        const uint64_t asHex = hasHexPrefix(text) ? numberOf(text.substr(2), 16).value_or(0) : 0;
        const bool meant = asHex > 0 && asHex <= most;
        refuse("count \"" + text + "\": counts are decimal" + (meant ? "; write " + std::to_string(asHex) : ""));
    }
    if (*count == 0)
        refuse("count " + text + ": must be at least 1");
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

ByteArray bytesToSend(const std::vector<std::string>& words, size_t most)
{
    ByteArray bytes = words == std::vector<std::string>{"-"} ? readWholeInput(most) : parseBytes(words);
    if (bytes.empty())
        refuse("no bytes to write");
    return bytes;
}

milliseconds parseSeconds(const std::string& name, const std::string& text)
{
    constexpr uint64_t most = 86400;
    const size_t point = std::min(text.find('.'), text.size());
    std::string fraction = text.substr(std::min(point + 1, text.size()));
    const auto seconds = numberOf(text.substr(0, point), 10);
    const bool wellFormed = seconds && (point == text.size() || (fraction.size() <= 3 && numberOf(fraction, 10)));
    fraction.resize(3, '0');
    const uint64_t value = wellFormed ? std::min(*seconds, most + 1) * 1000 + *numberOf(fraction, 10) : 0;
    if (value == 0 || value > most * 1000)
        refuse(name + " \"" + text + "\": must be 0.001 to " + std::to_string(most) + " seconds");
    return milliseconds{value};
}
