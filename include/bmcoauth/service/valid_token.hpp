// SPDX-License-Identifier: Apache-2.0
#pragma once

/* A token that a validator of the service layer has found valid, and the tokens that it has seen. */

#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/privileges.hpp>
#include <bmcoauth/cpp/token.hpp>
#include <bmcoauth/service/clock.hpp>
#include <bmcoauth/service/digest.hpp>
#include <bmcoauth/service/expectation.hpp>
#include <bmcoauth/service/strict_reading.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string_view>
#include <utility>
#include <vector>

namespace bmcoauth
{
inline namespace v1
{

/** Tells whether the token with these claims has been revoked: by "jti", by its subject, or both. An
 *  error refuses the token with that error. Called for each token that is valid otherwise and has a
 *  "jti", from every thread that validates, those seen before included. */
using RevocationCheck = std::function<Expected<bool>(const Claims& claims)>;

namespace detail
{

class SeenTokens;

/** When a token is valid: from `begin` on, before `end`. */
struct Period
{
    /** The later one of "nbf" and "iat", less the skew. */
    std::chrono::sys_seconds begin;
    /** "exp", and the skew. */
    std::chrono::sys_seconds end;
};

/** What has been found out about a token that is valid in its time and unless it is revoked. */
struct JudgedToken
{
    /** The token. */
    VerifiedToken token;
    /** What its subject may do. */
    Privileges privileges;
    /** When it is valid. */
    Period period;
    /** Which keys it was found valid by. */
    std::uint64_t generation = 0;
};

/** The period of a token with these claims. "exp" is needed. Refused if the token lives longer than
 *  `longest`: from "iat" on, or from `now` if there is none. */
template <typename Claims>
[[nodiscard]] Expected<Period> periodOf(const Claims& claims, std::chrono::seconds skew,
                                        const std::chrono::seconds* longest,
                                        std::chrono::sys_seconds now)
{
    const Expected<std::chrono::sys_seconds> end = timeIn("exp", claims.expiresAt());
    const Expected<std::chrono::sys_seconds> issued =
        claims.issuedAt() ? timeIn("iat", claims.issuedAt()) : now;
    const Expected<std::chrono::sys_seconds> begin =
        claims.notBefore() ? timeIn("nbf", claims.notBefore()) : issued;
    if (!end || !issued || !begin)
    {
        return !end ? end.error() : !issued ? issued.error() : begin.error();
    }
    if (longest != nullptr && *end - *issued > *longest)
    {
        return Error{BMCOAUTH_RULE_POLICY_LIFETIME, "exp"};
    }
    // Without "iat" and "nbf" it begins now.
    return Period{std::max(*begin, *issued) - skew, *end + skew};
}

/** Holds tokens that have been found valid, by the digest of their whole texts, in sets of four of
 *  which each has a lock: readers share it, and wait only while one of the four is replaced. */
class TokenCache
{
public:
    /** In bytes; longer tokens are not kept. */
    static constexpr std::size_t longestKept = 4096;

    /** Holds `capacity` tokens at most, rounded up to a multiple of four. */
    explicit TokenCache(std::size_t capacity) : sets((capacity + ways - 1) / ways)
    {
    }

    /** The token with this digest; null if there is none. Takes no memory. */
    [[nodiscard]] std::shared_ptr<const JudgedToken> find(const Sha256Digest& digest)
    {
        if (sets.empty())
        {
            return nullptr;
        }
        Set& set = setOf(digest);
        const std::shared_lock lock{set.mutex};
        const auto* const slot = std::ranges::find(set.slots, digest, &Slot::digest);
        return slot == set.slots.end() ? nullptr : slot->token;
    }

    /** Keeps `token`, in place of another if its set is full. */
    void put(const Sha256Digest& digest, const std::shared_ptr<const JudgedToken>& token)
    {
        if (sets.empty())
        {
            return;
        }
        Set& set = setOf(digest);
        // What is replaced is released behind the lock.
        Slot slot{digest, token};
        const std::lock_guard lock{set.mutex};
        auto* place = std::ranges::find(set.slots, digest, &Slot::digest);
        if (place == set.slots.end())
        {
            place = &set.slots[set.next++ % ways];
        }
        std::swap(*place, slot);
    }

private:
    static constexpr std::size_t ways = 4;

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

    [[nodiscard]] Set& setOf(const Sha256Digest& digest) noexcept
    {
        std::size_t number = 0;
        std::memcpy(&number, digest.data(), sizeof number);
        return sets[number % sets.size()];
    }

    std::vector<Set> sets;
};

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
        return judged->period.end;
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

/** What both validators do with every token, seen before or not. */
class SeenTokens
{
public:
    /** As the validators take them. */
    SeenTokens(Expectation<RevocationCheck> revocationCheck, Clock time, std::size_t cacheSize)
        : isRevoked{std::move(revocationCheck)},
          clock{std::move(time)},
          cache{std::make_unique<TokenCache>(cacheSize)}
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
        const bool isKept = token.size() <= TokenCache::longestKept;
        const Sha256Digest digest = isKept ? sha256(token) : Sha256Digest{};
        std::shared_ptr<const JudgedToken> known = isKept ? cache->find(digest) : nullptr;
        if (known == nullptr || known->generation != generation)
        {
            Expected<JudgedToken> found = judge(now);
            if (!found)
            {
                return found.error();
            }
            known = std::make_shared<const JudgedToken>(std::move(*found));
            if (const Expected<void> good = requireGood(*known, now); !good)
            {
                return good.error();
            }
            if (isKept)
            {
                cache->put(digest, known);
            }
            return ValidToken{std::move(known)};
        }
        const Expected<void> good = requireGood(*known, now);
        return good ? ValidToken{std::move(known)} : Expected<ValidToken>{good.error()};
    }

private:
    /** What is asked each time. */
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
        if (check == nullptr)
        {
            return {};
        }
        const Claims claims = judged.token.claims();
        if (claims.id().value_or("").empty())
        {
            return Error{BMCOAUTH_RULE_TOKEN_MEMBER, "jti"};
        }
        const Expected<bool> revoked = (*check)(claims);
        if (!revoked)
        {
            return revoked.error();
        }
        return *revoked ? Error{BMCOAUTH_RULE_POLICY_REVOKED} : Expected<void>{};
    }

    Expectation<RevocationCheck> isRevoked;
    Clock clock;
    std::unique_ptr<TokenCache> cache;
};

} // namespace detail

} // namespace v1
} // namespace bmcoauth
