// Files of what was watched: a capture that network analysers read, and a session. Pure functions.
#pragma once

#include "watch/Transfer.h"

#include <serialComm/SyncSerialBase.h>

#include <stdint.h>

#include <string>

namespace watch
{

/// The start of a pcap file of link type 209, I2C.
ByteArray captureHeader();

/// A packet for each message of an I2C transfer; nothing for SPI.
///
/// @param time Since 1970, in ns.
ByteArray packetsOf(const Transfer& transfer, uint64_t time);

/// Why a session cannot have this transfer; empty if it can.
std::string notReplayable(const Transfer& transfer);

/// The line of a session: a comment where it cannot be replayed. The clock of SPI is left out, which may have been
/// another one than was set up.
std::string sessionLine(const Transfer& transfer);

}  // namespace watch
