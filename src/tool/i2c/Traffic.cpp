#include "i2c/Traffic.h"

#include "base/Bytes.h"

namespace i2c
{

static std::string name(int address)
{
    return hexPair(static_cast<unsigned int>(address));
}

static std::string written(int address, const ByteArray& bytes)
{
    return "S " + name(address) + " W" + (bytes.empty() ? "" : " ") + shortHex(bytes);
}

static std::string counted(size_t count)
{
    return " R [" + std::to_string(count) + "] P";
}

std::string writeTraffic(int address, const ByteArray& bytes)
{
    return written(address, bytes) + " P";
}

std::string readTraffic(int address, size_t count)
{
    return "S " + name(address) + counted(count);
}

std::string writeReadTraffic(int address, const ByteArray& bytes, size_t count)
{
    return written(address, bytes) + " Sr " + name(address) + counted(count);
}

std::string maskedWriteTraffic(int address, const ByteArray& reg, const ByteArray& mask, const ByteArray& bytes)
{
    ByteArray kept = mask;
    for (uint8_t& byte : kept)
        byte = static_cast<uint8_t>(~byte);
    return written(address, reg) + " (read & " + shortHex(kept) + " | " + shortHex(bytes) + ") P";
}

}  // namespace i2c
