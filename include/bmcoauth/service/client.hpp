// SPDX-License-Identifier: Apache-2.0
#pragma once

/* What a service keeps of a client, and what it decides by that and the time alone.
 *
 * Records are made of std::string: where memory for one runs out, it does what it always does. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/encoding.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/service/digest.hpp>

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace bmcoauth
{
inline namespace v1
{

/** SecretDigest is the SHA-256 digest of a secret of 16 random bytes or more: nobody finds such a secret
 *  by trying, so a digest without salt and repetition is enough. A password that a person has
 *  chosen needs more. */
class SecretDigest
{
public:
    /** In bytes. */
    static constexpr std::size_t size = SHA256_DIGEST_LENGTH;

    /** All zeros: there is no secret that has this digest. */
    SecretDigest() noexcept = default;
    /** The bytes that `bytes` gave. */
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
    /** Takes equally long whether they are equal or not. */
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
    /** Of the part that all tokens of the family begin with. */
    SecretDigest family = {};
    /** Of the token that is good now. */
    SecretDigest current = {};
    /** Of the token that `current` has replaced. All zeros: there is none. */
    SecretDigest previous = {};
    /** With the previous token, it gives `current` once more. Without that token, it gives nothing. */
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
    /** What Store::replace compares: the store sets it, nobody else. */
    std::uint64_t version = 0;
    /** Of the "client_secret". */
    SecretDigest secret;
    /** The "software_id". The client claims it; its certificate proves it once there is a `refresh`,
     *  and so does a key document that is this software's alone. */
    std::string softwareId;
    /** Who has sent the registration. */
    std::string sender;
    /** The certificate key that its proof is about, as JSON text; empty if none is asked for. */
    std::string certificate;
    /** The name that this certificate bears: the "software_id" unless
     *  RegistrationRules::certificateName says otherwise. */
    std::string deviceName;
    /** The challenge, as JSON text; empty once somebody has answered it. */
    std::string challenge;
    /** When the client ends, whatever it does. */
    std::chrono::sys_seconds endsAt;
    /** When it ends unless it is used before: the end of the challenge, or of the refresh token. The
     *  store may remove it from then on. */
    std::chrono::sys_seconds expiresAt;
    /** Absent until the client has proven itself. */
    std::optional<RefreshFamily> refresh;
};

/** When a token that was just rotated may come once more: the answer got lost, or two threads of
 *  the client used it at once. */
struct ReplayWindow
{
    /** For how long. */
    std::chrono::seconds length{30};
    /** How often. */
    std::uint32_t times = 4;
};

/** What is to be done with a refresh token. */
enum class RefreshOutcome : unsigned int
{
    rotate,             /**< It is replaced by a new one. */
    replayWithinWindow, /**< The token that has replaced it is given once more. */
    expired,            /**< It was not used in time. */
    familyExpired,      /**< The client has ended. */
    reuse,              /**< Somebody uses it a second time: the client is removed. */
};

/** Decides about the token of the digest `presented`, which is of the family of `client`: its first
 *  part has been compared. */
[[nodiscard]] inline RefreshOutcome decideRefresh(const ClientRecord& client,
                                                  const SecretDigest& presented,
                                                  const ReplayWindow& window,
                                                  std::chrono::sys_seconds now) noexcept
{
    if (now >= client.endsAt || !client.refresh)
    {
        return RefreshOutcome::familyExpired;
    }
    if (now >= client.expiresAt)
    {
        return RefreshOutcome::expired;
    }
    if (presented == client.refresh->current)
    {
        return RefreshOutcome::rotate;
    }
    // A clock that is set back makes the window no longer than the same again.
    const bool recent = std::chrono::abs(now - client.refresh->rotatedAt) < window.length;
    return presented == client.refresh->previous && recent && client.refresh->replays < window.times
               ? RefreshOutcome::replayWithinWindow
               : RefreshOutcome::reuse;
}

/** How many proofs may fail: `burst` at once, and one more after each `interval`. A good proof
 *  counts until it has been found good. */
struct FailureRate
{
    /** How many at once. */
    std::uint32_t burst = 0;
    /** After which time one more. */
    std::chrono::seconds interval{};
};

/** The counter after an attempt, and whether the attempt is allowed. */
struct CountedAttempt
{
    /** All that is kept of a count: one interval for each attempt, from now on. */
    std::chrono::sys_seconds busyUntil = {};
    /** Whether the attempt is counted; otherwise there were too many. */
    bool allowed = false;
};

/** Counts one more attempt, if there were not too many. Nobody is locked for longer than the burst
 *  lasts, although the clock may have been ahead when the others were counted. */
[[nodiscard]] inline CountedAttempt countAttempt(std::chrono::sys_seconds busyUntil,
                                                 const FailureRate& rate,
                                                 std::chrono::sys_seconds now) noexcept
{
    const std::chrono::sys_seconds full = now + rate.interval * rate.burst;
    const std::chrono::sys_seconds busy = std::min(std::max(busyUntil, now), full);
    const bool allowed = busy + rate.interval <= full;
    return {.busyUntil = allowed ? busy + rate.interval : busy, .allowed = allowed};
}

/* The texts of refresh tokens: "FAMILY.SECRET", 16 random bytes and then 16 or 32 more. A token is
 * replaced by one that is computed from it and from the salt in the store, so the store holds no
 * token, and whoever comes with the replaced one can be given the same answer once more. */
namespace detail
{

/** The longest time that a rule may give: what 32 bits of seconds can tell a client. It keeps sums of
 *  times from overflowing. */
inline constexpr std::chrono::seconds longestTime{0xffffffff};

/** The part of a refresh token that its family has in common; all of a text that is not one. */
[[nodiscard]] inline std::string_view familyPart(std::string_view token) noexcept
{
    return token.substr(0, token.find('.'));
}

/** "family.secret" */
[[nodiscard]] inline Expected<Text> joinedToken(std::string_view family, std::string_view secret)
{
    std::string joined;
    // One block, so that one is wiped.
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

} // namespace v1
} // namespace bmcoauth
