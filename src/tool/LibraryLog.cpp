#include "LibraryLog.h"

#include "Failure.h"

#include <log4cplus/appender.h>
#include <log4cplus/configurator.h>
#include <log4cplus/consoleappender.h>
#include <log4cplus/hierarchy.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <utility>

/// The text of a trace line is the operation as it is declared, without the word virtual.
std::string dbglog_scopedFunction(const std::string& signature, const std::string& /*module*/)
{
    const std::string word = "virtual ";
    return signature.compare(0, word.size(), word) == 0 ? signature.substr(word.size()) : signature;
}

namespace
{

std::optional<LibraryError> firstError;
std::string slaveName;

log4cplus::Logger libraryLogger()
{
    return log4cplus::Logger::getInstance("SerialComm");
}

/// Stands between the library's logger and the appenders that it had: listens to everything from INFO on, hands on only
/// what the user asked for.
class Listener : public log4cplus::Appender
{
public:
    explicit Listener(log4cplus::Logger& logger)
        : userLevel(logger.getChainedLogLevel()), userAppenders(logger.getAllAppenders()), parent(logger.getParent()),
          additive(logger.getAdditivity() && !parent.getAllAppenders().empty())
    {
    }
    ~Listener() override { destructorImpl(); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    void close() override { closed = true; }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        const int error = errno;
        const std::string& message = event.getMessage();
        if (event.getLogLevel() >= log4cplus::ERROR_LOG_LEVEL && !firstError)
            firstError = LibraryError{message, error};
        const std::string announcement = "UART slave pts: ";
        if (message.compare(0, announcement.size(), announcement) == 0)
            slaveName = message.substr(announcement.size());

        if (event.getLogLevel() < userLevel)
            return;
        for (const log4cplus::SharedAppenderPtr& appender : userAppenders)
            appender->doAppend(event);
        if (additive)
            parent.callAppenders(event);
    }

private:
    int userLevel;
    log4cplus::SharedAppenderPtrList userAppenders;
    log4cplus::Logger parent;
    bool additive;
};

void showOnStandardError(log4cplus::Logger& logger, int level)
{
    log4cplus::SharedAppenderPtr console{new log4cplus::ConsoleAppender{true, true}};
    console->setLayout(std::make_unique<log4cplus::PatternLayout>("%-5p %m%n"));
    logger.addAppender(console);
    logger.setAdditivity(false);
    logger.setLogLevel(level);
}

}  // namespace

void setUpLog(int verbosity, const std::optional<std::string>& propertiesFile)
{
    log4cplus::Logger logger = libraryLogger();
    if (propertiesFile) {
        const bool readable = access(propertiesFile->c_str(), R_OK) == 0;
        if (!readable || std::filesystem::is_directory(*propertiesFile))
            throw Failure{CannotOpen, (propertiesFile->empty() ? "\"\"" : *propertiesFile) + ": " +
                                          strerror(readable ? EISDIR : errno)};
        log4cplus::PropertyConfigurator::doConfigure(*propertiesFile);
        log4cplus::Logger::getDefaultHierarchy().enableAll();
        if (log4cplus::Logger::getRoot().getLogLevel() == log4cplus::NOT_SET_LOG_LEVEL)
            throw Failure{CannotOpen, *propertiesFile + ": the root logger has no valid level"};
    } else if (verbosity > 0) {
        showOnStandardError(logger, verbosity > 1 ? log4cplus::TRACE_LOG_LEVEL : log4cplus::DEBUG_LOG_LEVEL);
    } else {
        logger.setLogLevel(log4cplus::OFF_LOG_LEVEL);
    }

    log4cplus::SharedAppenderPtr listener{new Listener{logger}};
    logger.removeAllAppenders();
    logger.setAdditivity(false);
    logger.setLogLevel(std::min(logger.getChainedLogLevel(), log4cplus::INFO_LOG_LEVEL));
    logger.addAppender(listener);
}

std::string LibraryError::text() const
{
    const std::string cause = strerror(error);
    const bool named = error == 0 || message.find(cause) != std::string::npos;
    return named ? message : message + ": " + cause;
}

std::optional<LibraryError> takeLibraryError()
{
    return std::exchange(firstError, std::nullopt);
}

std::string announcedSlave()
{
    return slaveName;
}

QuietLibrary::QuietLibrary() : level(libraryLogger().getLogLevel())
{
    libraryLogger().setLogLevel(log4cplus::OFF_LOG_LEVEL);
}

QuietLibrary::~QuietLibrary()
{
    libraryLogger().setLogLevel(level);
}
