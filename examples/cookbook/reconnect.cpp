// Prints each line that a serial port receives, and opens the port again when it was unplugged; ends at the line "end":
//     reconnect /dev/serial/by-id/usb-...
#include "LineReader.h"

#include <log4cplus/configurator.h>
#include <log4cplus/initializer.h>

#include <cstdio>
#include <cstdlib>
#include <thread>

int main(int argc, char* argv[])
{
    const log4cplus::Initializer log4cplusLife;
    log4cplus::BasicConfigurator::doConfigure(log4cplus::Logger::getDefaultHierarchy(), true);
    if (argc != 2) {
        std::fprintf(stderr, "usage: reconnect DEVICE\n");
        return 2;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

    Uart port{argv[1], 115200, 1, "none", true};
    for (;;) {
        while (!port.init())  // each attempt that fails logs an ERROR line
            std::this_thread::sleep_for(std::chrono::milliseconds{200});
        std::puts("connected");
        for (LineReader reader{port}; !reader.gone();) {
            const std::optional<std::string> line = reader.next(std::chrono::seconds{1});
            if (line == "end")
                return EXIT_SUCCESS;
            if (line)
                std::printf("[%s]\n", line->c_str());
        }
        std::puts("unplugged");
    }
}
