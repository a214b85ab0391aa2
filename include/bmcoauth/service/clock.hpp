// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The time, as a service's parts are given it, so that a test can set it. */

#include <chrono>
#include <functional>

namespace bmcoauth
{
inline namespace v1
{

/** Gives the current time. Called from every thread that uses the part which was given it. */
using Clock = std::function<std::chrono::sys_seconds()>;

/** The machine's clock. */
[[nodiscard]] inline Clock systemClock()
{
    return [] {
        return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    };
}

} // namespace v1
} // namespace bmcoauth
