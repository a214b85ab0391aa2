// SPDX-License-Identifier: Apache-2.0
#pragma once

/* What the validators of the service layer ask of every token before they look at its signature. */

#include <bmcoauth/cpp/encoding.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/parameters.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/cpp/validation.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <system_error>

namespace bmcoauth
{
inline namespace v1
{

namespace detail
{

/** In bytes; longer tokens are refused unread. */
inline constexpr std::size_t longestToken = 16384;

/** The scope entry that says who a token of one's own is for. */
inline constexpr std::string_view audienceEntry = "aud";

/** Whether `text` is UTF-8 (RFC 3629): shortest forms only, no surrogates, up to U+10FFFF. */
[[nodiscard]] inline bool isUtf8(std::string_view text) noexcept
{
    struct Form
    {
        // The first byte, and the second, which alone tells overlong forms and surrogates.
        std::array<unsigned char, 2> first;
        std::array<unsigned char, 2> second;
        std::size_t length;
    };
    constexpr std::array<Form, 8> forms{{{{0xc2, 0xdf}, {0x80, 0xbf}, 2},
                                         {{0xe0, 0xe0}, {0xa0, 0xbf}, 3},
                                         {{0xe1, 0xec}, {0x80, 0xbf}, 3},
                                         {{0xed, 0xed}, {0x80, 0x9f}, 3},
                                         {{0xee, 0xef}, {0x80, 0xbf}, 3},
                                         {{0xf0, 0xf0}, {0x90, 0xbf}, 4},
                                         {{0xf1, 0xf3}, {0x80, 0xbf}, 4},
                                         {{0xf4, 0xf4}, {0x80, 0x8f}, 4}}};
    const auto isIn = [](unsigned char byte, const std::array<unsigned char, 2>& range) {
        return byte >= range[0] && byte <= range[1];
    };
    ByteSpan rest = bytesOf(text);
    while (!rest.empty())
    {
        std::size_t length = 1;
        if (rest.front() >= 0x80)
        {
            const auto* const form = std::ranges::find_if(
                forms, [&](const Form& one) { return isIn(rest.front(), one.first); });
            if (form == forms.end() || rest.size() < form->length || !isIn(rest[1], form->second) ||
                !std::ranges::all_of(rest.subspan(2, form->length - 2), [&](unsigned char byte) {
                    return isIn(byte, {0x80, 0xbf});
                }))
            {
                return false;
            }
            length = form->length;
        }
        rest = rest.subspan(length);
    }
    return true;
}

/** The names of the members in the part `name` of a token. Refused if it is not UTF-8. */
[[nodiscard]] inline Expected<Texts> namesIn(const char* name, std::string_view part)
{
    const Expected<Bytes> json = decodeBase64Url(part);
    if (!json)
    {
        return Error{BMCOAUTH_RULE_POLICY_ENCODING, name};
    }
    return isUtf8(json->view()) ? memberNames(json->view())
                                : Error{BMCOAUTH_RULE_POLICY_ENCODING, name};
}

/** Refuses a token that is not three parts of plain Base64url. Other forms, with padding or line
 *  feeds, would be further texts of the same token. */
[[nodiscard]] inline Expected<void> requirePlain(std::string_view token)
{
    if (token.size() > longestToken)
    {
        return Error{BMCOAUTH_RULE_ARGUMENT_LENGTH, "token"};
    }
    const auto isPlain = [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
               c == '-' || c == '_' || c == '.';
    };
    if (!std::ranges::all_of(token, isPlain))
    {
        return Error{BMCOAUTH_RULE_POLICY_ENCODING, "token"};
    }
    return std::ranges::count(token, '.') == 2 ? Expected<void>{}
                                               : Error{BMCOAUTH_RULE_TOKEN_PARTS};
}

/** Reads `token`, whose signature nobody has verified yet. Refused if a part is not UTF-8 or holds a
 *  zero byte, if the header has "crit" (RFC 7515, section 4.1.11), and if "nbf" or "iat" is there in
 *  a form that is not read: it would count as absent. */
[[nodiscard]] inline Expected<UnverifiedToken> readStrictly(std::string_view token)
{
    if (const Expected<void> plain = requirePlain(token); !plain)
    {
        return plain.error();
    }
    const std::size_t first = token.find('.');
    const std::size_t second = token.rfind('.');
    const Expected<Texts> header = namesIn("header", token.substr(0, first));
    const Expected<Texts> payload =
        header ? namesIn("payload", token.substr(first + 1, second - first - 1)) : header.error();
    if (!payload)
    {
        return payload.error();
    }
    if (header->range().contains("crit"))
    {
        return Error{BMCOAUTH_RULE_POLICY_CRITICAL, "crit"};
    }
    Expected<UnverifiedToken> read = readUnverified(token);
    const std::optional<UnverifiedClaims> claims = read ? read->unverifiedClaims() : std::nullopt;
    if (claims && payload->range().contains("nbf") && !claims->notBefore())
    {
        return Error{BMCOAUTH_RULE_TOKEN_MEMBER, "nbf"};
    }
    if (claims && payload->range().contains("iat") && !claims->issuedAt())
    {
        return Error{BMCOAUTH_RULE_TOKEN_MEMBER, "iat"};
    }
    return read;
}

/** The time in the claim `name`: decimal digits without a sign or leading zeros, up to the year
 *  9999. */
[[nodiscard]] inline Expected<std::chrono::sys_seconds>
timeIn(const char* name, const std::optional<std::string_view>& text)
{
    constexpr std::int64_t endOfYear9999 = 253402300799;
    std::int64_t seconds = -1;
    const char* const end = text ? text->data() + text->size() : nullptr;
    const std::from_chars_result read =
        text ? std::from_chars(text->data(), end, seconds) : std::from_chars_result{};
    if (!text || read.ec != std::errc{} || read.ptr != end || seconds < 0 ||
        seconds > endOfYear9999 || (text->size() > 1 && text->front() == '0') ||
        text->front() == '-')
    {
        return Error{BMCOAUTH_RULE_TOKEN_MEMBER, name};
    }
    return std::chrono::sys_seconds{std::chrono::seconds{seconds}};
}

} // namespace detail

} // namespace v1
} // namespace bmcoauth
