// What all verbs that transfer bytes with a chip have in common.
#pragma once

#include "base/Verb.h"

#include <optional>
#include <string>

namespace spi
{

struct ChipRequest {
    std::string device;
    std::optional<uint8_t> mode;  ///< nothing: the mode that the device has
    int speedHz = 0;
};

void describeDevice(Grammar& grammar, std::string& device);

/// "--mode" and "--speed".
void describeSettings(Grammar& grammar, ChipRequest& request);

}  // namespace spi
