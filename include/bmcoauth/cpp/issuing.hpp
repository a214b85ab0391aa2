// SPDX-License-Identifier: Apache-2.0
#pragma once

/* Issuing single tokens, over <bmcoauth/jwt.h>. What a token endpoint answers is in
 * <bmcoauth/cpp/authorize.hpp>. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/keys.hpp>
#include <bmcoauth/cpp/owners.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/cpp/token.hpp>
#include <bmcoauth/jwt.h>
#include <bmcoauth/token.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace bmcoauth
{
inline namespace v1
{

/** One entry of a "scope" claim that is an object: a member and its texts, one at least. */
struct ScopeEntry
{
    /** The member's name. */
    std::string_view name = {};
    /** Its texts. */
    TextSpan values = {};
};

/** What a token is issued with. Times are in seconds since the epoch; those that are absent are the
 *  current time. */
struct TokenPlan
{
    /** The claim "sub". */
    std::string_view subject = {};
    /** The claim "jti". */
    std::string_view id = {};
    /** The claim "iss". */
    std::string_view issuer = {};
    /** The claim "exp". */
    std::uint64_t expiresAt = 0;
    /** The claim "iat". */
    std::optional<std::uint64_t> issuedAt = {};
    /** The claim "nbf". */
    std::optional<std::uint64_t> notBefore = {};
    /** The claim "scope". */
    std::span<const ScopeEntry> scopes = {};
    /** The header's "kid". */
    std::optional<std::string_view> keyId = {};
    /** What the header says; the signature is ECDSA with SHA-256 in any case. */
    std::string_view algorithm = "ES256";
    /** The header's "typ". */
    std::string_view type = "JWT";
};

namespace detail
{

/** The scope entries of a call, borrowed as the rest of its arguments. */
[[nodiscard]] inline JWTscopes* scopeEntries(Arguments& in, std::span<const ScopeEntry> scopes)
{
    auto* const entries = in.array<JWTscopes>(scopes.size());
    for (std::size_t i = 0; entries != nullptr && i < scopes.size(); ++i)
    {
        entries[i] = {in.text(scopes[i].name), in.texts(scopes[i].values),
                      in.length<int>(scopes[i].values.size())};
    }
    return entries;
}

} // namespace detail

/** Issues a token: generateJWT. */
[[nodiscard]] inline Expected<Text> issueToken(const TokenPlan& plan, const PrivateKey& key)
{
    if (key.der().empty())
    {
        // A null key stands for one that nobody keeps.
        return Error::missing;
    }
    detail::Arguments in;
    const char* const type = in.text(plan.type);
    const char* const algorithm = in.text(plan.algorithm);
    const char* const keyId = in.maybe(plan.keyId);
    const char* const subject = in.text(plan.subject);
    const char* const id = in.text(plan.id);
    const char* const issuer = in.text(plan.issuer);
    const char* const issuedAt = plan.issuedAt ? in.decimal(*plan.issuedAt) : nullptr;
    const char* const notBefore = plan.notBefore ? in.decimal(*plan.notBefore) : nullptr;
    const char* const expiresAt = in.decimal(plan.expiresAt);
    JWTscopes* const scopes = detail::scopeEntries(in, plan.scopes);
    const int scopeCount = in.length<int>(plan.scopes.size());
    if (in.failure())
    {
        return *in.failure();
    }
    const TokenHeader header{::create_jwt_header(type, algorithm, keyId)};
    const detail::PayloadRecord payload{
        ::create_jwt_payload(subject, id, issuer, issuedAt, notBefore, expiresAt, nullptr, 0)};
    if (!header || !payload)
    {
        return Error::refused;
    }
    // Lent for the call: the record would release what it keeps.
    payload.get()->scopes = scopes;
    payload.get()->scopes_count = scopeCount;
    char* const token = ::generateJWT(header.get(), payload.get(), key.der().data(),
                                      static_cast<int>(key.der().size()));
    payload.get()->scopes = nullptr;
    payload.get()->scopes_count = 0;
    return detail::ownedOrRefused<Text>(token);
}

} // namespace v1
} // namespace bmcoauth
