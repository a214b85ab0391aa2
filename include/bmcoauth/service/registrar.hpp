// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The registration endpoint of a service, who a client is by its certificate, and how a service
 * refuses. */

#include <bmcoauth/cpp/certificates.hpp>
#include <bmcoauth/cpp/error.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/handshake.hpp>
#include <bmcoauth/cpp/parameters.hpp>
#include <bmcoauth/cpp/registration.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/service/common.hpp>
#include <bmcoauth/service/store.hpp>

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bmcoauth
{
inline namespace v1
{

namespace detail
{

/** Requires that `name` is the only common name. CertificateKey::isValid compares 17 bytes of it. */
[[nodiscard]] inline Expected<void> requireCommonName(const X509& certificate,
                                                      std::string_view name)
{
    const X509_NAME* const subject = X509_get_subject_name(&certificate);
    const int place = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
    const bool isOnly =
        place >= 0 && X509_NAME_get_index_by_NID(subject, NID_commonName, place) < 0;
    unsigned char* text = nullptr;
    const int size =
        isOnly ? ASN1_STRING_to_UTF8(&text,
                                     X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, place)))
               : 0;
    const Bytes owned{text, size > 0 ? static_cast<std::size_t>(size) : 0};
    return owned.view() == name && name.find('\0') == std::string_view::npos
               ? Expected<void>{}
               : Error{BMCOAUTH_RULE_CERTIFICATE_NAME, "CN"};
}

/** Requires a public key on P-256: proofs are made with no other. */
[[nodiscard]] inline Expected<void> requireCurve(const X509& certificate) noexcept
{
    std::array<char, 32> group{};
    std::size_t length = 0;
    const EVP_PKEY* const key = X509_get0_pubkey(&certificate);
    if (key == nullptr || EVP_PKEY_is_a(key, "EC") != 1)
    {
        return Error{BMCOAUTH_RULE_KEY_KIND, "x5c", 0};
    }
    return EVP_PKEY_get_group_name(key, group.data(), group.size(), &length) == 1 &&
                   std::string_view{group.data(), length} == "prime256v1"
               ? Expected<void>{}
               : Error{BMCOAUTH_RULE_KEY_CURVE, "x5c", 0};
}

} // namespace detail

/** DeviceIdentity is a certificate chain that means one device. Its first certificate
 *  - is also its last
 *  - has the expected name as its only common name
 *  - has a key on P-256
 *  - leads to a root of the factory
 *
 *  checkProofs takes nothing else. */
class DeviceIdentity
{
public:
    /** The identity of the device `name`. Case matters. Refuses an empty name. */
    [[nodiscard]] static Expected<DeviceIdentity> of(CertificateKey key, std::string_view name)
    {
        if (name.empty())
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, "name"};
        }
        const Expected<Certificate> certificate =
            key.isValid().and_then([&] { return key.pem(); }).and_then([](const Text& pem) {
                return readCertificate(pem);
            });
        if (!certificate)
        {
            return certificate.error();
        }
        // The look-ups may leave errors for the next user of OpenSSL.
        ERR_set_mark();
        const Expected<void> good = detail::requireCurve(**certificate).and_then([&] {
            return detail::requireCommonName(**certificate, name);
        });
        ERR_pop_to_mark();
        return good.transform([&key] { return DeviceIdentity{std::move(key)}; });
    }

    /** The chain. */
    [[nodiscard]] const CertificateKey& certificate() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return key;
    }
    [[nodiscard]] const CertificateKey& certificate() const&& = delete;

private:
    explicit DeviceIdentity(CertificateKey chain) noexcept : key{std::move(chain)}
    {
    }

    CertificateKey key;
};

/** isProven for an identified device, or for none if the challenge asks for passwords alone: whether
 *  `response` gives every proof that `challenge` asks for. */
[[nodiscard]] inline Expected<void> checkProofs(const ParameterList& challenge,
                                                const ParameterList& response,
                                                std::string_view secrets,
                                                const std::optional<DeviceIdentity>& device)
{
    return isProven(challenge, response, secrets, device ? &device->certificate() : nullptr);
}

/** Refusal is why a service refuses: an Error for the log, and one word for the peer. The word is the
 *  same for every client that fails to prove who it is. */
class Refusal : public Error
{
public:
    /** Refuses by `reason`. The peer is told `code`, or OAUTH_SERVER_ERROR if isOfMachine. */
    Refusal(oauthError code, const Error& reason) noexcept
        : Error{reason}, word{isOfMachine(reason) ? OAUTH_SERVER_ERROR : code}
    {
    }

    /** Whether memory, a file, the clock or the store failed, so that nothing is known of the peer. */
    [[nodiscard]] static bool isOfMachine(const Error& reason) noexcept
    {
        constexpr int afterMachine = 600;
        return (reason.rule() >= BMCOAUTH_RULE_MEMORY_EXHAUSTED && reason.rule() < afterMachine) ||
               reason.rule() == BMCOAUTH_RULE_CHAIN_ROOT_MISSING ||
               reason.rule() == BMCOAUTH_RULE_CLIENT_STORE_FAILED;
    }

    /** The word for the peer. */
    [[nodiscard]] oauthError code() const noexcept
    {
        return word;
    }
    /** The document for the peer. */
    [[nodiscard]] Expected<Text> document() const
    {
        return errorDocument(word);
    }

private:
    oauthError word;
};

namespace detail
{

/** Parses the request `text`, unless it is longer than `most` bytes. */
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
    /** The redirect URIs that a request may name, compared byte by byte. One at least. */
    std::vector<std::string> redirectUris = {};
    /** Returns the common name that the certificate must have. Unless set, this is the request's
     *  "software_id"; if set, the certificate does not prove the "software_id". */
    std::function<std::string(const RegistrationRequest&)> certificateName = {};
    /** The time in which a client must prove itself. */
    std::chrono::seconds challengeLifetime{300};
    /** The time after which a client must register again: "client_secret_expires_in". */
    std::chrono::seconds clientLifetime = std::chrono::days{90};
    /** How many clients there may be. */
    ClientLimits limits = {};
    /** The longest request that is parsed. The store keeps parts of up to `limits.pending` of them. */
    std::size_t maximumBytes = 16384;
};

/** Registrar answers registration requests with credentials and a challenge. All state is in the store.
 *  Any thread may call any function. */
template <Store S>
class Registrar
{
public:
    /** `store` must outlive the registrar. Refuses rules without a meaning. */
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

    /** Answers the registration request `text`. `sender` is an address or a user, for instance, which
     *  the transport names, not the request. The client is in the store before this returns. */
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

    /** Sets the names of the client, and its certificate. */
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

    /** Sets the client's identifier, secret and challenge. Returns the answer. */
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
