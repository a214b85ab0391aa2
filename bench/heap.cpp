// SPDX-License-Identifier: Apache-2.0
//
// How often each operation allocates, what it leaves on the heap, and how deep its stack is,
// everything that it calls included. Writes one line for each operation: its name, then the
// allocations of a call, the bytes left behind by one and the bytes of stack, for the library and
// for the floor.
#include "allocator.hpp"
#include "operations.hpp"
#include "support/painted_stack.hpp"

#include <cstdlib>
#include <iostream>

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
    const bench::Heap before = bench::heapOfProcess();
    for (int i = 0; i < calls; ++i)
    {
        work();
    }
    const bench::Heap after = bench::heapOfProcess();
    std::cout << ' ' << static_cast<double>(after.allocations - before.allocations) / calls << ' '
              << static_cast<double>(after.bytes - before.bytes) / calls << ' '
              << support::stackOf(work);
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
