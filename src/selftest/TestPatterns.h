// What a loopback test sends, and what the difference to what came back says about the fault.
#pragma once

#include <serialComm/SyncSerialBase.h>

#include <optional>
#include <string>
#include <vector>

struct TestBurst {
    std::string name;  ///< "55 aa, 16 bytes"
    ByteArray bytes;
};

/// The bursts of a loopback test, the same ones each time: every byte value, patterns that show stuck, swapped and
/// shifted bits, and unordered bytes in sizes around the usual FIFOs and buffers.
///
/// @param longest No burst has more bytes.
std::vector<TestBurst> testBursts(size_t longest);

struct Difference {
    enum class Kind {
        Nothing,   ///< No byte came back.
        AllOnes,   ///< Only ff came back.
        AllZeros,  ///< Only 00 came back.
        Late,      ///< All bits came back one bit later.
        Early,     ///< All bits came back one bit earlier.
        Lost,      ///< Bytes from `position` on are missing; all others are right.
        Added,     ///< There are more bytes from `position` on; all others are right.
        Changed,   ///< Anything else, first at `position`.
    };

    Kind kind = Kind::Nothing;
    size_t position = 0;          ///< Index of the first byte that differs.
    size_t count = 0;             ///< Bytes that differ, are missing or are too many.
    std::optional<uint8_t> sent;  ///< The byte at `position`; nothing behind the last one.
    std::optional<uint8_t> got;   ///< What came instead; nothing when too few came.
};

/// @return How what came back differs from what was sent; nothing if it does not.
std::optional<Difference> difference(const ByteArray& sent, const ByteArray& got);

/// "byte 17: sent 5a, got 5b; 1 byte of 64 differs"
std::string describe(const Difference& difference, size_t size);

/// What the difference suggests on a SPI bus with MOSI connected to MISO: "all ff: MISO floats"; empty if nothing.
std::string spiCause(Difference::Kind kind);
