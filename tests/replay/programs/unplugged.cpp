// Transfers on SPI before and after a shell command that takes the driver away: unplugged DEVICE COMMAND
#include <serialComm/Spi.h>

#include <log4cplus/configurator.h>
#include <log4cplus/initializer.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char* argv[])
{
    const log4cplus::Initializer log4cplusLife;
    log4cplus::BasicConfigurator::doConfigure(log4cplus::Logger::getDefaultHierarchy(), true);
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::INFO_LOG_LEVEL);
    if (argc != 3)
        return 2;

    Spi bus{argv[1], 1'000'000, 0};
    if (!bus.init())
        return 1;
    const char* const commands[] = {argv[2], "true"};
    for (const char* command : commands) {
        for (const uint8_t byte : bus.writeRead({0x9f}, 4))
            std::printf("%02x ", byte);
        std::puts("");
        if (std::system(command) != 0)
            std::puts("the command failed");
    }
    bus.setMaxSpeed(500'000);
    return bus.init() ? 0 : 3;
}
