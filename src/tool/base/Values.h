// Parses the values that all buses have in common. Data on the wire is hexadecimal, counts are decimal. Pure functions;
// an invalid word throws a Failure that says what is valid.
#pragma once

#include <serialComm/SyncSerialBase.h>

#include <stddef.h>
#include <stdint.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

using std::chrono::milliseconds;

constexpr size_t maxBytes = 16 * 1024 * 1024;
constexpr auto hexDigits = "0123456789abcdefABCDEF";

[[noreturn]] void refuse(const std::string& message);

bool consistsOf(const std::string& text, const char* characters);
bool startsWith(const std::string& text, const std::string& start);

/// What follows `start` in the first line that begins with it; empty if there is none.
std::string restOfLine(const std::string& text, const std::string& start);

bool hasHexPrefix(const std::string& text);

/// The whole text as a number in base 10 or 16: UINT64_MAX if it does not fit, nothing for any other text.
std::optional<uint64_t> numberOf(const std::string& text, int base);

/// The word itself, which must not be empty.
std::string parseWord(const std::string& text);

/// The path of a device node: a number or a name becomes /dev/<prefix><number> or /dev/<name>, a path stays.
std::string nodePath(const std::string& device, const std::string& prefix, bool isNumber);

/// The digits after 0x, for a value up to `most`. A number without 0x is ambiguous: the Failure names both readings.
std::string hexDigitsOf(const std::string& what, const std::string& text, uint64_t most);

/// "1 byte", "2 bytes"
std::string byteCount(size_t count);

/// 1 to `most`. `unit` is what holds the bytes, for the message: "an I2C message".
size_t parseCount(const std::string& text, size_t most, const std::string& unit);

/// Throws when more than `most` bytes would go into one `unit`.
void checkSize(size_t size, size_t most, const std::string& unit);

/// Removes a final "+N" from the words and returns N; 0 if there is none.
size_t takePlusCount(std::vector<std::string>& words, size_t most, const std::string& unit);

/// The bytes of the words, or standard input for a lone "-"; at least one byte.
ByteArray bytesToSend(const std::vector<std::string>& words, size_t most);

/// Seconds with up to three decimals, 0.001 to 86400. `name` is their name in the message: "--deadline".
milliseconds parseSeconds(const std::string& name, const std::string& text);
