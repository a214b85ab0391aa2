// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace bench
{

/** What the allocator has handed out, in blocks and bytes, and the most bytes at any time. */
struct Heap
{
    long allocations = 0;
    long bytes = 0;
    long highest = 0;
};

/** Counted by `malloc` and the like, which this comes with. */
[[nodiscard]] Heap& heapOfProcess();

} // namespace bench
