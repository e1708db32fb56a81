// SPI traffic: sent bytes above received bytes, with "-- x N" for N bytes that are dropped and [N] for N bytes that are
// kept.
#pragma once

#include "spi/ChipRequest.h"

#include <serialComm/SyncSerialBase.h>

#include <stddef.h>

#include <string>

namespace spi
{

std::string readTraffic(size_t count);
std::string writeTraffic(const ByteArray& bytes);
std::string exchangeTraffic(const ByteArray& bytes);
std::string writeReadTraffic(const ByteArray& bytes, size_t count);

/// "mode 0x00, 500000 Hz", or "mode as set" if the request does not set it.
std::string settingsLine(const ChipRequest& request);

/// For an opened device, whose mode is known: "mode 0x00 as set".
std::string settingsLine(const ChipRequest& request, uint8_t mode);

}  // namespace spi
