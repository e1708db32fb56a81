// Transfers bytes over a pseudo-terminal, reopens ports and opens ports that do not exist: soak MINUTES
// Prints its progress every ten seconds. Exits with 0 if memory and descriptors have not grown at the end.
#include "serialComm/Uart.h"

#include "support/Process.h"

#include <log4cplus/appender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

using Clock = std::chrono::steady_clock;

/// Keeps the slave's name, which the library reports only in the log.
class SlaveName : public log4cplus::Appender
{
public:
    ~SlaveName() override { destructorImpl(); }
    void close() override { closed = true; }
    std::string name;

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        const std::string& message = event.getMessage();
        name = message.substr(message.rfind(' ') + 1);
    }
};

static bool round(const std::string& slaveName, Uart& master)
{
    Uart slave{slaveName, 115200, 1, "none", true};
    if (!slave.init()) {
        return false;
    }
    const ByteArray sent(64, 0x55);
    for (int i = 0; i < 1000; ++i) {
        if (!master.write(sent) || slave.read(64) != sent || !slave.write(sent) || master.read(64) != sent) {
            return false;
        }
    }
    Uart missing{"/dev/no-such-port", 115200, 1, "none", true};
    return !missing.init() && slave.init();
}

int main(int argc, char** argv)
{
    const double minutes = argc == 2 ? std::atof(argv[1]) : 0;
    if (minutes <= 0) {
        std::fprintf(stderr, "soak: usage: soak MINUTES\n");
        return 2;
    }

    const log4cplus::Initializer log4cplus;
    const log4cplus::SharedAppenderPtr appender{new SlaveName};
    log4cplus::Logger logger = log4cplus::Logger::getInstance("SerialComm");
    logger.addAppender(appender);
    logger.setLogLevel(log4cplus::INFO_LOG_LEVEL);

    Uart master{"/dev/ptmx", 115200, 1, "none", true};
    if (!master.init()) {
        std::fprintf(stderr, "soak: cannot open /dev/ptmx; see the log\n");
        return 1;
    }
    const std::string slaveName = static_cast<SlaveName&>(*appender).name;
    logger.setLogLevel(log4cplus::OFF_LOG_LEVEL);

    long transfers = 0;
    const auto run = [&](Clock::duration span) {
        for (const Clock::time_point end = Clock::now() + span; Clock::now() < end; transfers += 4000) {
            if (!round(slaveName, master)) {
                std::fprintf(stderr, "soak: a transfer failed or returned wrong bytes after %ld transfers\n",
                             transfers);
                std::exit(1);
            }
        }
    };

    run(std::chrono::seconds{1});
    const Resources before = resourcesInUse();
    const Clock::time_point start = Clock::now();
    std::chrono::duration<double> elapsed{0};
    while (elapsed.count() < minutes * 60) {
        run(std::chrono::milliseconds{static_cast<int>(std::min(10.0, minutes * 60 - elapsed.count()) * 1000)});
        elapsed = Clock::now() - start;
        const Resources now = resourcesInUse();
        std::printf("%5.1f of %g minutes: %ld transfers, %ld KiB, %zu descriptors\n", elapsed.count() / 60, minutes,
                    transfers, now.residentKiB, now.descriptors);
        std::fflush(stdout);
    }

    const Resources after = resourcesInUse();
    if (after.descriptors != before.descriptors || after.residentKiB > before.residentKiB + 256) {
        std::fprintf(stderr, "soak: a leak: %zu descriptors and %ld KiB before, %zu and %ld after\n",
                     before.descriptors, before.residentKiB, after.descriptors, after.residentKiB);
        return 1;
    }
    return 0;
}
