// SPDX-License-Identifier: Apache-2.0
#include "allocator.hpp"

#include <malloc.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>

// The allocator of the C library under its own names: the definitions below come first for every
// library.
extern "C"
{
    void* __libc_malloc(std::size_t size);
    void* __libc_calloc(std::size_t count, std::size_t size);
    void* __libc_realloc(void* block, std::size_t size);
    void* __libc_memalign(std::size_t alignment, std::size_t size);
    void __libc_free(void* block);
}

namespace
{

// No two threads allocate at once here.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): what malloc counts in
bench::Heap heap;

void* counted(void* block)
{
    if (block != nullptr)
    {
        ++heap.allocations;
        heap.bytes += static_cast<long>(malloc_usable_size(block));
        heap.highest = std::max(heap.highest, heap.bytes);
    }
    return block;
}

void* discounted(void* block)
{
    heap.bytes -= static_cast<long>(malloc_usable_size(block));
    return block;
}

} // namespace

bench::Heap& bench::heapOfProcess()
{
    return heap;
}

extern "C"
{

    void* malloc(std::size_t size)
    {
        return counted(__libc_malloc(size));
    }

    void* calloc(std::size_t count, std::size_t size)
    {
        return counted(__libc_calloc(count, size));
    }

    void* realloc(void* block, std::size_t size)
    {
        return counted(__libc_realloc(discounted(block), size));
    }

    void* memalign(std::size_t alignment, std::size_t size)
    {
        return counted(__libc_memalign(alignment, size));
    }

    void* aligned_alloc(std::size_t alignment, std::size_t size)
    {
        return memalign(alignment, size);
    }

    int posix_memalign(void** block, std::size_t alignment, std::size_t size)
    {
        *block = memalign(alignment, size);
        return *block == nullptr ? ENOMEM : 0;
    }

    void free(void* block)
    {
        __libc_free(discounted(block));
    }
}
