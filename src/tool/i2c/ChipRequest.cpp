#include "i2c/ChipRequest.h"

#include "base/Bytes.h"
#include "i2c/Values.h"

namespace i2c
{

void describeChip(Grammar& grammar, ChipRequest& request)
{
    grammar.word("BUS", "4, i2c-4 or a path", request.bus, parseBus).complete(Candidates::I2cBuses);
    grammar.word("ADDR", "7-bit address of the chip, such as 0x48", request.address, parseAddress);
    grammar.flag("--any-address", "Allow the reserved addresses, 0x00 to 0x07 and 0x78 to 0x7f", request.anyAddress);
    grammar.flag("--force", "Talk to a chip even if a kernel driver is bound to it", request.force);
}

void describeRegister(Grammar& grammar, ByteArray& reg)
{
    grammar.word("REG", "Register: 0x10 is one byte, 0x0010 two, high byte first", reg, parseRegister);
}

void describeBytes(Grammar& grammar, std::vector<std::string>& words)
{
    grammar.words("BYTES", "Hex pairs: de ad, dead, de:ad; - for raw standard input", words);
}

void check(const ChipRequest& request)
{
    const bool reserved = request.address < 0x08 || request.address > 0x77;
    if (reserved && !request.anyAddress)
        refuse("address " + hexNumber(static_cast<unsigned int>(request.address)) +
               " is reserved by the I2C standard; --any-address uses it anyway");
}

Fields fieldsOf(const ChipRequest& request)
{
    return {{"device", request.bus}, {"address", hexNumber(static_cast<unsigned int>(request.address))}};
}

}  // namespace i2c
