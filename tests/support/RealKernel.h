// For tests against the kernel itself: the log of a test, pseudo-terminals, and signals.
#pragma once

#include "serialComm/Uart.h"

#include <pthread.h>
#include <signal.h>
#include <string.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// Keeps the lines of all threads.
class LineAppender : public log4cplus::Appender
{
public:
    ~LineAppender() override { destructorImpl(); }
    void close() override { closed = true; }

    std::vector<std::string> take()
    {
        const std::lock_guard<std::mutex> guard{mutex};
        return std::exchange(lines, {});
    }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        const std::lock_guard<std::mutex> guard{mutex};
        lines.push_back(log4cplus::getLogLevelManager().toString(event.getLogLevel()) + " " + event.getMessage());
    }

private:
    std::mutex mutex;
    std::vector<std::string> lines;
};

class RealKernel : public testing::Test
{
protected:
    RealKernel()
    {
        log4cplus::Logger logger = log4cplus::Logger::getInstance("SerialComm");
        logger.removeAllAppenders();
        logger.addAppender(appender);
        logger.setAdditivity(false);
        logger.setLogLevel(log4cplus::INFO_LOG_LEVEL);
    }

    std::vector<std::string> lines() { return static_cast<LineAppender&>(*appender).take(); }

    /// Makes a pseudo-terminal and gives its slave's name, as a user finds it: in the log.
    std::string slaveOf(Uart& master)
    {
        EXPECT_TRUE(master.init());
        const std::vector<std::string> log = lines();
        EXPECT_THAT(log, testing::ElementsAre(testing::StartsWith("INFO UART slave pts: /dev/pts/")));
        return log.empty() ? "" : log[0].substr(strlen("INFO UART slave pts: "));
    }

private:
    log4cplus::SharedAppenderPtr appender{new LineAppender};
};

inline Uart newPseudoTerminal()
{
    return {"/dev/ptmx", 115200, 1, "none", true};
}

inline ByteArray bytes(const std::string& text)
{
    return {text.begin(), text.end()};
}

/// Sends signals, whose handler is installed without SA_RESTART, to the thread that makes it, as long as it lives; two
/// seconds at most.
class Interrupter
{
public:
    Interrupter()
    {
        struct sigaction action {
        };
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, nullptr);
        sender = std::thread{[this, target = pthread_self()] {
            for (int i = 0; i < 20 && !done; ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds{100});
                pthread_kill(target, SIGUSR1);
            }
        }};
    }
    ~Interrupter()
    {
        done = true;
        sender.join();
    }
    Interrupter(const Interrupter&) = delete;
    Interrupter& operator=(const Interrupter&) = delete;

private:
    std::atomic<bool> done{false};
    std::thread sender;
};
