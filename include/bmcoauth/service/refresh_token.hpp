// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The texts of refresh tokens: "FAMILY.SECRET", 16 random bytes and then 16 or 32 more.
 *
 * A token is replaced by one that is computed from it and from a salt that the store keeps. So the
 * store holds no token, and whoever comes with the replaced one can be given the same answer once
 * more. Whoever has only one of the two, token or salt, has nothing. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/encoding.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/service/secret_digest.hpp>

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace bmcoauth
{
inline namespace v1
{

namespace detail
{

/** The part of a refresh token that its family has in common; all of a text that is not one. */
[[nodiscard]] inline std::string_view familyPart(std::string_view token) noexcept
{
    return token.substr(0, token.find('.'));
}

/** "family.secret" */
[[nodiscard]] inline Expected<Text> joinedToken(std::string_view family, std::string_view secret)
{
    std::string joined;
    // One block, so that one is wiped.
    joined.reserve(family.size() + 1 + secret.size());
    joined.append(family).append(".").append(secret);
    Expected<Text> token = Text::copy(joined);
    wipe(joined.data(), joined.size());
    return token;
}

/** The first refresh token of a new family. */
[[nodiscard]] inline Expected<Text> firstRefreshToken()
{
    constexpr unsigned int bytes = 16;
    const Expected<Text> family = randomToken(bytes);
    const Expected<Text> secret = randomToken(bytes);
    if (!family || !secret)
    {
        return family ? secret.error() : family.error();
    }
    return joinedToken(*family, *secret);
}

/** The token that replaces `token`: the same each time. */
[[nodiscard]] inline Expected<Text> nextRefreshToken(std::string_view token, std::string_view salt)
{
    std::array<unsigned char, SecretDigest::size> code{};
    const ByteSpan text = bytesOf(salt);
    if (HMAC(EVP_sha256(), token.data(), static_cast<int>(token.size()), text.data(), text.size(),
             code.data(), nullptr) == nullptr)
    {
        return Error{BMCOAUTH_RULE_MEMORY_EXHAUSTED};
    }
    const Expected<Text> secret = base64Url(code);
    wipe(code.data(), code.size());
    return secret ? joinedToken(familyPart(token), *secret) : secret.error();
}

} // namespace detail

} // namespace v1
} // namespace bmcoauth
