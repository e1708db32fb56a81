// Words of I2C verbs to values; what cannot be understood throws a Failure that says how to write it.
#pragma once

#include "base/Values.h"

#include <serialComm/SyncSerialBase.h>

#include <string>

namespace i2c
{

constexpr size_t maxI2cBytes = 65535;  // the kernel's field for a message's length has 16 bits

/// "4", "i2c-4" or a path, to a path.
std::string parseBus(const std::string& text);

/// 0x00 to 0x7f.
int parseAddress(const std::string& text);

/// A register address is sent as wide as it is written, high byte first; a single digit is one byte.
ByteArray parseRegister(const std::string& text);

/// Bytes of one message.
size_t parseI2cCount(const std::string& text);

}  // namespace i2c
