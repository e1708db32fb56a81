// The parts that traffic lines and the other lines of a session have in common. Each takes what comes next in the line.
#pragma once

#include "Traffic.h"
#include "Words.h"

namespace session
{

/// Whether a traffic line starts here.
bool startsTransfer(const Words& words);

/// @throws SyntaxError, as the others do
Transfer takeTransfer(Words& words);

/// The name of an error; `expected` tells all that may stand in its place.
int takeError(Words& words, const std::string& expected);

/// "500000 Hz", "500 kHz", "10 MHz".
uint32_t takeFrequency(Words& words);

/// What follows the word mode: "0x03, 500000 Hz", "as set".
void takeModeAndSpeed(Words& words, std::optional<uint32_t>& mode, std::optional<uint32_t>& speedHz);

/// "0x03"
std::string modeText(uint32_t mode);

}  // namespace session
