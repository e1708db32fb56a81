// Times every operation with Google Benchmark: the processor time of the calling thread, in user space and kernel, so
// that other processes do not count. The preparation and clean-up of a batch of runs is not timed.
#include "Operation.h"

#include <benchmark/benchmark.h>
#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>

#include <ctime>

static double processorSeconds()
{
    struct timespec now {
    };
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

static void timeBatches(benchmark::State& state, Operation& operation)
{
    while (state.KeepRunningBatch(static_cast<benchmark::IterationCount>(operation.batch))) {
        operation.before(operation.batch);
        const double start = processorSeconds();
        for (size_t i = 0; i < operation.batch; ++i) {
            operation.run();
        }
        state.SetIterationTime(processorSeconds() - start);
        operation.after(operation.batch);
    }
}

int main(int argc, char** argv)
{
    const log4cplus::Initializer initializer;
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);

    const Operations operations = allOperations();
    for (const auto& operation : operations) {
        benchmark::RegisterBenchmark(operation->label().c_str(), [&operation](benchmark::State& state) {
            timeBatches(state, *operation);
        })->UseManualTime();
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
