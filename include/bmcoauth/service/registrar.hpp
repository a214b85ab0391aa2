// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The registration endpoint of a service, and how a service refuses.
 *
 * Rules and records are made of std::string and std::function: where memory for one runs out, it
 * does what it always does. */

#include <bmcoauth/cpp/error.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/handshake.hpp>
#include <bmcoauth/cpp/registration.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/service/client.hpp>
#include <bmcoauth/service/clock.hpp>
#include <bmcoauth/service/device_identity.hpp>
#include <bmcoauth/service/store.hpp>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bmcoauth
{
inline namespace v1
{

/** Refusal is why a service refuses: an Error, for the log, and the one word of it that the peer
 *  may know. Every refusal of a client that tries to prove who it is has the same word. */
class Refusal : public Error
{
public:
    /** Refuses by `reason`, and tells the peer `code`; where the machine has failed, whatever the
     *  peer has asked for, OAUTH_SERVER_ERROR. */
    Refusal(oauthError code, const Error& reason) noexcept
        : Error{reason}, word{isOfMachine(reason) ? OAUTH_SERVER_ERROR : code}
    {
    }

    /** Whether memory, a file, the clock or the store has failed: nothing is known of the peer. */
    [[nodiscard]] static bool isOfMachine(const Error& reason) noexcept
    {
        constexpr int afterMachine = 600;
        return (reason.rule() >= BMCOAUTH_RULE_MEMORY_EXHAUSTED && reason.rule() < afterMachine) ||
               reason.rule() == BMCOAUTH_RULE_CHAIN_ROOT_MISSING ||
               reason.rule() == BMCOAUTH_RULE_CLIENT_STORE_FAILED;
    }

    /** What the peer is told. */
    [[nodiscard]] oauthError code() const noexcept
    {
        return word;
    }
    /** The document that tells it. */
    [[nodiscard]] Expected<Text> document() const
    {
        return errorDocument(word);
    }

private:
    oauthError word;
};

namespace detail
{

/** The request that `text` holds, which is not looked at if it is longer than `most`. */
template <typename Request>
[[nodiscard]] Expected<Request> read(std::string_view text, std::size_t most)
{
    return text.size() > most ? Error{BMCOAUTH_RULE_ARGUMENT_LENGTH, "request"}
                              : Request::parse(text);
}

} // namespace detail

/** What a service asks of those who register. */
struct RegistrationRules
{
    /** What they have to prove. */
    Proofs proofs = Proofs::both;
    /** The redirect URIs that a request may name, byte by byte. One at least. */
    std::vector<std::string> redirectUris = {};
    /** The common name that the certificate must bear. Unless it is set: the request's
     *  "software_id", which the certificate does not prove otherwise. */
    std::function<std::string(const RegistrationRequest&)> certificateName = {};
    /** How soon a client must prove itself. */
    std::chrono::seconds challengeLifetime{300};
    /** When a client has to register anew: "client_secret_expires_in". */
    std::chrono::seconds clientLifetime = std::chrono::days{90};
    /** How many clients there may be. */
    ClientLimits limits = {};
    /** The longest request that is read at all. Up to `limits.pending` of them are kept. */
    std::size_t maximumBytes = 16384;
};

/** Registrar answers registration requests with credentials and a challenge. Thread-safe; it has no
 *  state but the store's. */
template <Store S>
class Registrar
{
public:
    /** A registrar for `store`, which must outlive it. Refused if a rule has no meaning. */
    [[nodiscard]] static Expected<Registrar>
    of(S& store BMCOAUTH_LIFETIMEBOUND, RegistrationRules rules, Clock clock = systemClock())
    {
        if (rules.redirectUris.empty() || !clock)
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, clock ? "redirectUris" : "clock"};
        }
        if (rules.challengeLifetime.count() <= 0 ||
            rules.clientLifetime < rules.challengeLifetime ||
            rules.clientLifetime > detail::longestTime || rules.limits.pending == 0 ||
            rules.limits.proven == 0)
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_RANGE, "rules"};
        }
        return Registrar{store, std::move(rules), std::move(clock)};
    }

    /** Answers the registration request `text` of `sender`: who that is, as far as the service knows,
     *  such as an address or a user. The client is in the store before the answer leaves. */
    [[nodiscard]] Expected<Text, Refusal> answer(std::string_view text, std::string_view sender)
    {
        const std::chrono::sys_seconds now = clock();
        ClientRecord client;
        client.sender = sender;
        client.endsAt = now + rules.clientLifetime;
        client.expiresAt = now + rules.challengeLifetime;
        Expected<Text> document =
            detail::read<RegistrationRequest>(text, rules.maximumBytes)
                .and_then([&](const RegistrationRequest& request) {
                    return requireRedirectUris(request)
                        .and_then([&] { return identify(client, request); })
                        .and_then([&] { return credentials(client, request); });
                });
        if (!document)
        {
            return Refusal{OAUTH_INVALID_REQUEST, document.error()};
        }
        if (const Expected<void> added = store->add(std::move(client), rules.limits, now); !added)
        {
            return Refusal{OAUTH_SERVER_ERROR, added.error()};
        }
        return *std::move(document);
    }

private:
    Registrar(S& clients, RegistrationRules asked, Clock time)
        : store{&clients}, rules{std::move(asked)}, clock{std::move(time)}
    {
    }

    [[nodiscard]] Expected<void> requireRedirectUris(const RegistrationRequest& request) const
    {
        int place = 0;
        for (const std::string_view uri : request.redirectUri())
        {
            if (std::ranges::find(rules.redirectUris, uri) == rules.redirectUris.end())
            {
                return Error{BMCOAUTH_RULE_CLIENT_REDIRECT_URI, "redirect_uri", place};
            }
            ++place;
        }
        return {};
    }

    /** Sets who the client says it is, and by which certificate. */
    [[nodiscard]] Expected<void> identify(ClientRecord& client,
                                          const RegistrationRequest& request) const
    {
        client.softwareId = request.softwareId().value_or("");
        if (rules.proofs == Proofs::oneTimePassword)
        {
            return {};
        }
        client.deviceName =
            rules.certificateName ? rules.certificateName(request) : client.softwareId;
        return request.certificate(0)
            .and_then([&](CertificateKey key) {
                return DeviceIdentity::of(std::move(key), client.deviceName);
            })
            .and_then([](const DeviceIdentity& device) {
                return device.certificate().parameters().write();
            })
            .transform([&](const Text& certificate) { client.certificate = certificate.view(); });
    }

    /** Gives the client an identifier, a secret and a challenge; the document that tells it. */
    [[nodiscard]] Expected<Text> credentials(ClientRecord& client,
                                             const RegistrationRequest& request) const
    {
        const Expected<ParameterList> challenge = serverChallengeFor(request, rules.proofs);
        const Expected<Text> kept =
            challenge.and_then([](const ParameterList& list) { return list.write(); });
        if (!kept)
        {
            return kept.error();
        }
        client.challenge = kept->view();
        const auto lifetime = static_cast<std::uint32_t>(rules.clientLifetime.count());
        return RegistrationResponse::answer(
                   request, {.secretLifetimeSeconds = lifetime, .challenge = &*challenge})
            .and_then([&](const RegistrationResponse& response) {
                client.id = response.clientId().value_or("");
                client.secret = SecretDigest::of(response.clientSecret().value_or(""));
                return response.write();
            });
    }

    S* store;
    RegistrationRules rules;
    Clock clock;
};

} // namespace v1
} // namespace bmcoauth
