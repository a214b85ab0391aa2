// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The result of a call that can fail. */

#include <bmcoauth/cpp/language.hpp>
#include <bmcoauth/cpp/refusal.hpp>

#include <cstdlib>
#include <functional>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

namespace bmcoauth
{
inline namespace v1
{

// The names are those of the standard library, so that a template takes std::expected as well.
// NOLINTBEGIN(readability-identifier-naming)

/** Unexpected marks an error that goes into an Expected, as std::unexpected does: for templates.
 *  Other code returns the error itself. */
template <typename E>
class Unexpected
{
public:
    /** Holds `error`. */
    explicit Unexpected(const E& error) noexcept : held{error}
    {
    }
    /** The error. */
    [[nodiscard]] const E& error() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return held;
    }

private:
    E held;
};

template <typename T, typename E = Error>
class Expected;

/** What Expected is made with; a caller has no use for it. */
namespace detail
{

/** Calls `next` with the value of `self`, if it is not void. */
template <typename Self, typename Next>
decltype(auto) applied(Self&& self, Next&& next)
{
    if constexpr (std::is_void_v<typename std::remove_cvref_t<Self>::value_type>)
    {
        return std::invoke(std::forward<Next>(next));
    }
    else if constexpr (std::is_lvalue_reference_v<Self>)
    {
        return std::invoke(std::forward<Next>(next), self.value());
    }
    else
    {
        return std::invoke(std::forward<Next>(next), std::move(self.value()));
    }
}

/** Expected::and_then. */
template <typename Self, typename Next>
[[nodiscard]] auto chained(Self&& self, Next&& next)
{
    using Result =
        std::remove_cvref_t<decltype(applied(std::forward<Self>(self), std::forward<Next>(next)))>;
    if (!self.has_value())
    {
        return Result{self.error()};
    }
    return applied(std::forward<Self>(self), std::forward<Next>(next));
}

/** Expected::transform. */
template <typename Self, typename Next>
[[nodiscard]] auto transformed(Self&& self, Next&& next)
{
    using Value =
        std::remove_cvref_t<decltype(applied(std::forward<Self>(self), std::forward<Next>(next)))>;
    using Result = Expected<Value, typename std::remove_cvref_t<Self>::error_type>;
    if (!self.has_value())
    {
        return Result{self.error()};
    }
    if constexpr (std::is_void_v<Value>)
    {
        applied(std::forward<Self>(self), std::forward<Next>(next));
        return Result{};
    }
    else
    {
        return Result{applied(std::forward<Self>(self), std::forward<Next>(next))};
    }
}

} // namespace detail

/** Expected holds a value or an error: the result of every call that can fail. Its members have the
 *  names and meanings of those of std::expected (C++23), with two differences: a wrong access ends
 *  the program (std::abort) instead of throwing, and an rvalue gives its value by copy or move,
 *  never a reference into what is about to be destroyed.
 *
 *  Test it as a condition first. `*`, `->` and `value` end the program if there is no value, and
 *  `error` if there is one. */
template <typename T, typename E>
class [[nodiscard]] Expected
{
public:
    static_assert(!std::is_same_v<T, E>);

    /** As in std::expected. */
    using value_type = T;
    /** As in std::expected. */
    using error_type = E;
    /** As in std::expected. */
    using unexpected_type = Unexpected<E>;

    /** Holds the value. */
    Expected(T value) : content{std::in_place_index<0>, std::move(value)}
    {
    }
    /** Holds the error. */
    Expected(const E& error) noexcept : content{std::in_place_index<1>, error}
    {
    }
    /** Holds the error. */
    Expected(const Unexpected<E>& unexpected) noexcept : Expected{unexpected.error()}
    {
    }

    /** Whether there is a value. */
    [[nodiscard]] bool has_value() const noexcept
    {
        return content.index() == 0;
    }
    /** The same as `has_value`. */
    explicit operator bool() const noexcept
    {
        return has_value();
    }

    /** The value. Ends the program if there is none. */
    [[nodiscard]] T& value() & noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return *there(std::get_if<0>(&content));
    }
    /** Const overload. */
    [[nodiscard]] const T& value() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return *there(std::get_if<0>(&content));
    }
    /** The value itself, moved out, so that a loop may run over `*call()`. */
    [[nodiscard]] T value() && noexcept(std::is_nothrow_move_constructible_v<T>)
    {
        return std::move(*there(std::get_if<0>(&content)));
    }
    /** The same as `value`. */
    [[nodiscard]] T& operator*() & noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return value();
    }
    /** The same as `value`. */
    [[nodiscard]] const T& operator*() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return value();
    }
    /** The same as `value`. */
    [[nodiscard]] T operator*() && noexcept(std::is_nothrow_move_constructible_v<T>)
    {
        return std::move(*this).value();
    }
    /** The address of the value. An rvalue has none: `(*call()).size()`. */
    [[nodiscard]] T* operator->() & noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return &value();
    }
    /** Const overload. */
    [[nodiscard]] const T* operator->() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return &value();
    }
    const T* operator->() && = delete;
    const T* operator->() const&& = delete;

    /** The error. Ends the program if there is a value. */
    [[nodiscard]] const E& error() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return *there(std::get_if<1>(&content));
    }
    /** The error itself. */
    [[nodiscard]] E error() && noexcept
    {
        return *there(std::get_if<1>(&content));
    }

    /** A copy of the value, or `other` if there is none. */
    template <typename Other = T>
    [[nodiscard]] T value_or(Other&& other) const&
    {
        return has_value() ? value() : static_cast<T>(std::forward<Other>(other));
    }
    /** The value, moved out, or `other` if there is none. */
    template <typename Other = T>
    [[nodiscard]] T value_or(Other&& other) &&
    {
        return has_value() ? std::move(*this).value() : static_cast<T>(std::forward<Other>(other));
    }

    /** Returns `next(value)`, which is an Expected with the same type of error, or the error. */
    template <typename Next>
    [[nodiscard]] auto and_then(Next&& next) &
    {
        return detail::chained(*this, std::forward<Next>(next));
    }
    /** Const overload. */
    template <typename Next>
    [[nodiscard]] auto and_then(Next&& next) const&
    {
        return detail::chained(*this, std::forward<Next>(next));
    }
    /** Moves the value into `next`. */
    template <typename Next>
    [[nodiscard]] auto and_then(Next&& next) &&
    {
        return detail::chained(std::move(*this), std::forward<Next>(next));
    }

    /** Returns an Expected with `next(value)`, or with the error. */
    template <typename Next>
    [[nodiscard]] auto transform(Next&& next) &
    {
        return detail::transformed(*this, std::forward<Next>(next));
    }
    /** Const overload. */
    template <typename Next>
    [[nodiscard]] auto transform(Next&& next) const&
    {
        return detail::transformed(*this, std::forward<Next>(next));
    }
    /** Moves the value into `next`. */
    template <typename Next>
    [[nodiscard]] auto transform(Next&& next) &&
    {
        return detail::transformed(std::move(*this), std::forward<Next>(next));
    }

    /** Returns a copy of the value, or `next(error)`, which is an Expected of the same value type. */
    template <typename Next>
    [[nodiscard]] std::remove_cvref_t<std::invoke_result_t<Next, const E&>>
    or_else(Next&& next) const&
    {
        if (has_value())
        {
            return value();
        }
        return std::invoke(std::forward<Next>(next), std::as_const(*this).error());
    }
    /** Moves the value into the result. */
    template <typename Next>
    [[nodiscard]] std::remove_cvref_t<std::invoke_result_t<Next, const E&>> or_else(Next&& next) &&
    {
        if (has_value())
        {
            return std::move(*this).value();
        }
        return std::invoke(std::forward<Next>(next), std::as_const(*this).error());
    }

private:
    template <typename Alternative>
    [[nodiscard]] static Alternative* there(Alternative* alternative) noexcept
    {
        if (alternative == nullptr)
        {
            std::abort();
        }
        return alternative;
    }

    std::variant<T, E> content;
};

/** The result of a call that can fail and returns nothing. */
template <typename E>
class [[nodiscard]] Expected<void, E>
{
public:
    /** As in std::expected. */
    using value_type = void;
    /** As in std::expected. */
    using error_type = E;
    /** As in std::expected. */
    using unexpected_type = Unexpected<E>;

    Expected() noexcept = default;
    /** Holds the error. */
    Expected(const E& error) noexcept : failure{error}
    {
    }
    /** Holds the error. */
    Expected(const Unexpected<E>& unexpected) noexcept : Expected{unexpected.error()}
    {
    }

    /** Whether the call succeeded. */
    [[nodiscard]] bool has_value() const noexcept
    {
        return !failure.has_value();
    }
    /** The same as `has_value`. */
    explicit operator bool() const noexcept
    {
        return has_value();
    }
    /** Ends the program if the call failed. */
    void value() const noexcept
    {
        if (failure)
        {
            std::abort();
        }
    }
    /** The same as `value`. */
    void operator*() const noexcept
    {
        value();
    }
    /** The error. Ends the program if there is none. */
    [[nodiscard]] const E& error() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        if (!failure)
        {
            std::abort();
        }
        return *failure;
    }
    /** The error itself. */
    [[nodiscard]] E error() && noexcept
    {
        return std::as_const(*this).error();
    }

    /** Returns `next()`, which is an Expected with the same type of error, or the error. */
    template <typename Next>
    [[nodiscard]] auto and_then(Next&& next) const
    {
        return detail::chained(*this, std::forward<Next>(next));
    }
    /** Returns an Expected with `next()`, or with the error. */
    template <typename Next>
    [[nodiscard]] auto transform(Next&& next) const
    {
        return detail::transformed(*this, std::forward<Next>(next));
    }
    /** Returns success, or `next(error)`, which is an Expected<void>. */
    template <typename Next>
    [[nodiscard]] std::remove_cvref_t<std::invoke_result_t<Next, const E&>>
    or_else(Next&& next) const
    {
        if (has_value())
        {
            return {};
        }
        return std::invoke(std::forward<Next>(next), std::as_const(*this).error());
    }

private:
    std::optional<E> failure;
};

// NOLINTEND(readability-identifier-naming)

/** The first error of `results`, or success if all of them have a value. */
template <typename... T>
[[nodiscard]] Expected<void> allOf(const Expected<T>&... results)
{
    Expected<void> first;
    const auto passes = [&first](const auto& result) {
        if (!result)
        {
            first = result.error();
        }
        return result.has_value();
    };
    static_cast<void>((passes(results) && ...));
    return first;
}

} // namespace v1
} // namespace bmcoauth
