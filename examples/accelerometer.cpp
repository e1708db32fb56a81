// Prints the acceleration that a LIS3DH measures, and the bytes on the bus; the chip may be on either bus:
//     accelerometer /dev/i2c-4 0x19
//     accelerometer /dev/spidev2.0
#include "Lis3dh.h"
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
    const log4cplus::Initializer log4cplusLife;
    log4cplus::BasicConfigurator::doConfigure(log4cplus::Logger::getDefaultHierarchy(), true);  // to standard error

    std::unique_ptr<SyncSerialBase> bus;
    if (argc == 3)
        bus = std::make_unique<I2c>(argv[1], static_cast<int>(std::strtol(argv[2], nullptr, 0)));
    else if (argc == 2)
        bus = std::make_unique<Spi>(argv[1], 1'000'000, 3);
    if (!bus) {
        std::fprintf(stderr, "usage: accelerometer I2C-DEVICE ADDRESS, or accelerometer SPI-DEVICE\n");
        return 2;
    }
    if (!bus->init())
        return EXIT_FAILURE;  // the log says why

    PayloadLog payload{*bus};
    Lis3dh sensor{payload, argc == 3 ? Lis3dh::Bus::i2c : Lis3dh::Bus::spi};
    if (!sensor.init()) {
        std::fprintf(stderr, "accelerometer: no LIS3DH answers\n");
        return EXIT_FAILURE;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds{20});  // the first value is there after 10

    const auto axes = sensor.acceleration();
    if (!axes)
        return EXIT_FAILURE;
    std::printf("x %+.3f g, y %+.3f g, z %+.3f g\n", (*axes)[0], (*axes)[1], (*axes)[2]);
}
