// SPDX-License-Identifier: Apache-2.0
#include <bmcoauth.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <optional>
#include <string>

namespace
{

/** The local zone of this process while it lives. The zones are written out, so that no zone files
 *  are needed; their rules hold in 1970 too. */
class LocalZone
{
public:
    explicit LocalZone(const char* zone)
    {
        if (const char* found = std::getenv("TZ"); found != nullptr)
        {
            previous = found;
        }
        setenv("TZ", zone, 1);
        tzset();
    }
    LocalZone(const LocalZone&) = delete;
    LocalZone& operator=(const LocalZone&) = delete;
    ~LocalZone()
    {
        if (previous)
        {
            setenv("TZ", previous->c_str(), 1);
        }
        else
        {
            unsetenv("TZ");
        }
        tzset();
    }

private:
    std::optional<std::string> previous;
};

} // namespace

TEST(GetSecondsFromEpoch, GivesTheTimeItselfInUtc)
{
    const LocalZone zone{"UTC0"};
    EXPECT_EQ(get_seconds_from_epoch(0), 0U);
    EXPECT_EQ(get_seconds_from_epoch(1), 1U);
    EXPECT_EQ(get_seconds_from_epoch(1700000000), 1700000000U);
    EXPECT_EQ(get_seconds_from_epoch(2147483647), 2147483647U);
}

TEST(GetSecondsFromEpoch, GivesZeroForATimeBeforeTheEpoch)
{
    const LocalZone zone{"UTC0"};
    EXPECT_EQ(get_seconds_from_epoch(-1), 0U);
    EXPECT_EQ(get_seconds_from_epoch(-86400), 0U);
    EXPECT_EQ(get_seconds_from_epoch(std::numeric_limits<std::time_t>::min()), 0U);
}

TEST(GetSecondsFromEpoch, TakesAWideTime)
{
    if constexpr (sizeof(std::time_t) > 4)
    {
        const LocalZone zone{"UTC0"};
        EXPECT_EQ(get_seconds_from_epoch(4294967296), 4294967296U);
    }
}

// Nine hours before UTC it is midnight in this zone.
TEST(GetSecondsFromEpoch, CountsFromLocalMidnightEastOfUtc)
{
    const LocalZone zone{"EAST-9"};
    EXPECT_EQ(get_seconds_from_epoch(0), 32400U);
    EXPECT_EQ(get_seconds_from_epoch(-1), 32399U);
    EXPECT_EQ(get_seconds_from_epoch(-32399), 1U);
    EXPECT_EQ(get_seconds_from_epoch(-32400), 0U);
    EXPECT_EQ(get_seconds_from_epoch(-32401), 0U);
}

TEST(GetSecondsFromEpoch, CountsFromLocalMidnightWestOfUtc)
{
    const LocalZone zone{"WEST+5"};
    EXPECT_EQ(get_seconds_from_epoch(0), 0U);
    EXPECT_EQ(get_seconds_from_epoch(18000), 0U);
    EXPECT_EQ(get_seconds_from_epoch(18001), 1U);
    EXPECT_EQ(get_seconds_from_epoch(100000), 82000U);
}

TEST(GetSecondsFromEpoch, TakesAZoneThatIsOffByMinutes)
{
    const LocalZone zone{"<+0545>-5:45"};
    EXPECT_EQ(get_seconds_from_epoch(0), 20700U);
}

// In January it is summer there: the eleventh hour is the daylight saving time.
TEST(GetSecondsFromEpoch, LeavesDaylightSavingToTheZone)
{
    const LocalZone zone{"SOUTH-10SUMMER,M10.1.0,M4.1.0/3"};
    EXPECT_EQ(get_seconds_from_epoch(0), 39600U);
}

TEST(GetSecondsFromEpoch, LeavesErrnoAlone)
{
    const LocalZone zone{"UTC0"};
    errno = 77;
    (void)get_seconds_from_epoch(0);
    EXPECT_EQ(errno, 77);
}
