#pragma once

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <utility>

/// Tells whether the library reported an ERROR on this thread. After a failed transfer an Spi returns what it returns
/// after a good one, so this is how a program knows.
///
/// It sees what the logger "SerialComm" lets through: with that logger's level above ERROR, nothing.
class ErrorWatch
{
public:
    ErrorWatch() { logger.addAppender(counter); }
    ~ErrorWatch() { logger.removeAppender(counter); }
    ErrorWatch(const ErrorWatch&) = delete;
    ErrorWatch& operator=(const ErrorWatch&) = delete;

    /// Whether there was an ERROR since the last question.
    bool failed() { return std::exchange(errors, 0) > 0; }

private:
    class Counter : public log4cplus::Appender
    {
    public:
        Counter() { setThreshold(log4cplus::ERROR_LOG_LEVEL); }
        ~Counter() override { destructorImpl(); }
        void close() override { closed = true; }

    protected:
        void append(const log4cplus::spi::InternalLoggingEvent&) override { ++errors; }
    };

    static inline thread_local int errors = 0;

    log4cplus::Logger logger = log4cplus::Logger::getInstance("SerialComm");
    log4cplus::SharedAppenderPtr counter{new Counter};
};
