// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The registration endpoint of a service.
 *
 * Rules and records are made of std::string and std::function: where memory for one runs out, it
 * does what it always does. */

#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/handshake.hpp>
#include <bmcoauth/cpp/parameters.hpp>
#include <bmcoauth/cpp/registration.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/service/client_record.hpp>
#include <bmcoauth/service/clock.hpp>
#include <bmcoauth/service/device_identity.hpp>
#include <bmcoauth/service/refusal.hpp>
#include <bmcoauth/service/secret_digest.hpp>
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

/** What a service asks of those who register. */
struct RegistrationRules
{
    /** What they have to prove. */
    Proofs proofs = Proofs::both;
    /** The redirect URIs that a request may name, byte by byte. One at least. */
    std::vector<std::string> redirectUris = {};
    /** The common name that the certificate must bear. Unless it is set: the request's
     *  "software_id". */
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
        if (rules.redirectUris.empty())
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, "redirectUris"};
        }
        if (!clock)
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, "clock"};
        }
        if (rules.challengeLifetime.count() <= 0 ||
            rules.clientLifetime < rules.challengeLifetime || rules.clientLifetime > longest)
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_RANGE, "clientLifetime"};
        }
        return Registrar{store, std::move(rules), std::move(clock)};
    }

    /** Answers the registration request `text` of `sender`: who that is, as far as the service knows,
     *  such as an address or a user. The client is in the store before the answer leaves. */
    [[nodiscard]] Expected<Text, Refusal> answer(std::string_view text, std::string_view sender)
    {
        if (text.size() > rules.maximumBytes)
        {
            return refusal(Error{BMCOAUTH_RULE_ARGUMENT_LENGTH, "request"});
        }
        const Expected<RegistrationRequest> request = RegistrationRequest::parse(text);
        if (!request)
        {
            return refusal(request.error());
        }
        if (const Expected<void> allowed = requireRedirectUris(*request); !allowed)
        {
            return refusal(allowed.error());
        }
        Expected<ClientRecord> client = clientOf(*request, sender);
        if (!client)
        {
            return refusal(client.error());
        }
        return accepted(*request, *std::move(client));
    }

private:
    // What a record of 32 bits can tell the client.
    static constexpr std::chrono::seconds longest{0xffffffff};

    Registrar(S& clients, RegistrationRules asked, Clock time)
        : store{&clients}, rules{std::move(asked)}, clock{std::move(time)}
    {
    }

    [[nodiscard]] static Refusal refusal(const Error& reason) noexcept
    {
        return {OAUTH_INVALID_REQUEST, reason};
    }

    [[nodiscard]] Expected<void> requireRedirectUris(const RegistrationRequest& request) const
    {
        int place = 0;
        for (const std::string_view uri : request.redirectUri())
        {
            if (std::find(rules.redirectUris.begin(), rules.redirectUris.end(), uri) ==
                rules.redirectUris.end())
            {
                return Error{BMCOAUTH_RULE_CLIENT_REDIRECT_URI, "redirect_uri", place};
            }
            ++place;
        }
        return {};
    }

    /** The record of a client that has yet to be given its credentials and a challenge. */
    [[nodiscard]] Expected<ClientRecord> clientOf(const RegistrationRequest& request,
                                                  std::string_view sender) const
    {
        ClientRecord client;
        client.softwareId = request.softwareId().value_or("");
        client.sender = sender;
        if (rules.proofs == Proofs::oneTimePassword)
        {
            return client;
        }
        Expected<CertificateKey> key = request.certificate(0);
        if (!key)
        {
            return key.error();
        }
        client.deviceName =
            rules.certificateName ? rules.certificateName(request) : client.softwareId;
        const Expected<DeviceIdentity> device =
            DeviceIdentity::of(*std::move(key), client.deviceName);
        if (!device)
        {
            return device.error();
        }
        const Expected<Text> certificate = device->certificate().parameters().write();
        if (!certificate)
        {
            return certificate.error();
        }
        client.certificate = certificate->view();
        return client;
    }

    /** Gives the client what it lacks, and keeps it. */
    [[nodiscard]] Expected<Text, Refusal> accepted(const RegistrationRequest& request,
                                                   ClientRecord client)
    {
        const Expected<ParameterList> challenge = serverChallengeFor(request, rules.proofs);
        if (!challenge)
        {
            return refusal(challenge.error());
        }
        const auto lifetime = static_cast<std::uint32_t>(rules.clientLifetime.count());
        const Expected<RegistrationResponse> response = RegistrationResponse::answer(
            request, {.secretLifetimeSeconds = lifetime, .challenge = &*challenge});
        if (!response)
        {
            return refusal(response.error());
        }
        const Expected<SecretDigest> secret =
            SecretDigest::of(response->clientSecret().value_or(""));
        const Expected<Text> kept = challenge->write();
        Expected<Text> document = response->write();
        if (!secret || !kept || !document)
        {
            return refusal(!secret ? secret.error() : !kept ? kept.error() : document.error());
        }
        const std::chrono::sys_seconds now = clock();
        client.id = response->clientId().value_or("");
        client.secret = *secret;
        client.challenge = kept->view();
        client.endsAt = now + rules.clientLifetime;
        client.expiresAt = now + rules.challengeLifetime;
        if (const Expected<void> added = store->add(std::move(client), rules.limits, now); !added)
        {
            return Refusal{OAUTH_SERVER_ERROR, added.error()};
        }
        return *std::move(document);
    }

    S* store;
    RegistrationRules rules;
    Clock clock;
};

} // namespace v1
} // namespace bmcoauth
