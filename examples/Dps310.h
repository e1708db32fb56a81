#pragma once

#include <serialComm/SyncSerialBase.h>

#include <array>
#include <chrono>
#include <optional>
#include <thread>

/// A DPS310 barometer on I2C (address 0x77 or 0x76) or SPI (mode 3, at most 10 MHz), measuring once a second.
///
/// The registers are the same on both buses; only read() knows the difference. A failed read is empty on I2C and all
/// zeros on SPI, so every read includes bytes that cannot be zero, and settings are read back after they are written.
///
/// Not implemented: the product id (register 0x0d), which QEMU's model of the chip does not have, and the
/// manufacturer's correction for early chips that measure about 40 degrees too much.
class Dps310
{
public:
    enum class Bus { i2c, spi };

    struct Measurement {
        double celsius;
        double pascal;
    };

    Dps310(SyncSerialBase& serialBus, Bus busKind) : bus(serialBus), kind(busKind) {}

    /// Resets the chip, which takes 40 ms, and starts continuous measurement.
    ///
    /// @return false if the chip does not answer or has not finished starting.
    bool init()
    {
        if (!ready() || !write(0x0c, 0x09))
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds{40});
        const std::optional<uint8_t> flags = ready();
        if (!flags)
            return false;

        const ByteArray bytes = read(0x10, 25);
        if (bytes.empty() || bytes == ByteArray(25))
            return false;
        size_t bit = 0;
        for (size_t i = 0; i < factors.size(); bit += widths[i++])
            factors[i] = number(bytes, bit, widths[i]);
        const uint8_t sensor = bytes[24] & 0x80;  // which of the two thermometers the factors belong to

        if (!write(0x07, sensor) || !write(status, *flags | measuring))
            return false;
        ByteArray settings = read(0x06, 4);  // pressure, temperature, status, result shift
        if (settings.empty())
            return false;
        settings[2] &= 0x0f;
        return settings == ByteArray{0x00, sensor, measuring, 0x00};
    }

    /// Reads the latest measurement.
    ///
    /// @return Nothing if there is no new measurement since the last call or the bus failed.
    std::optional<Measurement> measure()
    {
        if (read(status, 1) != ByteArray{0xf0 | measuring})
            return std::nullopt;
        const ByteArray bytes = read(0x00, 9);  // pressure, temperature, settings, status
        if (bytes.empty() || (bytes[8] & 0x0f) != measuring)
            return std::nullopt;

        const double p = number(bytes, 0, 24) / 524288;
        const double t = number(bytes, 24, 24) / 524288;
        const auto [c0, c1, c00, c10, c01, c11, c20, c21, c30] = factors;
        return Measurement{c0 / 2 + c1 * t, c00 + p * (c10 + p * (c20 + p * c30)) + t * c01 + t * p * (c11 + p * c21)};
    }

private:
    static constexpr uint8_t status = 0x08;  // ready flags: factors 0x80, sensor 0x40, temperature 0x20, pressure 0x10
    static constexpr uint8_t measuring = 0x07;  // in the status register: measure both continuously
    static constexpr std::array<size_t, 9> widths{12, 12, 20, 20, 16, 16, 16, 16, 16};

    /// The status register if factors and sensor are ready; nothing otherwise, as with a line stuck high or low.
    std::optional<uint8_t> ready()
    {
        const ByteArray flags = read(status, 1);
        if (flags.empty() || (flags[0] & 0xc8) != 0xc0)
            return std::nullopt;
        return flags[0];
    }

    /// The two's complement number of `width` bits that starts at bit `first`, most significant bit first.
    static double number(const ByteArray& bytes, size_t first, size_t width)
    {
        int32_t value = 0;
        for (size_t i = first; i < first + width; ++i) {
            const int32_t bit = bytes[i / 8] >> (7 - i % 8) & 1;
            value = i == first ? -bit : 2 * value + bit;
        }
        return value;
    }

    ByteArray read(uint8_t reg, size_t len)
    {
        if (kind == Bus::i2c)
            return bus.writeRead({reg}, len);

        ByteArray reply = bus.writeRead({static_cast<uint8_t>(reg | 0x80)}, 1 + len);
        reply.erase(reply.begin());  // received while the register address was sent
        return reply;
    }

    bool write(uint8_t reg, uint8_t value) { return bus.write({reg, value}); }

    SyncSerialBase& bus;
    Bus kind;
    std::array<double, widths.size()> factors{};
};
