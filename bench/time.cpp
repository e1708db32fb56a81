// Times every operation by Google Benchmark. What makes room or has bytes arrive for a batch of runs is not timed.
#include "Operation.h"

#include <benchmark/benchmark.h>
#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>

#include <chrono>

static void timeBatches(benchmark::State& state, Operation& operation)
{
    using Clock = std::chrono::steady_clock;
    while (state.KeepRunningBatch(static_cast<benchmark::IterationCount>(operation.batch))) {
        operation.before(operation.batch);
        const auto start = Clock::now();
        for (size_t i = 0; i < operation.batch; ++i) {
            operation.run();
        }
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
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
