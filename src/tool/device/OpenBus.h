// A device opened by the library. Every transfer shows its traffic at -v, and returns its result or throws a Failure
// with the cause.
#pragma once

#include "base/Failure.h"
#include "base/LibraryLog.h"
#include "base/Output.h"
#include "base/Signals.h"

#include <string>
#include <utility>

template <typename Device>
class OpenBus
{
public:
    OpenBus(const OpenBus&) = delete;
    OpenBus& operator=(const OpenBus&) = delete;

    /// Makes `call` on the library's object. `longest` is the size of the longest message in bytes, which explains some
    /// errors.
    template <typename Call>
    auto transfer(const std::string& traffic, size_t longest, Call call)
    {
        throwIfSignalled();
        output.traffic(traffic);
        const ErrorScope errors;
        auto result = call(device);
        if (errors.first()) {
            throwIfSignalled();
            throw failure(longest, *errors.first());
        }
        return result;
    }

protected:
    template <typename... Arguments>
    OpenBus(Output& shown, const std::string& node, Arguments... arguments)
        : output(shown), path(node), device(path, arguments...)
    {
    }
    virtual ~OpenBus() = default;

    [[nodiscard]] virtual Failure failure(size_t longest, const LibraryError& error) const = 0;

    Output& output;
    std::string path;
    Device device;
};
