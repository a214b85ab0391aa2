// SPDX-License-Identifier: Apache-2.0
#pragma once

/* Issuing access tokens. */

#include <bmcoauth/cpp/encoding.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/issuing.hpp>
#include <bmcoauth/cpp/privileges.hpp>
#include <bmcoauth/service/clock.hpp>
#include <bmcoauth/service/issued_token.hpp>
#include <bmcoauth/service/judging.hpp>
#include <bmcoauth/service/signing_keys.hpp>

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace bmcoauth
{
inline namespace v1
{

/** What the tokens of an issuer have in common. */
struct TokenIssuerRules
{
    /** The claim "iss". */
    std::string issuer;
    /** Who the tokens are for: the scope entry "aud", where TokenValidator looks. */
    Expectation<std::string> audience;
    /** How long a token lives, unless something else is asked for. */
    std::chrono::seconds lifetime = std::chrono::minutes{10};
    /** The longest lifetime that may be asked for; a year at most. */
    std::chrono::seconds longestLifetime = std::chrono::hours{1};
    /** The header's "typ". */
    std::string type = "JWT";
};

/** TokenIssuer issues tokens with the current one of its SigningKeys, all of which a TokenValidator
 *  with the same issuer, audience, type and longest lifetime takes. Any thread may call `issue`; it
 *  holds no state but the keys. */
class TokenIssuer
{
public:
    /** Refused if a rule is empty, a lifetime is not positive, the usual one is longer than the longest,
     *  or that is longer than a year. */
    [[nodiscard]] static Expected<TokenIssuer> of(const SigningKeys& keys, TokenIssuerRules rules,
                                                  Clock clock)
    {
        const Expected<void> texts = detail::requireSense(
            {{"issuer", &rules.issuer}, {"audience", rules.audience.get()}, {"type", &rules.type}},
            &rules.longestLifetime);
        if (!texts || !clock)
        {
            return texts ? Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, "clock"} : texts.error();
        }
        constexpr std::chrono::hours year{24 * 366};
        if (rules.lifetime.count() < 1 || rules.lifetime > rules.longestLifetime ||
            rules.longestLifetime > year)
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_RANGE, "lifetime"};
        }
        return TokenIssuer{keys, std::move(rules), std::move(clock)};
    }

    /** Issues a token for `subject` that entitles to `privileges` for `lifetime`. Refused if the
     *  subject is empty or not UTF-8, if there are other bits than the nine in `privileges`, if the
     *  lifetime is not positive or longer than the longest, and if the token would be too long for
     *  TokenValidator. */
    [[nodiscard]] Expected<IssuedToken>
    issue(std::string_view subject, Privileges privileges,
          std::optional<std::chrono::seconds> lifetime = {}) const
    {
        const std::chrono::seconds length = lifetime.value_or(rules.lifetime);
        if (subject.empty() || !detail::isUtf8(subject))
        {
            return Error{subject.empty() ? BMCOAUTH_RULE_ARGUMENT_EMPTY
                                         : BMCOAUTH_RULE_POLICY_ENCODING,
                         "subject"};
        }
        if ((privileges.bits() & ~Privileges::all().bits()) != 0)
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_RANGE, "privileges"};
        }
        if (length.count() < 1 || length > rules.longestLifetime)
        {
            return Error{BMCOAUTH_RULE_POLICY_LIFETIME, "lifetime"};
        }
        const std::chrono::sys_seconds now = clock();
        if (now.time_since_epoch().count() < 1)
        {
            return Error{BMCOAUTH_RULE_CLOCK_UNREADABLE};
        }
        const Expected<Text> id = randomToken(16);
        return id ? make(subject, privileges, *id, now, now + length) : id.error();
    }

    /** The same as `issue`, with the usual lifetime. */
    [[nodiscard]] Expected<IssuedToken> operator()(std::string_view subject,
                                                   Privileges privileges) const
    {
        return issue(subject, privileges);
    }

private:
    TokenIssuer(const SigningKeys& signingKeys, TokenIssuerRules issuerRules, Clock time)
        : keys{signingKeys}, rules{std::move(issuerRules)}, clock{std::move(time)}
    {
    }

    [[nodiscard]] Expected<IssuedToken> make(std::string_view subject, Privileges privileges,
                                             const Text& id, std::chrono::sys_seconds now,
                                             std::chrono::sys_seconds expiry) const
    {
        const std::string* const audience = rules.audience.get();
        const std::array<std::string_view, 1> audiences{
            audience == nullptr ? std::string_view{} : std::string_view{*audience}};
        const std::array<ScopeEntry, 1> scopes{
            {{.name = detail::audienceEntry, .values = audiences}}};
        const auto begin = static_cast<std::uint64_t>(now.time_since_epoch().count());
        // Of one key, whatever rotates meanwhile.
        const std::shared_ptr<const SigningKeys::Current> key = keys.current();
        return key
            ->make({
                .subject = subject,
                .id = id,
                .issuer = rules.issuer,
                .expiresAt = static_cast<std::uint64_t>(expiry.time_since_epoch().count()),
                .issuedAt = begin,
                .notBefore = begin,
                .scopes =
                    audience == nullptr ? Borrowed<ScopeEntry>{} : Borrowed<ScopeEntry>{scopes},
                .privileges = privileges,
                .keyId = key->id,
                .type = rules.type,
            })
            .and_then([&](Text token) -> Expected<IssuedToken> {
                if (token.view().size() > detail::longestToken)
                {
                    return Error{BMCOAUTH_RULE_ARGUMENT_LENGTH, "subject"};
                }
                return IssuedToken{std::move(token), std::string{id.view()}, expiry};
            });
    }

    SigningKeys keys;
    TokenIssuerRules rules;
    Clock clock;
};

} // namespace v1
} // namespace bmcoauth
