// Prints each line that a serial port receives, until none has come for two seconds: lines /dev/ttyUSB0
#include "LineReader.h"

#include <log4cplus/configurator.h>
#include <log4cplus/initializer.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char* argv[])
{
    const log4cplus::Initializer log4cplusLife;
    log4cplus::BasicConfigurator::doConfigure(log4cplus::Logger::getDefaultHierarchy(), true);
    if (argc != 2) {
        std::fprintf(stderr, "usage: lines DEVICE\n");
        return 2;
    }

    Uart port{argv[1], 115200, 1, "none", true};
    if (!port.init())
        return EXIT_FAILURE;
    LineReader reader{port};
    while (const std::optional<std::string> line = reader.next(std::chrono::seconds{2}))
        std::printf("[%s]\n", line->c_str());
    return reader.gone() ? EXIT_FAILURE : EXIT_SUCCESS;
}
