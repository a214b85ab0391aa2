// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

namespace bmcoauth::tool
{

/** The library's clock at @p time, in seconds since the epoch. It is computed through local time,
 *  and may be off if the zone's offset has changed since 1970. Nothing if @p time has no date. */
[[nodiscard]] std::optional<std::uint64_t> librarySeconds(std::time_t time);

/** The date of seconds that make none. */
inline constexpr const char* beyondCalendar = "beyond the calendar";

/** @p seconds as date and time in UTC. */
[[nodiscard]] std::string dateOf(std::uint64_t seconds);

/** How far @p seconds are from @p now, as a person says it: "now", "in 10 min", "2 days ago". */
[[nodiscard]] std::string distanceOf(std::uint64_t seconds, std::uint64_t now);

/** @p seconds as date and time in UTC, and how far they are from now. */
[[nodiscard]] std::string readableTime(std::uint64_t seconds);

} // namespace bmcoauth::tool
