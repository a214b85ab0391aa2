// SPDX-License-Identifier: Apache-2.0
#include "clock.hpp"

#include <bmcoauth.h>

#include <array>
#include <cstdlib>

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

std::uint64_t claimSeconds(std::string_view text)
{
    return std::strtoull(std::string{text}.c_str(), nullptr, 0);
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

std::string durationOf(std::uint64_t seconds)
{
    constexpr std::uint64_t hour = 3600;
    constexpr std::uint64_t day = 24 * hour;
    std::string text = std::to_string(seconds) + " s";
    if (seconds >= 2 * day)
    {
        text += " (" + std::to_string(seconds / day) + " days)";
    }
    else if (seconds >= 2 * hour)
    {
        text += " (" + std::to_string(seconds / hour) + " hours)";
    }
    return text;
}

std::string clockText(std::uint64_t now)
{
    return std::to_string(now) + ", " + dateOf(now);
}

} // namespace bmcoauth::tool
