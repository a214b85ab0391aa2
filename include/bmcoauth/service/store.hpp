// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The clients of a service: their records, what these and the time alone decide, and where they are
 * kept. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/encoding.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/service/common.hpp>

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace bmcoauth
{
inline namespace v1
{

/** SecretDigest is the SHA-256 digest of a secret of at least 16 random bytes. Such a secret cannot be
 *  guessed, so the digest needs neither salt nor repetition. A password that a person has chosen needs
 *  more. */
class SecretDigest
{
public:
    /** In bytes. */
    static constexpr std::size_t size = SHA256_DIGEST_LENGTH;

    /** All zeros. No secret has this digest. */
    SecretDigest() noexcept = default;
    /** What `bytes` returned. */
    explicit SecretDigest(const Sha256Digest& bytes) noexcept : value{bytes}
    {
    }
    /** The digest of `secret`. */
    [[nodiscard]] static SecretDigest of(std::string_view secret) noexcept
    {
        return SecretDigest{detail::sha256(secret)};
    }

    /** For the store. */
    [[nodiscard]] const Sha256Digest& bytes() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return value;
    }
    /** Compares in constant time. */
    [[nodiscard]] bool operator==(const SecretDigest& other) const noexcept
    {
        return CRYPTO_memcmp(value.data(), other.value.data(), size) == 0;
    }

private:
    Sha256Digest value{};
};

/** The refresh tokens of a client that has proven itself. All of them are one family, which ends with
 *  the client. */
struct RefreshFamily
{
    /** Of the first part, which all tokens of the family have in common. */
    SecretDigest family = {};
    /** Of the token that is valid now. */
    SecretDigest current = {};
    /** Of the token that `current` has replaced. All zeros: there is none. */
    SecretDigest previous = {};
    /** Computes `current` from the previous token. Useless without that token. */
    std::string salt = {};
    /** When `current` replaced `previous`. */
    std::chrono::sys_seconds rotatedAt = {};
    /** How often `current` has been given once more. */
    std::uint32_t replays = 0;
};

/** A client. */
struct ClientRecord
{
    /** The "client_id". */
    std::string id;
    /** Set by the store alone; Store::replace compares it. */
    std::uint64_t version = 0;
    /** Of the "client_secret". */
    SecretDigest secret;
    /** The "software_id", which the client claims. Its certificate proves it once there is a `refresh`,
     *  and so does a key document that is this software's alone. */
    std::string softwareId;
    /** Who sent the registration. */
    std::string sender;
    /** The certificate key that its proof is about, as JSON text; empty if none is asked for. */
    std::string certificate;
    /** The name in this certificate: the "software_id" unless RegistrationRules::certificateName says
     *  otherwise. */
    std::string deviceName;
    /** The challenge, as JSON text; empty once it has been answered. */
    std::string challenge;
    /** When the client ends, even if it is used. */
    std::chrono::sys_seconds endsAt;
    /** When it ends unless it is used before: the end of the challenge, or of the refresh token. The
     *  store may then remove it. */
    std::chrono::sys_seconds expiresAt;
    /** Absent until the client has proven itself. */
    std::optional<RefreshFamily> refresh;
};

/** When a token that was just rotated may come once more: an answer may get lost, or two threads of a
 *  client may use the token at once. */
struct ReplayWindow
{
    /** For how long. */
    std::chrono::seconds length{30};
    /** How often. */
    std::uint32_t times = 4;
};

/** Decides about the token of the digest `presented`, whose first part is that of the family.
 *
 *  | result | what to do |
 *  |---|---|
 *  | true | replace the token by a new one |
 *  | false | give the token that has replaced it once more |
 *  | BMCOAUTH_RULE_CLIENT_REFRESH_EXPIRED | refuse: it was not used in time |
 *  | BMCOAUTH_RULE_CLIENT_FAMILY_EXPIRED | refuse: the client has ended |
 *  | BMCOAUTH_RULE_CLIENT_REFRESH_REUSED | refuse, and remove the client: it comes a second time | */
[[nodiscard]] inline Expected<bool> decideRefresh(const ClientRecord& client,
                                                  const SecretDigest& presented,
                                                  const ReplayWindow& window,
                                                  std::chrono::sys_seconds now) noexcept
{
    if (now >= client.endsAt || !client.refresh)
    {
        return Error{BMCOAUTH_RULE_CLIENT_FAMILY_EXPIRED};
    }
    if (now >= client.expiresAt)
    {
        return Error{BMCOAUTH_RULE_CLIENT_REFRESH_EXPIRED};
    }
    if (presented == client.refresh->current)
    {
        return true;
    }
    // A clock that is set back at most doubles the window.
    const bool recent = std::chrono::abs(now - client.refresh->rotatedAt) < window.length;
    return presented == client.refresh->previous && recent && client.refresh->replays < window.times
               ? Expected{false}
               : Error{BMCOAUTH_RULE_CLIENT_REFRESH_REUSED};
}

/** How many proofs may fail: `burst` at once, and one more after each `interval`. A good proof is
 *  counted until it is known to be good. */
struct FailureRate
{
    /** How many at once. */
    std::uint32_t burst = 0;
    /** The time after which one more may fail. */
    std::chrono::seconds interval{};
};

/** What countAttempt returns. */
struct CountedAttempt
{
    /** The new state of the counter: one interval for each attempt, from now on. */
    std::chrono::sys_seconds busyUntil = {};
    /** Whether the attempt is allowed, and counted. */
    bool allowed = false;
};

/** Counts one more attempt, unless there were too many. Nobody is locked for longer than the burst
 *  lasts, even if the clock was ahead when the others were counted. */
[[nodiscard]] inline CountedAttempt countAttempt(std::chrono::sys_seconds busyUntil,
                                                 const FailureRate& rate,
                                                 std::chrono::sys_seconds now) noexcept
{
    const std::chrono::sys_seconds full = now + rate.interval * rate.burst;
    const std::chrono::sys_seconds busy = std::min(std::max(busyUntil, now), full);
    const bool allowed = busy + rate.interval <= full;
    return {.busyUntil = allowed ? busy + rate.interval : busy, .allowed = allowed};
}

/* A refresh token is "FAMILY.SECRET": 16 random bytes, and 16 or 32 more. The token that replaces it is
 * computed from it and from the salt in the store. So the store holds no token, but a client that
 * shows the replaced one can get the same answer again. */
namespace detail
{

/** The longest time that a rule may give: what fits into 32 bits. Sums of times cannot overflow. */
inline constexpr std::chrono::seconds longestTime{0xffffffff};

/** The first part of a refresh token; all of a text that is not one. */
[[nodiscard]] inline std::string_view familyPart(std::string_view token) noexcept
{
    return token.substr(0, token.find('.'));
}

/** "family.secret" */
[[nodiscard]] inline Expected<Text> joinedToken(std::string_view family, std::string_view secret)
{
    std::string joined;
    // One block of memory, so that one is wiped.
    joined.reserve(family.size() + 1 + secret.size());
    joined.append(family).append(".").append(secret);
    Expected<Text> token = Text::copy(joined);
    wipe(joined.data(), joined.size());
    return token;
}

/** The first refresh token of a new family. */
[[nodiscard]] inline Expected<Text> firstRefreshToken()
{
    constexpr unsigned int bytes = 16;
    const Expected<Text> family = randomToken(bytes);
    const Expected<Text> secret = randomToken(bytes);
    return allOf(family, secret).and_then([&] { return joinedToken(*family, *secret); });
}

/** The token that replaces `token`: the same each time. */
[[nodiscard]] inline Expected<Text> nextRefreshToken(std::string_view token, std::string_view salt)
{
    Sha256Digest code{};
    const ByteSpan text = bytesOf(salt);
    if (HMAC(EVP_sha256(), token.data(), static_cast<int>(token.size()), text.data(), text.size(),
             code.data(), nullptr) == nullptr)
    {
        return Error{BMCOAUTH_RULE_MEMORY_EXHAUSTED};
    }
    const Expected<Text> secret = base64Url(code);
    wipe(code.data(), code.size());
    return secret.and_then([&](const Text& made) { return joinedToken(familyPart(token), made); });
}

} // namespace detail

/** How many clients a store holds, one of each kind at least. One more takes the place of another: see
 *  Store. */
struct ClientLimits
{
    /** Those that have not proven themselves. */
    std::size_t pending = 128;
    /** Those that have. */
    std::size_t proven = 256;
};

/** Store holds all state of Registrar and TokenEndpoint. The process may be killed between any two
 *  operations, and during one.
 *
 *  Each operation is atomic: other threads and processes see all of it or nothing, and so does the next
 *  start after a crash. Once an operation has returned, its change survives a crash of the machine.
 *  Several threads call operations at once. A failure is an Error, BMCOAUTH_RULE_CLIENT_STORE_FAILED if
 *  nothing says more; the change may then have taken place or not.
 *
 *  | operation | what it does |
 *  |---|---|
 *  | find(id) | returns the client, or nothing; case matters |
 *  | add(client, limits, now) | removes all clients whose `expiresAt` is not after `now`; adds this one, with a version, or refuses it if its id exists; removes a client for each above the limits |
 *  | replace(client) | if the client with this id has the version of `client`, replaces it by `client` with a version that this id never had; returns whether it did. Of several callers with one version, one alone gets true |
 *  | remove(id) | removes the client, if there is one |
 *  | countAttempt(counter, rate, now) | replaces the counter, a text of any bytes, by what the function countAttempt makes of it; returns whether the attempt is allowed. An absent counter is the epoch; one that is not after `now` may be forgotten |
 *  | forgive(counter, rate) | subtracts one interval from the counter, if there is one |
 *
 *  Above limits.pending, the client with the earliest `expiresAt` of the sender that has most of them is
 *  removed: a sender that registers without end loses its own registrations. A client that ends after
 *  the added one came while the clock was ahead, and counts as ending before it. Above limits.proven,
 *  the same holds by software id instead of sender, and by `expiresAt` alone.
 *
 *  A crash between countAttempt and forgive leaves an attempt counted; one between two other operations
 *  loses at most a registration. */
template <typename T>
concept Store = requires(T& store, ClientRecord client, std::string_view text,
                         const ClientLimits& limits, const FailureRate& rate,
                         std::chrono::sys_seconds now)
{
    {
        store.find(text)
        } -> std::same_as<Expected<std::optional<ClientRecord>>>;
    {
        store.add(client, limits, now)
        } -> std::same_as<Expected<void>>;
    {
        store.replace(client)
        } -> std::same_as<Expected<bool>>;
    {
        store.remove(text)
        } -> std::same_as<Expected<void>>;
    {
        store.countAttempt(text, rate, now)
        } -> std::same_as<Expected<bool>>;
    {
        store.forgive(text, rate)
        } -> std::same_as<Expected<void>>;
};

/** MemoryStore keeps clients as long as it lives: for tests, and for services whose clients may have to
 *  register again after each start. Any thread may call any function. */
class MemoryStore
{
public:
    /** See Store. */
    [[nodiscard]] Expected<std::optional<ClientRecord>> find(std::string_view id) const
    {
        const std::lock_guard guard{mutex};
        const auto place = clients.find(id);
        return place == clients.end() ? std::optional<ClientRecord>{} : place->second;
    }
    /** See Store. */
    Expected<void> add(ClientRecord client, const ClientLimits& limits,
                       std::chrono::sys_seconds now)
    {
        const std::lock_guard guard{mutex};
        std::erase_if(clients, [&](const auto& one) { return one.second.expiresAt <= now; });
        client.version = ++lastVersion;
        const std::chrono::sys_seconds last = client.expiresAt;
        std::string id = client.id;
        if (!clients.try_emplace(std::move(id), std::move(client)).second)
        {
            return Error{BMCOAUTH_RULE_CLIENT_STORE_FAILED, "client_id"};
        }
        trim(false, limits.pending, last);
        trim(true, limits.proven, std::chrono::sys_seconds::max());
        return {};
    }
    /** See Store. */
    Expected<bool> replace(ClientRecord client)
    {
        const std::lock_guard guard{mutex};
        const auto place = clients.find(client.id);
        if (place == clients.end() || place->second.version != client.version)
        {
            return false;
        }
        client.version = ++lastVersion;
        place->second = std::move(client);
        return true;
    }
    /** See Store. */
    Expected<void> remove(std::string_view id)
    {
        const std::lock_guard guard{mutex};
        if (const auto place = clients.find(id); place != clients.end())
        {
            clients.erase(place);
        }
        return {};
    }
    /** See Store. */
    Expected<bool> countAttempt(std::string_view counter, const FailureRate& rate,
                                std::chrono::sys_seconds now)
    {
        const std::lock_guard guard{mutex};
        std::erase_if(counters, [&](const auto& one) { return one.second <= now; });
        std::chrono::sys_seconds& busyUntil = counters[std::string{counter}];
        const CountedAttempt attempt = bmcoauth::countAttempt(busyUntil, rate, now);
        busyUntil = attempt.busyUntil;
        return attempt.allowed;
    }
    /** See Store. */
    Expected<void> forgive(std::string_view counter, const FailureRate& rate)
    {
        const std::lock_guard guard{mutex};
        if (const auto place = counters.find(counter); place != counters.end())
        {
            place->second -= rate.interval;
        }
        return {};
    }

private:
    using Clients = std::map<std::string, ClientRecord, std::less<>>;

    [[nodiscard]] static const std::string& groupOf(const ClientRecord& client) noexcept
    {
        return client.refresh ? client.softwareId : client.sender;
    }
    /** Removes pending or proven clients until at most `most` are left. None counts as ending after
     *  `last`. */
    void trim(bool proven, std::size_t most, std::chrono::sys_seconds last)
    {
        std::map<std::string, std::ptrdiff_t> groups;
        std::vector<Clients::iterator> left;
        for (auto one = clients.begin(); one != clients.end(); ++one)
        {
            if (one->second.refresh.has_value() == proven)
            {
                ++groups[groupOf(one->second)];
                left.push_back(one);
            }
        }
        const auto rank = [&](Clients::iterator one) {
            const ClientRecord& client = one->second;
            return std::tuple{-groups[groupOf(client)], std::min(client.expiresAt, last),
                              client.version};
        };
        while (left.size() > most)
        {
            const auto least = std::ranges::min_element(left, {}, rank);
            --groups[groupOf((*least)->second)];
            clients.erase(*least);
            left.erase(least);
        }
    }

    mutable std::mutex mutex;
    Clients clients;
    std::map<std::string, std::chrono::sys_seconds, std::less<>> counters;
    std::uint64_t lastVersion = 0;
};

} // namespace v1
} // namespace bmcoauth
