// Two chips on one bus, each with an object and a thread of its own: twoThreads /dev/i2c-4
// The kernel serialises the transfers of a bus, so objects need no lock. Threads that share one object need a mutex.
#include <serialComm/I2c.h>

#include <log4cplus/configurator.h>
#include <log4cplus/initializer.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

int main(int argc, char* argv[])
{
    const log4cplus::Initializer log4cplusLife;
    log4cplus::BasicConfigurator::doConfigure(log4cplus::Logger::getDefaultHierarchy(), true);
    if (argc != 2) {
        std::fprintf(stderr, "usage: twoThreads DEVICE\n");
        return 2;
    }

    std::atomic<int> failures{0};
    const auto readOften = [&](const std::string& bus, int address) {
        I2c chip{bus, address};
        if (!chip.init())
            ++failures;
        for (int i = 0; i < 50; ++i)
            if (chip.writeRead({0x00}, 2).empty())
                ++failures;
    };
    std::thread sensor{readOften, argv[1], 0x48};
    std::thread eeprom{readOften, argv[1], 0x50};
    sensor.join();
    eeprom.join();
    std::printf("100 transfers, %d failures\n", failures.load());
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
