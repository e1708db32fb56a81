// An event loop with a serial port, standard input and a timer: eventLoop /dev/ttyUSB0
// A Uart has no descriptor for poll(2). A thread reads the port and passes the bytes through a pipe.
#include <serialComm/Uart.h>

#include <poll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <log4cplus/configurator.h>
#include <log4cplus/initializer.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>

int main(int argc, char* argv[])
{
    const log4cplus::Initializer log4cplusLife;
    log4cplus::BasicConfigurator::doConfigure(log4cplus::Logger::getDefaultHierarchy(), true);
    if (argc != 2) {
        std::fprintf(stderr, "usage: eventLoop DEVICE\n");
        return 2;
    }

    Uart port{argv[1], 115200, 1, "none", true};
    int received[2];
    const int timer = timerfd_create(CLOCK_MONOTONIC, 0);
    const itimerspec onceASecond{{1, 0}, {1, 0}};
    if (!port.init() || pipe(received) != 0 || timer < 0 || timerfd_settime(timer, 0, &onceASecond, nullptr) != 0)
        return EXIT_FAILURE;

    std::atomic<bool> running{true};
    std::thread reader([&] {
        while (running) {  // seen at the latest 0.5 s after the end of the loop
            const ByteArray bytes = port.read(256);
            if (!bytes.empty() && write(received[1], bytes.data(), bytes.size()) < 0)
                return;
        }
    });

    std::array<pollfd, 3> events{{{received[0], POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}, {timer, POLLIN, 0}}};
    std::array<uint8_t, 256> buffer{};
    while (running && poll(events.data(), events.size(), -1) > 0) {
        if (events[0].revents != 0) {
            const ssize_t size = read(received[0], buffer.data(), buffer.size());
            std::printf("%.*s", static_cast<int>(size), reinterpret_cast<const char*>(buffer.data()));
            std::fflush(stdout);
        }
        if (events[1].revents != 0) {
            const ssize_t size = read(STDIN_FILENO, buffer.data(), buffer.size());
            running = size > 0 && port.write({buffer.begin(), buffer.begin() + size});  // this thread may write
        }
        if (events[2].revents != 0) {
            uint64_t expirations = 0;
            if (read(timer, &expirations, sizeof expirations) > 0)
                std::fprintf(stderr, "tick\n");
        }
    }
    running = false;
    reader.join();
}
