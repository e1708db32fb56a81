#include "spi/Values.h"

#include <limits.h>

#include <optional>

namespace spi
{
namespace
{

/// A decimal number, multiplied by `k` if "k" follows it, or by k * k if "M" does: UINT64_MAX if it does not fit,
/// nothing for any other text.
std::optional<uint64_t> multipleOf(const std::string& text, uint64_t k)
{
    const char unit = text.empty() ? '\0' : text.back();
    const uint64_t factor = unit == 'k' ? k : unit == 'M' ? k * k : 1;
    const auto number = numberOf(factor == 1 ? text : text.substr(0, text.size() - 1), 10);
    if (!number)
        return {};
    return *number > UINT64_MAX / factor ? UINT64_MAX : *number * factor;
}

}  // namespace

std::string parseDevice(const std::string& text)
{
    return nodePath(text, "spidev", consistsOf(text, "0123456789."));
}

uint8_t parseMode(const std::string& text)
{
    const auto mode = hasHexPrefix(text) ? numberOf(text.substr(2), 16) : numberOf(text, 10);
    if (!mode || *mode > (hasHexPrefix(text) ? 0xff : 3))
        refuse("mode \"" + text + "\": must be 0 to 3, or the mode byte in hex, 0x00 to 0xff");
    return static_cast<uint8_t>(*mode);
}

int parseSpeed(const std::string& text)
{
    const auto speed = multipleOf(text, 1000);
    if (!speed)
        refuse("speed \"" + text + "\": must be in hertz, such as 500000, 500k or 10M");
    if (*speed == 0 || *speed > INT_MAX)
        refuse("speed " + text + ": must be 1 Hz to 2147 MHz");
    return static_cast<int>(*speed);
}

size_t parseSpiCount(const std::string& text)
{
    return parseCount(text, maxBytes, "an SPI transfer");
}

uint64_t parseFlashAddress(const std::string& text)
{
    const uint64_t address = text == "0" ? 0 : *numberOf(hexDigitsOf("address", text, UINT32_MAX), 16);
    if (address > UINT32_MAX)
        refuse("address " + text + ": at most 0xffffffff");
    return address;
}

uint64_t parseFlashSize(const std::string& what, const std::string& text)
{
    constexpr uint64_t most = uint64_t{UINT32_MAX} + 1;
    const auto size = multipleOf(text, 1024);
    if (!size)
        refuse(what + " \"" + text + "\": must be a number of bytes, such as 4096, 64k or 2M");
    if (*size == 0 || *size > most)
        refuse(what + " " + text + ": must be 1 byte to 4096M");
    return *size;
}

}  // namespace spi
