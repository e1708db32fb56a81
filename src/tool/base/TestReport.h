// What a loopback test reports: each burst that came back different, and the totals.
#pragma once

#include "TestPatterns.h"

#include "base/Output.h"

#include <chrono>
#include <optional>
#include <string>

class TestReport
{
public:
    TestReport(std::string deviceName, Output& shown);

    /// Prints a burst that came back different; in JSON, every burst.
    ///
    /// @param time How long the burst took.
    void add(const TestBurst& burst, const std::optional<Difference>& different, std::chrono::nanoseconds time);

    /// Prints the totals. Throws a Failure if a burst came back different.
    void finish(const std::string& cause = {}, const std::string& remedy = {}) const;

    [[nodiscard]] size_t bursts() const { return count; }

private:
    [[nodiscard]] uint64_t bytesPerSecond() const;

    std::string device;
    Output& output;
    size_t count = 0;
    size_t failed = 0;
    size_t bytes = 0;
    std::chrono::nanoseconds duration{0};
};
