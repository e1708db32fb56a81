// The log of a source file: its handle on the logger, and the Enter and Leave lines. Not installed.
#pragma once

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include <string>

/// Text of a trace line, by the host's logging library. Where the process has no such function, a trace line carries
/// the bare signature.
[[gnu::weak, gnu::visibility("default")]] std::string dbglog_scopedFunction(const std::string& signature,
                                                                            const std::string& module);

/// Each source file has its own handle, obtained when the library is loaded.
static log4cplus::Logger logger = log4cplus::Logger::getInstance("SerialComm");

inline std::string scopedFunction(const std::string& signature)
{
    return dbglog_scopedFunction != nullptr ? dbglog_scopedFunction(signature, "SerialComm") : signature;
}

// Macros, since a record carries the name and line of the method that logs. The statement itself is a function of its
// own, so that a call that writes no line saves no registers and carries no clean-up for one; the method's name goes
// along in `signature`, in place of that function's.
#undef LOG4CPLUS_MACRO_FUNCTION
#define LOG4CPLUS_MACRO_FUNCTION() signature

#define OUT_OF_LINE(statement)                                 \
    [&](const char* signature) __attribute__((cold, noinline)) \
    {                                                          \
        statement;                                             \
    }                                                          \
    (__PRETTY_FUNCTION__)

#define LOG(level, message) OUT_OF_LINE(LOG4CPLUS_##level(logger, message))

// The text of scopedFunction() is asked for before the message is composed: it may log as well, and log4cplus has one
// message stream a thread.
#define SCOPE_LINE(level, marker, detail)                                              \
    do {                                                                               \
        if (logger.isEnabledFor(log4cplus::level##_LOG_LEVEL)) {                       \
            OUT_OF_LINE(const std::string scope = scopedFunction(signature);           \
                        LOG4CPLUS_##level(logger, marker << scope << ": " << detail)); \
        }                                                                              \
    } while (false)

#define TRACE_ENTER(detail) SCOPE_LINE(TRACE, "Enter ", detail)
#define TRACE_LEAVE(detail) SCOPE_LINE(TRACE, "Leave ", detail)
#define INFO_LEAVE(detail) SCOPE_LINE(INFO, "Leave ", detail)
