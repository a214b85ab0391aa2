// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/machine.hpp"
#include "support/owners.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>

#include <cstdint>

using namespace support;

namespace
{

/** The exit status of a child whose memory is exhausted while it runs @p body. */
template <typename Body>
int statusWithoutMemory(const Body& body)
{
    return exitStatusOf([&] {
        const FailAllocation failure{1};
        body();
    });
}

} // namespace

TEST(FailFastAllocation, GivesMemoryOfTheRequestedSize)
{
    const HeapBytes block{static_cast<unsigned char*>(o2_ff_malloc(3, "caller", 1))};
    std::memcpy(block.get(), "ab", 3);
    EXPECT_STREQ(reinterpret_cast<char*>(block.get()), "ab");
}

TEST(FailFastAllocation, GivesZeroedMemory)
{
    const HeapBytes block{static_cast<unsigned char*>(o2_ff_calloc(4, 2, "caller", 1))};
    EXPECT_EQ(std::memcmp(block.get(), "\0\0\0\0\0\0\0\0", 8), 0);
}

TEST(FailFastAllocation, KeepsTheBytesOfAGrownBlock)
{
    void* block = o2_ff_malloc(2, nullptr, 0);
    std::memcpy(block, "a", 2);
    const HeapText grown{static_cast<char*>(o2_ff_realloc(block, 4096, nullptr, 0))};
    EXPECT_STREQ(grown.get(), "a");
    const HeapText fresh{static_cast<char*>(o2_ff_realloc(nullptr, 16, nullptr, 0))};
    EXPECT_NE(fresh, nullptr);
}

TEST(FailFastAllocation, CopiesAText)
{
    const char source[] = "text";
    const HeapText copy{o2_ff_strdup(source, "caller", 1)};
    EXPECT_STREQ(copy.get(), "text");
    EXPECT_NE(copy.get(), source);
}

TEST(FailFastAllocation, GivesNullForANullTextWithoutAllocating)
{
    FailAllocation failure{1};
    char* copy = o2_ff_strdup(nullptr, "caller", 1);
    EXPECT_FALSE(failure.reached());
    EXPECT_EQ(copy, nullptr);
}

TEST(FailFastAllocation, EndsTheProcessWhenMemoryIsExhausted)
{
    EXPECT_EQ(statusWithoutMemory([] { (void)o2_ff_malloc(8, "caller", 1); }), 255);
    EXPECT_EQ(statusWithoutMemory([] { (void)o2_ff_calloc(2, 4, "caller", 1); }), 255);
    EXPECT_EQ(statusWithoutMemory([] { (void)o2_ff_realloc(nullptr, 8, "caller", 1); }), 255);
    EXPECT_EQ(statusWithoutMemory([] { (void)o2_ff_strdup("text", "caller", 1); }), 255);
}

TEST(FailFastAllocation, EndsTheProcessWhenCountTimesSizeDoesNotFit)
{
    EXPECT_EQ(exitStatusOf([] { (void)o2_ff_calloc(SIZE_MAX / 2, 4, "caller", 1); }), 255);
}

TEST(FailFastAllocation, RunsNoExitHandlers)
{
    EXPECT_EQ(exitStatusOf([] {
                  // Before the failure is set: with many handlers, registering one allocates.
                  std::atexit([] { _exit(3); });
                  const FailAllocation failure{1};
                  (void)o2_ff_malloc(8, "caller", 1);
              }),
              255);
}
