// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bmcoauth/refusal.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <type_traits>

namespace bmcoauth::internal
{

/** The types whose zero value is a failure. Numbers are not among them, except the `int` of the
 *  exported functions: a converting constructor, for instance of std::optional<std::uint64_t>,
 *  would take the zero for a value. */
template <typename T>
concept FailsAsZero =
    std::same_as<T, bool> || std::same_as<T, int> || std::is_pointer_v<T> || std::is_enum_v<T>;

/** The result of refuse: the failure value of any type that a refusing function returns, that is
 *  false, 0, null or nothing. The members add to the note; use them only on the failing path. */
class Refused
{
public:
    template <FailsAsZero T>
    operator T() const noexcept
    {
        return T{};
    }
    template <typename T>
    operator std::optional<T>() const noexcept
    {
        return std::nullopt;
    }
    template <typename T, typename Deleter>
    operator std::unique_ptr<T, Deleter>() const noexcept
    {
        return nullptr;
    }

    /** The member, file or parameter that it concerns; only the end of a path fits. */
    Refused& about(const char* subject) noexcept
    {
        noteSubject(subject);
        return *this;
    }
    /** By another rule, which says more of the whole than that of a part; exhausted memory stays
     *  what it is. */
    Refused& as(bmcoauth_rule rule) noexcept
    {
        noteOtherRule(rule);
        return *this;
    }
    /** As about, unless the place that refused has said it already. */
    Refused& within(const char* subject) noexcept
    {
        noteOuterSubject(subject);
        return *this;
    }
    /** Which of several keys, certificates or proofs. */
    Refused& at(std::size_t index) noexcept
    {
        noteIndex(index);
        return *this;
    }
    /** Notes what was there, nothing if null. Never a secret of ours. */
    Refused& saw(const char* text) noexcept
    {
        noteSeen(text);
        return *this;
    }
    Refused& saw(std::string_view text) noexcept
    {
        noteSeen(text);
        return *this;
    }
    /** As saw: the system's words for errno. */
    Refused& sawErrno() noexcept
    {
        noteErrno();
        return *this;
    }
    /** What should have been there. Never a secret of ours. */
    Refused& wanted(const char* text) noexcept
    {
        noteWanted(text);
        return *this;
    }
    Refused& wanted(const char* words, std::uint64_t number) noexcept
    {
        noteWanted(words, number);
        return *this;
    }

private:
    // A static function needs no object on the caller's stack, nor a canary beside it.
    [[gnu::cold]] static void noteSubject(const char* subject) noexcept;
    [[gnu::cold]] static void noteOtherRule(bmcoauth_rule rule) noexcept;
    [[gnu::cold]] static void noteOuterSubject(const char* subject) noexcept;
    [[gnu::cold]] static void noteIndex(std::size_t index) noexcept;
    [[gnu::cold]] static void noteSeen(const char* text) noexcept;
    [[gnu::cold]] static void noteSeen(std::string_view text) noexcept;
    [[gnu::cold]] static void noteErrno() noexcept;
    [[gnu::cold]] static void noteWanted(const char* text) noexcept;
    [[gnu::cold]] static void noteWanted(const char* words, std::uint64_t number) noexcept;
};

[[gnu::cold]] void noteRule(bmcoauth_rule rule) noexcept;

/** Notes that @p rule refuses, and gives the failure value: `return refuse(...)`, at the place
 *  where the rule is known. If memory has run out since the guard was entered, notes that
 *  instead: then the data may be sound.
 *
 *  A note counts only if the exported call fails: then publishRefusal takes it. Code that tries
 *  one thing after another notes as it goes; the last note before the failure is the reason. */
inline Refused refuse(bmcoauth_rule rule) noexcept
{
    noteRule(rule);
    return {};
}

/** The rule of the last note; 0 before the first one. Where several keys are tried, what became of one
 *  is found here. */
[[nodiscard]] int notedRule() noexcept;

/** Passes on a refusal from deeper inside, to say more about it:
 *  `return refused().within("header")`. */
[[nodiscard]] inline Refused refused() noexcept
{
    return {};
}

/** Makes the last note the thread's last refusal. For the boundary alone, when a call fails. */
[[gnu::cold]] void publishRefusal() noexcept;

/** Whether one of the arguments is null. Refuses the first one that is, by its name in @p names, a list
 *  with spaces. For the boundary, before there is a guard. */
[[nodiscard]] bool refusesNull(const char* names, const void* only) noexcept;
[[nodiscard]] bool refusesNull(const char* names, const void* first, const void* second) noexcept;
[[nodiscard]] bool refusesNull(const char* names, const void* first, const void* second,
                               const void* third) noexcept;
[[nodiscard]] bool refusesNull(const char* names, const void* first, const void* second,
                               const void* third, const void* fourth,
                               const void* fifth = "") noexcept;

/** Refuses at the boundary, before there is a guard, where errno is the caller's. */
[[gnu::cold]] Refused refuseCall(bmcoauth_rule rule, const char* parameter) noexcept;

} // namespace bmcoauth::internal
