// Parses the words of SPI verbs; an invalid word throws a Failure that says what is valid.
#pragma once

#include "base/Values.h"

#include <stdint.h>

#include <string>

namespace spi
{

/// "2.0", "spidev2.0" or a path, to a path.
std::string parseDevice(const std::string& text);

/// 0 to 3, or the mode byte of <linux/spi/spidev.h> in hex.
uint8_t parseMode(const std::string& text);

/// Hertz: "500000", "500k", "10M".
int parseSpeed(const std::string& text);

/// Bytes of one transfer.
size_t parseSpiCount(const std::string& text);

/// Address in a flash: hexadecimal, at most four bytes.
uint64_t parseFlashAddress(const std::string& text);

/// Bytes of a flash: "4096", "64k" (1024 bytes each), "2M". `what` is their name in the message.
uint64_t parseFlashSize(const std::string& what, const std::string& text);

}  // namespace spi
