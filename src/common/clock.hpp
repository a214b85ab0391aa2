// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>

namespace bmcoauth::internal
{

/** The current time as every token and record carries it, in seconds; nothing when the clock
 *  cannot be broken down.
 *
 *  Breaks the clock down as UTC, turns the parts back as local time, and counts from 1 January 1970
 *  in local time. The zone's offset cancels out, but a change of it since that day does not: the
 *  result is right in UTC, and may be off by that change in other zones.
 *
 *  The clock is read nowhere else. Ask once per call: mktime looks at the zone file each time. */
[[nodiscard]] std::optional<std::uint64_t> currentSeconds() noexcept;

/** Midnight of 1 January of @p year as local time. */
[[nodiscard]] std::time_t localNewYear(int year) noexcept;

/** The seconds in @p text, not null, as strtoull reads them with base 0:
 *
 *  | text | value |
 *  |---|---|
 *  | begins with "0x" | hexadecimal |
 *  | begins with "0" | octal |
 *  | not a number | 0 |
 *  | too large, and "-1" | the largest value | */
[[nodiscard]] std::uint64_t secondsOf(const char* text) noexcept;

} // namespace bmcoauth::internal
