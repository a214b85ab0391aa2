// SPDX-License-Identifier: Apache-2.0
#include "support/released_blocks.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

using support::ReleasedBlocks;

namespace
{

constexpr const char* secret = "a secret of 26 characters.";

/** Out of the compiler's sight, which would leave out a write to a block that is only released. */
char* hidden(char* block)
{
    char* volatile kept = block;
    return kept;
}

TEST(ReleasedBlocks, ShowWhatABlockHeldWhenItWasReleased)
{
    char* const left = hidden(strdup(secret));
    char* const wiped = hidden(strdup(secret));
    char* const kept = hidden(strdup(secret));
    ReleasedBlocks blocks;
    std::free(left);
    explicit_bzero(wiped, std::strlen(wiped));
    std::free(wiped);
    blocks.stop();
    EXPECT_EQ(blocks.count(), 2U);
    EXPECT_EQ(blocks.holding(secret), 1U);
    EXPECT_EQ(blocks.holding("another"), 0U);
    std::free(kept);
    EXPECT_EQ(blocks.count(), 2U);
}

TEST(ReleasedBlocks, ShowTheBlockThatAResizedOneLeavesBehind)
{
    char* block = hidden(strdup(secret));
    // A block behind it keeps it from growing in place.
    char* const behind = hidden(strdup(secret));
    ReleasedBlocks blocks;
    block = hidden(static_cast<char*>(std::realloc(block, 100000)));
    blocks.stop();
    EXPECT_EQ(blocks.holding(secret), 1U);
    std::free(block);
    std::free(behind);
}

TEST(ReleasedBlocks, LeaveOutABlockThatIsResizedWhereItIs)
{
    char* block = hidden(strdup(secret));
    ReleasedBlocks blocks;
    char* const same = hidden(static_cast<char*>(std::realloc(block, std::strlen(secret) + 1)));
    blocks.stop();
    if (same == block)
    {
        EXPECT_EQ(blocks.count(), 0U);
    }
    std::free(same);
}

TEST(ReleasedBlocks, LeaveOutWhatWasInABlockBeforeItWasAllocated)
{
    std::free(hidden(strdup(secret)));
    ReleasedBlocks blocks;
    std::free(hidden(static_cast<char*>(std::malloc(std::strlen(secret) + 1))));
    blocks.stop();
    EXPECT_EQ(blocks.count(), 1U);
    EXPECT_EQ(blocks.holding(secret + 8), 0U);
}

TEST(ReleasedBlocks, ShowWhatAGrowingStringLeavesBehind)
{
    std::string text = secret;
    ReleasedBlocks blocks;
    text.append(1000, 'x');
    blocks.stop();
    EXPECT_EQ(blocks.holding(secret), 1U);
}

} // namespace
