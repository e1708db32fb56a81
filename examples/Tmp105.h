#pragma once

#include <serialComm/SyncSerialBase.h>

#include <optional>

/// A TMP105 temperature sensor, on I2C (address 0x48 or 0x49).
class Tmp105
{
public:
    explicit Tmp105(SyncSerialBase& i2c) : bus(i2c) {}

    /// Reads the temperature in degrees Celsius; nothing if the chip did not answer.
    ///
    ///     S Addr Wr [A] 00 [A] Sr Addr Rd [A] [high] A [low] NA P
    std::optional<double> celsius()
    {
        const ByteArray answer = bus.writeRead({0x00}, 2);
        if (answer.empty())
            return std::nullopt;
        return static_cast<int16_t>(answer[0] << 8 | answer[1]) / 256.0;  // two's complement, degrees in the high byte
    }

private:
    SyncSerialBase& bus;
};
