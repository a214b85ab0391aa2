// SPDX-License-Identifier: Apache-2.0
#include "common/clock.hpp"

#include "common/guard.hpp"
#include "common/machine.hpp"

#include <bmcoauth/support.h>

#include <cstdlib>

namespace bmcoauth::internal
{

std::time_t localNewYear(int year) noexcept
{
    const ErrnoKeeper keeper;
    std::tm date{};
    date.tm_year = year - 1900;
    date.tm_mday = 1;
    date.tm_isdst = -1;
    return std::mktime(&date);
}

namespace
{

std::uint64_t secondsFromEpoch(std::time_t time) noexcept
{
    const double seconds = std::difftime(time, localNewYear(1970));
    return seconds > 0 ? static_cast<std::uint64_t>(seconds) : 0;
}

} // namespace

std::optional<std::uint64_t> currentSeconds() noexcept
{
    const ErrnoKeeper keeper;
    const std::time_t now = machine::now();
    std::tm utc{};
    if (gmtime_r(&now, &utc) == nullptr)
    {
        return refuse(BMCOAUTH_RULE_CLOCK_UNREADABLE).sawErrno();
    }
    return secondsFromEpoch(std::mktime(&utc));
}

std::uint64_t secondsOf(const char* text) noexcept
{
    const ErrnoKeeper keeper;
    return std::strtoull(text, nullptr, 0);
}

} // namespace bmcoauth::internal

extern "C" std::uint64_t get_seconds_from_epoch(std::time_t time)
{
    const bmcoauth::internal::ErrnoKeeper keeper;
    return bmcoauth::internal::secondsFromEpoch(time);
}
