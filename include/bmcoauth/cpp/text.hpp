// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The library's texts, bytes and string arrays, with owners. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/owners.hpp>
#include <bmcoauth/support.h>

#include <climits>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <string_view>

namespace bmcoauth
{
inline namespace v1
{

/** Text owns a text of the library. It may be a secret, and is wiped when it is released. */
class Text
{
public:
    /** Takes over a text that is released with `free`. */
    explicit Text(char* text = nullptr) noexcept
        : owned{text, detail::Wiper{text == nullptr ? 0 : std::strlen(text)}}
    {
    }

    /** A copy of `text`. */
    [[nodiscard]] static Expected<Text> copy(std::string_view text)
    {
        if (text.find('\0') != std::string_view::npos)
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_ZERO_BYTE, "text"};
        }
        if (text.size() >= static_cast<std::size_t>(INT_MAX))
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_LENGTH, "text"};
        }
        auto* const made = static_cast<char*>(std::malloc(text.size() + 1));
        if (made == nullptr)
        {
            return Error{BMCOAUTH_RULE_MEMORY_EXHAUSTED};
        }
        if (!text.empty())
        {
            std::memcpy(made, text.data(), text.size());
        }
        made[text.size()] = '\0';
        return Text{made};
    }

    /** The text, as long as this object lives, which a temporary does not: keep the object. */
    [[nodiscard]] std::string_view view() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return owned ? std::string_view{owned.get(), owned.get_deleter().size} : std::string_view{};
    }
    [[nodiscard]] std::string_view view() const&& = delete;
    /** The same as `view`. */
    operator std::string_view() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return view();
    }
    operator std::string_view() const&& = delete;
    /** With a zero byte behind it, and never null. */
    // NOLINTBEGIN(readability-identifier-naming): what all texts call it.
    [[nodiscard]] const char* c_str() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return owned ? owned.get() : "";
    }
    [[nodiscard]] const char* c_str() const&& = delete;
    // NOLINTEND(readability-identifier-naming)
    /** Gives the text away: the caller releases it with `free`. */
    [[nodiscard]] char* release() noexcept
    {
        return owned.release();
    }

private:
    std::unique_ptr<char, detail::Wiper> owned;
};

/** Bytes owns bytes of the library, which may be a secret: it is wiped when it is released. */
class Bytes
{
public:
    Bytes() noexcept = default;
    /** Takes over `size` bytes that are released with `free`. */
    Bytes(void* data, std::size_t size) noexcept
        : owned{static_cast<unsigned char*>(data), detail::Wiper{data == nullptr ? 0 : size}}
    {
    }

    /** A copy of `bytes`. */
    [[nodiscard]] static Expected<Bytes> copy(ByteSpan bytes)
    {
        void* const made = std::malloc(bytes.empty() ? 1 : bytes.size());
        if (made == nullptr)
        {
            return Error{BMCOAUTH_RULE_MEMORY_EXHAUSTED};
        }
        if (!bytes.empty())
        {
            std::memcpy(made, bytes.data(), bytes.size());
        }
        return Bytes{made, bytes.size()};
    }

    /** The bytes, as long as this object lives. */
    [[nodiscard]] ByteSpan span() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return owned ? ByteSpan{owned.get(), owned.get_deleter().size} : ByteSpan{};
    }
    [[nodiscard]] ByteSpan span() const&& = delete;
    /** The same as `span`. */
    operator ByteSpan() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return span();
    }
    operator ByteSpan() const&& = delete;
    /** The first byte; null if there are none. */
    [[nodiscard]] unsigned char* data() & noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return owned.get();
    }
    /** The bytes as a text, which may hold any. */
    [[nodiscard]] std::string_view view() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        const void* const data = owned.get();
        return {static_cast<const char*>(data), span().size()};
    }
    [[nodiscard]] std::string_view view() const&& = delete;

private:
    std::unique_ptr<unsigned char, detail::Wiper> owned;
};

/** The bytes that `text` is made of, as long as it lives. */
[[nodiscard]] inline ByteSpan bytesOf(std::string_view text) noexcept
{
    const void* const data = text.data();
    return {static_cast<const unsigned char*>(data), text.size()};
}

namespace detail
{

/** What a range shows of a text of its array. */
[[nodiscard]] inline std::string_view viewedText(const char* text) noexcept
{
    return text == nullptr ? std::string_view{} : std::string_view{text};
}

} // namespace detail

/** TextRange looks at a string array, which must outlive it: `for (std::string_view text : range)`.
 */
class TextRange : public detail::RecordRange<const char, detail::viewedText>
{
public:
    using RecordRange::RecordRange;

    /** Whether one of the texts is exactly `wanted`. */
    [[nodiscard]] bool contains(std::string_view wanted) const noexcept
    {
        Iterator text = begin();
        while (text != end() && *text != wanted)
        {
            ++text;
        }
        return text != end();
    }
};

/** Texts owns a string array. */
class Texts : public detail::Owned<char*, free_char_array>
{
public:
    using Owned::Owned;

    /** The texts, as long as this object lives. */
    [[nodiscard]] TextRange range() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return TextRange{get()};
    }
    [[nodiscard]] TextRange range() const&& = delete;
    /** The first text. */
    [[nodiscard]] TextRange::Iterator begin() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return TextRange::Iterator{get()};
    }
    /** Behind the last text. */
    [[nodiscard]] static std::default_sentinel_t end() noexcept
    {
        return {};
    }
    /** Counts the texts. */
    [[nodiscard]] std::size_t size() const noexcept
    {
        return TextRange{get()}.size();
    }
};

} // namespace v1
} // namespace bmcoauth
