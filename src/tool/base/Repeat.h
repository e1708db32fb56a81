// --every, --count and -t: repeated results from a device that stays open.
#pragma once

#include "base/Output.h"
#include "base/Verb.h"

#include <chrono>
#include <functional>
#include <string>

struct Repeat {
    milliseconds every{0};  ///< from the start of one to the start of the next
    size_t count = 0;       ///< 0: once, or until interrupted if `every` is given
    bool times = false;

    /// Number of results; 0: until interrupted.
    [[nodiscard]] size_t results() const { return count == 0 && every.count() == 0 ? 1 : count; }
};

/// "--every", "--count" and "-t", for a verb whose results have the forms of Grammar::output(..., true, true).
void describeRepeat(Grammar& grammar, Repeat& repeat);

/// The traffic of all results; of one result if there is no limit.
std::string repeatedTraffic(const Repeat& repeat, const std::string& once);

/// Calls `once`, which outputs one result, as often as requested. Each result in hex is one line.
void repeatedly(const Repeat& repeat, Output& output, const std::function<void()>& once);

/// Waits until `then`; throws Interrupted if a signal comes first.
void waitUntil(std::chrono::steady_clock::time_point then);
