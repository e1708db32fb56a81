#include "i2c/Values.h"

#include "base/Bytes.h"

namespace i2c
{

std::string parseBus(const std::string& text)
{
    return nodePath(text, "i2c-", consistsOf(text, "0123456789"));
}

int parseAddress(const std::string& text)
{
    const uint64_t address = *numberOf(hexDigitsOf("address", text, 0x7f), 16);
    if (address > 0xff)
        refuse("address " + text + " is above 0x7f");
    if (address > 0x7f)
        refuse("address " + text + " is above 0x7f; data sheets that say " + hexNumber(address & 0xfe) +
               " to write and " + hexNumber(address | 1) + " to read mean " + hexNumber(address >> 1));
    return static_cast<int>(address);
}

ByteArray parseRegister(const std::string& text)
{
    std::string digits = text == "0" ? text : hexDigitsOf("register", text, UINT16_MAX);
    if (digits.size() == 1)
        digits.insert(0, "0");
    if (digits.size() == 3)
        refuse("register " + text + ": write 0x" + digits.substr(1) + " for one byte, 0x0" + digits + " for two");
    if (digits.size() > 4)
        refuse("register " + text + ": at most two bytes, as in 0x0123");
    return parseBytes({digits});
}

size_t registerNumber(const ByteArray& reg)
{
    size_t number = 0;
    for (const uint8_t byte : reg)
        number = number << 8 | byte;
    return number;
}

size_t parseI2cCount(const std::string& text)
{
    return parseCount(text, maxI2cBytes, i2cMessage);
}

Bits parseBits(const std::string& text)
{
    const size_t equals = text.find('=');
    const std::string mask = text.substr(0, equals);
    const std::string value = equals == std::string::npos ? "" : text.substr(equals + 1);
    if (!hasHexPrefix(mask) || !hasHexPrefix(value) || mask.size() != value.size())
        refuse("bits \"" + text + "\": MASK=VALUE in hex, both equally wide, such as 0x80=0x00");
    Bits bits{parseBytes({mask}), parseBytes({value})};
    if (!isWithinMask(bits))
        refuse("bits " + text + ": the value has bits outside the mask");
    return bits;
}

ByteArray parseMask(const std::string& text)
{
    ByteArray mask = parseBytes({text});
    if (mask.empty())
        refuse("mask \"" + text + "\": must be hex, as wide as BYTES");
    return mask;
}

bool matches(const ByteArray& bytes, const Bits& wanted)
{
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (((bytes[i] ^ wanted.value[i]) & wanted.mask[i]) != 0)
            return false;
    }
    return true;
}

bool isWithinMask(const Bits& bits)
{
    for (size_t i = 0; i < bits.value.size(); ++i) {
        if ((bits.value[i] & ~bits.mask[i]) != 0)
            return false;
    }
    return true;
}

}  // namespace i2c
