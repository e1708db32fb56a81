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

size_t parseI2cCount(const std::string& text)
{
    return parseCount(text, maxI2cBytes, "an I2C message");
}

}  // namespace i2c
