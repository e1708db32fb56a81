// Transfers as text and as JSON. Pure functions.
#pragma once

#include "base/Json.h"
#include "watch/Transfer.h"

#include <string>

namespace watch
{

/// "i2c-4", "spidev2.0"
std::string shortName(const Transfer& transfer);

/// "S 48 W 00 Sr 48 R 19 80 P"; long data is cut.
std::string trafficOf(const Transfer& transfer);

/// "250 us", "2.2 ms", "1.25 s"
std::string durationText(uint64_t nanoseconds);

/// "3.000250": seconds.
std::string secondsText(uint64_t nanoseconds);

/// "<time>  thermometer[192]  i2c-4  S 48 W 00 Sr 48 R 19 80 P  2.2 ms"; what was not recorded is in parentheses.
std::string textOf(const Transfer& transfer, const std::string& time);

/// @param time Seconds since 1970.
Fields fieldsOf(const Transfer& transfer, double time);

}  // namespace watch
