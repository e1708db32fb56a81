#pragma once

#include "ScriptedKernel.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>

/// Checks whole lives of a device, from construction to destruction; all lines come from one function.
struct Lives {
    std::string file;
    std::string function;

    void operator()(const char* title, const Script& script, const std::function<void(ScriptedKernel&)>& call,
                    const std::string& timeline) const
    {
        SCOPED_TRACE(title);
        recordLog();
        ScriptedKernel kernel{script};
        kernel.expectLinesFrom(file, function);
        call(kernel);
        EXPECT_EQ(timeline, kernel.timeline());
    }
};

/// How a test makes, opens and closes a device: make(), opening() and closing() answer its descriptor as 7.
template <class Device>
struct Bench;

enum class State { open, closed };

/// Checks single calls on a device, opened before if wanted; the timeline is that of the call alone.
template <class Device>
struct Transfers {
    std::string file;
    std::string function;

    void operator()(const char* title, State state, const Script& script,
                    const std::function<void(Device&, ScriptedKernel&)>& call, const std::string& timeline) const
    {
        SCOPED_TRACE(title);
        recordLog();
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
        EXPECT_EQ(timeline, kernel->timeline());

        kernel.emplace(open ? Bench<Device>::closing() : Script{});
    }
};
