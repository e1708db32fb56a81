// I2C traffic in the notation of the kernel's documentation: "S 48 W 00 Sr 48 R [2] P".
#pragma once

#include <serialComm/SyncSerialBase.h>

#include <stddef.h>

#include <string>

namespace i2c
{

std::string writeTraffic(int address, const ByteArray& bytes);
std::string readTraffic(int address, size_t count);
std::string writeReadTraffic(int address, const ByteArray& bytes, size_t count);

}  // namespace i2c
