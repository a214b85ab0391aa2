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

/** The name of the rule that @p error of the C++ layer carries, as lastRule gives it. */
template <typename Error>
[[nodiscard]] std::string ruleIn(const Error& error)
{
    return std::string{isPlanted(error.subject()) ? "nothing noted" : error.name()};
}

/** As above, of a call of the C++ layer that gives an Expected. */
template <typename Call>
requires requires(const std::invoke_result_t<Call>& result)
{
    result.error();
}
[[nodiscard]] std::string ruleOf(const Call& call)
{
    plantRefusal();
    const auto result = call();
    return result ? "accepted" : ruleIn(result.error());
}

/** As above, of a call that gives a Verdict. */
template <typename Call>
requires requires(const std::invoke_result_t<Call>& result)
{
    result.refusal();
}
[[nodiscard]] std::string ruleOf(const Call& call)
{
    plantRefusal();
    const auto result = call();
    return result.refusal() == nullptr ? "accepted" : ruleIn(*result.refusal());
}

} // namespace support

/** Expects that a call fails, and that it refuses by @p rule:
 *  EXPECT_REFUSED("token.expired", validateJWT(token, ...)). */
#define EXPECT_REFUSED(rule, ...) EXPECT_EQ(support::ruleOf([&] { return __VA_ARGS__; }), rule)
