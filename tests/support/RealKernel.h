// For tests with the real kernel: the log lines of a test, pseudo-terminals, and signals.
#pragma once

#include "serialComm/Uart.h"

#include "support/Process.h"

#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

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

/// Collects the log lines of all threads.
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

    /// Opens a new pseudo-terminal and returns its slave's name from the log.
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

inline void waitUntilSleeping(pid_t thread)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds{10};
    while (!isSleeping(thread) && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds{1});
    }
}

/// While it lives, sends a signal to the thread that constructed it whenever that thread sleeps in a system call. The
/// handler is installed without SA_RESTART.
class Interrupter
{
public:
    Interrupter()
    {
        struct sigaction action {
        };
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, nullptr);
        sender = std::thread{[this, target = pthread_self(), thread = gettid()] {
            while (!done) {
                waitUntilSleeping(thread);
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
