// Waits for the data-ready line of a sensor, then reads it: dataReady /dev/i2c-4 0x48 /dev/gpiochip0 17
// Needs libgpiod 1 (Debian 12); libgpiod 2 requests the line with gpiod::chip::prepare_request().
#include <serialComm/I2c.h>

#include <log4cplus/configurator.h>
#include <log4cplus/initializer.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include <gpiod.hpp>

int main(int argc, char* argv[])
{
    const log4cplus::Initializer log4cplusLife;
    log4cplus::BasicConfigurator::doConfigure(log4cplus::Logger::getDefaultHierarchy(), true);
    if (argc != 5) {
        std::fprintf(stderr, "usage: dataReady DEVICE ADDRESS GPIOCHIP LINE\n");
        return 2;
    }

    I2c sensor{argv[1], static_cast<int>(std::strtol(argv[2], nullptr, 0))};
    try {
        const gpiod::line ready =
            gpiod::chip{argv[3], gpiod::chip::OPEN_BY_PATH}.get_line(static_cast<unsigned>(std::atoi(argv[4])));
        ready.request({"dataReady", gpiod::line_request::EVENT_FALLING_EDGE, {}});
        if (!sensor.init())
            return EXIT_FAILURE;
        if (!ready.event_wait(std::chrono::seconds{2})) {  // requested before the measurement starts: no edge is missed
            std::fprintf(stderr, "dataReady: no edge within 2 s\n");
            return EXIT_FAILURE;
        }
        ready.event_read();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "dataReady: %s: %s\n", argv[3], error.what());
        return EXIT_FAILURE;
    }
    const ByteArray bytes = sensor.writeRead({0x00}, 2);
    if (bytes.empty())
        return EXIT_FAILURE;
    std::printf("%02x %02x\n", bytes[0], bytes[1]);
}
