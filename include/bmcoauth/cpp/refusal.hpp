// SPDX-License-Identifier: Apache-2.0
#pragma once

/* Why a call failed, over <bmcoauth/refusal.h>. For logs and for the program itself, never for the
 * peer. */

#include <bmcoauth/cpp/language.hpp>
#include <bmcoauth/refusal.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace bmcoauth
{
inline namespace v1
{

/** The rules that can refuse: BMCOAUTH_RULE_TOKEN_EXPIRED and the others. */
using Rule = ::bmcoauth_rule;

namespace detail
{

/** What strerror_r has answered, where it gives the text. */
[[nodiscard]] inline const char* systemText(const char* result, const char* /*buffer*/) noexcept
{
    return result;
}
/** What strerror_r has answered, where it fills the buffer: it is declared in two ways. */
[[nodiscard]] inline const char* systemText(int result, const char* buffer) noexcept
{
    return result == 0 ? buffer : "";
}

} // namespace detail

/** Description holds the text of an Error, without memory of the heap, so that exhausted memory can
 *  be logged as well. */
class Description
{
public:
    /** The text, with a zero byte behind it, as long as this object lives. */
    // NOLINTNEXTLINE(readability-identifier-naming): what all texts call it.
    [[nodiscard]] const char* c_str() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return text.data();
    }
    /** The text, as long as this object lives. */
    [[nodiscard]] std::string_view view() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return {text.data(), size};
    }
    /** The same as `view`. */
    operator std::string_view() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return view();
    }

private:
    friend class Error;

    Description& operator<<(std::string_view part) noexcept
    {
        size += part.copy(text.data() + size, text.size() - 1 - size);
        return *this;
    }

    // A name, the four fields of a refusal, the texts between them, and room for longer names.
    std::array<char, sizeof(bmcoauth_refusal) + 120> text{};
    std::size_t size = 0;
};

/** Error is why a call failed: a rule, and what it is about. It is a plain value that needs no memory of
 *  the heap, and holds no secret. */
class Error
{
public:
    /** A refusal by `rule`, about the parameter or member `subject` and, of several, the one
     *  at `index`. */
    explicit Error(Rule rule, std::string_view subject = {}, int index = -1) noexcept
        : record{.rule = rule, .index = index, .subject = {}, .saw = {}, .wanted = {}}
    {
        // Of a path the end tells more.
        constexpr std::size_t room = sizeof record.subject - 1;
        const bool isCutAtFront = subject.size() > room && subject.front() == '/';
        put(record.subject, isCutAtFront ? subject.substr(subject.size() - room) : subject);
        std::string_view{"..."}.copy(static_cast<char*>(record.subject), isCutAtFront ? 3 : 0);
    }

    /** The calling thread's last refusal: bmcoauth_last_refusal. It means something directly after a
     *  function of <bmcoauth.h> failed. */
    [[nodiscard]] static Error last() noexcept
    {
        Error error{Rule{}};
        static_cast<void>(::bmcoauth_last_refusal(&error.record, sizeof error.record));
        return error;
    }
    /** A refusal about the file `path`, with the system's words for errno. */
    [[nodiscard]] static Error ofFile(Rule rule, std::string_view path) noexcept
    {
        Error error{rule, path};
        std::array<char, sizeof error.record.saw> buffer{};
        put(error.record.saw,
            detail::systemText(::strerror_r(errno, buffer.data(), buffer.size()), buffer.data()));
        return error;
    }

    /** Which rule refused. */
    [[nodiscard]] Rule rule() const noexcept
    {
        return static_cast<Rule>(record.rule);
    }
    /** The rule's stable name, "token.expired" for instance: bmcoauth_rule_name. "unknown" for a
     *  number that is not a rule. */
    [[nodiscard]] std::string_view name() const noexcept
    {
        const char* const known = ::bmcoauth_rule_name(record.rule);
        return known == nullptr ? "unknown" : known;
    }
    /** The member, file or parameter that it concerns; this text and the two below are printable
     *  ASCII, and empty where they do not apply. */
    [[nodiscard]] std::string_view subject() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return static_cast<const char*>(record.subject);
    }
    [[nodiscard]] std::string_view subject() const&& = delete;
    /** Which key, certificate or proof, from 0; -1 where there is one only. */
    [[nodiscard]] int index() const noexcept
    {
        return record.index;
    }
    /** What was there. */
    [[nodiscard]] std::string_view saw() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return static_cast<const char*>(record.saw);
    }
    [[nodiscard]] std::string_view saw() const&& = delete;
    /** What should have been there. */
    [[nodiscard]] std::string_view wanted() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return static_cast<const char*>(record.wanted);
    }
    [[nodiscard]] std::string_view wanted() const&& = delete;

    /** All of it in one line: "token.expired: exp: saw 5, wanted after 7". */
    [[nodiscard]] Description describe() const noexcept
    {
        Description line;
        line << name();
        if (!subject().empty() || record.index >= 0)
        {
            line << ": " << subject();
        }
        if (record.index >= 0)
        {
            std::array<char, 12> digits{};
            const std::to_chars_result end =
                std::to_chars(digits.data(), digits.data() + digits.size(), record.index);
            line << "[" << std::string_view{digits.data(), end.ptr} << "]";
        }
        if (!saw().empty())
        {
            line << ": saw " << saw();
        }
        if (!wanted().empty())
        {
            line << (saw().empty() ? ": wanted " : ", wanted ") << wanted();
        }
        return line;
    }

private:
    /** Writes `text` to `field`, printable and cut to fit. */
    template <std::size_t size>
    static void put(char (&field)[size], std::string_view text) noexcept
    {
        const std::size_t length = text.copy(static_cast<char*>(field), size - 1);
        for (std::size_t i = 0; i < length; ++i)
        {
            field[i] = field[i] >= ' ' && field[i] <= '~' ? field[i] : '?';
        }
    }

    bmcoauth_refusal record;
};

} // namespace v1
} // namespace bmcoauth
