// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/heap_ledger.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

using support::HeapLedger;

namespace
{

/** Out of the compiler's sight, which would see through a block that is only released. */
void* hidden(void* block)
{
    void* volatile kept = block;
    return kept;
}

TEST(HeapLedger, CountsWhatIsKeptOfEachKind)
{
    HeapLedger ledger;
    ledger.open();
    void* const plain = hidden(std::malloc(10));
    void* const zeroed = hidden(std::calloc(2, 10));
    void* const copy = hidden(strdup("text"));
    void* aligned = nullptr;
    const int error = posix_memalign(&aligned, 64, 64);
    char* written = nullptr;
    const int length = asprintf(&written, "%d", 4711);
    auto* const text = new std::string(100, 'x');
    const std::size_t all = ledger.kept();
    for (void* block : {plain, zeroed, copy, aligned, hidden(written)})
    {
        std::free(block);
    }
    delete text;
    const std::size_t none = ledger.kept();
    EXPECT_EQ(error, 0);
    EXPECT_EQ(length, 4);
    EXPECT_EQ(all, 7U);
    EXPECT_EQ(none, 0U);
    EXPECT_EQ(ledger.releasedTwice(), 0U);
}

TEST(HeapLedger, FollowsABlockThatIsResized)
{
    void* before = hidden(std::malloc(10));
    HeapLedger ledger;
    ledger.open();
    before = hidden(std::realloc(before, 100000));
    const std::size_t old = ledger.kept();
    void* within = hidden(std::malloc(10));
    within = hidden(std::realloc(within, 200000));
    const std::size_t grown = ledger.kept();
    void* const fresh = hidden(std::realloc(nullptr, 10));
    const std::size_t both = ledger.kept();
    std::free(before);
    std::free(within);
    std::free(fresh);
    const std::size_t none = ledger.kept();
    EXPECT_EQ(old, 0U);
    EXPECT_EQ(grown, 1U);
    EXPECT_EQ(both, 2U);
    EXPECT_EQ(none, 0U);
}

TEST(HeapLedger, EntersOnlyWhatIsAllocatedWhileItIsOpen)
{
    HeapLedger ledger;
    void* const before = hidden(std::malloc(10));
    ledger.open();
    void* const within = hidden(std::malloc(10));
    ledger.close();
    void* const after = hidden(std::malloc(10));
    const std::size_t kept = ledger.kept();
    std::free(before);
    std::free(within);
    std::free(after);
    const std::size_t none = ledger.kept();
    EXPECT_EQ(kept, 1U);
    EXPECT_EQ(none, 0U);
    EXPECT_EQ(ledger.olderReleased(), 0U);
}

TEST(HeapLedger, CountsOlderBlocksThatAreReleasedWhileItIsOpen)
{
    void* const first = hidden(std::malloc(10));
    void* const second = hidden(std::realloc(std::malloc(10), 1000));
    HeapLedger ledger;
    ledger.open();
    std::free(first);
    std::free(hidden(std::realloc(second, 100000)));
    EXPECT_EQ(ledger.olderReleased(), 2U);
    EXPECT_EQ(ledger.kept(), 0U);
}

TEST(HeapLedger, StopsABlockFromBeingReleasedTwice)
{
    HeapLedger ledger;
    ledger.open();
    // A number that it must read again each time, so that the compiler does not follow it.
    const volatile auto address = reinterpret_cast<std::uintptr_t>(std::malloc(10));
    const auto release = [&] {
        std::free(reinterpret_cast<void*>(address)); // NOLINT(performance-no-int-to-ptr)
    };
    release();
    const std::size_t once = ledger.releasedTwice();
    release();
    const std::size_t twice = ledger.releasedTwice();
    EXPECT_EQ(once, 0U);
    EXPECT_EQ(twice, 1U);
}

TEST(HeapLedger, DoesNotEnterWhatTheFakesKeep)
{
    support::FakeFiles files;
    files.put("/etc/file", "contents");
    HeapLedger ledger;
    ledger.open();
    std::FILE* const file = std::fopen("/etc/file", "re");
    const std::size_t opened = ledger.kept();
    std::fclose(file);
    EXPECT_GT(opened, 0U);
    EXPECT_EQ(ledger.kept(), 0U);
    EXPECT_EQ(files.openings().size(), 1U);
}

} // namespace
