// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/owners.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <memory>
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

// The clock is broken down as UTC, and the parts are put together as local time without
// daylight saving. The epoch takes off again what the zone adds, unless January 1970 was in
// summer time.
TEST(CurrentTime, DoesNotDependOnAZoneWithoutSummerInJanuary)
{
    struct Row
    {
        const char* zone;
        std::time_t clock;
        const char* written;
    };
    constexpr std::time_t july = 1689400000;
    constexpr std::time_t november = 1700000000;
    for (const auto& [name, seconds, written] :
         {Row{"UTC0", november, "1700000000"}, Row{"EAST-9", november, "1700000000"},
          Row{"WEST+5", november, "1700000000"},
          Row{"NORTH-1SUMMER,M3.5.0,M10.5.0/3", july, "1689400000"},
          Row{"NORTH-1SUMMER,M3.5.0,M10.5.0/3", november, "1700000000"},
          Row{"SOUTH-10SUMMER,M10.1.0,M4.1.0/3", july, "1689403600"},
          Row{"SOUTH-10SUMMER,M10.1.0,M4.1.0/3", november, "1700003600"}})
    {
        SCOPED_TRACE(std::string{name}.append(" at ").append(std::to_string(seconds)));
        const LocalZone zone{name};
        const support::FakeClock clock{seconds};
        using Response =
            std::unique_ptr<AuthorizeResponse, support::Releaser<free_authorize_response>>;
        const Response response{
            create_authorize_response("state", "token", "refresh", "60", "bearer")};
        ASSERT_NE(response, nullptr);
        EXPECT_STREQ(response->issued_at, written);
    }
}
