// Parses the words of I2C verbs; an invalid word throws a Failure that says what is valid.
#pragma once

#include "base/Values.h"

#include <serialComm/SyncSerialBase.h>

#include <string>

namespace i2c
{

constexpr size_t maxI2cBytes = 65535;  // the kernel's field for a message's length has 16 bits
constexpr auto i2cMessage = "an I2C message";

/// "4", "i2c-4" or a path, to a path.
std::string parseBus(const std::string& text);

/// 0x00 to 0x7f.
int parseAddress(const std::string& text);

/// A register address is sent as wide as it is written, high byte first; a single digit is one byte.
ByteArray parseRegister(const std::string& text);

/// The register address as a number.
size_t registerNumber(const ByteArray& reg);

/// Bytes of one message.
size_t parseI2cCount(const std::string& text);

/// The required values of some bits of a register.
struct Bits {
    ByteArray mask;
    ByteArray value;
};

/// "0x80=0x00": MASK=VALUE, both as wide as what is read.
Bits parseBits(const std::string& text);

/// Hex pairs, at least one.
ByteArray parseMask(const std::string& text);

// The following expect byte arrays of equal length.

bool matches(const ByteArray& bytes, const Bits& wanted);

/// Whether the value has no bits outside the mask.
bool isWithinMask(const Bits& bits);

}  // namespace i2c
