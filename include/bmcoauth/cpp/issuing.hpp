// SPDX-License-Identifier: Apache-2.0
#pragma once

/* Issuing single tokens, over <bmcoauth/jwt.h>. What a token endpoint answers is in
 * <bmcoauth/cpp/authorize.hpp>. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/keys.hpp>
#include <bmcoauth/cpp/owners.hpp>
#include <bmcoauth/cpp/privileges.hpp>
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
    Borrowed<std::string_view> values = {};
};

/** The contents of a token. Times are in seconds since the epoch; an absent one is the current
 *  time. */
struct TokenPlan
{
    /** The claim "sub". */
    std::string_view subject = {};
    /** The claim "jti". */
    std::string_view id = {};
    /** The claim "iss". */
    std::string_view issuer = {};
    /** The claim "exp". Must be set: issueToken refuses 0. */
    std::uint64_t expiresAt = 0;
    /** The claim "iat". */
    std::optional<std::uint64_t> issuedAt = {};
    /** The claim "nbf". */
    std::optional<std::uint64_t> notBefore = {};
    /** The claim "scope". */
    Borrowed<ScopeEntry> scopes = {};
    /** The privileges of the subject: the scope entry "USER_PRIV", which userPrivileges reads.
     *  `scopes` must then not have such an entry. */
    std::optional<Privileges> privileges = {};
    /** The header's "kid". */
    std::optional<std::string_view> keyId = {};
    /** The header's "alg". The signature is always ECDSA with SHA-256. */
    std::string_view algorithm = "ES256";
    /** The header's "typ". */
    std::string_view type = "JWT";
};

namespace detail
{

/** The scope entries of a call, borrowed as the rest of its arguments. */
struct ScopeEntries
{
    /** The first entry; null if something has failed. */
    JWTscopes* entries = nullptr;
    /** How many there are. */
    int count = 0;

    /** Copies `scopes` and, where they are given, the privileges. */
    ScopeEntries(Arguments& in, std::span<const ScopeEntry> scopes,
                 const std::optional<Privileges>& privileges) noexcept
        : entries{in.array<JWTscopes>("scopes", scopes.size() + 1)},
          count{in.length<int>("scopes", scopes.size() + (privileges ? 1 : 0))}
    {
        for (std::size_t i = 0; entries != nullptr && i < scopes.size(); ++i)
        {
            const ScopeEntry& entry = scopes[i];
            if (privileges && entry.name == privilegesEntry)
            {
                // Written after one another, the two would be one, and readers could disagree
                // which of them counts.
                in.fail(BMCOAUTH_RULE_ARGUMENT_CONFLICT, "scopes", static_cast<int>(i));
            }
            entries[i] = {in.text("scopes", entry.name, static_cast<int>(i)),
                          in.texts("values", entry.values),
                          in.length<int>("values", entry.values.size())};
        }
        char** const mask = privileges ? in.array<char*>("privileges", 1) : nullptr;
        if (mask != nullptr && entries != nullptr)
        {
            *mask = in.decimal(privileges->bits());
            entries[scopes.size()] = {in.text("privileges", privilegesEntry), mask, 1};
        }
    }
};

/** The token of `header` and `payload`, which has `scopes` for the call: the record would release
 *  what it keeps. */
[[nodiscard]] inline Expected<Text> signedToken(const TokenHeader& header,
                                                const PayloadRecord& payload,
                                                const ScopeEntries& scopes, ByteSpan key)
{
    payload.get()->scopes = scopes.entries;
    payload.get()->scopes_count = scopes.count;
    char* const token =
        ::generateJWT(header.get(), payload.get(), key.data(), static_cast<int>(key.size()));
    payload.get()->scopes = nullptr;
    payload.get()->scopes_count = 0;
    return ownedOrRefused<Text>(token);
}

} // namespace detail

/** Issues a token: generateJWT. */
[[nodiscard]] inline Expected<Text> issueToken(const TokenPlan& plan, const PrivateKey& key)
{
    // A null key stands for one that nobody keeps.
    if (key.der().empty())
    {
        return Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, "key"};
    }
    if (plan.expiresAt == 0)
    {
        return Error{BMCOAUTH_RULE_ARGUMENT_RANGE, "expiresAt"};
    }
    detail::Arguments in;
    const char* const type = in.text("type", plan.type);
    const char* const algorithm = in.text("algorithm", plan.algorithm);
    const char* const keyId = in.maybe("keyId", plan.keyId);
    const char* const subject = in.text("subject", plan.subject);
    const char* const id = in.text("id", plan.id);
    const char* const issuer = in.text("issuer", plan.issuer);
    const char* const issuedAt = plan.issuedAt ? in.decimal(*plan.issuedAt) : nullptr;
    const char* const notBefore = plan.notBefore ? in.decimal(*plan.notBefore) : nullptr;
    const char* const expiresAt = in.decimal(plan.expiresAt);
    const detail::ScopeEntries scopes{in, plan.scopes, plan.privileges};
    if (in.failed())
    {
        return in.failure();
    }
    const TokenHeader header{::create_jwt_header(type, algorithm, keyId)};
    if (!header)
    {
        return Error::last();
    }
    const detail::PayloadRecord payload{
        ::create_jwt_payload(subject, id, issuer, issuedAt, notBefore, expiresAt, nullptr, 0)};
    if (!payload)
    {
        return Error::last();
    }
    return detail::signedToken(header, payload, scopes, key.der());
}

} // namespace v1
} // namespace bmcoauth
