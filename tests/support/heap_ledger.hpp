// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace support
{

/** HeapLedger keeps the books on the blocks that this thread allocates and releases while it is
 *  alive. There is one at a time in a program. */
class HeapLedger
{
public:
    HeapLedger();
    HeapLedger(const HeapLedger&) = delete;
    HeapLedger& operator=(const HeapLedger&) = delete;
    ~HeapLedger();

    /** Allocations between these two are entered; releases always count. */
    void open();
    void close();

    /** How many of the blocks that were entered have not been released. */
    [[nodiscard]] std::size_t kept() const;

    /** How many blocks were released between open and close that are older than the ledger: a
     *  block that is kept in their place, in a cache for example, is not a leak. */
    [[nodiscard]] std::size_t olderReleased() const;

    /** How often a block was released that had been released already. Such a release is not carried
     *  out, so that the test lives to tell. */
    [[nodiscard]] std::size_t releasedTwice() const;

    // What the replaced calls tell.

    /** `quietly`: by a fake, which may keep it. */
    void onAllocated(const void* block, bool quietly);
    void onResized(const void* block, const void* resized);
    /** False for a block that must not be released, since it has been already. */
    [[nodiscard]] bool onReleased(const void* block);

private:
    bool entering = false;
    std::size_t live = 0;
    std::size_t older = 0;
    std::size_t twice = 0;
};

} // namespace support
