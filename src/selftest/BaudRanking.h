// Which baud rate a peer sends at, by what was received at several.
#pragma once

#include <serialComm/SyncSerialBase.h>

#include <vector>

/// What was received at one rate.
struct BaudSample {
    uint32_t baudRate = 0;
    ByteArray bytes;
    uint32_t framingErrors = 0;  ///< How far the driver's counter rose.
};

struct BaudScore {
    uint32_t baudRate = 0;
    size_t bytes = 0;
    uint32_t framingErrors = 0;
    double printable = 0;  ///< Share of printable ASCII, CR, LF and TAB, 0 to 1.
    double score = 0;      ///< 0 to 1: half for bytes without framing errors, half for text.
};

struct BaudRanking {
    std::vector<BaudScore> scores;  ///< The best first.
    bool decided = false;           ///< Whether the first is clearly better than the others.
};

/// Text is recognised by its bytes, binary data by framing errors: these show at rates above the right one. So binary
/// data stays undecided where the driver counts no framing errors, or no higher rate was tried. For binary data
/// "decided" means: among the rates tried. One that divides the right rate almost evenly (57600 for 250000) looks right
/// if that was left out.
BaudRanking rankBaudRates(const std::vector<BaudSample>& samples);
