// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "cpp/identities.hpp"
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
#include <map>
#include <mutex>
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

/** Issues access tokens that are good for ten minutes, and knows them again. */
class TestIssuer
{
public:
    explicit TestIssuer(const SetClock& time) : clock{&time}
    {
    }

    [[nodiscard]] Expected<IssuedToken> issue(std::string_view subject, Privileges privileges)
    {
        const std::lock_guard guard{mutex};
        if (broken)
        {
            return Error{BMCOAUTH_RULE_KEY_KIND, "signer"};
        }
        const std::string id = std::to_string(++last);
        const std::chrono::sys_seconds end = clock->now() + std::chrono::minutes{10};
        issued["access" + id] = {
            .subject = std::string{subject}, .id = id, .expiresAt = end, .privileges = privileges};
        return IssuedToken{Text::copy("access" + id).value(), id, end};
    }
    [[nodiscard]] Expected<TokenFacts> validate(std::string_view token) const
    {
        const std::lock_guard guard{mutex};
        if (failure)
        {
            return *failure;
        }
        const auto place = issued.find(token);
        if (place == issued.end())
        {
            return Error{BMCOAUTH_RULE_TOKEN_SIGNATURE};
        }
        if (clock->now() >= place->second.expiresAt)
        {
            return Error{BMCOAUTH_RULE_TOKEN_EXPIRED};
        }
        return place->second;
    }

    /** Whether `issue` fails from now on. */
    void breakSigner(bool now)
    {
        broken = now;
    }
    /** `validate` fails with `error` from now on. */
    void failValidating(const Error& error)
    {
        failure = error;
    }

private:
    bool broken = false;
    std::optional<Error> failure;
    const SetClock* clock;
    mutable std::mutex mutex;
    std::map<std::string, TokenFacts, std::less<>> issued;
    int last = 0;
};

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
        return {.issue = [this](std::string_view subject,
                                Privileges given) { return issuer.issue(subject, given); },
                .validate = [this](std::string_view token) { return issuer.validate(token); },
                .secrets = [this](const ClientRecord&) { return Text::copy(secrets); },
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
        return TokenEndpoint<MemoryStore>::of(store, functions(), rules, time.clock()).value();
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
    TestIssuer issuer{time};
    std::string secrets = R"({"otp1.0":["12345678901234567890"]})";
};

} // namespace bmcoauth
