// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bmcoauth/refusal.h>

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <type_traits>

namespace support
{

/** Makes a refusal of the test's own the last one of this thread, so that one which a call leaves
 *  behind can be told from an earlier one. */
void plantRefusal();

/** Whether @p subject is that of the planted one. */
[[nodiscard]] bool isPlanted(std::string_view subject);

/** Whether the last refusal of this thread is still the planted one. */
[[nodiscard]] bool isPlantedRefusal();

/** The last refusal of this thread. */
[[nodiscard]] bmcoauth_refusal lastRefusal();

/** The name of its rule; "nothing noted" where it is the planted one. */
[[nodiscard]] std::string lastRule();

/** The name of the rule that @p error of the C++ layer carries, as lastRule gives it. */
template <typename Error>
[[nodiscard]] std::string ruleIn(const Error& error)
{
    return std::string{isPlanted(error.subject()) ? "nothing noted" : error.name()};
}

/** The rule by which a call has refused that gave @p result; "accepted" where it did not. A failure is
 *  null, false, a number other than 1, or what the C++ layer gives as one. */
template <typename Result>
[[nodiscard]] std::string ruleBehind(const Result& result)
{
    if constexpr (requires { result.error(); })
    {
        return result ? "accepted" : ruleIn(result.error());
    }
    else if constexpr (requires { result.refusal(); })
    {
        return result.refusal() == nullptr ? "accepted" : ruleIn(*result.refusal());
    }
    // Pointers and their owners.
    else if constexpr (requires { result == nullptr; })
    {
        return result == nullptr ? lastRule() : "accepted";
    }
    else if constexpr (std::is_same_v<Result, bool>)
    {
        return result ? "accepted" : lastRule();
    }
    else
    {
        return result == 1 ? "accepted" : lastRule();
    }
}

/** The rule by which @p call refuses. */
template <typename Call>
[[nodiscard]] std::string ruleOf(const Call& call)
{
    plantRefusal();
    return ruleBehind(call());
}

} // namespace support

/** Expects that a call fails, and that it refuses by @p rule:
 *  EXPECT_REFUSED("token.expired", validateJWT(token, ...)). */
// NOLINTNEXTLINE(cppcoreguidelines-macro-usage): a failure names the line of the test
#define EXPECT_REFUSED(rule, ...)                                                                  \
    EXPECT_EQ((support::plantRefusal(), support::ruleBehind(__VA_ARGS__)), rule)
