// SPDX-License-Identifier: Apache-2.0
#include "cli/clock.hpp"

#include <bmcoauth.h>

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

} // namespace bmcoauth::tool
