// One transfer on a bus, as it is shown, saved and counted.
#pragma once

#include <session/Traffic.h>

#include <stdint.h>

#include <string>
#include <variant>
#include <vector>

namespace watch
{

/// Where a transfer happened: an I2C adapter, or a chip of an SPI bus.
struct Place {
    enum class Bus { i2c, spi };

    Bus bus = Bus::i2c;
    int number = 0;
    int chip = 0;  ///< SPI

    [[nodiscard]] bool operator<(const Place& other) const;
};

struct Transfer {
    Place place;
    uint64_t time = 0;      ///< ns, of the kernel's monotonic clock
    uint64_t duration = 0;  ///< ns
    int thread = 0;
    std::string process = {};  ///< the thread's name
    std::string device = {};   ///< "/dev/i2c-4"; "spi2.0" of a chip that has a kernel driver

    /// A byte that the kernel did not record has no value.
    std::variant<session::I2cTransfer, session::SpiTransfer> what;
    std::vector<size_t> lengths = {};  ///< of SPI's segments, whose unrecorded bytes end after 64 KiB
    std::string note = {};             ///< what was not recorded or not transferred: "1 of 2 messages not recorded"
    bool failed = false;               ///< without an errno: the kernel records none of SPI

    [[nodiscard]] const session::I2cTransfer* i2c() const { return std::get_if<session::I2cTransfer>(&what); }
    [[nodiscard]] const session::SpiTransfer* spi() const { return std::get_if<session::SpiTransfer>(&what); }

    /// Bytes that were transferred, of SPI in one direction.
    [[nodiscard]] size_t size() const;

    /// "ETIMEDOUT", or "failed" if the errno is not known; empty of a transfer that succeeded.
    [[nodiscard]] std::string errorName() const;
};

/// The bytes before the first that was not recorded.
std::vector<uint8_t> recorded(const session::Data& data);

}  // namespace watch
