// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bmcoauth/refusal.h>

#include <gtest/gtest.h>

#include <string>
#include <type_traits>

namespace support
{

/** Makes a refusal of the test's own the last one of this thread, so that one which a call leaves
 *  behind can be told from an earlier one. */
void plantRefusal();

/** Whether the last refusal of this thread is still the planted one. */
[[nodiscard]] bool isPlantedRefusal();

/** The last refusal of this thread. */
[[nodiscard]] bmcoauth_refusal lastRefusal();

/** The name of its rule; "nothing noted" where it is the planted one. */
[[nodiscard]] std::string lastRule();

/** The rule by which @p call refuses; "accepted" where it does not. A failure is null, false, or a
 *  number other than 1. */
template <typename Call>
[[nodiscard]] std::string ruleOf(const Call& call)
{
    plantRefusal();
    const auto result = call();
    using Result = std::remove_const_t<decltype(result)>;
    bool failed = false;
    // Pointers and their owners.
    if constexpr (requires { result == nullptr; })
    {
        failed = result == nullptr;
    }
    else if constexpr (std::is_same_v<Result, bool>)
    {
        failed = !result;
    }
    else
    {
        failed = result != 1;
    }
    return failed ? lastRule() : "accepted";
}

} // namespace support

/** Expects that a call fails, and that it refuses by @p rule:
 *  EXPECT_REFUSED("token.expired", validateJWT(token, ...)). */
#define EXPECT_REFUSED(rule, ...) EXPECT_EQ(support::ruleOf([&] { return __VA_ARGS__; }), rule)
