#pragma once

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <thread>

/// Reports whether the library logged an ERROR on this thread since the watch was constructed. An Spi returns the same
/// after a failed transfer as after a successful one, so this is how a program notices the failure:
///
///     ErrorWatch watch;
///     bus.write(data);
///     if (watch.failed())
///         ...
///
/// Watches are independent of each other. They see only what the logger "SerialComm" lets through: nothing if that
/// logger's level is above ERROR.
class ErrorWatch
{
public:
    ErrorWatch() { logger.addAppender(appender); }
    ~ErrorWatch() { logger.removeAppender(appender); }
    ErrorWatch(const ErrorWatch&) = delete;
    ErrorWatch& operator=(const ErrorWatch&) = delete;

    /// Call it on the thread that constructed the watch.
    bool failed() const { return error; }

private:
    class ErrorAppender : public log4cplus::Appender
    {
    public:
        explicit ErrorAppender(bool& errorFlag) : error(errorFlag) { setThreshold(log4cplus::ERROR_LOG_LEVEL); }
        ~ErrorAppender() override { destructorImpl(); }
        void close() override { closed = true; }

    protected:
        void append(const log4cplus::spi::InternalLoggingEvent&) override
        {
            if (std::this_thread::get_id() == thread)
                error = true;
        }

    private:
        bool& error;
        const std::thread::id thread = std::this_thread::get_id();
    };

    bool error = false;
    log4cplus::Logger logger = log4cplus::Logger::getInstance("SerialComm");
    log4cplus::SharedAppenderPtr appender{new ErrorAppender{error}};
};
