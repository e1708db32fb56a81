// Prints each line that a serial port receives, and opens the port again when it was unplugged; ends at the line "end":
//     reconnect /dev/serial/by-id/usb-...
#include <serialComm/LineReader.h>

#include <log4cplus/configurator.h>
#include <log4cplus/initializer.h>

#include <cstdio>
#include <cstdlib>
#include <string>
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
    Line line{argv[1]};
    for (;;) {
        while (!port.init() || !line.init())  // each attempt that fails logs an ERROR line
            std::this_thread::sleep_for(std::chrono::milliseconds{200});
        std::puts("connected");
        LineReader reader{port, line};
        for (bool gone = false; !gone;) {
            const std::optional<ByteArray> bytes = reader.until('\n', std::chrono::seconds{1}, &gone);
            if (!bytes)
                continue;
            const std::string text{bytes->begin(), bytes->end()};
            if (text == "end")
                return EXIT_SUCCESS;
            std::printf("[%s]\n", text.c_str());
        }
        std::puts("unplugged");
    }
}
