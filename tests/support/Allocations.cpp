#include "ScriptedKernel.h"

#include <stdlib.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <new>

/// Gigabytes that cost nothing: the same piece of memory over and over.
static void* sameMemoryOverAndOver(size_t size)
{
    constexpr size_t piece = size_t{64} << 20U;
    const int file = memfd_create("piece", 0);
    char* memory = nullptr;
    if (file >= 0 && ftruncate(file, piece) == 0) {
        memory = static_cast<char*>(mmap(nullptr, size + piece, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        for (size_t at = 0; at < size; at += piece) {
            mmap(memory + at, piece, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED | MAP_POPULATE, file, 0);
        }
    }
    syscall(SYS_close, file);
    return memory;
}

static bool isHuge(size_t size)
{
    return size >> 30U != 0;
}

void* operator new(size_t size)
{
    ++counts().allocations;
    ++counts().blocks;
    if (void* memory = isHuge(size) ? sameMemoryOverAndOver(size) : malloc(size)) {
        return memory;
    }
    throw std::bad_alloc{};
}

/// Where there is none here, the sanitizers have one that this release() does not fit.
void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    try {
        return operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

static void release(void* memory, size_t size)
{
    if (memory == nullptr) {
        return;
    }
    --counts().blocks;
    if (isHuge(size)) {
        munmap(memory, size);
    } else {
        free(memory);
    }
}

void operator delete(void* memory) noexcept
{
    release(memory, 0);
}

void operator delete(void* memory, size_t size) noexcept
{
    release(memory, size);
}
