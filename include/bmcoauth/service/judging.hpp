// SPDX-License-Identifier: Apache-2.0
#pragma once

/* Judging tokens: of one's own by TokenValidator, of other issuers by DelegatedValidator. */

#include <bmcoauth/cpp/encoding.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/parameters.hpp>
#include <bmcoauth/cpp/privileges.hpp>
#include <bmcoauth/cpp/validation.hpp>
#include <bmcoauth/service/clock.hpp>
#include <bmcoauth/service/digest.hpp>
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
#include <initializer_list>
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
/** Says that a validator does not look at something. */
inline constexpr Ignored ignored{};

/** Expectation is what a validator expects of one claim, or that it ignores it. There is no third: it
 *  has no default, so that rules which leave one out do not compile. */
template <typename T>
class Expectation
{
public:
    /** Nothing is expected. */
    Expectation(Ignored /*nothing*/) noexcept
    {
    }
    /** `value` is expected. */
    template <typename Value, typename = std::enable_if_t<std::is_constructible_v<T, Value>>>
    Expectation(Value&& value) : wanted{std::in_place, std::forward<Value>(value)}
    {
    }

    /** What is expected; null if the claim is ignored. */
    [[nodiscard]] const T* get() const& noexcept
    {
        return wanted ? &*wanted : nullptr;
    }
    [[nodiscard]] const T* get() const&& = delete;

private:
    std::optional<T> wanted;
};

/** Tells whether the token with these claims has been revoked: by "jti", by its subject, or both. An
 *  error refuses the token with that error. Called for each token that is valid otherwise and has a
 *  "jti", from every thread that validates, those seen before included. */
using RevocationCheck = std::function<Expected<bool>(const Claims& claims)>;

namespace detail
{

/** In bytes; longer tokens are refused unread. */
inline constexpr std::size_t longestToken = 16384;

/** The scope entry that says who a token of one's own is for. */
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

/** Refused if a text that is expected is empty, or the longest lifetime not positive. */
[[nodiscard]] inline Expected<void>
requireSense(std::initializer_list<std::pair<const char*, const std::string*>> texts,
             const std::chrono::seconds* longestLifetime)
{
    for (const auto& [name, text] : texts)
    {
        if (text != nullptr && text->empty())
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, name};
        }
    }
    return longestLifetime != nullptr && longestLifetime->count() < 1
               ? Error{BMCOAUTH_RULE_ARGUMENT_RANGE, "longestLifetime"}
               : Expected<void>{};
}

/** The names of the members in the part `name` of a token. Refused if it is not UTF-8. */
[[nodiscard]] inline Expected<Texts> namesIn(const char* name, std::string_view part)
{
    const Expected<Bytes> json = decodeBase64Url(part);
    return json && isUtf8(json->view()) ? memberNames(json->view())
                                        : Error{BMCOAUTH_RULE_POLICY_ENCODING, name};
}

/** Reads `token`, whose signature nobody has verified yet. Refused unless it is three parts of plain
 *  Base64url, since other forms would be further texts of the same token; if a part is not UTF-8 or
 *  holds a zero byte; if the header has "crit" (RFC 7515, section 4.1.11); and if "nbf" or "iat" is
 *  there in a form that is not read: it would count as absent. */
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
    Expected<UnverifiedToken> read = readUnverified(token);
    const std::optional<UnverifiedClaims> claims = read ? read->unverifiedClaims() : std::nullopt;
    const bool hasLostBegin = claims && payload->range().contains("nbf") && !claims->notBefore();
    if (hasLostBegin || (claims && payload->range().contains("iat") && !claims->issuedAt()))
    {
        return Error{BMCOAUTH_RULE_TOKEN_MEMBER, hasLostBegin ? "nbf" : "iat"};
    }
    return read;
}

/** The time in the claim `name`: decimal digits without a sign or leading zeros, up to the year
 *  9999. */
[[nodiscard]] inline Expected<std::chrono::sys_seconds>
timeIn(const char* name, const std::optional<std::string_view>& claim)
{
    constexpr std::int64_t endOfYear9999 = 253402300799;
    const std::string_view text = claim.value_or("");
    const char* const end = text.data() + text.size();
    std::int64_t seconds = -1;
    const std::from_chars_result read = std::from_chars(text.data(), end, seconds);
    if (read.ec != std::errc{} || read.ptr != end || seconds < 0 || seconds > endOfYear9999 ||
        text.front() == '-' || (text.size() > 1 && text.front() == '0'))
    {
        return Error{BMCOAUTH_RULE_TOKEN_MEMBER, name};
    }
    return std::chrono::sys_seconds{std::chrono::seconds{seconds}};
}

/** A token that is valid in its time and unless it is revoked. */
struct JudgedToken
{
    /** The token. */
    VerifiedToken token;
    /** What its subject may do. */
    Privileges privileges;
    /** From when it is valid: the later one of "nbf" and "iat", less the skew. */
    std::chrono::sys_seconds begin;
    /** When it ceases to be valid: "exp", and the skew. */
    std::chrono::sys_seconds end;
    /** Which keys it was found valid by. */
    std::uint64_t generation = 0;
};

/** What the tokens of an issuer have to be, besides what their claims say. */
struct Policy
{
    /** The header's "typ"; null if it is ignored. */
    const std::string* type;
    /** From "iat" on, or from now if there is none; null if it is ignored. */
    const std::chrono::seconds* longestLifetime;
    /** How far clocks may differ. */
    std::chrono::seconds skew{0};
    /** How the library makes privileges. */
    DelegationRules rules = {};
};

/** Judges `token`, which has been read as `read`, by one of `keys` and by what `require` says to its
 *  claims. */
template <typename Require>
[[nodiscard]] Expected<JudgedToken> judged(std::string_view token, const UnverifiedToken& read,
                                           const KeySet& keys, const Policy& policy,
                                           std::chrono::sys_seconds now, const Require& require)
{
    if (policy.type != nullptr && read.unverifiedHeader().type() != *policy.type)
    {
        return Error{BMCOAUTH_RULE_POLICY_TYPE, "typ"};
    }
    Expected<VerifiedToken> verified =
        selectKey(keys, read.unverifiedHeader()).and_then([&](const VerifyingKey* key) {
            return verifiedBy(*key, token, policy.rules);
        });
    const Expected<void> required = verified ? require(verified->claims()) : verified.error();
    if (!required)
    {
        return required.error();
    }
    const Claims claims = verified->claims();
    const Expected<std::chrono::sys_seconds> end = timeIn("exp", claims.expiresAt());
    const Expected<std::chrono::sys_seconds> issued =
        claims.issuedAt() ? timeIn("iat", claims.issuedAt()) : now;
    const Expected<std::chrono::sys_seconds> begin =
        claims.notBefore() ? timeIn("nbf", claims.notBefore()) : issued;
    if (const Expected<void> all = allOf(end, issued, begin); !all)
    {
        return all.error();
    }
    if (policy.longestLifetime != nullptr && *end - *issued > *policy.longestLifetime)
    {
        return Error{BMCOAUTH_RULE_POLICY_LIFETIME, "exp"};
    }
    const Privileges privileges = userPrivileges(*verified).value_or(Privileges{});
    return JudgedToken{*std::move(verified), privileges, std::max(*begin, *issued) - policy.skew,
                       *end + policy.skew};
}

class SeenTokens;

} // namespace detail

/** ValidToken is a token that a validator has found valid, at the time of that call. Copies share
 *  it, also with the validator; a moved-from object is as it was. */
class ValidToken
{
public:
    /** Shares the token of the other. */
    ValidToken(const ValidToken&) noexcept = default;
    /** Shares the token of the other from now on. */
    ValidToken& operator=(const ValidToken&) noexcept = default;
    ~ValidToken() = default;

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
        return judged->end;
    }

private:
    friend class detail::SeenTokens;

    explicit ValidToken(std::shared_ptr<const detail::JudgedToken> token) noexcept
        : judged{std::move(token)}
    {
    }

    std::shared_ptr<const detail::JudgedToken> judged;
};

namespace detail
{

/** What both validators ask of every token, and the tokens that they have found valid, by the digest
 *  of their whole texts. These are in sets of four, each with a lock: readers share it, and wait only
 *  while one of the four is replaced. */
class SeenTokens
{
public:
    /** As the validators take them. */
    SeenTokens(Expectation<RevocationCheck> revocationCheck, Clock time, std::size_t cacheSize)
        : isRevoked{std::move(revocationCheck)},
          clock{std::move(time)},
          sets((cacheSize + ways - 1) / ways)
    {
    }

    /** Refused if a function is empty, or there is too much to keep. */
    [[nodiscard]] static Expected<void> check(const Expectation<RevocationCheck>& revoked,
                                              const Clock& clock, std::size_t cacheSize)
    {
        if (!clock || (revoked.get() != nullptr && !*revoked.get()))
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, clock ? "revoked" : "clock"};
        }
        constexpr std::size_t most = 65536;
        return cacheSize > most ? Error{BMCOAUTH_RULE_ARGUMENT_RANGE, "cacheSize"}
                                : Expected<void>{};
    }

    /** Validates `token`: by what is known of it if it has been seen with the keys `generation`, else
     *  by `judge(now)`, which gives an Expected<JudgedToken>. */
    template <typename Judge>
    [[nodiscard]] Expected<ValidToken> validate(std::string_view token, std::uint64_t generation,
                                                const Judge& judge) const
    {
        const std::chrono::sys_seconds now = clock();
        const bool isKept = token.size() <= longestKept && !sets.empty();
        const Sha256Digest digest = isKept ? sha256(token) : Sha256Digest{};
        std::shared_ptr<const JudgedToken> known = isKept ? find(digest) : nullptr;
        const bool isNew = known == nullptr || known->generation != generation;
        if (isNew)
        {
            Expected<JudgedToken> found = judge(now);
            if (!found)
            {
                return found.error();
            }
            known = std::make_shared<const JudgedToken>(*std::move(found));
        }
        if (const Expected<void> good = requireGood(*known, now); !good)
        {
            return good.error();
        }
        if (isNew && isKept)
        {
            put(digest, known);
        }
        return ValidToken{std::move(known)};
    }

private:
    static constexpr std::size_t ways = 4;
    static constexpr std::size_t longestKept = 4096;

    struct Slot
    {
        Sha256Digest digest{};
        std::shared_ptr<const JudgedToken> token;
    };
    struct Set
    {
        std::shared_mutex mutex;
        std::array<Slot, ways> slots;
        std::size_t next = 0;
    };

    [[nodiscard]] Set& setOf(const Sha256Digest& digest) const noexcept
    {
        std::size_t number = 0;
        std::memcpy(&number, digest.data(), sizeof number);
        return sets[number % sets.size()];
    }

    [[nodiscard]] std::shared_ptr<const JudgedToken> find(const Sha256Digest& digest) const
    {
        Set& set = setOf(digest);
        const std::shared_lock lock{set.mutex};
        const auto* const slot = std::ranges::find(set.slots, digest, &Slot::digest);
        return slot == set.slots.end() ? nullptr : slot->token;
    }

    /** Keeps `token`, in place of another if its set is full. */
    void put(const Sha256Digest& digest, const std::shared_ptr<const JudgedToken>& token) const
    {
        Set& set = setOf(digest);
        // What is replaced is released behind the lock.
        Slot slot{digest, token};
        const std::lock_guard lock{set.mutex};
        auto* const known = std::ranges::find(set.slots, digest, &Slot::digest);
        std::swap(known == set.slots.end() ? set.slots[set.next++ % ways] : *known, slot);
    }

    /** What is asked each time. */
    [[nodiscard]] Expected<void> requireGood(const JudgedToken& judged,
                                             std::chrono::sys_seconds now) const
    {
        if (now < judged.begin)
        {
            return Error{BMCOAUTH_RULE_TOKEN_NOT_YET_VALID, "nbf"};
        }
        if (now >= judged.end)
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

    Expectation<RevocationCheck> isRevoked;
    Clock clock;
    mutable std::vector<Set> sets;
};

} // namespace detail

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
 *  64 bytes, and what its claims take: about 800 bytes for one of TokenIssuer, 30 KiB at worst.
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
        return allOf(detail::requireSense({{"issuer", rules.issuer.get()},
                                           {"audience", rules.audience.get()},
                                           {"type", &rules.type}},
                                          rules.longestLifetime.get()),
                     detail::SeenTokens::check(rules.revoked, clock, rules.cacheSize))
            .transform([&] {
                return TokenValidator{keys, std::move(rules), std::move(clock)};
            });
    }

    /** Judges `token`. The error is for logs, never for the peer. */
    [[nodiscard]] Expected<ValidToken> validate(std::string_view token) const
    {
        return seen.validate(token, keys.state->generation.load(),
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
        const auto current = keys.snapshot();
        return detail::readStrictly(token).and_then([&](const UnverifiedToken& read) {
            Expected<detail::JudgedToken> judged = detail::judged(
                token, read, *current.first, {&rules.type, rules.longestLifetime.get()}, now,
                [this](const Claims& claims) { return requireExpected(claims); });
            if (judged)
            {
                judged->generation = current.second;
            }
            return judged;
        });
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

/** DelegatedValidator judges tokens of other issuers. "iss" names the issuer, whose rules and one of
 *  whose keys decide: a hundred keys cost no more than one. The checks of every token, the cache and
 *  the threads are as for TokenValidator. For other issuers or keys, make another validator. */
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
        DelegatedValidator made{{std::move(rules.revoked), std::move(clock), rules.cacheSize}};
        for (TrustedIssuer& issuer : issuers)
        {
            if (made.find(issuer.name) != nullptr)
            {
                return Error{BMCOAUTH_RULE_ARGUMENT_CONFLICT, "name",
                             static_cast<int>(made.issuers.size())};
            }
            Expected<detail::KeySet> keys = requireUsable(issuer).and_then(
                [&issuer] { return detail::importKeys(issuer.jwks, issuer.algorithms); });
            if (!keys)
            {
                return keys.error();
            }
            made.issuers.push_back({std::move(issuer), *std::move(keys)});
        }
        return made;
    }

    /** Judges `token`. The error is for logs, never for the peer. */
    [[nodiscard]] Expected<ValidToken> validate(std::string_view token) const
    {
        return seen.validate(token, 0, [&](std::chrono::sys_seconds now) {
            return detail::readStrictly(token).and_then(
                [&](const UnverifiedToken& read) { return judge(token, read, now); });
        });
    }

private:
    struct Issuer
    {
        TrustedIssuer rules;
        detail::KeySet keys;
    };

    explicit DelegatedValidator(detail::SeenTokens tokens) : seen{std::move(tokens)}
    {
    }

    [[nodiscard]] const Issuer* find(const std::optional<std::string_view>& name) const
    {
        const auto found = std::ranges::find_if(
            issuers, [&name](const Issuer& issuer) { return name == issuer.rules.name; });
        return found == issuers.end() ? nullptr : &*found;
    }

    [[nodiscard]] static Expected<void> requireUsable(const TrustedIssuer& issuer)
    {
        for (const std::string& algorithm : issuer.algorithms)
        {
            if (std::ranges::find(detail::algorithmTable, algorithm, &detail::Algorithm::name) ==
                detail::algorithmTable.end())
            {
                return Error{BMCOAUTH_RULE_ARGUMENT_RANGE, "algorithms"};
            }
        }
        if (issuer.skew.count() < 0 || issuer.skew > std::chrono::minutes{10})
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_RANGE, "skew"};
        }
        return detail::requireSense({{"name", &issuer.name},
                                     {"audience", issuer.audience.get()},
                                     {"type", issuer.type.get()}},
                                    issuer.longestLifetime.get());
    }

    [[nodiscard]] Expected<detail::JudgedToken>
    judge(std::string_view token, const UnverifiedToken& read, std::chrono::sys_seconds now) const
    {
        const std::optional<UnverifiedClaims> unverified = read.unverifiedClaims();
        // By whose keys alone it may then be verified.
        const Issuer* const found = find(unverified ? unverified->issuer() : std::nullopt);
        if (found == nullptr)
        {
            return Error{BMCOAUTH_RULE_POLICY_ISSUER, "iss"};
        }
        const TrustedIssuer& issuer = found->rules;
        if (!issuer.allowIssuerScopes && !unverified->scopeEntries().empty())
        {
            return Error{BMCOAUTH_RULE_POLICY_SCOPES, "scope"};
        }
        std::vector<Role> roles;
        for (const RoleGrant& role : issuer.roles)
        {
            roles.push_back({role.name, role.privileges});
        }
        const std::vector<std::string_view> providers{issuer.providers.begin(),
                                                      issuer.providers.end()};
        return detail::judged(token, read, found->keys,
                              {issuer.type.get(),
                               issuer.longestLifetime.get(),
                               issuer.skew,
                               {.roles = roles, .providers = providers}},
                              now, [&](const Claims& claims) { return require(issuer, claims); })
            .transform([&issuer](detail::JudgedToken judged) {
                judged.privileges =
                    Privileges{judged.privileges.bits() & issuer.mostPrivileges.bits()};
                return judged;
            });
    }

    [[nodiscard]] static Expected<void> require(const TrustedIssuer& issuer, const Claims& claims)
    {
        const std::string* const audience = issuer.audience.get();
        if (audience != nullptr && !claims.audiences().contains(*audience))
        {
            return Error{BMCOAUTH_RULE_POLICY_AUDIENCE, "aud"};
        }
        return detail::isUtf8(claims.subject().value_or(""))
                   ? Expected<void>{}
                   : Error{BMCOAUTH_RULE_POLICY_ENCODING, "sub"};
    }

    std::vector<Issuer> issuers;
    detail::SeenTokens seen;
};

} // namespace v1
} // namespace bmcoauth
