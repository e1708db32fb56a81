// Bytes as hexadecimal text, in both directions. Pure functions.
#pragma once

#include <serialComm/SyncSerialBase.h>

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

/// "de"
std::string hexPair(unsigned int byte);

/// "de ad": can be pasted back as BYTES.
std::string hexLine(const ByteArray& bytes);

/// The first 16 bytes, and how many there are: "de ad ... (17 bytes)".
std::string shortHex(const ByteArray& bytes);

/// 16 bytes per line, each line with its newline.
std::string hexLines(const ByteArray& bytes);

/// Offset, hex and ASCII: "00000010: de ad be ef ...    ....". Offsets are `digits` wide.
std::string hexDump(const ByteArray& bytes, size_t firstOffset, int digits);

/// "0x48", at least `width` digits.
std::string hexNumber(uint64_t value, int width = 2);

/// "0x0010": the bytes as one number, as wide as they are.
std::string hexName(const ByteArray& bytes);

/// Hex pairs in any grouping: "de ad", "dead", "de:ad", "0xde 0xad". Throws a Failure that names the mistake.
ByteArray parseBytes(const std::vector<std::string>& words);

/// Text for a person in one line: control characters and everything that is not UTF-8 are shown as \xNN, so that text
/// from outside cannot move the cursor.
std::string printable(const std::string& text);
