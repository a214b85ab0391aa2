// SPDX-License-Identifier: Apache-2.0
#pragma once

/* What a validator expects of a token. */

#include <optional>
#include <type_traits>
#include <utility>

namespace bmcoauth
{
inline namespace v1
{

/** The type of `ignored`. */
struct Ignored
{
    explicit Ignored() = default;
};
/** Says that a validator does not look at something. */
inline constexpr Ignored ignored{};

/** Expectation is what a validator expects of one claim, or that it ignores it. There is no third: it
 *  has no default, so that rules which leave one out do not compile. */
template <typename T>
class Expectation
{
public:
    /** Nothing is expected. */
    Expectation(Ignored /*nothing*/) noexcept
    {
    }
    /** `value` is expected. */
    template <typename Value, typename = std::enable_if_t<std::is_constructible_v<T, Value>>>
    Expectation(Value&& value) : wanted{std::in_place, std::forward<Value>(value)}
    {
    }

    /** What is expected; null if the claim is ignored. */
    [[nodiscard]] const T* get() const& noexcept
    {
        return wanted ? &*wanted : nullptr;
    }
    [[nodiscard]] const T* get() const&& = delete;

private:
    std::optional<T> wanted;
};

} // namespace v1
} // namespace bmcoauth
