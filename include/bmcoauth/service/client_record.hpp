// SPDX-License-Identifier: Apache-2.0
#pragma once

/* What a service keeps of a client, and what it decides by that alone: pure functions of a record
 * and the time.
 *
 * Records are made of std::string: where memory for one runs out, it does what it always does. */

#include <bmcoauth/service/secret_digest.hpp>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace bmcoauth
{
inline namespace v1
{

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
    /** By which the owner of the previous token, with it, is given `current` once more. It is worth
     *  nothing without that token. */
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
    /** The "software_id". Proven as soon as there is a `refresh`, claimed before. */
    std::string softwareId;
    /** Who has sent the registration. */
    std::string sender;
    /** The certificate key that its proof is about, as JSON text; empty if none is asked for. */
    std::string certificate;
    /** The name that this certificate bears. */
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
 *  the client had the same thought. */
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

} // namespace v1
} // namespace bmcoauth
