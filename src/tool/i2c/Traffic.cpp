#include "i2c/Traffic.h"

#include "base/Bytes.h"

#include <session/Traffic.h>

namespace i2c
{

using session::I2cMessage;

static I2cMessage toWrite(int address, const ByteArray& bytes)
{
    return {static_cast<uint16_t>(address), false, false, 0, session::known(bytes)};
}

static I2cMessage toRead(int address, size_t count)
{
    return {static_cast<uint16_t>(address), false, true, 0, session::planned(count)};
}

static std::string text(const std::vector<I2cMessage>& messages)
{
    return session::toText(session::I2cTransfer{messages, 0}, session::Length::cut);
}

std::string writeTraffic(int address, const ByteArray& bytes)
{
    return text({toWrite(address, bytes)});
}

std::string readTraffic(int address, size_t count)
{
    return text({toRead(address, count)});
}

std::string writeReadTraffic(int address, const ByteArray& bytes, size_t count)
{
    return text({toWrite(address, bytes), toRead(address, count)});
}

std::string maskedWriteTraffic(int address, const ByteArray& reg, const ByteArray& mask, const ByteArray& bytes)
{
    ByteArray kept = mask;
    for (uint8_t& byte : kept)
        byte = static_cast<uint8_t>(~byte);
    std::string line = writeTraffic(address, reg);
    return line.insert(line.size() - 1, "(read & " + shortHex(kept) + " | " + shortHex(bytes) + ") ");
}

}  // namespace i2c
