// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <utility>
#include <vector>

/** A stand-in for the device's logging library: as much of its header as the library uses, so that
 *  the body for devices is compiled and tested where that library is not at hand. */
namespace phosphor::logging
{

/** The priorities of syslog, under the names of the device's header. */
enum class level
{
    EMERG = 0,
    ALERT = 1,
    CRIT = 2,
    ERR = 3,
    WARNING = 4,
    NOTICE = 5,
    INFO = 6,
    DEBUG = 7,
};

/** What was logged so far. */
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): the test's way to see it
inline std::vector<std::pair<level, std::string>> logged;

template <level L, typename... Entry>
void log(const char* message, const Entry&... /*entry*/)
{
    static_assert(sizeof...(Entry) == 0, "the entries carry no further fields");
    logged.emplace_back(L, message);
}

} // namespace phosphor::logging
