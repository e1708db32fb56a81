// Values to text. Pure functions.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

/// "de ad": what can be pasted back as BYTES.
std::string hexLine(const std::vector<uint8_t>& bytes);

/// For a line about traffic: what is longer than 16 bytes is cut, with its length.
std::string shortHex(const std::vector<uint8_t>& bytes);

/// 16 bytes a line, each line with its end.
std::string hexLines(const std::vector<uint8_t>& bytes);

/// "0x48", or wider.
std::string hexNumber(unsigned int value, int width = 2);

/// A register as it was written: "0x10", "0x0010".
std::string registerName(const std::vector<uint8_t>& reg);

/// One row of 16 registers; nothing is where none answered.
using Row = std::array<std::optional<uint8_t>, 16>;
std::string dumpHeader();
std::string dumpRow(unsigned int firstRegister, const Row& row);

enum class Answer { NotAsked, None, Yes, InUse };
std::string scanHeader();
std::string scanRow(unsigned int firstAddress, const std::array<Answer, 16>& answers);

/// I2C traffic in the notation of the kernel's documentation: "S 48 W 00 Sr 48 R [2] P".
std::string i2cWriteTraffic(int address, const std::vector<uint8_t>& bytes);
std::string i2cReadTraffic(int address, size_t count);
std::string i2cWriteReadTraffic(int address, const std::vector<uint8_t>& bytes, size_t count);

/// What goes out above what comes in, and mode and speed. `lead` bytes come in unseen before `count` that are kept.
std::string spiTraffic(const std::vector<uint8_t>& sent, size_t padding, size_t lead, size_t count, uint8_t mode,
                       int speedHz);

/// "115200 8N1".
std::string lineSettings(int baudRate, const std::string& parity, int stopBits);
