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

/// A write whose bytes depend on what was read before: "S 48 W 02 (read & f0 | 05) P".
std::string maskedWriteTraffic(int address, const ByteArray& reg, const ByteArray& mask, const ByteArray& bytes);

}  // namespace i2c
