// Sends one question to an instrument and prints its answer: instrument /dev/ttyUSB0 9600 "*IDN?"
#include "Instrument.h"

#include <log4cplus/configurator.h>
#include <log4cplus/initializer.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char* argv[])
{
    const log4cplus::Initializer log4cplusInitializer;
    log4cplus::BasicConfigurator::doConfigure(log4cplus::Logger::getDefaultHierarchy(), true);  // to standard error
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::INFO_LOG_LEVEL);

    if (argc != 4) {
        std::fprintf(stderr,
                     "usage: instrument DEVICE BAUD QUESTION, such as: instrument /dev/ttyUSB0 9600 \"*IDN?\"\n");
        return 2;
    }

    Uart port{argv[1], std::atoi(argv[2]), 1, "none", true};
    if (!port.init())
        return EXIT_FAILURE;  // the reason is in the log

    const std::optional<std::string> answer = Instrument{port}.ask(argv[3], std::chrono::seconds{5});
    if (!answer) {
        std::fprintf(stderr, "instrument: no answer\n");
        return EXIT_FAILURE;
    }
    std::printf("%s\n", answer->c_str());
}
