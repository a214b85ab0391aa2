// SPDX-License-Identifier: Apache-2.0
#pragma once

/* Judging tokens of one's own. */

#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/privileges.hpp>
#include <bmcoauth/cpp/token.hpp>
#include <bmcoauth/cpp/validation.hpp>
#include <bmcoauth/service/clock.hpp>
#include <bmcoauth/service/expectation.hpp>
#include <bmcoauth/service/key_set.hpp>
#include <bmcoauth/service/strict_reading.hpp>
#include <bmcoauth/service/valid_token.hpp>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace bmcoauth
{
inline namespace v1
{

/** What a TokenValidator expects. Each Expectation must be given, if only as `ignored`. */
struct TokenRules
{
    /** The claim "iss". */
    Expectation<std::string> issuer;
    /** The scope entry "aud", which TokenIssuer writes. */
    Expectation<std::string> audience;
    /** From "iat" to "exp". */
    Expectation<std::chrono::seconds> longestLifetime;
    /** Refuses tokens that have been revoked. */
    Expectation<RevocationCheck> revoked;
    /** The header's "typ", exactly. */
    std::string type = "JWT";
    /** How many valid tokens are remembered; 0 for none. */
    std::size_t cacheSize = 128;
};

/** TokenValidator judges tokens of one's own by public keys. It takes a token of UTF-8 without zero
 *  bytes whose header says ES256, the expected type and the id of a key, and nothing critical; that
 *  this key has signed; whose claims are as expected; in its time; unless it is revoked.
 *
 *  A token that was valid before is recognized by the SHA-256 digest of its whole text, without a
 *  signature, a lock that other readers wait for, or memory of the heap. Clock and revocation are
 *  asked each time. Remembered are valid tokens of 4 KiB at most, until the keys change. Each takes
 *  64 bytes, and what its claims take: about 650 bytes for one of TokenIssuer, 30 KiB at worst.
 *
 *  Any thread may call `validate`. Another policy is another validator. */
class TokenValidator
{
public:
    /** Refused if an expected text or a function is empty, the longest lifetime is not positive, or
     *  the cache holds more than 65,536 tokens. */
    [[nodiscard]] static Expected<TokenValidator> of(const VerificationKeys& keys, TokenRules rules,
                                                     Clock clock)
    {
        for (const auto& [name, text] :
             {std::pair{"issuer", rules.issuer.get()}, std::pair{"audience", rules.audience.get()},
              std::pair{"type", &std::as_const(rules.type)}})
        {
            if (text != nullptr && text->empty())
            {
                return Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, name};
            }
        }
        if (rules.longestLifetime.get() != nullptr && rules.longestLifetime.get()->count() < 1)
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_RANGE, "longestLifetime"};
        }
        return detail::SeenTokens::check(rules.revoked, clock, rules.cacheSize).transform([&] {
            return TokenValidator{keys, std::move(rules), std::move(clock)};
        });
    }

    /** Judges `token`. The error is for logs, never for the peer. */
    [[nodiscard]] Expected<ValidToken> validate(std::string_view token) const
    {
        return seen.validate(token, keys.generation(),
                             [&](std::chrono::sys_seconds now) { return judge(token, now); });
    }

private:
    TokenValidator(const VerificationKeys& verificationKeys, TokenRules tokenRules, Clock clock)
        : keys{verificationKeys},
          rules{std::move(tokenRules)},
          seen{rules.revoked, std::move(clock), rules.cacheSize}
    {
    }

    [[nodiscard]] Expected<detail::JudgedToken> judge(std::string_view token,
                                                      std::chrono::sys_seconds now) const
    {
        const Expected<UnverifiedToken> read = detail::readStrictly(token);
        if (!read)
        {
            return read.error();
        }
        if (read->unverifiedHeader().type() != rules.type)
        {
            return Error{BMCOAUTH_RULE_POLICY_TYPE, "typ"};
        }
        const VerificationKeys::Snapshot current = keys.snapshot();
        const Expected<const detail::VerifyingKey*> key =
            current.first->select(read->unverifiedHeader());
        Expected<VerifiedToken> verified =
            key ? detail::verifiedBy(**key, token) : Expected<VerifiedToken>{key.error()};
        if (!verified)
        {
            return verified.error();
        }
        const Claims claims = verified->claims();
        const Expected<void> expected = requireExpected(claims);
        const Expected<detail::Period> period =
            expected ? detail::periodOf(claims, {}, rules.longestLifetime.get(), now)
                     : Expected<detail::Period>{expected.error()};
        if (!period)
        {
            return period.error();
        }
        const Privileges privileges = userPrivileges(*verified).value_or(Privileges{});
        return detail::JudgedToken{std::move(*verified), privileges, *period, current.second};
    }

    [[nodiscard]] Expected<void> requireExpected(const Claims& claims) const
    {
        const std::string* const issuer = rules.issuer.get();
        if (issuer != nullptr && claims.issuer() != *issuer)
        {
            return Error{BMCOAUTH_RULE_POLICY_ISSUER, "iss"};
        }
        const std::string* const audience = rules.audience.get();
        if (audience != nullptr && claims.scopeValue(detail::audienceEntry) != *audience)
        {
            return Error{BMCOAUTH_RULE_POLICY_AUDIENCE, "scope"};
        }
        for (const auto& [name, text] :
             {std::pair{"sub", claims.subject()}, std::pair{"jti", claims.id()},
              std::pair{"iat", claims.issuedAt()}, std::pair{"nbf", claims.notBefore()}})
        {
            if (!text || !detail::isUtf8(*text))
            {
                return Error{BMCOAUTH_RULE_TOKEN_MEMBER, name};
            }
        }
        return {};
    }

    VerificationKeys keys;
    TokenRules rules;
    detail::SeenTokens seen;
};

} // namespace v1
} // namespace bmcoauth
