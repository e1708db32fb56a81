// Prints each line that a serial port receives, until none has come for two seconds: lines /dev/ttyUSB0
#include <serialComm/LineReader.h>

#include <log4cplus/configurator.h>
#include <log4cplus/initializer.h>

#include <cstdio>
#include <cstdlib>
#include <string>

int main(int argc, char* argv[])
{
    const log4cplus::Initializer log4cplusLife;
    log4cplus::BasicConfigurator::doConfigure(log4cplus::Logger::getDefaultHierarchy(), true);
    if (argc != 2) {
        std::fprintf(stderr, "usage: lines DEVICE\n");
        return 2;
    }

    Uart port{argv[1], 115200, 1, "none", true};
    Line line{argv[1]};
    if (!port.init() || !line.init())
        return EXIT_FAILURE;
    LineReader reader{port, line};
    bool failed = false;
    while (const auto bytes = reader.until('\n', std::chrono::seconds{2}, &failed)) {
        std::string text{bytes->begin(), bytes->end()};
        if (!text.empty() && text.back() == '\r')
            text.pop_back();
        std::printf("[%s]\n", text.c_str());
    }
    return failed ? EXIT_FAILURE : EXIT_SUCCESS;  // the port is gone, or it is only silent
}
