// SPDX-License-Identifier: Apache-2.0
#include "faults/inputs.hpp"
#include "faults/show.hpp"
#include "secrets/secrets.hpp"
#include "support/lists.hpp"

#include <gtest/gtest.h>
#include <json/value.h>

#include <array>
#include <cstring>

using faults::AuthorizeRequestPtr;
using faults::AuthorizeResponsePtr;
using faults::OidcResponsePtr;
using faults::RegisterRequestPtr;
using faults::RegisterResponsePtr;
using support::HeapText;
using support::PairList;
using support::ParameterList;
using support::PayloadPtr;
using support::TextList;

namespace secrets
{

namespace
{

const std::string secret = someSecret;
const std::string token = "Rt3-a.refresh_token.nobody.else-has.";
const Secrets both{secret, token};

/** The same document in every form in which it can be read: as written, with parts that only
 *  jsoncpp reads, with a secret that is overwritten, and cut short, which is refused. */
enum Form
{
    plain,
    commented,
    escaped,
    repeated,
    marked,
    cut,
};

/** @p members with "client_secret" in front of them. */
std::string document(Form form, const std::string& members)
{
    const std::string text = R"("client_secret":")" + secret + R"(",)" + members + "}";
    switch (form)
    {
        case commented:
            return R"({/* not "this" */ "real":1.5,)" + text + "// the end";
        case escaped:
            return R"({"other":"\u00e4\n\t)" + secret + R"(\ud83d\ude00",)" + text;
        case repeated:
            return R"({"client_secret":")" + token + R"(",)" + text;
        case marked:
            return "\xef\xbb\xbf{" + text;
        case cut:
            return "{" + text.substr(0, text.size() - 1) + ",";
        default:
            return "{" + text;
    }
}

ParameterList& challenge()
{
    static ParameterList list{{"T", {"a1.0"}}, {"M", {"5"}}, {"C", {"77"}}};
    return list;
}

PairList<jwk>& sharedKey()
{
    static PairList<jwk> key{{"kty", "DFS"}, {"dfs", secret}};
    return key;
}

const std::string authorizeMembers =
    R"("client_id":"id","state":"s","refresh_token":")" + token + R"(")";

Secrets parsesAuthorize(Watch& watch, Form form)
{
    const std::string text = document(form, authorizeMembers);
    const AuthorizeRequestPtr request{
        watch.call([&] { return parse_authorize_request(text.c_str()); })};
    EXPECT_EQ(request != nullptr, form != cut);
    EXPECT_EQ(request ? request->client_secret : secret, secret);
    return both;
}

AuthorizeRequestPtr authorizeRequest(const char* state)
{
    return AuthorizeRequestPtr{create_authorize_request(secret.c_str(), "id", state, nullptr,
                                                        nullptr, nullptr, token.c_str())};
}

Secrets writesAuthorize(Watch& watch, const char* state)
{
    const AuthorizeRequestPtr request = authorizeRequest(state);
    const HeapText text{watch.call([&] { return write_authorize_request(request.get()); })};
    EXPECT_EQ(memberOf(text.get(), "client_secret"), secret);
    return both;
}

AuthorizeResponsePtr authorizeResponse()
{
    return AuthorizeResponsePtr{
        create_authorize_response("s", secret.c_str(), token.c_str(), "3600", "bearer")};
}

RegisterResponse* registerResponse(const char* lifetime = "600")
{
    return create_register_response(secret.c_str(), "id", lifetime, nullptr, nullptr, nullptr,
                                    nullptr, challenge(), nullptr, nullptr, nullptr);
}

RegisterRequest* registerRequest()
{
    static TextList uris{"u"};
    static std::array<jwk*, 2> keys{sharedKey(), nullptr};
    return create_register_request(uris, "name", "software", keys.data(), nullptr, nullptr,
                                   nullptr);
}

Secrets parsesRegister(Watch& watch, Form form)
{
    const std::string text =
        document(form, R"("client_name":"n","software_id":"s","redirect_uri":["u"],)"
                       R"("jwks":{"dfs":[{"dfs":")" +
                           secret + R"(","kty":"DFS"}]})");
    const RegisterRequestPtr request{
        watch.call([&] { return parse_register_request(text.c_str()); })};
    EXPECT_EQ(request != nullptr, form != cut);
    return {secret};
}

Secrets parsesResponse(Watch& watch, Form form)
{
    const std::string text = document(form, R"("client_id":"id","client_secret_expires_in":"600",)"
                                            R"("handshake_challenge":{"T":["a"],"M":"1","C":"2"})");
    EXPECT_EQ(watch.call([&] { return parse_register_response(text.c_str()); }), nullptr);
    return {secret};
}

Secrets parsesOidc(Watch& watch, Form form)
{
    const std::string text = document(form, R"("client_id":"id","client_secret_expires_at":7,)"
                                            R"("registration_access_token":")" +
                                                token + R"(")");
    const OidcResponsePtr response{
        watch.call([&] { return parse_oidc_register_response(text.c_str()); })};
    EXPECT_EQ(response != nullptr, form != cut);
    EXPECT_EQ(response ? response->client_secret : secret, secret);
    return both;
}

Secrets answers(Watch& watch, Form form)
{
    std::string text = document(form, R"("a1.0":["another secret",")" + token + R"("])");
    HandshakePayload* response = nullptr;
    const bool made = watch.call([&] {
        return generateHandshakeResponse(challenge(), text.c_str(),
                                         static_cast<unsigned int>(text.size()), nullptr, &response,
                                         nullptr, 0);
    });
    const PayloadPtr owner{response};
    EXPECT_EQ(made, form != cut);
    return both;
}

Secrets checks(Watch& watch, Form form, int validate)
{
    const std::string text = document(form, R"("a1.0":["another secret",")" + token + R"("])");
    // HOTP of the token for the counter 77 is what generateHandshakeResponse gives; here any will do.
    ParameterList proof{{"R", {"12345678"}}};
    HandshakePayload* response = validate == 0 ? nullptr : static_cast<HandshakePayload*>(proof);
    const int made = watch.call([&] {
        return generateHandshakeResponseForChallenge(challenge(), text.c_str(),
                                                     static_cast<unsigned int>(text.size()),
                                                     nullptr, &response, nullptr, 0, validate);
    });
    EXPECT_EQ(made, validate == 0 ? 1 : 0);
    const PayloadPtr owner{validate == 0 ? response : nullptr};
    return both;
}

/** Every secret of a key document and the bytes that it was made of. */
Secrets secretsOf(const char* text)
{
    Secrets all;
    Json::Value document;
    EXPECT_TRUE(text != nullptr && loadJsonDoc(text, document));
    for (const Json::Value& list : document)
    {
        for (const Json::Value& one : list)
        {
            all.push_back(one.asString());
            all.push_back(fromBase64(one.asString()));
        }
    }
    return all;
}

Secrets makesKeys(Watch& watch, unsigned int keys, unsigned int tokens, int length)
{
    char* text = nullptr;
    EXPECT_EQ(watch.call([&] { return generateKeyTool("otp", keys, tokens, length, &text); }), 1);
    const HeapText owner{text};
    Secrets all = secretsOf(text);
    EXPECT_EQ(all.size(), std::size_t{2} * keys * tokens);
    return all;
}

const Table rows{
    {"create_authorize_request", "everything",
     [](Watch& watch) {
         const AuthorizeRequestPtr request{
             watch.call([] { return authorizeRequest("s").release(); })};
         EXPECT_NE(request, nullptr);
         return both;
     }},
    {"create_authorize_request", "a handshake that cannot be copied",
     [](Watch& watch) {
         ParameterList handshake{{"R", {}}};
         EXPECT_EQ(watch.call([&] {
             return create_authorize_request(secret.c_str(), "id", "s", nullptr, nullptr, handshake,
                                             token.c_str());
         }),
                   nullptr);
         return both;
     }},
    {"free_authorize_request", "everything",
     [](Watch& watch) {
         AuthorizeRequest* const request = authorizeRequest("s").release();
         watch.call([&] { free_authorize_request(request); });
         return both;
     }},
    {"parse_authorize_request", "as it is written",
     [](Watch& watch) {
         return parsesAuthorize(watch, plain);
     }},
    {"parse_authorize_request", "comments and a real number",
     [](Watch& watch) {
         return parsesAuthorize(watch, commented);
     }},
    {"parse_authorize_request", "escaped characters",
     [](Watch& watch) {
         return parsesAuthorize(watch, escaped);
     }},
    {"parse_authorize_request", "a repeated member",
     [](Watch& watch) {
         return parsesAuthorize(watch, repeated);
     }},
    {"parse_authorize_request", "the mark of UTF-8",
     [](Watch& watch) {
         return parsesAuthorize(watch, marked);
     }},
    {"parse_authorize_request", "cut short",
     [](Watch& watch) {
         return parsesAuthorize(watch, cut);
     }},
    {"write_authorize_request", "ASCII",
     [](Watch& watch) {
         return writesAuthorize(watch, "state");
     }},
    {"write_authorize_request", "other characters",
     [](Watch& watch) {
         return writesAuthorize(watch, "st\xc3\xa4te \xf0\x9f\x98\x80 \xff");
     }},
    {"write_authorize_request", "nothing that it could stand for",
     [](Watch& watch) {
         const AuthorizeRequestPtr request{create_authorize_request(
             secret.c_str(), "id", "s", nullptr, nullptr, nullptr, nullptr)};
         EXPECT_EQ(watch.call([&] { return write_authorize_request(request.get()); }), nullptr);
         return Secrets{secret};
     }},
    {"create_authorize_response", "everything",
     [](Watch& watch) {
         const AuthorizeResponsePtr response{
             watch.call([] { return authorizeResponse().release(); })};
         EXPECT_NE(response, nullptr);
         return both;
     }},
    {"create_authorize_response", "no state",
     [](Watch& watch) {
         EXPECT_EQ(watch.call([] {
             return create_authorize_response(nullptr, secret.c_str(), token.c_str(), "1", "b");
         }),
                   nullptr);
         return both;
     }},
    {"free_authorize_response", "everything",
     [](Watch& watch) {
         AuthorizeResponse* const response = authorizeResponse().release();
         watch.call([&] { free_authorize_response(response); });
         return both;
     }},
    {"write_authorize_response", "everything",
     [](Watch& watch) {
         const AuthorizeResponsePtr response = authorizeResponse();
         const HeapText text{watch.call([&] { return write_authorize_response(response.get()); })};
         EXPECT_EQ(memberOf(text.get(), "refresh_token"), token);
         return both;
     }},
    {"parse_authorize_response", "everything",
     [](Watch& watch) {
         const AuthorizeResponsePtr source = authorizeResponse();
         const HeapText text{write_authorize_response(source.get())};
         const AuthorizeResponsePtr response{
             watch.call([&] { return parse_authorize_response(text.get()); })};
         EXPECT_NE(response, nullptr);
         return both;
     }},
    {"client_authorize", "a request",
     [](Watch& watch) {
         const std::string request = document(plain, authorizeMembers);
         const HeapText text{watch.call([&] { return client_authorize(request.c_str()); })};
         const std::string made = memberOf(text.get(), "refresh_token");
         return Secrets{secret, token, made, fromBase64(made)};
     }},
    {"authorize_client", "a key",
     [](Watch& watch) {
         const faults::Der& key = faults::deviceKey();
         const AuthorizeResponsePtr response{watch.call(
             [&] { return authorize_client("s", key.data(), key.length(), nullptr, nullptr); })};
         const std::string made = response ? response->refresh_token : "";
         return Secrets{made, fromBase64(made), scalarOf(key.bytes)};
     }},
    {"create_register_request", "a shared secret",
     [](Watch& watch) {
         // Makes what it is made of.
         free_register_request(registerRequest());
         const RegisterRequestPtr request{watch.call([] { return registerRequest(); })};
         EXPECT_NE(request, nullptr);
         return Secrets{secret};
     }},
    {"free_register_request", "a shared secret",
     [](Watch& watch) {
         RegisterRequest* const request = registerRequest();
         watch.call([&] { free_register_request(request); });
         return Secrets{secret};
     }},
    {"parse_register_request", "as it is written",
     [](Watch& watch) {
         return parsesRegister(watch, plain);
     }},
    {"parse_register_request", "comments and a real number",
     [](Watch& watch) {
         return parsesRegister(watch, commented);
     }},
    {"parse_register_request", "escaped characters",
     [](Watch& watch) {
         return parsesRegister(watch, escaped);
     }},
    {"parse_register_request", "cut short",
     [](Watch& watch) {
         return parsesRegister(watch, cut);
     }},
    {"write_register_request", "a shared secret",
     [](Watch& watch) {
         const RegisterRequestPtr request{registerRequest()};
         const HeapText text{watch.call([&] { return write_register_request(request.get()); })};
         EXPECT_NE(text, nullptr);
         return Secrets{secret};
     }},
    {"create_register_response", "everything",
     [](Watch& watch) {
         const RegisterResponsePtr response{watch.call([] { return registerResponse(); })};
         EXPECT_NE(response, nullptr);
         return Secrets{secret};
     }},
    {"create_register_response", "a lifetime that is none",
     [](Watch& watch) {
         EXPECT_EQ(watch.call([] { return registerResponse("soon"); }), nullptr);
         return Secrets{secret};
     }},
    {"free_register_response", "everything",
     [](Watch& watch) {
         RegisterResponse* const response = registerResponse();
         watch.call([&] { free_register_response(response); });
         return Secrets{secret};
     }},
    {"write_register_response", "everything",
     [](Watch& watch) {
         const RegisterResponsePtr response{registerResponse()};
         const HeapText text{watch.call([&] { return write_register_response(response.get()); })};
         EXPECT_EQ(memberOf(text.get(), "client_secret"), secret);
         return Secrets{secret};
     }},
    {"write_register_response", "no challenge",
     [](Watch& watch) {
         const RegisterResponsePtr response{registerResponse()};
         free_handshake_payload(response->handshake_challenge);
         response->handshake_challenge = nullptr;
         EXPECT_EQ(watch.call([&] { return write_register_response(response.get()); }), nullptr);
         return Secrets{secret};
     }},
    {"parse_register_response", "as it is written",
     [](Watch& watch) {
         return parsesResponse(watch, plain);
     }},
    {"parse_register_response", "comments and a real number",
     [](Watch& watch) {
         return parsesResponse(watch, commented);
     }},
    {"parse_register_response", "escaped characters",
     [](Watch& watch) {
         return parsesResponse(watch, escaped);
     }},
    {"register_client", "a template",
     [](Watch& watch) {
         const RegisterRequestPtr request{registerRequest()};
         const RegisterResponsePtr settings{configure_reg_response(
             "600", nullptr, nullptr, nullptr, nullptr, challenge(), nullptr, nullptr, nullptr)};
         const RegisterResponsePtr response{
             watch.call([&] { return register_client(request.get(), settings.get()); })};
         const std::string made = response ? response->client_secret : "";
         return Secrets{secret, made, fromBase64(made)};
     }},
    {"client_register", "a shared secret",
     [](Watch& watch) {
         const RegisterRequestPtr request{registerRequest()};
         const HeapText text{write_register_request(request.get())};
         // Without settings there is no challenge, and so no answer.
         EXPECT_EQ(watch.call([&] { return client_register(text.get()); }), nullptr);
         return Secrets{secret};
     }},
    {"parse_oidc_register_response", "as it is written",
     [](Watch& watch) {
         return parsesOidc(watch, plain);
     }},
    {"parse_oidc_register_response", "comments and a real number",
     [](Watch& watch) {
         return parsesOidc(watch, commented);
     }},
    {"parse_oidc_register_response", "escaped characters",
     [](Watch& watch) {
         return parsesOidc(watch, escaped);
     }},
    {"parse_oidc_register_response", "cut short",
     [](Watch& watch) {
         return parsesOidc(watch, cut);
     }},
    {"free_oidc_register_response", "an answer",
     [](Watch& watch) {
         const std::string text =
             document(plain, R"("client_id":"id","client_secret_expires_at":7,)"
                             R"("registration_access_token":")" +
                                 token + R"(")");
         OidcRegisterResponse* const response = parse_oidc_register_response(text.c_str());
         EXPECT_NE(response, nullptr);
         watch.call([&] { free_oidc_register_response(response); });
         return both;
     }},
    {"generateHandshakeResponse", "as it is written",
     [](Watch& watch) {
         return answers(watch, plain);
     }},
    {"generateHandshakeResponse", "comments and a real number",
     [](Watch& watch) {
         return answers(watch, commented);
     }},
    {"generateHandshakeResponse", "escaped characters",
     [](Watch& watch) {
         return answers(watch, escaped);
     }},
    {"generateHandshakeResponse", "cut short",
     [](Watch& watch) {
         return answers(watch, cut);
     }},
    {"generateHandshakeResponseForChallenge", "to answer",
     [](Watch& watch) {
         return checks(watch, plain, 0);
     }},
    {"generateHandshakeResponseForChallenge", "to check",
     [](Watch& watch) {
         return checks(watch, commented, 1);
     }},
    {"validateHandshakeResponse", "a password",
     [](Watch& watch) {
         const std::string text = document(escaped, R"("a1.0":[")" + token + R"("])");
         ParameterList proof{{"R", {"12345678"}}};
         watch.call([&] {
             return validateHandshakeResponse(
                 challenge(), text.c_str(), static_cast<unsigned int>(text.size()), nullptr, proof);
         });
         return both;
     }},
    {"generateKeyTool", "one secret",
     [](Watch& watch) {
         return makesKeys(watch, 1, 1, 16);
     }},
    {"generateKeyTool", "many secrets",
     [](Watch& watch) {
         return makesKeys(watch, 3, 9, 33);
     }},
};

} // namespace

} // namespace secrets
