// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace bmcoauth::tool
{

/** The seconds since the epoch by which the library judges, at the instant @p time: its clock goes
 *  by way of local time, so that it may be off if the zone has changed since 1970. Nothing when there is no such date. */
[[nodiscard]] std::optional<std::uint64_t> librarySeconds(std::time_t time);

/** The number that the library reads from the text of a time claim: decimal, octal behind a 0,
 *  hexadecimal behind 0x, and 0 where there is none. */
[[nodiscard]] std::uint64_t claimSeconds(std::string_view text);

/** The date of seconds that make none. */
inline constexpr const char* beyondCalendar = "beyond the calendar";

/** @p seconds as date and time in UTC. */
[[nodiscard]] std::string dateOf(std::uint64_t seconds);

/** "12 s", and in hours or days where the seconds are many. */
[[nodiscard]] std::string durationOf(std::uint64_t seconds);

/** What the library's clock says, for a message. */
[[nodiscard]] std::string clockText(std::uint64_t now);

} // namespace bmcoauth::tool
