// Arguments to values. What goes on the wire is hexadecimal, what is counted is decimal. Pure functions: what can't be
// understood throws a Failure that says how to write it.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <chrono>
#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;

constexpr size_t maxBytes = 16 * 1024 * 1024;
constexpr size_t maxI2cBytes = 65535;

/// Device nodes: "4" or "i2c-4", "2.0" or "spidev2.0", "ttyUSB0" or "pty", or a path.
std::string i2cPath(const std::string& device);
std::string spiPath(const std::string& device);
std::string uartPath(const std::string& device);

int parseAddress(const std::string& text);

/// A register address goes out as wide as it is written, high byte first.
Bytes parseRegister(const std::string& text);

/// Hex pairs in any grouping: "de ad", "dead", "de:ad", "0xde 0xad".
Bytes parseBytes(const std::vector<std::string>& words);

/// 1 to `most`. `unit` is what carries the bytes, for the message: "an I2C message".
size_t parseCount(const std::string& text, size_t most, const std::string& unit);

/// Throws when more than `most` bytes would go into one `unit`.
void checkSize(size_t size, size_t most, const std::string& unit);

/// Takes "+N" off the end of the words, if it is there; 0 if not.
size_t takePlusCount(std::vector<std::string>& words, size_t most, const std::string& unit);

/// SPI mode: 0 to 3, or the mode byte in hex.
uint8_t parseMode(const std::string& text);

/// Hertz, with k and M understood.
int parseSpeed(const std::string& text);

int parseBaudRate(const std::string& text);
int parseStopBits(const std::string& text);
void checkParity(const std::string& text);

/// Words joined by blanks, with the escapes \r \n \t \\ \xNN.
Bytes parseText(const std::vector<std::string>& words);

/// "cr", "lf", "crlf" or "none" to the bytes of a line end.
Bytes parseLineEnd(const std::string& name);

/// Seconds in steps of 0.5.
std::chrono::milliseconds parseTimeout(const std::string& text);
