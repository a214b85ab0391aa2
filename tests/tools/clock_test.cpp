// SPDX-License-Identifier: Apache-2.0
#include "tools/cli/clock.hpp"

#include <gtest/gtest.h>

using bmcoauth::tool::distanceOf;

TEST(DistanceOf, IsWhatAPersonSays)
{
    constexpr std::uint64_t now = 1'700'000'000;
    constexpr std::uint64_t day = 86400;
    EXPECT_EQ(distanceOf(now, now), "now");
    EXPECT_EQ(distanceOf(now + 1, now), "in 1 s");
    EXPECT_EQ(distanceOf(now - 1, now), "1 s ago");
    EXPECT_EQ(distanceOf(now + 119, now), "in 119 s");
    EXPECT_EQ(distanceOf(now + 120, now), "in 2 min");
    EXPECT_EQ(distanceOf(now + 600, now), "in 10 min");
    EXPECT_EQ(distanceOf(now - 7200, now), "2 hours ago");
    EXPECT_EQ(distanceOf(now - 2 * day, now), "2 days ago");
    EXPECT_EQ(distanceOf(now - 2 * day + 1, now), "47 hours ago");
    EXPECT_EQ(distanceOf(now + 730 * day, now), "in 730 days");
    EXPECT_EQ(distanceOf(0, now), "53 years ago");
}
