// SPDX-License-Identifier: Apache-2.0
#pragma once

/* Random texts and Base64, over <bmcoauth/encoding.h>. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/owners.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/encoding.h>

#include <climits>

#include <array>
#include <cstddef>
#include <string_view>

namespace bmcoauth
{
inline namespace v1
{

/** `count` random bytes in Base64: issueRandomToken. */
[[nodiscard]] inline Expected<Text> randomToken(unsigned int count)
{
    char* token = nullptr;
    ::issueRandomToken(&token, count);
    return detail::ownedOrRefused<Text>(token);
}

/** `count` random bytes, 16 at most, as "0x" and hexadecimal digits: issueRandomBytesInHex. */
[[nodiscard]] inline Expected<Text> randomHex(unsigned int count)
{
    std::array<char, 36> digits{};
    if (count > 16)
    {
        return Error{BMCOAUTH_RULE_ARGUMENT_RANGE, "count"};
    }
    const bool made = ::issueRandomBytesInHex(digits.data(), static_cast<int>(count)) == 1;
    Expected<Text> result = made ? Text::copy(digits.data()) : Error::last();
    detail::wipe(digits.data(), digits.size());
    return result;
}

/** Standard Base64 with padding, in one line: base64encode. */
[[nodiscard]] inline Expected<Text> base64(ByteSpan bytes)
{
    if (bytes.size() > static_cast<std::size_t>(INT_MAX))
    {
        return Error{BMCOAUTH_RULE_ARGUMENT_LENGTH, "bytes"};
    }
    char* text = nullptr;
    // No bytes may well have no address.
    const void* const data = bytes.empty() ? static_cast<const void*>("") : bytes.data();
    if (::base64encode(data, &text, static_cast<int>(bytes.size())) != 1)
    {
        return Error::last();
    }
    return Text{text};
}

/** Base64url without padding: base64encode, then base64URIencode. */
[[nodiscard]] inline Expected<Text> base64Url(ByteSpan bytes)
{
    return base64(bytes).and_then([](Text text) -> Expected<Text> {
        char* const raw = text.release();
        static_cast<void>(::base64URIencode(raw));
        return Text{raw};
    });
}

/** The bytes of a Base64url or Base64 text, one at least: base64URIdecode. */
[[nodiscard]] inline Expected<Bytes> decodeBase64Url(std::string_view text)
{
    detail::Arguments in;
    const char* const encoded = in.text("text", text);
    if (in.failed())
    {
        return in.failure();
    }
    char* bytes = nullptr;
    int length = 0;
    if (::base64URIdecode(encoded, &bytes, &length) != 1)
    {
        return Error::last();
    }
    return Bytes{bytes, static_cast<std::size_t>(length)};
}

} // namespace v1
} // namespace bmcoauth
