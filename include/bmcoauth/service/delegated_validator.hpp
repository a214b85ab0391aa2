// SPDX-License-Identifier: Apache-2.0
#pragma once

/* Judging tokens of other issuers. */

#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/privileges.hpp>
#include <bmcoauth/cpp/token.hpp>
#include <bmcoauth/cpp/validation.hpp>
#include <bmcoauth/service/clock.hpp>
#include <bmcoauth/service/expectation.hpp>
#include <bmcoauth/service/key_set.hpp>
#include <bmcoauth/service/strict_reading.hpp>
#include <bmcoauth/service/valid_token.hpp>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bmcoauth
{
inline namespace v1
{

/** A role of an issuer's tokens, and what it grants here. */
struct RoleGrant
{
    /** As in "ravok_roles". */
    std::string name;
    /** What it grants. */
    Privileges privileges;
};

/** TrustedIssuer is another issuer, and what is expected of its tokens. Each Expectation must be
 *  given, if only as `ignored`. */
struct TrustedIssuer
{
    /** The claim "iss". */
    std::string name;
    /** Its keys: the text of a JSON Web Key Set. Nothing is ever fetched. Of several keys, each
     *  needs a "kid". RSA keys have 2048 bits at least. Keys that are not for signatures, or not for
     *  one of `algorithms`, are left out. */
    std::string jwks;
    /** The values of "alg" that are taken, such as "ES256": each with keys of its type and curve and,
     *  if a key has an "alg", with that key. One at least. */
    std::vector<std::string> algorithms;
    /** The claim "aud", or one of its values. */
    Expectation<std::string> audience;
    /** From "iat" to "exp"; from now on if there is no "iat". */
    Expectation<std::chrono::seconds> longestLifetime;
    /** The header's "typ", exactly. */
    Expectation<std::string> type;
    /** What the names in "ravok_roles" grant. */
    std::vector<RoleGrant> roles = {};
    /** The identity providers whose codes in "xidp" count. NOTE: those of "*" always do; see
     *  `mostPrivileges`. */
    std::vector<std::string> providers = {};
    /** More than these, no token of this issuer grants. */
    Privileges mostPrivileges = Privileges::all();
    /** How far clocks may differ; ten minutes at most. */
    std::chrono::seconds skew{0};
    /** Whether the issuer may write the rights itself: takes tokens whose "scope" is an object, with
     *  the privileges in its entry "USER_PRIV". If not, such tokens are refused. */
    bool allowIssuerScopes = false;
};

/** What a DelegatedValidator does with tokens of all its issuers. */
struct DelegatedRules
{
    /** Refuses tokens that have been revoked; each token must then have a "jti". */
    Expectation<RevocationCheck> revoked;
    /** How many valid tokens are remembered; 0 for none. */
    std::size_t cacheSize = 128;
};

/** DelegatedValidator judges tokens of others, each by the rules and by one key of the issuer that
 *  its "iss" names: a hundred keys cost no more than one. What is refused of every token, what is
 *  remembered, and which threads may call, is as for TokenValidator. Other issuers or keys are
 *  another validator. */
class DelegatedValidator
{
public:
    /** Imports the keys. Refused if an issuer has no name or that of another, an algorithm is not
     *  known, there is no key for those that are expected, a key is weak or has no "kid" where there
     *  are several; if an expected text or a function is empty; or if a number is out of range. */
    [[nodiscard]] static Expected<DelegatedValidator> of(std::vector<TrustedIssuer> issuers,
                                                         DelegatedRules rules, Clock clock)
    {
        const Expected<void> sound =
            detail::SeenTokens::check(rules.revoked, clock, rules.cacheSize);
        if (!sound || issuers.empty())
        {
            return sound ? Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, "issuers"} : sound.error();
        }
        std::vector<Issuer> imported;
        for (TrustedIssuer& issuer : issuers)
        {
            if (std::ranges::find(imported, issuer.name, nameOf) != imported.end())
            {
                return Error{BMCOAUTH_RULE_ARGUMENT_CONFLICT, "name",
                             static_cast<int>(imported.size())};
            }
            const Expected<void> usable = requireUsable(issuer);
            Expected<detail::KeySet> keys =
                usable ? detail::KeySet::import(issuer.jwks, issuer.algorithms) : usable.error();
            if (!keys)
            {
                return keys.error();
            }
            imported.push_back({std::move(issuer), std::move(*keys)});
        }
        return DelegatedValidator{std::move(imported),
                                  {std::move(rules.revoked), std::move(clock), rules.cacheSize}};
    }

    /** Judges `token`. The error is for logs, never for the peer. */
    [[nodiscard]] Expected<ValidToken> validate(std::string_view token) const
    {
        return seen.validate(token, 0,
                             [&](std::chrono::sys_seconds now) { return judge(token, now); });
    }

private:
    struct Issuer
    {
        TrustedIssuer rules;
        detail::KeySet keys;
    };

    DelegatedValidator(std::vector<Issuer> trusted, detail::SeenTokens tokens)
        : issuers{std::move(trusted)}, seen{std::move(tokens)}
    {
    }

    [[nodiscard]] static const std::string& nameOf(const Issuer& issuer) noexcept
    {
        return issuer.rules.name;
    }

    [[nodiscard]] static Expected<void> requireUsable(const TrustedIssuer& issuer)
    {
        for (const auto& [name, text] :
             {std::pair{"name", &issuer.name}, std::pair{"audience", issuer.audience.get()},
              std::pair{"type", issuer.type.get()}})
        {
            if (text != nullptr && text->empty())
            {
                return Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, name};
            }
        }
        for (const std::string& algorithm : issuer.algorithms)
        {
            if (std::ranges::find(detail::algorithmTable, algorithm,
                                  &detail::AlgorithmFacts::name) == detail::algorithmTable.end())
            {
                return Error{BMCOAUTH_RULE_ARGUMENT_RANGE, "algorithms"};
            }
        }
        const std::chrono::seconds* const longest = issuer.longestLifetime.get();
        if (issuer.skew.count() < 0 || issuer.skew > std::chrono::minutes{10} ||
            (longest != nullptr && longest->count() < 1))
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_RANGE,
                         longest != nullptr && longest->count() < 1 ? "longestLifetime" : "skew"};
        }
        return {};
    }

    /** The issuer that the token names, by whose keys alone it may then be verified. */
    [[nodiscard]] Expected<const Issuer*> issuerOf(const UnverifiedToken& token) const
    {
        const std::optional<UnverifiedClaims> claims = token.unverifiedClaims();
        const std::optional<std::string_view> name = claims ? claims->issuer() : std::nullopt;
        const auto found = std::ranges::find_if(
            issuers, [&name](const Issuer& issuer) { return name == issuer.rules.name; });
        if (found == issuers.end())
        {
            return Error{BMCOAUTH_RULE_POLICY_ISSUER, "iss"};
        }
        if (!found->rules.allowIssuerScopes && !claims->scopeEntries().empty())
        {
            return Error{BMCOAUTH_RULE_POLICY_SCOPES, "scope"};
        }
        const std::string* const type = found->rules.type.get();
        if (type != nullptr && token.unverifiedHeader().type() != *type)
        {
            return Error{BMCOAUTH_RULE_POLICY_TYPE, "typ"};
        }
        return &*found;
    }

    [[nodiscard]] Expected<detail::JudgedToken> judge(std::string_view token,
                                                      std::chrono::sys_seconds now) const
    {
        const Expected<UnverifiedToken> read = detail::readStrictly(token);
        const Expected<const Issuer*> issuer = read ? issuerOf(*read) : read.error();
        const Expected<const detail::VerifyingKey*> key =
            issuer ? (*issuer)->keys.select(read->unverifiedHeader()) : issuer.error();
        Expected<VerifiedToken> verified =
            key ? verifiedBy(**key, token, (*issuer)->rules) : Expected<VerifiedToken>{key.error()};
        if (!verified)
        {
            return verified.error();
        }
        const TrustedIssuer& rules = (*issuer)->rules;
        const Claims claims = verified->claims();
        const std::string* const audience = rules.audience.get();
        if (audience != nullptr && !claims.audiences().contains(*audience))
        {
            return Error{BMCOAUTH_RULE_POLICY_AUDIENCE, "aud"};
        }
        if (!detail::isUtf8(claims.subject().value_or("")))
        {
            return Error{BMCOAUTH_RULE_POLICY_ENCODING, "sub"};
        }
        const Expected<detail::Period> period =
            detail::periodOf(claims, rules.skew, rules.longestLifetime.get(), now);
        if (!period)
        {
            return period.error();
        }
        const unsigned int granted = userPrivileges(*verified).value_or(Privileges{}).bits();
        return detail::JudgedToken{std::move(*verified),
                                   Privileges{granted & rules.mostPrivileges.bits()}, *period};
    }

    [[nodiscard]] static Expected<VerifiedToken>
    verifiedBy(const detail::VerifyingKey& key, std::string_view token, const TrustedIssuer& issuer)
    {
        std::vector<Role> roles;
        for (const RoleGrant& role : issuer.roles)
        {
            roles.push_back({role.name, role.privileges});
        }
        const std::vector<std::string_view> providers{issuer.providers.begin(),
                                                      issuer.providers.end()};
        return detail::verifiedBy(key, token, {.roles = roles, .providers = providers});
    }

    std::vector<Issuer> issuers;
    detail::SeenTokens seen;
};

} // namespace v1
} // namespace bmcoauth
