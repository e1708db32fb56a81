// The parts of the preloaded library. The C++ library is not used, so that a C program does not load it.
#pragma once

#include "../Line.h"
#include "../Protocol.h"

#include <dlfcn.h>
#include <stddef.h>
#include <string.h>
#include <sys/types.h>

#include <atomic>

namespace replay
{
#pragma GCC visibility push(hidden)
namespace preload
{

/// The C library's function of this name, or another preloaded library's.
template <class Function>
Function* next(std::atomic<void*>& cache, const char* name)
{
    void* found = cache.load(std::memory_order_relaxed);
    if (found == nullptr) {
        found = dlsym(RTLD_NEXT, name);
        cache.store(found, std::memory_order_relaxed);
    }
    return reinterpret_cast<Function*>(found);
}

#define NEXT(name)                                    \
    (next<decltype(name)>(                            \
        []() -> std::atomic<void*>& {                 \
            static std::atomic<void*> cache{nullptr}; \
            return cache;                             \
        }(),                                          \
        #name))

/// Bytes that grow; short ones need no allocation.
class Buffer
{
public:
    Buffer() = default;
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    ~Buffer();

    /// Room for more bytes at the end.
    uint8_t* grow(size_t more);
    void append(const void* from, size_t count);
    template <class Record>
    void append(const Record& record)
    {
        append(&record, sizeof record);
    }

    [[nodiscard]] const uint8_t* data() const { return bytes; }
    [[nodiscard]] size_t size() const { return used; }

private:
    uint8_t space[2048];
    uint8_t* bytes = space;
    size_t capacity = sizeof space;
    size_t used = 0;
};

// The connection to the process that records or replays. It is made at the first use, anew after a fork.

/// When the library is loaded. False where the program is neither recorded nor replayed.
bool startConnection();

/// Whether there is one.
bool isConnected();
Mode mode();

/// Sends what needs no reply; errno stays as it is.
void report(Request request, const Buffer& payload);

/// Sends and waits for the reply, with its data and, where the reply has one, a descriptor that is closed on exec.
///
/// @return False when the other side is gone.
bool ask(Request request, const Buffer& payload, Reply& reply, Buffer& data, int* descriptor = nullptr);

/// The socket: closing it is not up to the program.
int socketDescriptor();
void moveSocket();

/// In replay, whether the session has the device, and whether it exists there.
bool isInSession(const char* path, bool& exists, BusKind& bus);
bool isNameInSession(const char* name);

// The descriptors of devices.

struct Device {
    uint32_t handle = 0;  ///< 0: none of ours.
    BusKind bus = BusKind::i2c;
};

/// The device that the descriptor is of.
Device deviceOf(int descriptor);
void track(int descriptor, Device device);
void forget(int descriptor);
void copyTrack(int from, int to);
constexpr int mostDescriptors = 4096;

/// Whether the path can be a device's at all.
bool mayBeDevice(const char* path);

/// The settings that an SPI device has; false where they cannot be had.
bool readSpi(int descriptor, uint32_t& mode, uint32_t& speedHz);

}  // namespace preload
#pragma GCC visibility pop
}  // namespace replay
