// Registers of 16 bits: registers16 /dev/i2c-4 0x48
// The chip is a TMP105: register 2 holds its lower limit, high byte first, in 1/256 degrees Celsius.
#include <serialComm/I2c.h>

#include <log4cplus/configurator.h>
#include <log4cplus/initializer.h>

#include <cstdio>
#include <cstdlib>
#include <optional>

/// Reads a register of 16 bits. Chips that send the low byte first need bytes[1] << 8 | bytes[0].
static std::optional<uint16_t> readRegister16(I2c& chip, uint8_t reg)
{
    const ByteArray bytes = chip.writeRead({reg}, 2);
    if (bytes.empty())
        return std::nullopt;
    return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}

static bool writeRegister16(I2c& chip, uint8_t reg, uint16_t value)
{
    return chip.writeRegister(reg, {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)});
}

int main(int argc, char* argv[])
{
    const log4cplus::Initializer log4cplusLife;
    log4cplus::BasicConfigurator::doConfigure(log4cplus::Logger::getDefaultHierarchy(), true);
    if (argc != 3) {
        std::fprintf(stderr, "usage: registers16 DEVICE ADDRESS, such as: registers16 /dev/i2c-4 0x48\n");
        return 2;
    }

    I2c chip{argv[1], static_cast<int>(std::strtol(argv[2], nullptr, 0))};
    if (!chip.init())
        return EXIT_FAILURE;

    if (!writeRegister16(chip, 0x02, static_cast<uint16_t>(-5 * 256)))
        return EXIT_FAILURE;
    const std::optional<uint16_t> limit = readRegister16(chip, 0x02);
    if (!limit)
        return EXIT_FAILURE;
    std::printf("lower limit: %.1f degrees\n", static_cast<int16_t>(*limit) / 256.0);  // int16_t: two's complement
}
