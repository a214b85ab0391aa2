// SPDX-License-Identifier: Apache-2.0
#pragma once

/* Judging tokens: TokenValidator for one's own, DelegatedValidator for those of other issuers. */

#include <bmcoauth/cpp/encoding.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/parameters.hpp>
#include <bmcoauth/cpp/privileges.hpp>
#include <bmcoauth/cpp/validation.hpp>
#include <bmcoauth/service/common.hpp>
#include <bmcoauth/service/verification_keys.hpp>

#include <openssl/asn1.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace bmcoauth
{
inline namespace v1
{

/** The type of `ignored`. */
struct Ignored
{
    explicit Ignored() = default;
};
/** Tells a validator to ignore something. */
inline constexpr Ignored ignored{};

/** Expectation is a value that a validator expects, or `ignored`. It has no default: rules that leave
 *  one out do not compile. */
template <typename T>
class Expectation
{
public:
    /** Expects nothing. */
    Expectation(Ignored /*nothing*/) noexcept
    {
    }
    /** Expects `value`. */
    template <typename Value, typename = std::enable_if_t<std::is_constructible_v<T, Value>>>
    Expectation(Value&& value) : wanted{std::in_place, std::forward<Value>(value)}
    {
    }

    /** The expected value; null if ignored. */
    [[nodiscard]] const T* get() const& noexcept
    {
        return wanted ? &*wanted : nullptr;
    }
    [[nodiscard]] const T* get() const&& = delete;

private:
    std::optional<T> wanted;
};

/** Returns whether the token with these claims is revoked. An error refuses the token with that
 *  error. Any thread that validates calls it, for each token that is valid otherwise, those that are
 *  remembered included. Such tokens must have a "jti". */
using RevocationCheck = std::function<Expected<bool>(const Claims& claims)>;

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
    /** How many valid tokens are remembered, at most 65,536; 0 for none. */
    std::size_t cacheSize = 128;
};

/** A role in the tokens of an issuer. */
struct RoleGrant
{
    /** As in "ravok_roles". */
    std::string name;
    /** What it grants here. */
    Privileges privileges;
};

/** TrustedIssuer is another issuer, and what is expected of its tokens. Each Expectation must be
 *  given, if only as `ignored`. */
struct TrustedIssuer
{
    /** The claim "iss". */
    std::string name;
    /** Its keys, a JSON Web Key Set. Nothing is ever fetched. Of several keys, each needs a "kid". RSA
     *  keys need 2048 bits. Keys that are not for signatures, or not for one of `algorithms`, are left
     *  out. */
    std::string jwks;
    /** The values of "alg" that are accepted, such as "ES256", one at least. Each key verifies those
     *  that fit its type and curve, and its "alg" if it has one. */
    std::vector<std::string> algorithms;
    /** The claim "aud", or one of its values. */
    Expectation<std::string> audience;
    /** From "iat" to "exp"; from now if there is no "iat". */
    Expectation<std::chrono::seconds> longestLifetime;
    /** The header's "typ", exactly. */
    Expectation<std::string> type;
    /** What the names in "ravok_roles" grant. */
    std::vector<RoleGrant> roles = {};
    /** The identity providers whose codes in "xidp" count. NOTE: codes of "*" always count; see
     *  `mostPrivileges`. */
    std::vector<std::string> providers = {};
    /** No token of this issuer grants more. */
    Privileges mostPrivileges = Privileges::all();
    /** How far clocks may differ, at most ten minutes. */
    std::chrono::seconds skew{0};
    /** Whether to accept tokens whose "scope" is an object. In its entry "USER_PRIV", the issuer writes
     *  the privileges itself. */
    bool allowIssuerScopes = false;
};

/** What a DelegatedValidator does with tokens of all its issuers. */
struct DelegatedRules
{
    /** Refuses tokens that have been revoked. */
    Expectation<RevocationCheck> revoked;
    /** How many valid tokens are remembered, at most 65,536; 0 for none. */
    std::size_t cacheSize = 128;
};

namespace detail
{

/** In bytes. Longer tokens are refused unread. */
inline constexpr std::size_t longestToken = 16384;

/** The scope entry that holds the audience of one's own tokens. */
inline constexpr std::string_view audienceEntry = "aud";

/** Whether `text` is UTF-8 (RFC 3629). */
[[nodiscard]] inline bool isUtf8(std::string_view text) noexcept
{
    ByteSpan rest = bytesOf(text);
    while (!rest.empty())
    {
        unsigned long character = 0;
        const int size = static_cast<int>(std::min<std::size_t>(rest.size(), 4));
        const int length = UTF8_getc(rest.data(), size, &character);
        if (length < 1)
        {
            return false;
        }
        rest = rest.subspan(static_cast<std::size_t>(length));
    }
    return true;
}

/** Refuses an empty text, unless it is ignored. */
[[nodiscard]] inline Expected<void> requireText(const char* name,
                                                const Expectation<std::string>& text)
{
    return text.get() != nullptr && text.get()->empty() ? Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, name}
                                                        : Expected<void>{};
}

/** The names of the members in the part `name` of a token. Refuses a part that is not UTF-8. */
[[nodiscard]] inline Expected<Texts> namesIn(const char* name, std::string_view part)
{
    return decodeBase64Url(part).and_then([name](const Bytes& json) {
        return isUtf8(json.view()) ? memberNames(json.view())
                                   : Error{BMCOAUTH_RULE_POLICY_ENCODING, name};
    });
}

/** Reads `token` without verifying it. Refuses, besides what readUnverified refuses:
 *  - other forms than three parts of plain Base64url: they would be further texts of one token
 *  - parts that are not UTF-8
 *  - "crit" in the header (RFC 7515, section 4.1.11)
 *  - a "nbf" or "iat" that cannot be read: it would count as absent */
[[nodiscard]] inline Expected<UnverifiedToken> readStrictly(std::string_view token)
{
    constexpr std::string_view plain{
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_."};
    if (token.size() > longestToken)
    {
        return Error{BMCOAUTH_RULE_ARGUMENT_LENGTH, "token"};
    }
    if (token.find_first_not_of(plain) != std::string_view::npos)
    {
        return Error{BMCOAUTH_RULE_POLICY_ENCODING, "token"};
    }
    if (std::ranges::count(token, '.') != 2)
    {
        return Error{BMCOAUTH_RULE_TOKEN_PARTS};
    }
    const std::size_t first = token.find('.');
    const std::size_t second = token.rfind('.');
    const Expected<Texts> header = namesIn("header", token.substr(0, first));
    const Expected<Texts> payload = namesIn("payload", token.substr(first + 1, second - first - 1));
    if (const Expected<void> all = allOf(header, payload); !all)
    {
        return all.error();
    }
    if (header->range().contains("crit"))
    {
        return Error{BMCOAUTH_RULE_POLICY_CRITICAL, "crit"};
    }
    return readUnverified(token).and_then([&](UnverifiedToken read) -> Expected<UnverifiedToken> {
        const std::optional<UnverifiedClaims> claims = read.unverifiedClaims();
        const bool hasLostBegin = payload->range().contains("nbf") && !claims->notBefore();
        if (hasLostBegin || (payload->range().contains("iat") && !claims->issuedAt()))
        {
            return Error{BMCOAUTH_RULE_TOKEN_MEMBER, hasLostBegin ? "nbf" : "iat"};
        }
        return read;
    });
}

/** The time in the claim `name`, in plain decimal digits, up to the year 9999. */
[[nodiscard]] inline Expected<std::chrono::sys_seconds> timeIn(const char* name,
                                                               std::string_view text)
{
    constexpr std::int64_t endOfYear9999 = 253402300799;
    std::int64_t seconds = -1;
    std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (seconds < 0 || seconds > endOfYear9999 || std::to_string(seconds) != text)
    {
        return Error{BMCOAUTH_RULE_TOKEN_MEMBER, name};
    }
    return std::chrono::sys_seconds{std::chrono::seconds{seconds}};
}

/** When a token is valid. */
struct Period
{
    /** From the later one of "nbf" and "iat", less the skew. */
    std::chrono::sys_seconds begin;
    /** Until "exp", and the skew. */
    std::chrono::sys_seconds end;
};

/** A token that is valid in its period, unless it is revoked. */
struct JudgedToken
{
    /** The token. */
    VerifiedToken token;
    /** What its subject may do. */
    Privileges privileges;
    /** When it is valid. */
    Period period;
    /** The keys that it was verified by. */
    std::shared_ptr<const ReplaceableKeys> keys;
    /** Their generation then. */
    std::uint64_t generation;
    /** The digest of its whole text. */
    Sha256Digest digest;
};

class Validator;

} // namespace detail

/** ValidToken is a token that a validator found valid, at the time of that call. Copies share it. */
class ValidToken
{
public:
    /** What the token says, as long as this object lives. */
    [[nodiscard]] Claims claims() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return judged->token.claims();
    }
    [[nodiscard]] Claims claims() const&& = delete;

    /** What its subject may do. */
    [[nodiscard]] Privileges privileges() const noexcept
    {
        return judged->privileges;
    }
    /** When it ceases to be valid: "exp", and the skew of its issuer. */
    [[nodiscard]] std::chrono::sys_seconds expiresAt() const noexcept
    {
        return judged->period.end;
    }

private:
    friend class detail::Validator;

    explicit ValidToken(std::shared_ptr<const detail::JudgedToken> token) noexcept
        : judged{std::move(token)}
    {
    }

    detail::Shared<const detail::JudgedToken> judged;
};

namespace detail
{

/** An issuer whose tokens are judged: the service itself, or another one. */
struct JudgedIssuer
{
    /** Whether it is the service itself. Its tokens have all claims that TokenIssuer writes, and the
     *  audience in a scope entry. */
    bool isSelf;
    /** The claim "iss". */
    Expectation<std::string> name;
    /** What is expected of its tokens otherwise. */
    TrustedIssuer rules;
    /** Its keys. */
    std::shared_ptr<const ReplaceableKeys> keys;
};

/** Refuses an empty text, a longest lifetime that is not positive, and a skew that is negative or above
 *  ten minutes. */
[[nodiscard]] inline Expected<void> requireSense(const JudgedIssuer& issuer)
{
    const TrustedIssuer& rules = issuer.rules;
    const std::chrono::seconds* const longest = rules.longestLifetime.get();
    return allOf(requireText(issuer.isSelf ? "issuer" : "name", issuer.name),
                 requireText("audience", rules.audience), requireText("type", rules.type),
                 longest != nullptr && longest->count() < 1
                     ? Error{BMCOAUTH_RULE_ARGUMENT_RANGE, "longestLifetime"}
                     : Expected<void>{},
                 rules.skew.count() < 0 || rules.skew > std::chrono::minutes{10}
                     ? Error{BMCOAUTH_RULE_ARGUMENT_RANGE, "skew"}
                     : Expected<void>{});
}

/** Looks at the audience, "sub" and "jti" of a token that a key of `issuer` has signed. */
[[nodiscard]] inline Expected<void> requireClaims(const JudgedIssuer& issuer, const Claims& claims)
{
    const std::string* const audience = issuer.rules.audience.get();
    if (audience != nullptr && (issuer.isSelf ? claims.scopeValue(audienceEntry) != *audience
                                              : !claims.audiences().contains(*audience)))
    {
        return Error{BMCOAUTH_RULE_POLICY_AUDIENCE, issuer.isSelf ? "scope" : "aud"};
    }
    for (const auto& [name, text] :
         {std::pair{"sub", claims.subject()}, std::pair{"jti", claims.id()}})
    {
        // In JSON, an escape can stand for what is not UTF-8.
        if ((issuer.isSelf && !text) || !isUtf8(text.value_or("")))
        {
            return Error{text ? BMCOAUTH_RULE_POLICY_ENCODING : BMCOAUTH_RULE_TOKEN_MEMBER, name};
        }
    }
    return {};
}

/** The period of a token of `issuer`. */
[[nodiscard]] inline Expected<Period> periodOf(const JudgedIssuer& issuer, const Claims& claims,
                                               std::chrono::sys_seconds now)
{
    const auto timeOr = [&](const char* name, std::optional<std::string_view> claim,
                            const Expected<std::chrono::sys_seconds>& other) {
        return claim || issuer.isSelf ? timeIn(name, claim.value_or("")) : other;
    };
    const auto end = timeIn("exp", claims.expiresAt().value_or(""));
    const auto issued = timeOr("iat", claims.issuedAt(), now);
    const auto begin = timeOr("nbf", claims.notBefore(), issued);
    if (const Expected<void> all = allOf(end, issued, begin); !all)
    {
        return all.error();
    }
    const std::chrono::seconds* const longest = issuer.rules.longestLifetime.get();
    if (longest != nullptr && *end - *issued > *longest)
    {
        return Error{BMCOAUTH_RULE_POLICY_LIFETIME, "exp"};
    }
    return Period{std::max(*begin, *issued) - issuer.rules.skew, *end + issuer.rules.skew};
}

/** Judges `token`, which has this digest and has been read as `read`, by the rules and keys of
 *  `issuer`. */
[[nodiscard]] inline Expected<std::shared_ptr<const JudgedToken>>
judged(std::string_view token, const Sha256Digest& digest, const UnverifiedToken& read,
       const JudgedIssuer& issuer, std::chrono::sys_seconds now)
{
    const TrustedIssuer& rules = issuer.rules;
    if (rules.type.get() != nullptr && read.unverifiedHeader().type() != *rules.type.get())
    {
        return Error{BMCOAUTH_RULE_POLICY_TYPE, "typ"};
    }
    std::vector<Role> roles;
    for (const RoleGrant& role : rules.roles)
    {
        roles.push_back({role.name, role.privileges});
    }
    const std::vector<std::string_view> providers{rules.providers.begin(), rules.providers.end()};
    const std::uint64_t generation = issuer.keys->generation();
    const std::shared_ptr<const KeySet> keys = issuer.keys->get();
    Expected<VerifiedToken> verified =
        selectKey(*keys, read.unverifiedHeader()).and_then([&](const VerifyingKey* key) {
            return verifiedBy(*key, token, {.roles = roles, .providers = providers});
        });
    const Expected<Period> period = verified.and_then([&](const VerifiedToken& good) {
        const Claims claims = good.claims();
        return requireClaims(issuer, claims).and_then([&] {
            return periodOf(issuer, claims, now);
        });
    });
    if (!period)
    {
        return period.error();
    }
    const unsigned int granted = userPrivileges(*verified).value_or(Privileges{}).bits();
    return std::make_shared<const JudgedToken>(
        JudgedToken{*std::move(verified), Privileges{granted & rules.mostPrivileges.bits()},
                    *period, issuer.keys, generation, digest});
}

/** Validator judges the tokens of its issuers, and remembers valid ones by the digest of their whole
 *  texts. These are in sets of four, each with a lock: readers share it, and wait only while one of
 *  the four is replaced. */
class Validator
{
public:
    /** Judges `token`. The error is for logs, never for the peer. */
    [[nodiscard]] Expected<ValidToken> validate(std::string_view token) const
    {
        const std::chrono::sys_seconds now = clock();
        const bool isKept = token.size() <= longestKept && !sets.empty();
        const Sha256Digest digest = isKept ? sha256(token) : Sha256Digest{};
        Judged known = isKept ? find(digest) : nullptr;
        const bool isNew = isKept && !known;
        return (known ? Expected<Judged>{std::move(known)} : judge(token, digest, now))
            .and_then([&](Judged valid) {
                return requireGood(*valid, now).transform([&] {
                    if (isNew)
                    {
                        keep(valid);
                    }
                    return ValidToken{std::move(valid)};
                });
            });
    }

protected:
    /** Judges the tokens of `judgedIssuers` by `time`. Their rules make sense. */
    Validator(std::vector<JudgedIssuer> judgedIssuers, const DelegatedRules& rules, Clock time)
        : issuers{std::move(judgedIssuers)},
          isRevoked{rules.revoked},
          clock{std::move(time)},
          sets((rules.cacheSize + ways - 1) / ways)
    {
    }

    /** Refuses an empty function, and a cache that is too large. */
    [[nodiscard]] static Expected<void> check(const DelegatedRules& rules, const Clock& clock)
    {
        if (!clock || (rules.revoked.get() != nullptr && !*rules.revoked.get()))
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, clock ? "revoked" : "clock"};
        }
        constexpr std::size_t most = 65536;
        return rules.cacheSize > most ? Error{BMCOAUTH_RULE_ARGUMENT_RANGE, "cacheSize"}
                                      : Expected<void>{};
    }

private:
    using Judged = std::shared_ptr<const JudgedToken>;
    static constexpr std::size_t ways = 4;
    static constexpr std::size_t longestKept = 4096;

    struct Set
    {
        std::shared_mutex mutex;
        std::array<Judged, ways> tokens;
        std::size_t next = 0;
    };

    [[nodiscard]] Set& setOf(const Sha256Digest& digest) const noexcept
    {
        std::size_t number = 0;
        std::memcpy(&number, digest.data(), sizeof number);
        return sets[number % sets.size()];
    }
    /** The token with this digest, if it is remembered and its keys are still the same. */
    [[nodiscard]] Judged find(const Sha256Digest& digest) const
    {
        Set& set = setOf(digest);
        const std::shared_lock lock{set.mutex};
        const auto* const token = std::ranges::find_if(set.tokens, [&digest](const Judged& one) {
            return one && one->digest == digest && one->generation == one->keys->generation();
        });
        return token == set.tokens.end() ? nullptr : *token;
    }
    /** Remembers `token`, in its own place or in that of the oldest of its set. */
    void keep(Judged token) const
    {
        Set& set = setOf(token->digest);
        // A replaced token is released after the lock.
        const std::lock_guard lock{set.mutex};
        auto* const same = std::ranges::find_if(set.tokens, [&token](const Judged& one) {
            return one && one->digest == token->digest;
        });
        std::swap(same == set.tokens.end() ? set.tokens[set.next++ % ways] : *same, token);
    }

    /** Finds the issuer of `token` by "iss", and judges it. */
    [[nodiscard]] Expected<Judged> judge(std::string_view token, const Sha256Digest& digest,
                                         std::chrono::sys_seconds now) const
    {
        return readStrictly(token).and_then([&](const UnverifiedToken& read) -> Expected<Judged> {
            const UnverifiedClaims claims = *read.unverifiedClaims();
            const auto issuer = std::ranges::find_if(issuers, [&claims](const JudgedIssuer& one) {
                return one.name.get() == nullptr || claims.issuer() == *one.name.get();
            });
            if (issuer == issuers.end())
            {
                return Error{BMCOAUTH_RULE_POLICY_ISSUER, "iss"};
            }
            if (!issuer->rules.allowIssuerScopes && !claims.scopeEntries().empty())
            {
                return Error{BMCOAUTH_RULE_POLICY_SCOPES, "scope"};
            }
            return judged(token, digest, read, *issuer, now);
        });
    }

    /** Looks at what changes from call to call. */
    [[nodiscard]] Expected<void> requireGood(const JudgedToken& judged,
                                             std::chrono::sys_seconds now) const
    {
        if (now < judged.period.begin)
        {
            return Error{BMCOAUTH_RULE_TOKEN_NOT_YET_VALID, "nbf"};
        }
        if (now >= judged.period.end)
        {
            return Error{BMCOAUTH_RULE_TOKEN_EXPIRED, "exp"};
        }
        const RevocationCheck* const check = isRevoked.get();
        const Claims claims = judged.token.claims();
        if (check != nullptr && claims.id().value_or("").empty())
        {
            return Error{BMCOAUTH_RULE_TOKEN_MEMBER, "jti"};
        }
        return check == nullptr ? Expected<void>{} : (*check)(claims).and_then([](bool revoked) {
            return revoked ? Error{BMCOAUTH_RULE_POLICY_REVOKED} : Expected<void>{};
        });
    }

    std::vector<JudgedIssuer> issuers;
    Expectation<RevocationCheck> isRevoked;
    Clock clock;
    mutable std::vector<Set> sets;
};

} // namespace detail

/** TokenValidator judges the service's own tokens by public keys. A valid token
 *  - is UTF-8 without zero bytes
 *  - has a header with ES256, the expected type, the id of a key (optional if there is only one key),
 *    and nothing critical
 *  - is signed by that key
 *  - has the claims that the rules expect
 *  - is neither expired nor revoked
 *
 *  A token that was valid before is recognized by the SHA-256 digest of its whole text. This takes no
 *  signature, no memory, and no lock that other readers wait for. Clock and revocation are asked each
 *  time. Only valid tokens of at most 4 KiB are remembered, until the keys change. Each place takes 32
 *  bytes, and a token about 860 bytes if TokenIssuer made it, at worst 30 KiB.
 *
 *  Any thread may call `validate`. */
class TokenValidator : public detail::Validator
{
public:
    /** Refuses an empty text or function, a longest lifetime that is not positive, and a cache that is
     *  too large. */
    [[nodiscard]] static Expected<TokenValidator> of(const VerificationKeys& keys, TokenRules rules,
                                                     Clock clock)
    {
        const DelegatedRules common{std::move(rules.revoked), rules.cacheSize};
        detail::JudgedIssuer self{.isSelf = true,
                                  .name = std::move(rules.issuer),
                                  .rules = {.name = {},
                                            .jwks = {},
                                            .algorithms = {},
                                            .audience = std::move(rules.audience),
                                            .longestLifetime = rules.longestLifetime,
                                            .type = std::move(rules.type),
                                            .allowIssuerScopes = true},
                                  .keys = keys.keys};
        return allOf(requireSense(self), check(common, clock)).transform([&] {
            return TokenValidator{{std::move(self)}, common, std::move(clock)};
        });
    }

private:
    using Validator::Validator;
};

/** DelegatedValidator judges tokens of other issuers. "iss" names the issuer, whose rules decide, and
 *  "kid" the key: a hundred keys cost no more than one. The checks of every token, the cache and the
 *  threads are as for TokenValidator. For other issuers or keys, make another validator. */
class DelegatedValidator : public detail::Validator
{
public:
    /** Imports the keys. Refuses, besides what TokenValidator refuses:
     *  - an issuer without a name, or two of one name
     *  - an unknown algorithm
     *  - keys of which none is for the algorithms, a weak one, or several without "kid"
     *  - a skew that is negative or above ten minutes */
    [[nodiscard]] static Expected<DelegatedValidator> of(const std::vector<TrustedIssuer>& issuers,
                                                         const DelegatedRules& rules, Clock clock)
    {
        std::vector<detail::JudgedIssuer> made;
        Expected<void> all =
            issuers.empty() ? Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, "issuers"} : check(rules, clock);
        for (auto issuer = issuers.begin(); all && issuer != issuers.end(); ++issuer)
        {
            const bool isNew = std::ranges::find(issuers.begin(), issuer, issuer->name,
                                                 &TrustedIssuer::name) == issuer;
            all = isNew ? add(made, *issuer)
                        : Error{BMCOAUTH_RULE_ARGUMENT_CONFLICT, "name",
                                static_cast<int>(issuer - issuers.begin())};
        }
        return all.transform([&] {
            return DelegatedValidator{std::move(made), rules, std::move(clock)};
        });
    }

private:
    using Validator::Validator;

    [[nodiscard]] static Expected<void> add(std::vector<detail::JudgedIssuer>& made,
                                            const TrustedIssuer& issuer)
    {
        for (const std::string& algorithm : issuer.algorithms)
        {
            if (std::ranges::find(detail::algorithmTable, algorithm, &detail::Algorithm::name) ==
                detail::algorithmTable.end())
            {
                return Error{BMCOAUTH_RULE_ARGUMENT_RANGE, "algorithms"};
            }
        }
        const auto keys = std::make_shared<detail::ReplaceableKeys>();
        made.push_back({false, issuer.name, issuer, keys});
        return requireSense(made.back())
            .and_then([&issuer] { return detail::importKeys(issuer.jwks, issuer.algorithms); })
            .transform([&keys](detail::KeySet imported) { keys->replace(std::move(imported)); });
    }
};

} // namespace v1
} // namespace bmcoauth
