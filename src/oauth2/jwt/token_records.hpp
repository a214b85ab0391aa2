// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/owners.hpp"
#include "common/plain_json.hpp"
#include "crypto/base64.hpp"

#include <bmcoauth/jwt.h>
#include <bmcoauth/token.h>

#include <json/value.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace bmcoauth::internal::jwt
{

using HeaderPtr = std::unique_ptr<JWTHeader, Releaser<free_jwt_header>>;
using PayloadPtr = std::unique_ptr<JWTPayload, Releaser<free_jwt_payload>>;

/** Releases an array of scope entries together with what the entries hold. */
struct ScopesReleaser
{
    int count = 0;

    void operator()(JWTscopes* scopes) const noexcept
    {
        free_jwt_scopes(scopes, count);
        std::free(scopes);
    }
};

/** Owns an array of scope entries; its deleter knows their number. */
using ScopesPtr = std::unique_ptr<JWTscopes, ScopesReleaser>;

/** The texts of a payload; `iat` and `nbf` may be null. */
struct PayloadTexts
{
    const char* sub;
    const char* jti;
    const char* iss;
    const char* iat;
    const char* nbf;
    const char* exp;
};

/** create_jwt_header for callers inside. */
[[nodiscard]] HeaderPtr makeHeader(const char* typ, const char* alg, const char* kid) noexcept;

/** A payload without scopes, as create_jwt_payload makes it at the second @p now; null when a text
 *  is missing, when the token would expire this very second, or when memory runs out. */
[[nodiscard]] PayloadPtr makePayload(const PayloadTexts& texts, std::uint64_t now);

/** Hands @p scopes over to @p payload, which has none yet. */
void giveScopes(JWTPayload& payload, ScopesPtr scopes) noexcept;

/** The parts of a compact token, without the dots, undecoded. */
struct TokenParts
{
    std::string_view header;
    std::string_view payload;
    std::string_view signature;
    std::string_view signingInput; /**< header, dot and payload: what the signature covers */
};

/** Refuse a token for its "exp" or its "nbf". */
[[gnu::cold]] bmcoauth_token_result refuseExpired(const char* expiry, std::uint64_t now) noexcept;
[[gnu::cold]] bmcoauth_token_result refuseNotYetValid(const char* notBefore,
                                                      std::uint64_t now) noexcept;

/** Throws std::bad_alloc if exhausted memory is what a JSON text has been refused for: its reader
 *  does not throw all of it, and the text may be a sound one. */
void throwExhaustedMemory();

/** Splits @p token at its first two dots; a further dot is left in the signature, where it does
 *  not decode. Nothing when there are fewer. */
[[nodiscard]] std::optional<TokenParts> splitToken(std::string_view token) noexcept;

/** The members of the JSON object that a part of a token encodes. Of two of one name the later holds. */
class Claims
{
public:
    /** Reads the Base64url text @p part; false unless it encodes an object. Throws std::bad_alloc. */
    [[nodiscard]] bool read(std::string_view part);

    /** The member @p name if it is a string, up to its first zero byte; else null. */
    [[nodiscard]] const char* text(const char* name) const noexcept;

    /** The member @p name, until another one is asked for; null where there is none. Throws
     *  std::bad_alloc. */
    [[nodiscard]] const Json::Value* value(const char* name);

    /** Whether writing the member @p name and reading it again is known to give the same. */
    [[nodiscard]] bool staysTheSame(const char* name) const noexcept;

private:
    /** More than the tokens of known issuers have. */
    static constexpr std::size_t usualMost = 32;

    [[nodiscard]] const PlainMember* find(std::string_view name) const noexcept;

    crypto::DecodedBytes bytes;
    std::array<PlainMember, usualMost> members{};
    std::size_t count = 0;
    Json::Value tree; /**< of an unusual document, which has no members above */
    Json::Value last;
};

/** The header that @p part of a token encodes; null when it does not decode or has no "alg".
 *  Throws std::bad_alloc. */
[[nodiscard]] HeaderPtr readHeader(std::string_view part);

/** The payload that @p part of a token encodes; claims may be missing. Null when it does not
 *  decode, or a scope value is not a text. Throws std::bad_alloc. */
[[nodiscard]] PayloadPtr readPayload(std::string_view part);

/** The entries that the members of the JSON object @p text make. Each counts one value, however
 *  many its member holds; the texts of the others are behind the pointers, inside the block
 *  `values`, so that free_jwt_scopes releases them with it. Null when @p text is not an object.
 *  Throws std::bad_alloc, and jsoncpp's error for a scope value that is not a text. */
[[nodiscard]] ScopesPtr structuredScopes(std::string_view text);

} // namespace bmcoauth::internal::jwt
