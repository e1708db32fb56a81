#pragma once

#include "ScriptedKernel.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

/// A whole life of a device, from construction to destruction.
struct Life {
    const char* title;
    Script script;
    std::function<void(ScriptedKernel&)> call;
    const char* timeline;
};

inline void check(const std::string& file, const std::string& function, const std::vector<Life>& table)
{
    recordLog();
    for (const Life& row : table) {
        SCOPED_TRACE(row.title);
        ScriptedKernel kernel{row.script};
        kernel.expectLinesFrom(file, function);
        row.call(kernel);
        EXPECT_EQ(row.timeline, kernel.timeline());
    }
}

/// How a test makes, opens and closes a device: make(), opening() and closing() answer its descriptor as 7.
template <class Device>
struct Bench;

enum class State { open, closed };

/// One call on a device, open or never opened.
template <class Device>
struct Transfer {
    const char* title;
    State state;
    Script script;
    std::function<void(Device&, ScriptedKernel&)> call;
    const char* timeline;
};

/// Opens a device if wanted, calls, and destroys it; the timeline is that of the call alone.
template <class Device>
std::string timelineOf(State state, const Script& script, const std::string& file, const std::string& function,
                       const std::function<void(Device&, ScriptedKernel&)>& call)
{
    const bool open = state == State::open;
    std::optional<ScriptedKernel> kernel;
    Device device = Bench<Device>::make();
    if (open) {
        kernel.emplace(Bench<Device>::opening());
        EXPECT_TRUE(device.init());
    }

    kernel.emplace(script);
    kernel->expectLinesFrom(file, function);
    call(device, *kernel);
    std::string timeline = kernel->timeline();

    kernel.emplace(open ? Bench<Device>::closing() : Script{});
    return timeline;
}

template <class Device>
void check(const std::string& file, const std::string& function, const std::vector<Transfer<Device>>& table)
{
    recordLog();
    for (const Transfer<Device>& row : table) {
        SCOPED_TRACE(row.title);
        EXPECT_EQ(row.timeline, timelineOf<Device>(row.state, row.script, file, function, row.call));
    }
}
