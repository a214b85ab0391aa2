// SPDX-License-Identifier: Apache-2.0
#include "show.hpp"
#include "support/lists.hpp"

#include <array>
#include <stdexcept>

using support::PairList;
using support::ParameterList;
using support::TextList;

namespace faults
{

namespace
{

constexpr const char* requestText =
    R"({"client_name":"name","handshake_challenge":{"T":["a","b"]},"handshake_types":["a","b"],)"
    R"("jwks":{"dfs":[{"dfs":"c2VjcmV0","kty":"DFS"}],)"
    R"("software_id_cert":[{"kty":"EC","x5c":["MIIB","MIIC"]}]},"redirect_uri":["u","v"],)"
    R"("software_id":"software"})";

/** Lists of every kind, which the library copies. */
struct Lists
{
    TextList uris{"u", "v"};
    TextList types{"a", "b"};
    PairList<jwk> key{{"kty", "DFS"}, {"dfs", "c2VjcmV0"}};
    std::array<jwk*, 2> keys{key, nullptr};
    ParameterList certificate{{"kty", {"EC"}}, {"x5c", {"MIIB", "MIIC"}}};
    std::array<HandshakePayload*, 2> certificates{certificate, nullptr};
    ParameterList challenge{{"T", {"a", "b"}}, {"M", {"1"}}, {"C", {"2"}}};
    ParameterList response{{"R", {"12345678"}}};

    RegisterRequest* request()
    {
        return create_register_request(uris, "name", "software", keys.data(), certificates.data(),
                                       types, challenge);
    }

    RegisterResponse* configured()
    {
        return configure_reg_response("600", uris, nullptr, types, types, challenge, response,
                                      "cryptex", certificates.data());
    }

    RegisterResponse* created()
    {
        return create_register_response("secret", "id", "600", uris, nullptr, types, types,
                                        challenge, response, "cryptex", certificates.data());
    }
};

Lists& lists()
{
    static Lists made;
    return made;
}

/** A list that cannot be copied is absent, as one that was not given. */
const std::vector<std::string> listsOfARequest{"redirect_uri", "handshake_types", "dfs",
                                               "software_id_cert", "handshake_challenge"};
const std::vector<std::string> listsOfAResponse{"grant_types",          "kest_policy_auth_types",
                                                "kest_policy_auth_req", "handshake_challenge",
                                                "handshake_response",   "software_id_cert"};

Outcome parsesOidc(Attempt& attempt, const char* text)
{
    return made<OidcResponsePtr>(attempt.call([&] { return parse_oidc_register_response(text); }));
}

const Table rows{
    {"parse_register_request", "everything", failsOnly,
     [](Attempt& attempt) {
         return made<RegisterRequestPtr>(
             attempt.call([] { return parse_register_request(requestText); }));
     },
     listsOfARequest},
    {"write_register_request", "everything", failsOnly,
     [](Attempt& attempt) {
         const RegisterRequestPtr request{lists().request()};
         return made<HeapText>(attempt.call([&] { return write_register_request(request.get()); }));
     }},
    {"client_register", "a request", getsBy | isRefused,
     [](Attempt& attempt) {
         const HeapText text{attempt.call([] { return client_register(requestText); })};
         return text == nullptr ? got("null") : wrong("an answer");
     }},
    {"parse_oidc_register_response", "a secret", failsOnly,
     [](Attempt& attempt) {
         return parsesOidc(attempt,
                           R"({"client_id":"id","client_id_issued_at":5,"client_secret":"secret",)"
                           R"("client_secret_expires_at":7,"registration_access_token":"token",)"
                           R"("registration_client_uri":"https://registrar/client"})");
     }},
    {"parse_oidc_register_response", "no secret", getsBy,
     [](Attempt& attempt) {
         return parsesOidc(attempt, R"({"client_id":"id"})");
     }},
    {"free_oidc_register_response", "an answer", failsOnly,
     [](Attempt& attempt) {
         OidcRegisterResponse* const response =
             parse_oidc_register_response(R"({"client_id":"id"})");
         attempt.call([&] { free_oidc_register_response(response); });
         return got("released");
     }},
    {"create_register_request", "everything", failsOnly,
     [](Attempt& attempt) {
         Lists& given = lists();
         return made<RegisterRequestPtr>(attempt.call([&] { return given.request(); }));
     },
     listsOfARequest},
    {"free_register_request", "everything", failsOnly,
     [](Attempt& attempt) {
         RegisterRequest* const request = lists().request();
         attempt.call([&] { free_register_request(request); });
         return got("released");
     }},
    {"create_register_response", "everything", failsOnly,
     [](Attempt& attempt) {
         Lists& given = lists();
         return made<RegisterResponsePtr>(attempt.call([&] { return given.created(); }));
     },
     listsOfAResponse},
    {"free_register_response", "everything", failsOnly,
     [](Attempt& attempt) {
         RegisterResponse* const response = lists().created();
         attempt.call([&] { free_register_response(response); });
         return got("released");
     }},
    {"register_client", "a template", failsOnly,
     [](Attempt& attempt) {
         const RegisterRequestPtr request{lists().request()};
         const RegisterResponsePtr settings{lists().configured()};
         return made<RegisterResponsePtr>(
             attempt.call([&] { return register_client(request.get(), settings.get()); }));
     },
     listsOfAResponse},
    {"register_client", "no template", failsOnly,
     [](Attempt& attempt) {
         const RegisterRequestPtr request{lists().request()};
         return made<RegisterResponsePtr>(
             attempt.call([&] { return register_client(request.get(), nullptr); }));
     }},
    {"configure_reg_response", "everything", failsOnly,
     [](Attempt& attempt) {
         Lists& given = lists();
         return made<RegisterResponsePtr>(attempt.call([&] { return given.configured(); }));
     },
     listsOfAResponse},
    {"write_register_response", "everything", failsOnly,
     [](Attempt& attempt) {
         const RegisterResponsePtr response{lists().created()};
         return made<HeapText>(
             attempt.call([&] { return write_register_response(response.get()); }));
     }},
    {"write_register_response", "no texts", getsBy,
     [](Attempt& attempt) {
         RegisterResponse response{};
         try
         {
             return made<HeapText>(
                 attempt.call([&] { return write_register_response(&response); }));
         }
         catch (const std::logic_error& error)
         {
             return got(error.what());
         }
     }},
    {"parse_register_response", "a response", getsBy | isRefused,
     [](Attempt& attempt) {
         const RegisterResponsePtr source{lists().created()};
         const HeapText text{write_register_response(source.get())};
         const RegisterResponsePtr response{
             attempt.call([&] { return parse_register_response(text.get()); })};
         return response == nullptr ? got("null") : wrong("a record");
     }},
};

} // namespace

} // namespace faults
