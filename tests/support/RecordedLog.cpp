#include "ScriptedKernel.h"

#include <dlfcn.h>

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>
#include <log4cplus/nullappender.h>
#include <log4cplus/spi/loggingevent.h>

#include <cerrno>

Counts& counts()
{
    static thread_local Counts counts;
    return counts;
}

class RecordingAppender : public log4cplus::Appender
{
public:
    ~RecordingAppender() override { destructorImpl(); }
    void close() override { closed = true; }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        if (ScriptedKernel* kernel = ScriptedKernel::ofThisThread()) {
            const std::string& level = log4cplus::getLogLevelManager().toString(event.getLogLevel());
            kernel->logged(level + " " + event.getMessage(), event.getFile(), event.getFunction());
        }
        errno = nonsense;
    }
};

void recordLog(log4cplus::LogLevel level)
{
    log4cplus::Logger logger = log4cplus::Logger::getInstance("SerialComm");
    logger.removeAllAppenders();
    logger.addAppender(log4cplus::SharedAppenderPtr{new RecordingAppender});
    logger.setAdditivity(false);
    logger.setLogLevel(level);

    log4cplus::Logger host = log4cplus::Logger::getInstance("Host");
    host.addAppender(log4cplus::SharedAppenderPtr{new log4cplus::NullAppender});
    host.setAdditivity(false);
}

/// Stands in for the host's function. It logs a line itself, because log4cplus has only one message stream per thread.
std::string dbglog_scopedFunction(const std::string& signature, const std::string& module)
{
    ++counts().scopesFormatted;
    LOG4CPLUS_FATAL(log4cplus::Logger::getInstance("Host"), "formatting " << signature);
    return module + "/" + signature;
}

/// Replaces log4cplus's own function: counts the calls and overwrites errno.
bool log4cplus::Logger::isEnabledFor(log4cplus::LogLevel level) const
{
    using IsEnabledFor = bool (*)(const log4cplus::Logger*, log4cplus::LogLevel);
    static const auto original =
        reinterpret_cast<IsEnabledFor>(dlsym(RTLD_NEXT, "_ZNK9log4cplus6Logger12isEnabledForEi"));
    ++counts().levelChecks;
    const bool enabled = original(this, level);
    errno = nonsense;
    return enabled;
}
