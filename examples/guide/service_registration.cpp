// SPDX-License-Identifier: Apache-2.0
//
// A token service on the service layer, and a client that it serves; both in one program.
#include <bmcoauth/service.hpp>

#include <json/value.h>

#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>
#include <utility>

using bmcoauth::Claims;
using bmcoauth::ClientRecord;
using bmcoauth::Expected;
using bmcoauth::IssuedToken;
using bmcoauth::MemoryStore;
using bmcoauth::ParameterList;
using bmcoauth::PrivateKey;
using bmcoauth::Privilege;
using bmcoauth::Privileges;
using bmcoauth::Refusal;
using bmcoauth::Registrar;
using bmcoauth::Text;
using bmcoauth::TokenEndpoint;
using bmcoauth::TokenFacts;
using bmcoauth::TokenFunctions;

namespace
{

// [access]
/** What is issued: ten minutes, for this client. */
Expected<IssuedToken> issue(const PrivateKey& key, std::string_view subject, Privileges privileges)
{
    const Expected<Text> id = bmcoauth::randomToken(16);
    if (!id)
    {
        return id.error();
    }
    const auto end = bmcoauth::systemClock()() + std::chrono::minutes{10};
    const auto seconds = static_cast<std::uint64_t>(end.time_since_epoch().count());
    return bmcoauth::issueToken({.subject = subject,
                                 .id = *id,
                                 .issuer = "org.example.Tokens",
                                 .expiresAt = seconds,
                                 .privileges = privileges},
                                key)
        .transform([&](Text token) {
            return IssuedToken{std::move(token), std::string{id->view()}, end};
        });
}

/** What a token says that was issued here. */
Expected<TokenFacts> validate(const PrivateKey& key, std::string_view text)
{
    const bmcoauth::Verdict verdict = bmcoauth::validateToken(text, key);
    const bmcoauth::VerifiedToken* const token = verdict.verified();
    if (token == nullptr)
    {
        return *verdict.refusal();
    }
    const Claims claims = token->claims();
    const std::string_view end = claims.expiresAt().value_or("");
    std::int64_t seconds = 0;
    std::from_chars(end.data(), end.data() + end.size(), seconds);
    return TokenFacts{.subject = std::string{claims.subject().value_or("")},
                      .id = std::string{claims.id().value_or("")},
                      .expiresAt = std::chrono::sys_seconds{std::chrono::seconds{seconds}},
                      .privileges = bmcoauth::userPrivileges(*token).value_or(Privileges{})};
}
// [access]

// [functions]
/** What only this service knows. The key and the secrets must outlive it. */
TokenFunctions functionsOf(const PrivateKey& key, const Text& secrets)
{
    return {
        .issue = [&key](std::string_view subject,
                        Privileges privileges) { return issue(key, subject, privileges); },
        .validate = [&key](std::string_view token) { return validate(key, token); },
        // On a controller: the document of this software, from a file that it shares with nobody.
        .secrets = [&secrets](const ClientRecord&) { return Text::copy(secrets); },
        .privileges =
            [](const ClientRecord& client) {
                return client.softwareId == "demo-1" ? Privilege::login | Privilege::configure
                                                     : Privileges{};
            },
        // The socket or the bus names the sender, never the request.
        .mayIntrospect =
            [](std::string_view sender) {
                return sender == "user 0";
            }};
}
// [functions]

// [reply]
/** The peer gets the answer, or one word; the reason goes to the log. */
std::string reply(const Expected<Text, Refusal>& answer)
{
    if (answer)
    {
        return std::string{answer->view()};
    }
    std::clog << "refused: " << answer.error().describe().view() << '\n';
    const Expected<Text> document = answer.error().document();
    return document ? std::string{document->view()} : std::string{};
}
// [reply]

// ------------------------------------------------------------------------------------- the client --

/** The client's request for tokens, with its credentials from the registration. */
std::string tokenRequest(const Json::Value& credentials, bmcoauth::TokenRequestParts parts)
{
    const std::string id = credentials["client_id"].asString();
    const std::string secret = credentials["client_secret"].asString();
    parts.clientId = id;
    parts.clientSecret = secret;
    parts.state = "state";
    const Expected<Text> text = bmcoauth::TokenRequest::of(parts).and_then(
        [](const bmcoauth::TokenRequest& request) { return request.write(); });
    return text ? std::string{text->view()} : std::string{};
}

std::string proof(Json::Value& credentials, const Text& secrets)
{
    const Expected<ParameterList> response =
        bmcoauth::readObject(credentials, "handshake_challenge")
            .and_then([](const Text& text) { return ParameterList::parse(text); })
            .and_then([&](const ParameterList& challenge) {
                return bmcoauth::respond(challenge, {.secrets = secrets});
            });
    return response ? tokenRequest(credentials, {.handshake = &*response}) : std::string{};
}

std::string member(const std::string& document, const char* name)
{
    const Expected<Json::Value> parsed = bmcoauth::parseJson(document);
    return parsed ? (*parsed)[name].asString() : std::string{};
}

constexpr std::string_view registration = R"({"client_name":"demo client","software_id":"demo-1",)"
                                          R"("handshake_types":["otp1.0"],)"
                                          R"("redirect_uri":["https://client.example/callback"]})";

} // namespace

int main()
{
    const auto pair = bmcoauth::KeyPair::generate();
    const Expected<Text> secrets = bmcoauth::generateSecrets("otp", 1, 3, 20);
    if (!pair || !secrets)
    {
        return EXIT_FAILURE;
    }
    // [service]
    MemoryStore clients;
    auto registrar =
        Registrar<MemoryStore>::of(clients, {.proofs = bmcoauth::Proofs::oneTimePassword,
                                             .redirectUris = {"https://client.example/callback"}});
    auto tokens = TokenEndpoint<MemoryStore>::of(clients, functionsOf(pair->privateKey, *secrets));
    // [service]
    if (!registrar || !tokens)
    {
        return EXIT_FAILURE;
    }
    // [calls]
    const std::string registered = reply(registrar->answer(registration, "user 1000"));
    Expected<Json::Value> credentials = bmcoauth::parseJson(registered);
    if (!credentials)
    {
        return EXIT_FAILURE;
    }
    const std::string proven = proof(*credentials, *secrets);
    const std::string first = reply(tokens->answer(proven, "user 1000"));
    const std::string refresh = member(first, "refresh_token");
    const std::string second =
        reply(tokens->answer(tokenRequest(*credentials, {.refreshToken = refresh}), "user 1000"));
    const std::string access = member(second, "access_token");
    // [calls]
    const std::string again = reply(tokens->answer(proven, "user 1000"));
    const std::string described = reply(tokens->introspect(access, "user 0"));
    // [revoke]
    const bool revoked = tokens
                             ->revoke((*credentials)["client_id"].asString(),
                                      (*credentials)["client_secret"].asString(), refresh)
                             .has_value();
    // [revoke]
    std::cout << "second proof: " << again << '\n'
              << "described: " << described << '\n'
              << "revoked: " << (revoked ? "yes" : "no") << '\n'
              << "described: " << reply(tokens->introspect(access, "user 0")) << '\n';
    return revoked ? EXIT_SUCCESS : EXIT_FAILURE;
}
