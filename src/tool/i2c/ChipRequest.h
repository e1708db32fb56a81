// What all verbs that talk to one chip have in common.
#pragma once

#include "base/Verb.h"
#include "i2c/Values.h"

#include <string>

namespace i2c
{

struct ChipRequest {
    std::string bus;
    int address = 0;
    bool anyAddress = false;
    bool force = false;
};

void describeChip(Grammar& grammar, ChipRequest& request);
void describeRegister(Grammar& grammar, ByteArray& reg);
void describeBytes(Grammar& grammar, std::vector<std::string>& words);
void check(const ChipRequest& request);

/// "device" and "address", with which each result in JSON begins.
Fields fieldsOf(const ChipRequest& request);

}  // namespace i2c
