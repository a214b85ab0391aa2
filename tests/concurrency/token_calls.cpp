// SPDX-License-Identifier: Apache-2.0
#include "calls.hpp"

#include <openssl/ec.h>

#include <algorithm>
#include <array>
#include <atomic>

namespace calls
{

namespace
{

/** The records of a token that a function reads: who it is about, and how it is signed. */
template <typename Read>
std::string read(const Read& reading)
{
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    const int result = reading(&header, &payload);
    const HeaderPtr ownedHeader{header};
    const TokenPtr ownedPayload{payload};
    return std::to_string(result) + (header == nullptr ? "" : std::string{" "} + header->alg) +
           (payload == nullptr ? "" : std::string{" "} + payload->sub);
}

std::string judged(Inputs& in, const std::string& token)
{
    return read([&](JWTHeader** header, JWTPayload** payload) {
        return validateJWT(token.c_str(), bytesOf(in.world.deviceKey), lengthOf(in.world.deviceKey),
                           header, payload);
    });
}

/** A new file for each call. */
std::string newFile(Inputs& in)
{
    static std::atomic<unsigned int> number = 0;
    return in.world.directory / ("key-" + std::to_string(++number));
}

using EcKeyPtr = support::EcKeyPtr;

/** The signature of @p text is one by the device's key. */
int verified(Inputs& in, const std::string& text, char* signature)
{
    const HeapText owned{signature};
    char* der = nullptr;
    int length = 0;
    base64URIdecode(signature, &der, &length);
    const HeapText ownedDer{der};
    return verifySignature(text, reinterpret_cast<const unsigned char*>(der), length,
                           bytesOf(in.world.deviceKey), lengthOf(in.world.deviceKey));
}

std::string mask(unsigned int bits)
{
    return std::to_string(bits);
}

} // namespace

std::vector<Call> tokenCalls()
{
    return {
        {{"ravok_scope_privileges"},
         "ravok_login",
         [](Inputs&) -> std::string {
             return ravok_scope_privileges[0];
         }},
        {{"xidp_claim_privileges"},
         "L",
         [](Inputs&) -> std::string {
             return xidp_claim_privileges[0];
         }},
        {{"create_jwt_header", "free_jwt_header"},
         "ES256",
         [](Inputs&) {
             const HeaderPtr header{create_jwt_header("JWT", "ES256", "id")};
             return support::orNull(header->alg);
         }},
        {{"create_jwt_payload", "free_jwt_payload"},
         "alice 1800000000",
         [](Inputs&) {
             const TokenPtr payload{create_jwt_payload("alice", "id", "issuer", nullptr, nullptr,
                                                       "1800003600", nullptr, 0)};
             return payload->sub + std::string{" "} + payload->iat;
         }},
        {{"free_jwt_scopes", "print_jwt_scopes(JWTscopes*, int)"},
         "released",
         [](Inputs&) -> std::string {
             JWTscopes scope{support::heapText("name").release(), set_char_array(TextList{"value"}),
                             1};
             print_jwt_scopes(&scope, 1);
             free_jwt_scopes(&scope, 1);
             return scope.name == nullptr && scope.values == nullptr ? "released" : "kept";
         }},
        {{"get_jwt_header"},
         "1 ES256",
         [](Inputs& in) {
             return read([&](JWTHeader** header, JWTPayload**) {
                 return get_jwt_header(in.world.token.c_str(), header);
             });
         }},
        {{"get_jwt_payload"},
         "1 alice",
         [](Inputs& in) {
             return read([&](JWTHeader**, JWTPayload** payload) {
                 return get_jwt_payload(in.world.token.c_str(), payload);
             });
         }},

        {{"generateECKey"},
         "65",
         [](Inputs&) {
             unsigned char* publicKey = nullptr;
             unsigned char* privateKey = nullptr;
             int publicLength = 0;
             int privateLength = 0;
             generateECKey(&publicKey, &privateKey, &publicLength, &privateLength);
             const HeapBytes ownedPublic{publicKey};
             const HeapBytes ownedPrivate{privateKey};
             return std::to_string(publicLength);
         }},
        {{"generateECPrivateKey", "validateECPrivateKey"},
         "1 and 1",
         [](Inputs& in) {
             const std::string path = newFile(in);
             const int made = generateECPrivateKey(path.c_str());
             return std::to_string(made) + " and " +
                    std::to_string(validateECPrivateKey(path.c_str()));
         }},
        {{"getECPublicKey"},
         "65",
         [](Inputs& in) {
             unsigned char* point = nullptr;
             int length = 0;
             getECPublicKey(in.world.keyFile.c_str(), &point, &length);
             const HeapBytes owned{point};
             return std::to_string(length);
         }},
        {{"getECKeyFromFile(char const*)"},
         "256",
         [](Inputs& in) {
             const EcKeyPtr key{getECKeyFromFile(in.world.keyFile.c_str())};
             return std::to_string(EC_GROUP_get_degree(EC_KEY_get0_group(key.get())));
         }},
        {{"signToken(std::string const&, unsigned char const*, int)",
          "verifySignature(std::string const&, unsigned char const*, int, unsigned char const*, "
          "int)"},
         "1",
         [](Inputs& in) {
             return std::to_string(verified(
                 in, "text",
                 signToken("text", bytesOf(in.world.deviceKey), lengthOf(in.world.deviceKey))));
         }},

        {{"generateJWT"},
         "1 ES256 alice",
         [](Inputs& in) {
             return judged(
                 in, taken(generateJWT(in.header.get(), in.payload.get(),
                                       bytesOf(in.world.deviceKey), lengthOf(in.world.deviceKey))));
         }},
        {{"validateJWT"},
         "1 ES256 alice",
         [](Inputs& in) {
             return judged(in, in.world.token);
         }},
        {{"parseJWT(std::string const&, unsigned char const*, int, JWTHeader**, JWTPayload**)"},
         "0 ES256 alice",
         [](Inputs& in) {
             return read([&](JWTHeader** header, JWTPayload** payload) {
                 return parseJWT(in.world.token, bytesOf(in.world.peerKey),
                                 lengthOf(in.world.peerKey), header, payload);
             });
         }},
        {{"validateJWT_Delegated"},
         "1 ES256 alice",
         [](Inputs& in) {
             int isVerified = 0;
             return read([&](JWTHeader** header, JWTPayload** payload) {
                 return validateJWT_Delegated(in.world.token.c_str(), in.trusted.data(), 0, header,
                                              payload, 0, in.roles.data(), in.providers.data(),
                                              &isVerified);
             });
         }},

        {{"get_scope_privileges(JWTPayload*)"},
         "3",
         [](Inputs& in) {
             return mask(get_scope_privileges(in.payload.get()));
         }},
        {{"get_roles_privileges(JWTPayload*, userRole_s*)"},
         "6",
         [](Inputs& in) {
             return mask(get_roles_privileges(in.payload.get(), in.roles.data()));
         }},
        {{"get_xidp_privileges(JWTPayload*, char const**)"},
         "1",
         [](Inputs& in) {
             return mask(get_xidp_privileges(in.payload.get(), in.providers.data()));
         }},

        {{"create_authorize_request", "free_authorize_request", "write_authorize_request"},
         R"({"client_id":"client","client_secret":"secret",)"
         R"("handshake_response":{"list":["a","b"],"name":"value"},)"
         R"("kest_policy_auth":{"max_age":"60"},"state":"state"})",
         [](Inputs& in) {
             return taken(write_authorize_request(in.authorizeRequest.get()));
         }},
        {{"parse_authorize_request"},
         "client",
         [](Inputs&) {
             const AuthorizeRequestPtr request{parse_authorize_request(
                 R"({"client_id":"client","client_secret":"s","state":"s","refresh_token":"t"})")};
             return support::orNull(request->client_id);
         }},
        {{"create_authorize_response", "free_authorize_response", "write_authorize_response"},
         R"({"access_token":"access","expires_in":"3600","refresh_token":"refresh",)"
         R"("state":"state","token_type":"bearer"})",
         [](Inputs&) {
             const AuthorizeResponsePtr response{
                 create_authorize_response("state", "access", "refresh", "3600", "bearer")};
             return taken(write_authorize_response(response.get()));
         }},
        {{"parse_authorize_response"},
         "access 1800000000",
         [](Inputs&) {
             const AuthorizeResponsePtr response{parse_authorize_response(
                 R"({"state":"s","access_token":"access","refresh_token":"r",)"
                 R"("expires_in":"1","token_type":"bearer"})")};
             return response->access_token + std::string{" "} + response->issued_at;
         }},
        {{"set_kest_policy_response(KestPolicyAuth*)", "free_kest_policy_response"},
         "max_age",
         [](Inputs& in) {
             const std::unique_ptr<KestPolicyAuth, Releaser<free_kest_policy_response>> copy{
                 set_kest_policy_response(in.policy)};
             return support::orNull(copy->name);
         }},
        {{"configure_auth_response"},
         "60",
         [](Inputs&) {
             const AuthorizeResponsePtr made{configure_auth_response("60", nullptr)};
             return support::orNull(made->expires_in);
         }},
        {{"authorize_client"},
         "600: 1 ES256 alice",
         [](Inputs& in) {
             AuthorizeClaims claims{in.payload->sub, in.payload->iss, nullptr, 0};
             const AuthorizeResponsePtr response{
                 authorize_client("state", bytesOf(in.world.deviceKey),
                                  static_cast<unsigned int>(in.world.deviceKey.size()),
                                  in.authorizeTemplate.get(), &claims)};
             return response->expires_in + std::string{": "} + judged(in, response->access_token);
         }},
        {{"client_authorize"},
         "access_token,expires_in,refresh_token,state,token_type",
         [](Inputs& in) {
             const HeapText request{write_authorize_request(in.authorizeRequest.get())};
             const std::string response = taken(client_authorize(request.get()));
             char** names = nullptr;
             getKeyNames(response.c_str(), static_cast<unsigned int>(response.size()), &names);
             return taken(names);
         }},
    };
}

} // namespace calls
