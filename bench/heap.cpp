// SPDX-License-Identifier: Apache-2.0
//
// How often each operation allocates, and what it leaves on the heap, everything that it calls
// included. Writes one line for each operation: its name, then the allocations of a call and the
// bytes left behind by one, for the library and for the floor.
#include "operations.hpp"

#include <malloc.h>

#include <cerrno>
#include <cstdlib>
#include <iostream>

// The allocator of the C library under its own names: the program's definitions below come first
// for every library that it loads.
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

struct Heap
{
    long allocations = 0;
    long bytes = 0;
};

// One thread runs here.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): what malloc counts in
Heap heap;

void* counted(void* block)
{
    if (block != nullptr)
    {
        ++heap.allocations;
        heap.bytes += static_cast<long>(malloc_usable_size(block));
    }
    return block;
}

void* discounted(void* block)
{
    heap.bytes -= static_cast<long>(malloc_usable_size(block));
    return block;
}

} // namespace

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

namespace
{

/** What one call does on average, once everything that is made at a first call is there. */
void measure(const bench::Work& work)
{
    constexpr int warmUps = 4;
    constexpr int calls = 16;
    for (int i = 0; i < warmUps; ++i)
    {
        work();
    }
    const Heap before = heap;
    for (int i = 0; i < calls; ++i)
    {
        work();
    }
    const Heap after = heap;
    std::cout << ' ' << static_cast<double>(after.allocations - before.allocations) / calls << ' '
              << static_cast<double>(after.bytes - before.bytes) / calls;
}

} // namespace

int main()
{
    for (const bench::Operation& operation : bench::operations())
    {
        std::cout << operation.name;
        measure(operation.contenders.at(0).work);
        measure(operation.contenders.at(1).work);
        std::cout << '\n';
    }
    return EXIT_SUCCESS;
}
