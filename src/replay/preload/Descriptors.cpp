#include "Preload.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

namespace replay::preload
{

namespace
{

constexpr int mostInherited = 256;

struct Slot {
    std::atomic<uint32_t> handle{0};
    BusKind bus{};
    uint64_t device = 0;
    uint64_t inode = 0;
};
Slot slots[mostDescriptors];
std::atomic<pid_t> owner{0};

/// Between vfork() and exec a child has the memory of its parent, whose descriptors stay as they are.
bool isOwner()
{
    return owner == getpid();
}

void afterForkInChild()
{
    owner = getpid();
}

void findInherited()
{
    for (int descriptor = 0; descriptor < mostInherited; ++descriptor) {
        struct stat status = {};
        if (NEXT(fstat)(descriptor, &status) != 0 || !(S_ISCHR(status.st_mode) || S_ISREG(status.st_mode)))
            continue;
        // In replay an I2C or SPI device is a file in memory without a link.
        if (S_ISREG(status.st_mode) && (mode() == Mode::record || status.st_nlink != 0))
            continue;
        Request request = {};
        request.kind = RequestKind::inherited;
        Buffer payload;
        payload.append(DescriptorId{status.st_dev, status.st_ino});
        Reply reply = {};
        Buffer none;
        if (ask(request, payload, reply, none) && reply.handle != 0)
            track(descriptor, {reply.handle, reply.bus});
    }
}

}  // namespace

Device deviceOf(int descriptor)
{
    if (descriptor < 0 || descriptor >= mostDescriptors)
        return {};
    const Slot& slot = slots[descriptor];
    const uint32_t handle = slot.handle;
    if (handle == 0)
        return {};
    // What closed it may have been a call inside the C library, and the number another's by now.
    const int saved = errno;
    struct stat status = {};
    const bool same =
        NEXT(fstat)(descriptor, &status) == 0 && status.st_dev == slot.device && status.st_ino == slot.inode;
    errno = saved;
    if (same)
        return {handle, slot.bus};
    forget(descriptor);
    return {};
}

void track(int descriptor, Device device)
{
    struct stat status = {};
    if (descriptor < 0 || descriptor >= mostDescriptors || !isOwner() || NEXT(fstat)(descriptor, &status) != 0)
        return;
    Slot& slot = slots[descriptor];
    slot.bus = device.bus;
    slot.device = status.st_dev;
    slot.inode = status.st_ino;
    slot.handle = device.handle;
}

void forget(int descriptor)
{
    if (descriptor >= 0 && descriptor < mostDescriptors && slots[descriptor].handle != 0 && isOwner())
        slots[descriptor].handle = 0;
}

void copyTrack(int from, int to)
{
    if (to < 0)
        return;
    const Device device = deviceOf(from);
    if (device.handle != 0)
        track(to, device);
    else
        forget(to);
}

[[gnu::constructor]] static void start()
{
    owner = getpid();
    if (!startConnection())
        return;
    pthread_atfork(nullptr, nullptr, afterForkInChild);
    findInherited();
}

}  // namespace replay::preload
