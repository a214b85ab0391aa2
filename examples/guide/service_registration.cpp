// SPDX-License-Identifier: Apache-2.0
//
// guide-service-registration KEY: a token service on the service layer, with the key in a file, which
// is made if no file is there; a client that it serves; and a service that the client uses.
#include <bmcoauth/service.hpp>

#include <json/value.h>

#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

using bmcoauth::Claims;
using bmcoauth::ClientRecord;
using bmcoauth::Expected;
using bmcoauth::MemoryStore;
using bmcoauth::ParameterList;
using bmcoauth::Privilege;
using bmcoauth::Privileges;
using bmcoauth::Refusal;
using bmcoauth::Registrar;
using bmcoauth::SigningKeys;
using bmcoauth::Text;
using bmcoauth::TokenEndpoint;
using bmcoauth::TokenFunctions;
using bmcoauth::TokenIssuer;
using bmcoauth::ValidToken;

namespace
{

// [functions]
/** What only this service knows. The secrets must outlive it. */
TokenFunctions functionsOf(const Text& secrets)
{
    return {
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

int main(int argc, char** argv)
{
    const Expected<Text> secrets = bmcoauth::generateSecrets("otp", 1, 3, 20);
    const Expected<SigningKeys> keys = SigningKeys::loadOrCreate(argc == 2 ? argv[1] : "");
    if (!secrets || !keys)
    {
        return EXIT_FAILURE;
    }
    // [issuer]
    const auto issuer =
        TokenIssuer::of(*keys, {.issuer = "org.example.Tokens", .audience = bmcoauth::ignored},
                        bmcoauth::systemClock());
    // [issuer]
    if (!issuer)
    {
        return EXIT_FAILURE;
    }
    // [service]
    MemoryStore clients;
    auto registrar =
        Registrar<MemoryStore>::of(clients, {.proofs = bmcoauth::Proofs::oneTimePassword,
                                             .redirectUris = {"https://client.example/callback"}});
    auto tokens = TokenEndpoint<MemoryStore>::of(clients, *issuer, functionsOf(*secrets));
    // [service]
    if (!registrar || !tokens)
    {
        return EXIT_FAILURE;
    }
    // [validator]
    const auto validator =
        issuer->validator([&tokens](const Claims& claims) { return tokens->isRevoked(claims); });
    // [validator]
    if (!validator)
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
    std::cout << "second proof: " << again << '\n'
              << "described: " << reply(tokens->introspect(access, "user 0")) << '\n'
              << "valid: " << (validator->validate(access) ? "yes" : "no") << '\n';
    // [revoke]
    const auto revoked = tokens->revoke((*credentials)["client_id"].asString(),
                                        (*credentials)["client_secret"].asString(), refresh);
    // [revoke]
    const Expected<ValidToken> late = validator->validate(access);
    std::cout << "revoked: " << (revoked ? "yes" : "no") << '\n'
              << "described: " << reply(tokens->introspect(access, "user 0")) << '\n'
              << "valid: " << (late ? "yes" : late.error().name()) << '\n';
    return revoked ? EXIT_SUCCESS : EXIT_FAILURE;
}
