#include "ScriptedKernel.h"

#include <stdlib.h>

#include <new>

void* operator new(size_t size)
{
    ++counts().allocations;
    ++counts().blocks;
    if (void* memory = malloc(size)) {
        return memory;
    }
    throw std::bad_alloc{};
}

/// Needed because the sanitizers' own one does not match the operator delete below.
void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    try {
        return operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void operator delete(void* memory) noexcept
{
    counts().blocks -= memory != nullptr ? 1 : 0;
    free(memory);
}

void operator delete(void* memory, size_t /*size*/) noexcept
{
    operator delete(memory);
}
