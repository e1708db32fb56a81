#include "base/Repeat.h"

#include "base/Signals.h"

#include <time.h>

#include <algorithm>

using std::chrono::steady_clock;

static size_t parseRepeatCount(const std::string& text)
{
    constexpr uint64_t most = 1'000'000;
    const uint64_t count = numberOf(text, 10).value_or(0);
    if (count == 0 || count > most)
        refuse("--count \"" + text + "\": must be 1 to " + std::to_string(most));
    return count;
}

void describeRepeat(Grammar& grammar, Repeat& repeat)
{
    grammar.option("--every", "S", "Repeat every S seconds; without --count, until interrupted", repeat.every,
                   [](const std::string& text) { return parseSeconds("--every", text); });
    grammar.option("--count", "N", "Repeat N times; without --every, without a pause", repeat.count, parseRepeatCount);
    grammar.flag("-t", "Time of day at the start of each line", repeat.times).exclude("--raw").exclude("--hexdump");
}

std::string repeatedTraffic(const Repeat& repeat, const std::string& once)
{
    std::string lines = once;
    for (size_t i = 1; i < repeat.results(); ++i)
        lines += '\n' + once;
    return lines;
}

void repeatedly(const Repeat& repeat, Output& output, const std::function<void()>& once)
{
    if (repeat.results() != 1 || repeat.times)
        output.startSeries(repeat.times);
    auto next = steady_clock::now();
    for (size_t i = 0; i < repeat.results() || repeat.results() == 0; ++i) {
        waitUntil(next);
        once();
        next = std::max(next + repeat.every, steady_clock::now());
    }
}

void waitUntil(steady_clock::time_point then)
{
    const auto sinceStart = then.time_since_epoch();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(sinceStart);
    const struct timespec deadline = {seconds.count(), std::chrono::nanoseconds{sinceStart - seconds}.count()};
    do {
        throwIfSignalled();
    } while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr) != 0);  // EINTR
    throwIfSignalled();
}
