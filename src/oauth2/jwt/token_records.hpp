// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/owners.hpp"

#include <bmcoauth/token.h>

#include <cstdint>

namespace bmcoauth::jwt
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

/** A payload without scopes, as create_jwt_payload makes it at the second @p now; null when a text
 *  is missing, when the token would expire this very second, or when memory runs out. */
[[nodiscard]] PayloadPtr makePayload(const PayloadTexts& texts, std::uint64_t now);

/** Hands @p scopes over to @p payload, which has none yet. */
void giveScopes(JWTPayload& payload, ScopesPtr scopes) noexcept;

} // namespace bmcoauth::jwt
