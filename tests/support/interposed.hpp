// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/fake_device.hpp"
#include "support/heap_ledger.hpp"
#include "support/released_blocks.hpp"

#include <atomic>
#include <cstdint>

/** The link between the replaced calls of the operating system and the fakes. */
namespace support::interposed
{

/** Which allocation of this thread is to fail. */
struct Allocations
{
    /** Set when it has happened; null while nothing is to fail. */
    bool* failed = nullptr;
    /** How many allocations there are up to the failing one. */
    unsigned int remaining = 0;
    bool stayExhausted = false;
};

/** Which call to the operating system is to fail, as FailCall says. */
struct SystemCalls
{
    /** Set when it has happened; null while nothing is to fail. */
    bool* failed = nullptr;
    FailCall::Kind kind = FailCall::opening;
    int error = 0;
    unsigned int remaining = 0;
    bool stays = false;
};

/** Who keeps the books on the heap; null for nobody. Not entered is what is allocated quietly. */
struct Books
{
    HeapLedger* ledger = nullptr;
    ReleasedBlocks* released = nullptr;
    bool quiet = false;
};

// Of the executable itself, so that reaching them never allocates.
extern constinit thread_local Allocations allocations [[gnu::tls_model("initial-exec")]];
extern constinit thread_local SystemCalls systemCalls [[gnu::tls_model("initial-exec")]];
extern constinit thread_local Books books [[gnu::tls_model("initial-exec")]];

/** While alive, allocations of this thread are neither counted nor failed. */
class QuietAllocations
{
public:
    QuietAllocations() : kept{allocations}, wasQuiet{books.quiet}
    {
        allocations = {};
        books.quiet = true;
    }
    QuietAllocations(const QuietAllocations&) = delete;
    QuietAllocations& operator=(const QuietAllocations&) = delete;
    ~QuietAllocations()
    {
        allocations = kept;
        books.quiet = wasQuiet;
    }

private:
    Allocations kept;
    bool wasQuiet;
};

/** Opens a file of the machine, past the fakes. */
int realOpen(const char* path, int flags, mode_t mode);

/** Whether the clock is a fake one, and what it gives. */
bool clockStopped(std::int64_t& seconds);
bool clockBroken();

/** A descriptor, -1 with errno set, or FakeFiles::notMapped where the machine answers. The path of
 *  @p opening is still empty: keeping it takes memory. */
int openFake(const char* path, const Opening& opening);

/** 0, -1 with errno set, or FakeFiles::notMapped where the machine answers. */
int accessFake(const char* path, int mode);

/** The random device that is in effect; null for the machine's. */
FakeRandom* randomFake();

/** 0, or the error with which sending to the journal fails. */
int sendFake(std::string_view datagram);

} // namespace support::interposed
