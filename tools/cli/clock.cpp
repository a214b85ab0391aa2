// SPDX-License-Identifier: Apache-2.0
#include "cli/clock.hpp"

#include <bmcoauth.h>

#include <algorithm>
#include <array>

namespace bmcoauth::tool
{

std::optional<std::uint64_t> librarySeconds(std::time_t time)
{
    std::tm utc{};
    if (gmtime_r(&time, &utc) == nullptr)
    {
        return std::nullopt;
    }
    // The C++ interface has no clock, and here it is the clock of another instant.
    return get_seconds_from_epoch(std::mktime(&utc));
}

std::string dateOf(std::uint64_t seconds)
{
    const auto time = static_cast<std::time_t>(seconds);
    std::tm utc{};
    std::array<char, 32> date{};
    if (time < 0 || static_cast<std::uint64_t>(time) != seconds ||
        gmtime_r(&time, &utc) == nullptr ||
        std::strftime(date.data(), date.size(), "%Y-%m-%d %H:%M:%S UTC", &utc) == 0)
    {
        return beyondCalendar;
    }
    return date.data();
}

namespace
{

struct Unit
{
    std::uint64_t seconds;
    const char* one;
    const char* several;
};

constexpr std::array<Unit, 5> units{{{31556952, "year", "years"},
                                     {86400, "day", "days"},
                                     {3600, "hour", "hours"},
                                     {60, "min", "min"},
                                     {1, "s", "s"}}};

} // namespace

std::string distanceOf(std::uint64_t seconds, std::uint64_t now)
{
    const std::uint64_t away = seconds < now ? now - seconds : seconds - now;
    if (away == 0)
    {
        return "now";
    }
    // Two of a unit at least, or rounding down would hide too much.
    const auto* const unit = std::ranges::find_if(
        units, [&](const Unit& one) { return away >= 2 * one.seconds || one.seconds == 1; });
    const std::uint64_t count = away / unit->seconds;
    const std::string text = std::to_string(count) + ' ' + (count == 1 ? unit->one : unit->several);
    return seconds < now ? text + " ago" : "in " + text;
}

std::string readableTime(std::uint64_t seconds)
{
    const std::string date = dateOf(seconds);
    const auto now = static_cast<std::uint64_t>(std::max<std::time_t>(std::time(nullptr), 0));
    return date == beyondCalendar ? date : date + ", " + distanceOf(seconds, now);
}

} // namespace bmcoauth::tool
