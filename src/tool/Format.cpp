#include "Format.h"

#include <algorithm>
#include <cstdio>

namespace
{

constexpr size_t bytesALine = 16;

std::string hexPair(unsigned int byte)
{
    constexpr auto digits = "0123456789abcdef";
    return {digits[byte >> 4 & 0xf], digits[byte & 0xf]};
}

std::string bracketed(size_t count)
{
    return "[" + std::to_string(count) + "]";
}

std::string withBlank(const std::string& text)
{
    return text.empty() ? "" : " " + text;
}

}  // namespace

std::string hexLine(const std::vector<uint8_t>& bytes)
{
    std::string line;
    line.reserve(bytes.size() * 3);
    for (const uint8_t byte : bytes)
        line += (line.empty() ? "" : " ") + hexPair(byte);
    return line;
}

std::string shortHex(const std::vector<uint8_t>& bytes)
{
    if (bytes.size() <= bytesALine)
        return hexLine(bytes);
    return hexLine({bytes.begin(), bytes.begin() + bytesALine}) + " ... (" + std::to_string(bytes.size()) + " bytes)";
}

std::string hexLines(const std::vector<uint8_t>& bytes)
{
    std::string lines;
    lines.reserve(bytes.size() * 3);
    for (size_t i = 0; i < bytes.size(); ++i) {
        const bool lastOfLine = (i + 1) % bytesALine == 0 || i + 1 == bytes.size();
        lines += hexPair(bytes[i]) + (lastOfLine ? '\n' : ' ');
    }
    return lines;
}

std::string hexNumber(unsigned int value, int width)
{
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%0*x", width, value);
    return text.data();
}

std::string registerName(const std::vector<uint8_t>& reg)
{
    std::string name = "0x";
    for (const uint8_t byte : reg)
        name += hexPair(byte);
    return name;
}

std::string dumpHeader()
{
    return "     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f    0123456789abcdef";
}

std::string dumpRow(unsigned int firstRegister, const Row& row)
{
    std::string line = hexPair(firstRegister) + ":";
    std::string text;
    for (const std::optional<uint8_t>& value : row) {
        line += ' ' + (value ? hexPair(*value) : "XX");
        text += !value ? 'X' : (*value >= ' ' && *value <= '~' ? static_cast<char>(*value) : '.');
    }
    return line + "    " + text;
}

std::string scanHeader()
{
    return "     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f";
}

std::string scanRow(unsigned int firstAddress, const std::array<Answer, 16>& answers)
{
    std::string line = hexPair(firstAddress) + ":";
    for (size_t i = 0; i < answers.size(); ++i) {
        switch (answers[i]) {
        case Answer::NotAsked:
            line += "   ";
            break;
        case Answer::None:
            line += " --";
            break;
        case Answer::Yes:
            line += ' ' + hexPair(firstAddress + static_cast<unsigned int>(i));
            break;
        case Answer::InUse:
            line += " UU";
            break;
        }
    }
    return line.substr(0, line.find_last_not_of(' ') + 1);
}

std::string i2cWriteTraffic(int address, const std::vector<uint8_t>& bytes)
{
    return "S " + hexPair(static_cast<unsigned int>(address)) + " W" + withBlank(shortHex(bytes)) + " P";
}

std::string i2cReadTraffic(int address, size_t count)
{
    return "S " + hexPair(static_cast<unsigned int>(address)) + " R " + bracketed(count) + " P";
}

std::string i2cWriteReadTraffic(int address, const std::vector<uint8_t>& bytes, size_t count)
{
    const std::string name = hexPair(static_cast<unsigned int>(address));
    return "S " + name + " W" + withBlank(shortHex(bytes)) + " Sr " + name + " R " + bracketed(count) + " P";
}

std::string spiTraffic(const std::vector<uint8_t>& sent, size_t padding, size_t lead, size_t count, uint8_t mode,
                       int speedHz)
{
    std::string mosi = "MOSI" + withBlank(shortHex(sent));
    if (padding > 0)
        mosi += " 00 x " + std::to_string(padding);
    std::string miso = "MISO";
    if (lead > 0)
        miso += " -- x " + std::to_string(lead);
    if (count > 0)
        miso += " " + bracketed(count);
    return mosi + "\n" + miso + "\nmode " + hexNumber(mode) + ", " + std::to_string(speedHz) + " Hz";
}

std::string lineSettings(int baudRate, const std::string& parity, int stopBits)
{
    const char letter = parity == "none" ? 'N' : (parity == "even" ? 'E' : 'O');
    return std::to_string(baudRate) + " 8" + letter + std::to_string(stopBits);
}
