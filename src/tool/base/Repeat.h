// --every, --count and -t: one result after the other from a device that stays open.
#pragma once

#include "base/Output.h"
#include "base/Verb.h"

#include <chrono>
#include <functional>
#include <string>

struct Repeat {
    milliseconds every{0};  ///< from the start of one to the start of the next
    size_t count = 0;       ///< 0: once, or without end where `every` is given
    bool times = false;

    /// How many results; 0 where there is no end.
    [[nodiscard]] size_t results() const { return count == 0 && every.count() == 0 ? 1 : count; }
};

/// "--every", "--count" and "-t", for a verb whose results have the forms of Grammar::output(..., true, true).
void describeRepeat(Grammar& grammar, Repeat& repeat);

/// What goes over the wire for all results; for one where there is no end.
std::string repeatedTraffic(const Repeat& repeat, const std::string& once);

/// Calls `once`, which hands one result to the output, as often as asked for. A result in hex is one line from then on.
void repeatedly(const Repeat& repeat, Output& output, const std::function<void()>& once);

/// Waits until then; throws Interrupted when a signal comes first.
void waitUntil(std::chrono::steady_clock::time_point then);
