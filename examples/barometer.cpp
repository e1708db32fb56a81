// Prints one measurement of a DPS310, and logs the bytes on the bus, which is I2C or SPI:
//     barometer /dev/i2c-4 0x77
//     barometer /dev/spidev2.0
#include "Dps310.h"
#include "PayloadLog.h"

#include <serialComm/I2c.h>
#include <serialComm/Spi.h>

#include <log4cplus/configurator.h>
#include <log4cplus/initializer.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

int main(int argc, char* argv[])
{
    const log4cplus::Initializer log4cplusInitializer;
    log4cplus::BasicConfigurator::doConfigure(log4cplus::Logger::getDefaultHierarchy(), true);  // to standard error

    std::unique_ptr<SyncSerialBase> bus;
    if (argc == 3)
        bus = std::make_unique<I2c>(argv[1], static_cast<int>(std::strtol(argv[2], nullptr, 0)));
    else if (argc == 2)
        bus = std::make_unique<Spi>(argv[1], 1'000'000, 3);
    if (!bus) {
        std::fprintf(stderr, "usage: barometer I2C-DEVICE ADDRESS, or barometer SPI-DEVICE\n");
        return 2;
    }
    if (!bus->init())
        return EXIT_FAILURE;  // the reason is in the log

    PayloadLog payload{*bus};
    Dps310 sensor{payload, argc == 3 ? Dps310::Bus::i2c : Dps310::Bus::spi};
    if (!sensor.init()) {
        std::fprintf(stderr, "barometer: no DPS310 answers\n");
        return EXIT_FAILURE;
    }

    std::optional<Dps310::Measurement> measured = sensor.measure();
    for (int tries = 0; !measured && tries < 20; ++tries) {  // the chip measures once a second
        std::this_thread::sleep_for(std::chrono::milliseconds{100});
        measured = sensor.measure();
    }
    if (!measured) {
        std::fprintf(stderr, "barometer: the DPS310 delivers no measurement\n");
        return EXIT_FAILURE;
    }
    std::printf("%.2f degrees Celsius, %.2f hPa\n", measured->celsius, measured->pascal / 100);
}
