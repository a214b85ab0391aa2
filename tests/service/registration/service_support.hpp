// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "cpp/identities.hpp"
#include "service/keys.hpp"
#include "support/certificates.hpp"
#include "support/fake_device.hpp"
#include "support/refusals.hpp"

#include <bmcoauth/service.hpp>

#include <gtest/gtest.h>
#include <json/value.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace bmcoauth
{

/** A factory whose roots this machine trusts, and its devices. */
struct Factory
{
    Factory()
    {
        files.put("/etc/default/certs/FactorycertProdRoot.pem", root.pem());
        files.put("/etc/default/certs/FactorycertDevRoot.pem",
                  support::Identity::root("development root").pem());
    }

    /** The chain of a device in the order that the library verifies. */
    [[nodiscard]] CertificateKey chainOf(const support::Identity& device) const
    {
        return CertificateKey::fromPem(device.pem() + intermediate.pem() + device.pem()).value();
    }

    support::FakeFiles files;
    support::Identity root = support::Identity::root("production root");
    support::Identity intermediate = root.issueAuthority("intermediate");
};

/** A clock that tests set. Every thread may ask it. */
class SetClock
{
public:
    [[nodiscard]] Clock clock()
    {
        return [this] {
            return now();
        };
    }
    [[nodiscard]] std::chrono::sys_seconds now() const
    {
        return std::chrono::sys_seconds{std::chrono::seconds{seconds.load()}};
    }
    void advance(std::chrono::seconds by)
    {
        seconds += by.count();
    }

private:
    std::atomic<std::int64_t> seconds{1800000000};
};

/** A signer that does what a test wants before it signs. */
struct ServiceSigner : TestSigner
{
    [[nodiscard]] Expected<Bytes> sign(const Sha256Digest& digest) const
    {
        return (*before)().and_then([&] { return TestSigner::sign(digest); });
    }

    std::shared_ptr<std::function<Expected<void>()>> before =
        std::make_shared<std::function<Expected<void>()>>([] { return Expected<void>{}; });
};

/** Issues tokens that are good for ten minutes by `time`. */
[[nodiscard]] inline TokenIssuer issuerOf(const ServiceSigner& signer, SetClock& time)
{
    return TokenIssuer::of(SigningKeys::of(signer).value(),
                           {.issuer = "service", .audience = "devices"}, time.clock())
        .value();
}

/** What a client has got from a service. */
struct Tokens
{
    std::string access;
    std::string refresh;
};

/** A client that knows a key document and, if it has one, a certificate. */
struct TestClient
{
    std::string softwareId = "device";
    std::string secrets = R"({"otp1.0":["12345678901234567890"]})";
    const support::Identity* identity = nullptr;
    std::optional<CertificateKey> chain = {};
    /** What it was registered with. */
    std::string id = {};
    std::string secret = {};
    ParameterList challenge = ParameterList{};

    [[nodiscard]] std::string registration(std::string_view uri = "https://client.example/") const
    {
        const std::array uris{uri};
        const std::array<std::string_view, 2> types{"otp1.0", "software_id_cert-1.0"};
        std::optional<CertificateKeyList> certificates;
        if (chain)
        {
            std::array<HandshakePayload*, 2> list{chain->parameters().get(), nullptr};
            certificates = CertificateKeyList{::set_jwk_certs(list.data())};
        }
        const Text text =
            RegistrationRequest::of({.redirectUri = uris,
                                     .clientName = "client",
                                     .softwareId = softwareId,
                                     .handshakeTypes = types,
                                     .certificates = certificates ? &*certificates : nullptr})
                .value()
                .write()
                .value();
        return std::string{text.view()};
    }
    /** Takes over what the registrar has answered. */
    void keep(const Text& answer)
    {
        Json::Value document = parseJson(answer).value();
        id = document["client_id"].asString();
        secret = document["client_secret"].asString();
        const Text text = readObject(document, "handshake_challenge").value();
        challenge = ParameterList::parse(text).value();
    }
    [[nodiscard]] std::string proof() const
    {
        const std::optional<PrivateKey> key =
            identity != nullptr ? std::optional{keyOf(*identity)} : std::nullopt;
        const ParameterList response = respond(challenge, {.secrets = secrets,
                                                           .certificate = chain ? &*chain : nullptr,
                                                           .key = key ? &*key : nullptr})
                                           .value();
        return request({.handshake = &response});
    }
    [[nodiscard]] std::string refreshing(std::string_view token) const
    {
        return request({.refreshToken = token});
    }
    [[nodiscard]] std::string request(TokenRequestParts parts) const
    {
        parts.clientId = id;
        parts.clientSecret = secret;
        parts.state = "state";
        const Text text = TokenRequest::of(parts).value().write().value();
        return std::string{text.view()};
    }
    [[nodiscard]] static Tokens tokensOf(const Text& answer)
    {
        const TokenResponse response = TokenResponse::parse(answer).value();
        return {std::string{response.accessToken().value()},
                std::string{response.refreshToken().value()}};
    }
};

/** A service that asks for one-time passwords, and its parts. */
struct TestService : ::testing::Test
{
    [[nodiscard]] TokenFunctions functions()
    {
        return {.secrets = [this](const ClientRecord&) { return Text::copy(secrets); },
                .privileges = [](const ClientRecord&) { return Privileges{Privilege::login}; },
                .mayIntrospect =
                    [](std::string_view sender) {
                        return sender == "resource";
                    }};
    }
    [[nodiscard]] static RegistrationRules passwords()
    {
        return {.proofs = Proofs::oneTimePassword, .redirectUris = {"https://client.example/"}};
    }
    [[nodiscard]] Registrar<MemoryStore> registrar(RegistrationRules rules = passwords())
    {
        return Registrar<MemoryStore>::of(store, std::move(rules), time.clock()).value();
    }
    [[nodiscard]] TokenEndpoint<MemoryStore> endpoint(const TokenEndpointRules& rules = {})
    {
        return TokenEndpoint<MemoryStore>::of(store, issuer, functions(), rules).value();
    }
    /** A client that is registered, and has not proven itself. */
    [[nodiscard]] TestClient registered(std::string_view sender = "sender")
    {
        TestClient client;
        client.keep(registrar().answer(client.registration(), sender).value());
        return client;
    }
    /** Proves that the client is registered; its first tokens. */
    [[nodiscard]] Tokens proven(const TestClient& client)
    {
        return TestClient::tokensOf(endpoint().answer(client.proof(), "sender").value());
    }

    SetClock time;
    MemoryStore store;
    ServiceSigner signer;
    TokenIssuer issuer = issuerOf(signer, time);
    std::string secrets = R"({"otp1.0":["12345678901234567890"]})";
};

} // namespace bmcoauth
