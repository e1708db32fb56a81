#pragma once

#include "Common.h"

#include <string>

/// What is here, what it is, may I open it. `bus` is "i2c", "spi", "uart", or empty for all three.
void list(const Common& common, const std::string& bus);
