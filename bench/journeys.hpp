// SPDX-License-Identifier: Apache-2.0
#pragma once

// A client's side of a journey: registration, proof and tokens. Unlike a client that is started for
// one registration, a fleet manager keeps its chain and its key in memory.

#include "support/certificates.hpp"

#include <bmcoauth.hpp>

#include <json/value.h>

#include <array>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace bench
{

/** What a client brings along. */
struct Device
{
    /** The "software_id", which its certificate bears as its name. */
    std::string name;
    /** The key document that the controller has, too. */
    std::string secrets;
    /** The chain and its key; absent where passwords are enough. */
    std::optional<bmcoauth::CertificateKey> chain = {};
    std::optional<bmcoauth::PrivateKey> key = {};
};

/** What a client knows once it is registered. */
struct Client
{
    std::string id;
    std::string secret;
    bmcoauth::ParameterList challenge;
};

struct Tokens
{
    std::string access;
    std::string refresh;
};

/** The value; a benchmark of something that fails would measure nothing. */
template <typename T, typename E>
[[nodiscard]] T needed(bmcoauth::Expected<T, E> value)
{
    if (!value)
    {
        throw std::runtime_error{std::string{value.error().describe().view()}};
    }
    return *std::move(value);
}

[[nodiscard]] inline std::string textOf(bmcoauth::Expected<bmcoauth::Text> text)
{
    const bmcoauth::Text good = needed(std::move(text));
    return std::string{good.view()};
}

/** The factory whose roots controllers trust, and which makes devices. */
class Factory
{
public:
    /** Writes the roots into the folder `roots`. */
    explicit Factory(const std::string& roots)
    {
        for (const char* const name : {"/FactorycertProdRoot.pem", "/FactorycertDevRoot.pem"})
        {
            std::ofstream{roots + name} << root.pem();
        }
    }

    /** A device with a password, and a certificate if `certified`. */
    [[nodiscard]] Device device(const std::string& name, bool certified) const
    {
        if (!certified)
        {
            return {.name = name, .secrets = secrets};
        }
        const support::Identity made = intermediate.issue({.commonName = name});
        const std::string chain = made.pem() + intermediate.pem() + made.pem();
        return {.name = name,
                .secrets = secrets,
                .chain = needed(bmcoauth::CertificateKey::fromPem(chain)),
                .key =
                    needed(bmcoauth::PrivateKey::fromDer(bmcoauth::bytesOf(made.privateKeyDer())))};
    }
    /** What all devices have in common with the controllers. */
    [[nodiscard]] const std::string& keyDocument() const
    {
        return secrets;
    }

private:
    support::Identity root = support::Identity::root("production root");
    support::Identity intermediate = root.issueAuthority("intermediate");
    std::string secrets = textOf(bmcoauth::generateSecrets("otp", 2, 2, 16));
};

inline constexpr std::string_view redirectUri = "https://client.example/callback";

[[nodiscard]] inline std::string registrationOf(const Device& device)
{
    const std::array<std::string_view, 1> uris{redirectUri};
    const std::array<std::string_view, 3> types{"otp1.0", "otp2.0", "software_id_cert-1.0"};
    std::optional<bmcoauth::CertificateKeyList> certificates;
    if (device.chain)
    {
        certificates = needed(bmcoauth::CertificateKeyList::of({&*device.chain, 1}));
    }
    return textOf(needed(bmcoauth::RegistrationRequest::of(
                             {.redirectUri = uris,
                              .clientName = "fleet manager",
                              .softwareId = device.name,
                              .handshakeTypes = types,
                              .certificates = certificates ? &*certificates : nullptr}))
                      .write());
}

/** What the client keeps of the answer to its registration. */
[[nodiscard]] inline Client clientIn(std::string_view answer)
{
    Json::Value tree = needed(bmcoauth::parseJson(answer));
    const bmcoauth::Text challenge = needed(bmcoauth::readObject(tree, "handshake_challenge"));
    return {.id = tree["client_id"].asString(),
            .secret = tree["client_secret"].asString(),
            .challenge = needed(bmcoauth::ParameterList::parse(challenge.view()))};
}

/** The client's request for tokens, with a proof or a refresh token. */
[[nodiscard]] inline std::string requestOf(const Client& client, bmcoauth::TokenRequestParts parts)
{
    parts.clientId = client.id;
    parts.clientSecret = client.secret;
    parts.state = "af0ifjsldkj";
    return textOf(needed(bmcoauth::TokenRequest::of(parts)).write());
}

[[nodiscard]] inline std::string proofOf(const Client& client, const Device& device)
{
    const bmcoauth::ParameterList proof = needed(
        bmcoauth::respond(client.challenge, {.secrets = device.secrets,
                                             .certificate = device.chain ? &*device.chain : nullptr,
                                             .key = device.key ? &*device.key : nullptr}));
    return requestOf(client, {.handshake = &proof});
}

[[nodiscard]] inline Tokens tokensIn(std::string_view answer)
{
    const bmcoauth::TokenResponse response = needed(bmcoauth::TokenResponse::parse(answer));
    return {.access = std::string{response.accessToken().value_or("")},
            .refresh = std::string{response.refreshToken().value_or("")}};
}

} // namespace bench
