#pragma once

#include "serialComm/testing/TestBus.h"

#include <array>
#include <cerrno>
#include <vector>

namespace serialComm::testing
{

/// A chip with 256 one-byte registers. It behaves as many chips do: the first byte sent is a register's number, and
/// bytes after it are written to that register and the next ones. On I2C, a read continues from there. On SPI, the top
/// bit of the number is set for a read, and the registers follow in the same transfer.
///
/// @code
/// serialComm::testing::RegisterChip chip;
/// chip.registers[0x0d] = 0x10;                              // the product's id
/// const ByteArray id = chip.writeRead({0x0d}, 1);           // in your test: the driver's calls
/// chip.failOnCall(2);
/// if (!chip.write({0x08, 0x07}))  // and an ERROR line in the log
///     return EXIT_FAILURE;
/// @endcode
class RegisterChip : public TestBus
{
public:
    /// A chip whose registers are 0.
    explicit RegisterChip(Kind bus = Kind::i2c) : TestBus(bus) {}

    /// What was written to a register and the ones after it.
    struct Written {
        uint8_t reg = 0;  ///< The first register.
        ByteArray bytes;  ///< What was written to it and the next ones.

        /// Whether the same was written.
        bool operator==(const Written& other) const { return reg == other.reg && bytes == other.bytes; }
    };

    std::array<uint8_t, 256> registers{};  ///< The contents, for the test to set and read.
    std::vector<Written> written;          ///< What each transfer has written, in their order.

    /// How many transfers there were.
    [[nodiscard]] size_t calls() const { return counted; }

    /// Makes one transfer fail.
    ///
    /// @param call Which one, counted from 1 since the object was made; 0 for none.
    /// @param error An errno, as in the log of SPI.
    void failOnCall(size_t call, int error = EIO);

    /// Opens the device: true.
    bool init() override { return true; }

private:
    Result transfer(const Transfer& transfer) override;
    int setSpeed(int) override { return 0; }

    size_t counted = 0;
    size_t failing = 0;
    int failure = EIO;
    uint8_t reg = 0;  // on I2C, where reading goes on
};

}  // namespace serialComm::testing
