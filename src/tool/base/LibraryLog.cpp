#include "base/LibraryLog.h"

#include "base/Failure.h"

#include <log4cplus/appender.h>
#include <log4cplus/configurator.h>
#include <log4cplus/consoleappender.h>
#include <log4cplus/hierarchy.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>

/// The text of a trace line is the operation as it is declared, without the word virtual.
[[gnu::visibility("default")]] std::string dbglog_scopedFunction(const std::string& signature,
                                                                 const std::string& /*module*/);

std::string dbglog_scopedFunction(const std::string& signature, const std::string& /*module*/)
{
    const std::string word = "virtual ";
    return signature.compare(0, word.size(), word) == 0 ? signature.substr(word.size()) : signature;
}

namespace
{

thread_local ErrorScope* scope = nullptr;

log4cplus::Logger libraryLogger()
{
    return log4cplus::Logger::getInstance("SerialComm");
}

/// Placed between the library's logger and the appenders that it had: sees every ERROR line, and passes on only what
/// the user asked for.
class ErrorAppender : public log4cplus::Appender
{
public:
    explicit ErrorAppender(log4cplus::Logger& logger)
        : userLevel(logger.getChainedLogLevel()), userAppenders(logger.getAllAppenders()), parent(logger.getParent()),
          additive(logger.getAdditivity() && !parent.getAllAppenders().empty())
    {
    }
    ~ErrorAppender() override { destructorImpl(); }
    ErrorAppender(const ErrorAppender&) = delete;
    ErrorAppender& operator=(const ErrorAppender&) = delete;

    void close() override { closed = true; }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        const int error = errno;
        if (scope != nullptr && event.getLogLevel() >= log4cplus::ERROR_LOG_LEVEL)
            scope->add(event.getMessage(), error);
        if (event.getLogLevel() < userLevel || (scope != nullptr && !scope->shows()))
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

/// log4cplus reads any file, follows "include" without end, and reports nothing that it cannot use.
void checkLogConfig(const std::string& path)
{
    struct stat status {
    };
    if (stat(path.c_str(), &status) != 0 || access(path.c_str(), R_OK) != 0)
        throw Failure{CannotOpen, (path.empty() ? "\"\"" : path) + ": " + strerror(errno)};
    if (!S_ISREG(status.st_mode))
        throw Failure{CannotOpen, path + ": " + (S_ISDIR(status.st_mode) ? strerror(EISDIR) : "not a regular file")};
    constexpr off_t most = 1'048'576;
    if (status.st_size > most)
        throw Failure{CannotOpen, path + ": larger than 1 MiB"};
    std::ifstream file{path};
    for (std::string line; std::getline(file, line);) {
        const std::string text = line.substr(std::min(line.find_first_not_of(" \t"), line.size()));
        if (text.compare(0, 7, "include") == 0)
            throw Failure{CannotOpen, path + ": \"include\" is not supported in a log configuration"};
    }
}

void configureFrom(const std::string& path)
{
    checkLogConfig(path);
    log4cplus::PropertyConfigurator::doConfigure(path);
    log4cplus::Logger::getDefaultHierarchy().enableAll();
    const log4cplus::Logger root = log4cplus::Logger::getRoot();
    if (root.getLogLevel() == log4cplus::NOT_SET_LOG_LEVEL)
        throw Failure{CannotOpen, path + ": the root logger has no valid level"};
    log4cplus::Logger logger = libraryLogger();
    const bool inherits = logger.getAdditivity() && !log4cplus::Logger{root}.getAllAppenders().empty();
    if (logger.getAllAppenders().empty() && !inherits)
        throw Failure{CannotOpen, path + ": no appender for the logger \"SerialComm\" or the root logger",
                      "log4cplus.rootLogger=DEBUG, NAME and log4cplus.appender.NAME=log4cplus::ConsoleAppender"};
}

}  // namespace

void setUpLog(int verbosity, const std::string& propertiesFile)
{
    log4cplus::Logger logger = libraryLogger();
    logger.removeAllAppenders();
    logger.setAdditivity(true);
    if (!propertiesFile.empty())
        configureFrom(propertiesFile);
    else if (verbosity > 0)
        showOnStandardError(logger, verbosity > 1 ? log4cplus::TRACE_LOG_LEVEL : log4cplus::DEBUG_LOG_LEVEL);
    else
        logger.setLogLevel(log4cplus::OFF_LOG_LEVEL);

    log4cplus::SharedAppenderPtr errors{new ErrorAppender{logger}};
    logger.removeAllAppenders();
    logger.setAdditivity(false);
    logger.setLogLevel(std::min(logger.getChainedLogLevel(), log4cplus::ERROR_LOG_LEVEL));
    logger.addAppender(errors);
}

std::string LibraryError::text() const
{
    const std::string cause = strerror(error);
    const bool named = error == 0 || message.find(cause) != std::string::npos;
    return named ? message : message + ": " + cause;
}

ErrorScope::ErrorScope(Visibility wanted) : visible(wanted), outer(scope)
{
    scope = this;
}

ErrorScope::~ErrorScope()
{
    scope = outer;
}

void ErrorScope::report(const std::string& message, int number)
{
    if (scope != nullptr)
        scope->add(message, number);
}

void ErrorScope::add(const std::string& message, int number)
{
    if (!error)
        error = LibraryError{message, number};
}
