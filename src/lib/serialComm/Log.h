// Logging in a source file: the logger handle, log statements, Enter and Leave lines. Not installed.
#pragma once

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include <string>

/// Formats a function signature for trace lines. The host's logging library defines it; in a process without it, trace
/// lines contain the signature itself.
[[gnu::weak]] std::string dbglog_scopedFunction(const std::string& signature, const std::string& module);

/// Each source file has its own handle, which it obtains when the library is loaded.
static log4cplus::Logger logger = log4cplus::Logger::getInstance("SerialComm");

static inline std::string scopedFunction(const std::string& signature)
{
    return dbglog_scopedFunction != nullptr ? dbglog_scopedFunction(signature, "SerialComm") : signature;
}

// A log statement, equivalent to log4cplus's own macros. It is a macro because a log record contains the line and the
// signature of the method that logs. The message is composed in a cold lambda, so that a method saves no registers and
// has no cleanup code for lines that it does not write. `prepare` runs before the message is composed: it may log too,
// and log4cplus has only one message stream per thread.
#define LOG_LINE(level, prepare, message)                                                                       \
    do {                                                                                                        \
        if (logger.isEnabledFor(log4cplus::level##_LOG_LEVEL)) {                                                \
            [&](const char* signature) __attribute__((cold, noinline))                                          \
            {                                                                                                   \
                prepare;                                                                                        \
                LOG4CPLUS_MACRO_INSTANTIATE_OSTRINGSTREAM(line);                                                \
                line << message;                                                                                \
                log4cplus::detail::macro_forced_log(logger, log4cplus::level##_LOG_LEVEL, line.str(), __FILE__, \
                                                    __LINE__, signature);                                       \
            }                                                                                                   \
            (__PRETTY_FUNCTION__);                                                                              \
        }                                                                                                       \
    } while (false)

#define LOG(level, message) LOG_LINE(level, , message)

#define SCOPE_LINE(level, marker, rest) \
    LOG_LINE(level, const std::string scope = scopedFunction(signature), marker << scope << ": " << rest)

#define TRACE_ENTER(rest) SCOPE_LINE(TRACE, "Enter ", rest)
#define TRACE_LEAVE(rest) SCOPE_LINE(TRACE, "Leave ", rest)
#define INFO_LEAVE(rest) SCOPE_LINE(INFO, "Leave ", rest)
