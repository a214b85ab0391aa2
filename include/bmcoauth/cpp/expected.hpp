// SPDX-License-Identifier: Apache-2.0
#pragma once

/* What a call that can fail gives. */

#include <cstdlib>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

namespace bmcoauth
{
inline namespace v1
{

/** Why a call gave nothing. */
enum class Error
{
    refused,  /**< the library's failure: whatever its comment names */
    zeroByte, /**< a text holds a zero byte */
    tooLong,  /**< a length is beyond what the library counts */
    missing,  /**< what must be there is not: an empty key, a record's mandatory text */
    noMemory, /**< there was no memory for the copies of the arguments */
};

/** Expected is a value, or else an error: the result of everything that can fail. Ask first, by
 *  using it as a condition; `*`, `->` and `value` end the program where there is no value, and
 *  `error` where there is one. */
template <typename T, typename E = Error>
class [[nodiscard]] Expected
{
public:
    static_assert(!std::is_same_v<T, E>);

    /** Holds the value. */
    Expected(T value) : content{std::in_place_index<0>, std::move(value)}
    {
    }
    /** Holds the error. */
    Expected(E error) noexcept : content{std::in_place_index<1>, error}
    {
    }

    /** Whether there is a value; the object itself says so as a condition. */
    [[nodiscard]] bool hasValue() const noexcept
    {
        return content.index() == 0;
    }
    /** The same as `hasValue`. */
    explicit operator bool() const noexcept
    {
        return hasValue();
    }

    /** The value, here and by `*` and `->`; ends the program where there is none. */
    [[nodiscard]] T& value() & noexcept
    {
        return *there(std::get_if<0>(&content));
    }
    /** The same, of what cannot be changed. */
    [[nodiscard]] const T& value() const& noexcept
    {
        return *there(std::get_if<0>(&content));
    }
    /** The same, moved out: what is called on a result that nobody keeps outlives it, so that a loop
     *  may run over `*call()`. */
    [[nodiscard]] T value() && noexcept(std::is_nothrow_move_constructible_v<T>)
    {
        return std::move(*there(std::get_if<0>(&content)));
    }
    /** The same as `value`. */
    [[nodiscard]] T& operator*() & noexcept
    {
        return value();
    }
    /** The same as `value`. */
    [[nodiscard]] const T& operator*() const& noexcept
    {
        return value();
    }
    /** The same as `value`. */
    [[nodiscard]] T operator*() && noexcept(std::is_nothrow_move_constructible_v<T>)
    {
        return std::move(*this).value();
    }
    /** The address of the value. */
    [[nodiscard]] T* operator->() noexcept
    {
        return &value();
    }
    /** The address of the value. */
    [[nodiscard]] const T* operator->() const noexcept
    {
        return &value();
    }

    /** The error; ends the program where there is a value. */
    [[nodiscard]] E error() const noexcept
    {
        return *there(std::get_if<1>(&content));
    }

    /** The value, or `other` where there is none. */
    [[nodiscard]] T valueOr(T other) &&
    {
        return hasValue() ? std::move(*this).value() : std::move(other);
    }

    /** What `next`, which gives an Expected, makes of the value; the error stays what it is. */
    template <typename Next>
    [[nodiscard]] std::invoke_result_t<Next, T&&> andThen(Next&& next) &&
    {
        if (!hasValue())
        {
            return error();
        }
        return std::forward<Next>(next)(std::move(*this).value());
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

/** What can fail and has nothing to give. */
template <typename E>
class [[nodiscard]] Expected<void, E>
{
public:
    Expected() noexcept = default;
    /** Holds the error. */
    Expected(E error) noexcept : failure{error}
    {
    }

    /** Whether it went well; the object itself says so as a condition. */
    [[nodiscard]] bool hasValue() const noexcept
    {
        return !failure.has_value();
    }
    /** The same as `hasValue`. */
    explicit operator bool() const noexcept
    {
        return hasValue();
    }
    /** The error; ends the program where there is none. */
    [[nodiscard]] E error() const noexcept
    {
        if (!failure)
        {
            std::abort();
        }
        return *failure;
    }

private:
    std::optional<E> failure;
};

} // namespace v1
} // namespace bmcoauth
