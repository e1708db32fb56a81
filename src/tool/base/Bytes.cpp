#include "base/Bytes.h"

#include "base/Failure.h"
#include "base/Values.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace
{

constexpr size_t bytesPerLine = 16;
constexpr auto separators = " \t\r\n:,";

uint8_t byteOf(const std::string& pair)
{
    return static_cast<uint8_t>(std::stoul(pair, nullptr, 16));
}

std::string inPairs(const std::string& evenDigits)
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
        message +=
            "; write " + inPairs("0" + run) + ", or " + inPairs(run.substr(0, run.size() - 1) + "0" + run.back());
    throw Failure{WrongCommandLine, message};
}

/// Appends "de", "dead" or "0xdead".
void addGroup(const std::string& group, ByteArray& bytes)
{
    const std::string run = hasHexPrefix(group) ? group.substr(2) : group;
    if (!consistsOf(run, hexDigits))
        throw Failure{WrongCommandLine, "bytes \"" + group + "\": not hex digits"};
    if (run.size() % 2 != 0)
        refuseOddDigits(group, run);
    for (size_t i = 0; i < run.size(); i += 2)
        bytes.push_back(byteOf(run.substr(i, 2)));
}

/// How many bytes the UTF-8 sequence at `text[at]` has; 0 where there is none, or one of the C1 controls.
size_t sequenceLength(const std::string& text, size_t at)
{
    const auto byte = [&](size_t i) { return at + i < text.size() ? static_cast<uint8_t>(text[at + i]) : uint8_t{0}; };
    const uint8_t first = byte(0);
    size_t length = 0;
    if (first >= 0x20 && first < 0x7f)
        return 1;
    if (first >= 0xc2 && first <= 0xdf)
        length = 2;
    else if (first >= 0xe0 && first <= 0xef)
        length = 3;
    else if (first >= 0xf0 && first <= 0xf4)
        length = 4;
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80)
            return 0;
    }
    const bool overlong = (first == 0xe0 && byte(1) < 0xa0) || (first == 0xf0 && byte(1) < 0x90);
    const bool surrogate = first == 0xed && byte(1) >= 0xa0;
    const bool tooLarge = first == 0xf4 && byte(1) >= 0x90;
    const bool control = first == 0xc2 && byte(1) < 0xa0;
    return overlong || surrogate || tooLarge || control ? 0 : length;
}

}  // namespace

std::string hexPair(unsigned int byte)
{
    constexpr auto digits = "0123456789abcdef";
    return {digits[byte >> 4 & 0xf], digits[byte & 0xf]};
}

std::string hexLine(const ByteArray& bytes)
{
    std::string line;
    line.reserve(bytes.size() * 3);
    for (const uint8_t byte : bytes)
        line += (line.empty() ? "" : " ") + hexPair(byte);
    return line;
}

std::string shortHex(const ByteArray& bytes)
{
    if (bytes.size() <= bytesPerLine)
        return hexLine(bytes);
    return hexLine({bytes.begin(), bytes.begin() + bytesPerLine}) + " ... (" + std::to_string(bytes.size()) + " bytes)";
}

std::string hexLines(const ByteArray& bytes)
{
    std::string lines;
    lines.reserve(bytes.size() * 3);
    for (size_t i = 0; i < bytes.size(); ++i) {
        const bool lastOfLine = (i + 1) % bytesPerLine == 0 || i + 1 == bytes.size();
        lines += hexPair(bytes[i]) + (lastOfLine ? '\n' : ' ');
    }
    return lines;
}

std::string hexDump(const ByteArray& bytes, size_t firstOffset, int digits)
{
    std::string lines;
    for (size_t i = 0; i < bytes.size(); i += bytesPerLine) {
        const ByteArray row(bytes.begin() + static_cast<std::ptrdiff_t>(i),
                            bytes.begin() + static_cast<std::ptrdiff_t>(std::min(i + bytesPerLine, bytes.size())));
        std::string hex = hexLine(row);
        hex.resize(bytesPerLine * 3 - 1, ' ');
        std::string text;
        for (const uint8_t byte : row)
            text += byte >= ' ' && byte <= '~' ? static_cast<char>(byte) : '.';
        lines.append(hexNumber(firstOffset + i, digits).substr(2))
            .append(": ")
            .append(hex)
            .append("    ")
            .append(text) += '\n';
    }
    return lines;
}

std::string hexNumber(uint64_t value, int width)
{
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "0x%0*llx", width, static_cast<unsigned long long>(value));
    return text.data();
}

std::string hexName(const ByteArray& bytes)
{
    std::string name = "0x";
    for (const uint8_t byte : bytes)
        name += hexPair(byte);
    return name;
}

ByteArray parseBytes(const std::vector<std::string>& words)
{
    ByteArray bytes;
    for (const std::string& word : words) {
        size_t at = 0;
        while ((at = word.find_first_not_of(separators, at)) != std::string::npos) {
            const size_t end = std::min(word.find_first_of(separators, at), word.size());
            addGroup(word.substr(at, end - at), bytes);
            at = end;
        }
    }
    return bytes;
}

std::string printable(const std::string& text)
{
    std::string line;
    for (size_t i = 0; i < text.size();) {
        const size_t length = sequenceLength(text, i);
        if (length == 0)
            line += "\\x" + hexPair(static_cast<uint8_t>(text[i]));
        else
            line += text.substr(i, length);
        i += std::max(length, size_t{1});
    }
    return line;
}
