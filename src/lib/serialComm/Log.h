// The log of a source file: its handle on the logger, and the Enter and Leave lines. Not installed.
#pragma once

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include <string>

/// Text of a trace line, by the host's logging library. Where the process has no such function, a trace line carries
/// the bare signature.
[[gnu::weak]] std::string dbglog_scopedFunction(const std::string& signature, const std::string& module);

/// Each source file has its own handle, obtained when the library is loaded.
static log4cplus::Logger logger = log4cplus::Logger::getInstance("SerialComm");

static inline std::string scopedFunction(const std::string& signature)
{
    return dbglog_scopedFunction != nullptr ? dbglog_scopedFunction(signature, "SerialComm") : signature;
}

// One log statement, as log4cplus's own macros make it. A macro, since a record carries the name and line of the method
// that logs. What composes the line is a function of its own, so that a call that writes none saves no registers and
// carries no clean-up for one. `prepare` comes before the composing: it may log as well, and log4cplus has one message
// stream a thread.
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
