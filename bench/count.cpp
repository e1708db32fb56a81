// Counts the cost of one operation under valgrind: bench/count runs this program and reads the dumps, one for each
// operation and log level.
#include "Operation.h"

#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>
#include <valgrind/callgrind.h>

static const int repetitions = 100;

static void runOnce(Operation& operation)
{
    operation.before(1);
    CALLGRIND_TOGGLE_COLLECT;
    operation.run();
    CALLGRIND_TOGGLE_COLLECT;
    operation.after(1);
}

int main()
{
    const log4cplus::Initializer initializer;
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));

    const struct {
        const char* name;
        log4cplus::LogLevel level;
    } logs[] = {{"OFF", log4cplus::OFF_LOG_LEVEL},
                {"ERROR", log4cplus::ERROR_LOG_LEVEL},
                {"TRACE", log4cplus::TRACE_LOG_LEVEL}};

    root.setLogLevel(log4cplus::OFF_LOG_LEVEL);
    const Operations operations = allOperations();
    for (const auto& log : logs) {
        root.setLogLevel(log.level);
        for (const auto& operation : operations) {
            if (operation->contestant != "serialComm" && log.level != log4cplus::OFF_LOG_LEVEL) {
                continue;
            }
            runOnce(*operation);   // binds symbols and warms the heap
            CALLGRIND_DUMP_STATS;  // zeroes all counts, which CALLGRIND_ZERO_STATS does not
            for (int i = 0; i < repetitions; ++i) {
                runOnce(*operation);
            }
            const std::string label = operation->label() + "/" + log.name + "/" + std::to_string(repetitions);
            CALLGRIND_DUMP_STATS_AT(label.c_str());
        }
    }
}
