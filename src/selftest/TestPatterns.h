// The bytes that a loopback test sends, and what a difference in the received bytes says about the fault.
#pragma once

#include <serialComm/SyncSerialBase.h>

#include <optional>
#include <string>
#include <vector>

struct TestBurst {
    std::string name;  ///< "55 aa, 16 bytes"
    ByteArray bytes;
};

/// The bursts of a loopback test, always the same: every byte value, patterns that show stuck, swapped and shifted
/// bits, and pseudo-random bytes in sizes around those of common FIFOs and buffers.
///
/// @param longest No burst has more bytes.
std::vector<TestBurst> testBursts(size_t longest);

struct Difference {
    enum class Kind {
        Nothing,   ///< No byte came back.
        AllOnes,   ///< Only ff came back.
        AllZeros,  ///< Only 00 came back.
        Late,      ///< Everything came back one bit later.
        Early,     ///< Everything came back one bit earlier.
        Lost,      ///< `count` bytes are missing at `position`; all others are right.
        Added,     ///< `count` extra bytes came at `position`; all others are right.
        Changed,   ///< Anything else.
    };

    Kind kind = Kind::Nothing;
    size_t position = 0;          ///< Index of the first byte that differs.
    size_t count = 0;             ///< Number of bytes that differ, are missing or are extra.
    std::optional<uint8_t> sent;  ///< The byte sent at `position`; empty after the last one.
    std::optional<uint8_t> got;   ///< The byte received there; empty if too few came.
};

/// @return How the received bytes differ from those sent; empty if they do not.
std::optional<Difference> difference(const ByteArray& sent, const ByteArray& got);

/// "byte 17: sent 5a, got 5b; 1 byte of 64 differs"
std::string describe(const Difference& difference, size_t size);

/// The likely cause on a SPI bus with MOSI connected to MISO: "all ff: MISO floats"; empty if there is none.
std::string spiCause(Difference::Kind kind);
