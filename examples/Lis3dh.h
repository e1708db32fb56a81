#pragma once

#include <serialComm/SyncSerialBase.h>

#include <array>
#include <optional>

/// A LIS3DH acceleration sensor, on I2C (address 0x18 or 0x19) or on SPI (mode 3, 10 MHz at most).
///
/// The registers are the same on both. What differs is the byte in front, which names the register, and where in the
/// reply the register's bytes stand: on I2C the reply is those bytes alone, on SPI it begins with the byte that came in
/// while the first one went out.
class Lis3dh
{
public:
    enum class Bus { i2c, spi };

    Lis3dh(SyncSerialBase& serialBus, Bus busKind) : bus(serialBus), kind(busKind) {}

    /// Checks that the chip is there, and has it measure all three axes 100 times a second.
    bool init()
    {
        constexpr uint8_t whoAmI = 0x0f;
        constexpr uint8_t control = 0x20;
        return read(whoAmI, 1) == ByteArray{0x33} && write(control, 0x57) && read(control, 1) == ByteArray{0x57};
    }

    /// Acceleration along x, y and z in units of g; nothing when there is no new value or the bus failed. Both show in
    /// the status byte that is read along: a failed transfer is empty on I2C and all zeros on SPI.
    std::optional<std::array<double, 3>> acceleration()
    {
        constexpr uint8_t status = 0x27;  // followed by the axes, low byte first
        constexpr uint8_t newValues = 0x08;
        const ByteArray bytes = read(status, 7);
        if (bytes.empty() || (bytes[0] & newValues) == 0)
            return std::nullopt;

        std::array<double, 3> axes{};
        for (size_t i = 0; i < axes.size(); ++i)
            axes[i] = static_cast<int16_t>(bytes[2 + 2 * i] << 8 | bytes[1 + 2 * i]) / 16384.0;
        return axes;
    }

private:
    ByteArray read(uint8_t reg, size_t len)
    {
        if (kind == Bus::i2c)
            return bus.writeRead({static_cast<uint8_t>(reg | 0x80)}, len);  // 0x80: on to the next register

        ByteArray reply =
            bus.writeRead({static_cast<uint8_t>(reg | 0xc0)}, 1 + len);  // 0x80: read, 0x40: on to the next
        reply.erase(reply.begin());
        return reply;
    }

    bool write(uint8_t reg, uint8_t value) { return bus.write({reg, value}); }

    SyncSerialBase& bus;
    Bus kind;
};
