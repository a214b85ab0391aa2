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
 *  The clock is broken down as UTC, turned back as local time, and counted from 1 January 1970 in
 *  local time. The zone's offset cancels out, a change of it since that day does not: elsewhere
 *  than in UTC, where a controller is, the result may be off by that change. The one place where
 *  the clock is read: ask once per call, since mktime looks at the zone file each time. */
[[nodiscard]] std::optional<std::uint64_t> currentSeconds() noexcept;

/** Midnight of 1 January of @p year as local time. */
[[nodiscard]] std::time_t localNewYear(int year) noexcept;

/** The seconds that @p text, not null, stands for, as strtoull reads it with base 0: hexadecimal
 *  after "0x", octal after "0", 0 where there is no number, and the largest value for what does
 *  not fit and for "-1". */
[[nodiscard]] std::uint64_t secondsOf(const char* text) noexcept;

} // namespace bmcoauth::internal
