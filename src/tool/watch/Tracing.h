// The kernel's recording: an instance of its own below /sys/kernel/tracing, which exists as long as the object.
#pragma once

#include "watch/Events.h"

#include <poll.h>
#include <stdint.h>
#include <sys/types.h>
#include <time.h>

#include <memory>
#include <string>
#include <vector>

struct tracefs_instance;

namespace watch
{

/// What is recorded. If no bus is named, all that the kernel can record.
struct Scope {
    std::vector<int> adapters;               ///< of I2C
    std::vector<std::pair<int, int>> chips;  ///< of SPI: bus and chip select
    bool i2cOnly = false;

    [[nodiscard]] bool wantsAll() const { return adapters.empty() && chips.empty(); }
    [[nodiscard]] bool wantsI2c() const { return wantsAll() || !adapters.empty(); }
    [[nodiscard]] bool wantsSpi() const { return !chips.empty() || (wantsAll() && !i2cOnly); }
};

/// What happened until a time, in its order.
struct Batch {
    std::vector<Event> events;
    uint64_t lost = 0;    ///< events that the kernel dropped
    uint64_t lostAt = 0;  ///< when, if some were: those after were recorded again
};

class Tracing
{
public:
    /// Removes what killed watches have left, makes an instance and starts recording.
    ///
    /// Throws a Failure that says what is missing: the file system, a permission or the events.
    explicit Tracing(const Scope& scope);
    Tracing(const Tracing&) = delete;
    Tracing& operator=(const Tracing&) = delete;
    ~Tracing();

    /// For poll(): readable when something was recorded. Those of processors that are switched off are left out: they
    /// only report that.
    [[nodiscard]] std::vector<struct pollfd> descriptors() const;

    /// What was recorded until a moment ago; what is younger is kept for the next call, because another processor may
    /// be about to record something older.
    Batch read();

    /// Whether read() has kept nothing.
    [[nodiscard]] bool isIdle() const { return pending.empty(); }

    /// Ends the recording and returns all that is left.
    Batch finish();

    /// The name by which the kernel knows a thread; empty if it does not.
    [[nodiscard]] static std::string threadName(int thread);

    /// ns of a clock; without an argument, of that of the events.
    static uint64_t now(clockid_t clock = CLOCK_MONOTONIC);

private:
    void enable(const std::string& bus, const std::string& filter);
    void openBuffers();
    void readBuffer(int fd);
    [[nodiscard]] uint64_t dropped() const;
    Batch take(uint64_t until);
    void remove();

    struct FreeInstance {
        void operator()(tracefs_instance* used) const;
    };
    std::string name;
    std::unique_ptr<tracefs_instance, FreeInstance> instance;
    Decoder decoder;
    std::vector<int> buffers;  ///< one for each processor
    std::vector<Event> pending;
    uint64_t lost = 0;      ///< as far as it was returned
    bool isLosing = false;  ///< since the last batch
    uint64_t lostAt = 0;
};

}  // namespace watch
