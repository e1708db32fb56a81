// Finds the baud rate of a peer from the bytes received at several rates.
#pragma once

#include <serialComm/SyncSerialBase.h>

#include <vector>

/// The bytes received at one rate.
struct BaudSample {
    uint32_t baudRate = 0;
    ByteArray bytes;
    uint32_t framingErrors = 0;  ///< Increase of the driver's counter.
};

struct BaudScore {
    uint32_t baudRate = 0;
    size_t bytes = 0;
    uint32_t framingErrors = 0;
    double printable = 0;  ///< Share of printable ASCII, CR, LF and TAB, 0 to 1.
    double score = 0;      ///< 0 to 1: one half for bytes without framing errors, one half for text.
};

struct BaudRanking {
    std::vector<BaudScore> scores;  ///< Best first.
    bool decided = false;           ///< Whether the first is clearly better than the others.
};

/// Text is recognised by its bytes, binary data by framing errors, which occur at rates above the right one. Binary
/// data is therefore undecided if the driver counts no framing errors or no higher rate was tried. "Decided" is
/// relative to the rates tried: if the right rate was not, one that divides it almost evenly (57600 for 250000) looks
/// right.
BaudRanking rankBaudRates(const std::vector<BaudSample>& samples);
