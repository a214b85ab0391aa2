// SPDX-License-Identifier: Apache-2.0
#pragma once

// A client's side of the token service on D-Bus.

#include "bus.hpp"

#include <bmcoauth.hpp>

#include <json/value.h>
#include <systemd/sd-bus.h>

#include <array>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

/** What a call has come to. */
struct Reply
{
    enum State
    {
        given,
        refused,
        lost, /**< The service has gone, before it did it or behind. */
    };
    State state = lost;
    /** The answer, or the error's name and message. */
    std::string text = {};
};

/** A connection to the bus. */
class Peer
{
public:
    Peer()
    {
        sd_bus* raw = nullptr;
        if (sd_bus_open_system(&raw) < 0)
        {
            throw std::runtime_error{"cannot reach the bus"};
        }
        bus.reset(raw);
    }

    /** Calls a method that takes texts. The answer is the first text that it gives, if any. */
    [[nodiscard]] Reply call(const char* method, std::initializer_list<std::string_view> texts,
                             const Address& service = tokenService) const
    {
        constexpr std::uint64_t longest = 10'000'000;
        sd_bus_message* raw = nullptr;
        if (sd_bus_message_new_method_call(bus.get(), &raw, service.name, service.path,
                                           service.interface, method) < 0)
        {
            throw std::runtime_error{"the connection to the bus is lost"};
        }
        const Message message{raw, sd_bus_message_unref};
        for (const std::string_view text : texts)
        {
            sd_bus_message_append(message.get(), "s", std::string{text}.c_str());
        }
        sd_bus_error error{}; // the macro for it is C
        sd_bus_message* answer = nullptr;
        const int result = sd_bus_call(bus.get(), message.get(), longest, &error, &answer);
        const Message owned{answer, sd_bus_message_unref};
        Reply reply = result < 0 ? refusalIn(error) : Reply{.state = Reply::given};
        const char* text = nullptr;
        if (result >= 0 && sd_bus_message_read(answer, "s", &text) > 0)
        {
            reply.text = text;
        }
        sd_bus_error_free(&error);
        return reply;
    }

private:
    using Message = std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)>;

    [[nodiscard]] static Reply refusalIn(const sd_bus_error& error)
    {
        const std::string name = error.name == nullptr ? "" : error.name;
        const bool isLost = name.ends_with(".ServiceUnknown") || name.ends_with(".NoReply") ||
                            name.ends_with(".NameHasNoOwner") || name.ends_with(".Disconnected");
        return {.state = isLost ? Reply::lost : Reply::refused,
                .text = name + ": " + (error.message == nullptr ? "" : error.message)};
    }

    std::unique_ptr<sd_bus, decltype(&sd_bus_flush_close_unref)> bus{nullptr,
                                                                     sd_bus_flush_close_unref};
};

/** What a client brings along: the same that the service knows of its device. */
struct Device
{
    /** The "software_id", which its certificate bears as its name. */
    std::string name;
    /** The key document. */
    std::string secrets;
    /** The chain in PEM, and the file of its key; empty where passwords are enough. */
    std::string chain = {};
    std::string keyFile = {};
};

/** A registered client. */
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

/** The value that must be there, or else this example has a fault. */
template <typename T>
T needed(bmcoauth::Expected<T> value)
{
    if (!value)
    {
        throw std::runtime_error{std::string{value.error().describe().view()}};
    }
    return *std::move(value);
}

[[nodiscard]] inline std::string registrationText(const Device& device)
{
    const std::array<std::string_view, 1> uris{"https://client.example/callback"};
    const std::array<std::string_view, 3> types{"otp1.0", "otp2.0", "software_id_cert-1.0"};
    std::optional<bmcoauth::CertificateKeyList> certificates;
    if (!device.chain.empty())
    {
        const std::array keys{needed(bmcoauth::CertificateKey::fromPem(device.chain))};
        certificates = needed(bmcoauth::CertificateKeyList::of(keys));
    }
    const auto request = needed(bmcoauth::RegistrationRequest::of(
        {.redirectUri = uris,
         .clientName = "example",
         .softwareId = device.name,
         .handshakeTypes = types,
         .certificates = certificates ? &*certificates : nullptr}));
    const bmcoauth::Text text = needed(request.write());
    return std::string{text.view()};
}

/** What the client keeps of the answer to its registration. */
[[nodiscard]] inline Client clientIn(const std::string& answer)
{
    // The challenge is a member of the answer, an object: jsoncpp's reader takes it out as text.
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
    const auto request = needed(bmcoauth::TokenRequest::of(parts));
    const bmcoauth::Text text = needed(request.write());
    return std::string{text.view()};
}

[[nodiscard]] inline std::string proofOf(const Client& client, const Device& device)
{
    std::optional<bmcoauth::CertificateKey> certificate;
    std::optional<bmcoauth::PrivateKey> key;
    if (!device.chain.empty())
    {
        certificate = needed(bmcoauth::CertificateKey::fromPem(device.chain));
        key = needed(bmcoauth::PrivateKey::fromFile(device.keyFile));
    }
    const auto proof = needed(
        bmcoauth::respond(client.challenge, {.secrets = device.secrets,
                                             .certificate = certificate ? &*certificate : nullptr,
                                             .key = key ? &*key : nullptr}));
    return requestOf(client, {.handshake = &proof});
}

[[nodiscard]] inline Tokens tokensIn(const std::string& answer)
{
    const auto response = needed(bmcoauth::TokenResponse::parse(answer));
    return {.access = std::string{response.accessToken().value_or("")},
            .refresh = std::string{response.refreshToken().value_or("")}};
}
