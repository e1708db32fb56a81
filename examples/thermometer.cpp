// Prints the temperature of a TMP105: thermometer /dev/i2c-4 0x48
#include "Tmp105.h"

#include <serialComm/I2c.h>

#include <log4cplus/configurator.h>
#include <log4cplus/initializer.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char* argv[])
{
    const log4cplus::Initializer log4cplusInitializer;
    log4cplus::BasicConfigurator::doConfigure(log4cplus::Logger::getDefaultHierarchy(), true);  // to standard error
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::INFO_LOG_LEVEL);

    if (argc != 3) {
        std::fprintf(stderr, "usage: thermometer DEVICE ADDRESS, such as: thermometer /dev/i2c-4 0x48\n");
        return 2;
    }

    I2c bus{argv[1], static_cast<int>(std::strtol(argv[2], nullptr, 0))};
    if (!bus.init())
        return EXIT_FAILURE;  // the reason is in the log

    Tmp105 sensor{bus};
    const std::optional<double> celsius = sensor.celsius();
    if (!celsius)
        return EXIT_FAILURE;
    std::printf("%.1f degrees Celsius\n", *celsius);
}
