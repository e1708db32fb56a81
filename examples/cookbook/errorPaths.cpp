// Sets the resolution of a TMP105 and reads it, with two mistakes or without: errorPaths careless|careful
#include <serialComm/I2c.h>

#include <log4cplus/configurator.h>
#include <log4cplus/initializer.h>

#include <cstdio>
#include <cstdlib>
#include <string>

static bool careless(I2c& sensor)
{
    sensor.writeRegister(0x01, {0x60});  // wrong: what if it fails?
    const ByteArray bytes = sensor.writeRead({0x00}, 2);
    const uint8_t* const first = bytes.data();
    std::printf("%02x %02x\n", first[0], first[1]);  // wrong: the result may be empty
    return true;
}

static bool careful(I2c& sensor)
{
    if (!sensor.writeRegister(0x01, {0x60}))
        return false;
    const ByteArray bytes = sensor.writeRead({0x00}, 2);
    if (bytes.empty())
        return false;
    std::printf("%02x %02x\n", bytes[0], bytes[1]);
    return true;
}

int main(int argc, char* argv[])
{
    const log4cplus::Initializer log4cplusLife;
    log4cplus::BasicConfigurator::doConfigure(log4cplus::Logger::getDefaultHierarchy(), true);
    if (argc != 2) {
        std::fprintf(stderr, "usage: errorPaths careless|careful\n");
        return 2;
    }

    I2c sensor{"/dev/i2c-4", 0x48};
    if (!sensor.init())
        return EXIT_FAILURE;
    const bool done = argv[1] == std::string{"careless"} ? careless(sensor) : careful(sensor);
    return done ? EXIT_SUCCESS : EXIT_FAILURE;
}
