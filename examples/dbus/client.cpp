// SPDX-License-Identifier: Apache-2.0
//
// A client of the token service: token-client SECRETS
//
// Registers, proves itself, works with its tokens, and shows what the service refuses. SECRETS is
// the key document that the service has, too. Ends with 1 where something went otherwise.
#include <bmcoauth.hpp>

#include <systemd/sd-bus.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace
{

using bmcoauth::Document;
using bmcoauth::Expected;
using bmcoauth::ParameterList;
using bmcoauth::Text;

struct Bus
{
    struct Release
    {
        void operator()(sd_bus* bus) const noexcept
        {
            sd_bus_flush_close_unref(bus);
        }
    };
    std::unique_ptr<sd_bus, Release> connection;
};

/** What the service answers; nothing, and a line about it, where it refuses. */
std::optional<Document> call(const Bus& bus, const char* method, std::string_view argument)
{
    sd_bus_error error = SD_BUS_ERROR_NULL;
    sd_bus_message* reply = nullptr;
    const int result = sd_bus_call_method(bus.connection.get(), "org.example.Tokens",
                                          "/org/example/Tokens", "org.example.Tokens1", method,
                                          &error, &reply, "s", std::string{argument}.c_str());
    std::optional<Document> answer;
    const char* text = nullptr;
    if (result < 0)
    {
        std::cout << method << " is refused: " << error.message << '\n';
    }
    else if (sd_bus_message_read(reply, "s", &text) >= 0)
    {
        if (Expected<Document> document = Document::parse(text))
        {
            answer = std::move(*document);
        }
    }
    sd_bus_error_free(&error);
    sd_bus_message_unref(reply);
    return answer;
}

/** Of a registration: what the client keeps. */
struct Registered
{
    std::string id;
    std::string secret;
    ParameterList challenge;
};

Expected<Text> registrationText()
{
    const std::array<std::string_view, 1> uris{"https://client.example/callback"};
    const std::array<std::string_view, 2> types{"otp1.0", "otp2.0"};
    const auto request = bmcoauth::RegistrationRequest::of({.redirectUri = uris,
                                                            .clientName = "example",
                                                            .softwareId = "example-1",
                                                            .handshakeTypes = types});
    return request ? request->write() : request.error();
}

std::optional<Registered> registerAnew(const Bus& bus)
{
    const Expected<Text> text = registrationText();
    const std::optional<Document> answer =
        text ? call(bus, "Register", text->view()) : std::nullopt;
    if (!answer)
    {
        return std::nullopt;
    }
    const Expected<Text> id = answer->string("client_id");
    const Expected<Text> secret = answer->string("client_secret");
    // The challenge is a member of the answer, an object: jsoncpp's reader takes it out as text.
    Expected<Json::Value> tree = bmcoauth::parseJson(answer->view());
    const Expected<Text> challengeText =
        tree ? bmcoauth::readObject(*tree, "handshake_challenge") : tree.error();
    if (!id || !secret || !challengeText)
    {
        return std::nullopt;
    }
    Expected<ParameterList> challenge = ParameterList::parse(challengeText->view());
    if (!challenge)
    {
        return std::nullopt;
    }
    return Registered{std::string{id->view()}, std::string{secret->view()}, std::move(*challenge)};
}

/** The service's answer to a request with this proof, or else this refresh token. */
std::optional<Document> ask(const Bus& bus, const Registered& client, const ParameterList* proof,
                            std::optional<std::string_view> refreshToken = {})
{
    const auto request = bmcoauth::TokenRequest::of({.clientId = client.id,
                                                     .clientSecret = client.secret,
                                                     .state = "af0ifjsldkj",
                                                     .refreshToken = refreshToken,
                                                     .handshake = proof});
    const Expected<Text> text = request ? request->write() : request.error();
    return text ? call(bus, "Issue", text->view()) : std::nullopt;
}

/** One step of the story: says what it is about, and whether it went as it should. */
bool step(std::string_view what, bool asItShould)
{
    std::cout << (asItShould ? "as it should: " : "WRONG: ") << what << '\n';
    return asItShould;
}

bool workWithTokens(const Bus& bus, const std::string& secrets)
{
    const std::optional<Registered> client = registerAnew(bus);
    if (!step("the client is registered and challenged", client.has_value()))
    {
        return false;
    }
    const Expected<ParameterList> proof =
        bmcoauth::respond(client->challenge, {.secrets = secrets});
    const std::optional<Document> tokens = proof ? ask(bus, *client, &*proof) : std::nullopt;
    if (!step("it proves itself and has tokens", tokens.has_value()))
    {
        return false;
    }
    bool good = step("the same proof is good once", !ask(bus, *client, &*proof));

    const Expected<Text> access = tokens->string("access_token");
    const Expected<Text> refresh = tokens->string("refresh_token");
    if (!access || !refresh)
    {
        return false;
    }
    const std::optional<Document> description = call(bus, "Introspect", access->view());
    const Expected<bmcoauth::Texts> privileges =
        description ? description->strings("privileges")
                    : bmcoauth::Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, "description"};
    good =
        step("the access token allows to log in and to configure",
             privileges && privileges->size() == 2 && privileges->range().contains("ravok_login") &&
                 privileges->range().contains("ravok_configure")) &&
        good;
    std::string altered{access->view()};
    altered[altered.size() / 2] = altered[altered.size() / 2] == 'A' ? 'B' : 'A';
    const std::optional<Document> other = call(bus, "Introspect", altered);
    good =
        step("altered, it is worth nothing", other && !other->boolean("active").value_or(true)) &&
        good;

    good = step("the refresh token gives new tokens",
                ask(bus, *client, nullptr, refresh->view()).has_value()) &&
           good;
    return step("and is good once, too", !ask(bus, *client, nullptr, refresh->view())) && good;
}

bool guess(const Bus& bus, const std::string& secrets)
{
    const std::optional<Registered> client = registerAnew(bus);
    const std::array<std::string_view, 1> guessed{"00000000"};
    const std::array parameters{bmcoauth::Parameter{"R", guessed}};
    const Expected<ParameterList> wrong = ParameterList::of(parameters);
    if (!client || !wrong)
    {
        return false;
    }
    bool good = true;
    for (int attempt = 0; attempt < 3; ++attempt)
    {
        good = step("a guessed password is refused", !ask(bus, *client, &*wrong)) && good;
    }
    const Expected<ParameterList> right =
        bmcoauth::respond(client->challenge, {.secrets = secrets});
    return step("after three of them even the right one is, for a while",
                right && !ask(bus, *client, &*right)) &&
           good;
}

/** A request of `size` bytes, with a member that nobody reads. */
std::string padded(std::string_view request, std::size_t size)
{
    const std::string_view before = R"({"x":")";
    const std::string_view after = R"(",)";
    const std::size_t kept = before.size() + after.size() + request.size() - 1;
    return std::string{before} + std::string(size - kept, '.') + std::string{after} +
           std::string{request.substr(1)};
}

bool sendTooMuch(const Bus& bus)
{
    constexpr std::size_t most = 131072;
    const Expected<Text> text = registrationText();
    if (!text)
    {
        return false;
    }
    const bool good = step("a request of 128 KiB is taken",
                           call(bus, "Register", padded(text->view(), most)).has_value());
    return step("one of a byte more is refused",
                !call(bus, "Register", padded(text->view(), most + 1))) &&
           good;
}

} // namespace

int main(int argc, char** argv)
{
    std::ifstream file{argc == 2 ? argv[1] : ""};
    const std::string secrets{std::istreambuf_iterator<char>{file}, {}};
    sd_bus* raw = nullptr;
    if (secrets.empty() || sd_bus_open_user(&raw) < 0)
    {
        std::cerr << "usage: token-client SECRETS, with a bus to speak on\n";
        return EXIT_FAILURE;
    }
    Bus bus;
    bus.connection.reset(raw);
    bool good = workWithTokens(bus, secrets);
    good = guess(bus, secrets) && good;
    return sendTooMuch(bus) && good ? EXIT_SUCCESS : EXIT_FAILURE;
}
