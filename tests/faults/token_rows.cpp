// SPDX-License-Identifier: Apache-2.0
#include "show.hpp"
#include "support/tokens.hpp"

namespace faults
{

namespace
{

constexpr const char* header = R"({"alg":"ES256","kid":"key","typ":"JWT"})";
constexpr const char* everyClaim =
    R"({"act":"actor","aud":["one","two"],"exp":1800000000,"iat":1600000000,"iss":"issuer",)"
    R"("jti":"id","nbf":"1600000000","ravok_roles":["admin","user"],"scope":"ravok_login openid",)"
    R"("sub":"subject","xidp":{"*":["L","CD"]}})";
constexpr const char* structuredScope =
    R"({"aud":"single","exp":1800000000,"scope":{"AUTHNZ_USER":["root"],"USER_PRIV":["511","1"]},)"
    R"("sub":"subject"})";

std::string tokenOf(const char* payload)
{
    return tokens::base64Url(header) + "." + tokens::base64Url(payload) + ".c2lnbmF0dXJl";
}

Outcome readsPayload(Attempt& attempt, const char* claims)
{
    const std::string token = tokenOf(claims);
    JWTPayload* payload = untouched<JWTPayload>();
    const int read = attempt.call([&] { return get_jwt_payload(token.c_str(), &payload); });
    return stored<TokenPtr>(read == 1, payload);
}

/** Two entries of scopes on the heap, as a payload takes them over. */
JWTscopes* scopesOnTheHeap()
{
    auto* const scopes = static_cast<JWTscopes*>(std::calloc(1, sizeof(JWTscopes)));
    auto** const values = static_cast<char**>(std::calloc(2, sizeof(char*)));
    values[0] = support::heapText("one").release();
    values[1] = support::heapText("two").release();
    *scopes = {support::heapText("name").release(), values, 2};
    return scopes;
}

const Table rows{
    {"create_jwt_header", "a key id", ends,
     [](Attempt& attempt) {
         return made<HeaderPtr>(
             attempt.call([] { return create_jwt_header("JWT", "ES256", "key"); }));
     }},
    {"create_jwt_header", "no key id", failsOnly,
     [](Attempt& attempt) {
         return made<HeaderPtr>(
             attempt.call([] { return create_jwt_header("JWT", "ES256", nullptr); }));
     }},
    {"free_jwt_header", "a header", failsOnly,
     [](Attempt& attempt) {
         JWTHeader* const made = create_jwt_header("JWT", "ES256", "key");
         attempt.call([&] { free_jwt_header(made); });
         return got("released");
     }},
    {"create_jwt_payload", "all times", failsOnly,
     [](Attempt& attempt) {
         return made<TokenPtr>(attempt.call([] {
             return create_jwt_payload("subject", "id", "issuer", "1600000000", "1600000000",
                                       "1800000000", nullptr, 0);
         }));
     }},
    {"create_jwt_payload", "the current time and scopes", failsOnly,
     [](Attempt& attempt) {
         JWTscopes* const scopes = scopesOnTheHeap();
         TokenPtr payload{attempt.call([&] {
             return create_jwt_payload("subject", "id", "issuer", nullptr, nullptr, "1800000000",
                                       scopes, 1);
         })};
         if (!payload)
         {
             // They are still the caller's.
             const std::unique_ptr<JWTscopes, Releaser<releaseScopes>> owner{scopes};
             return failedLeaving(show(scopes->name) == "name" && scopes->count == 2);
         }
         return made<TokenPtr>(payload.release());
     }},
    {"free_jwt_scopes", "an entry", failsOnly,
     [](Attempt& attempt) {
         JWTscopes* const scopes = scopesOnTheHeap();
         attempt.call([&] { free_jwt_scopes(scopes, 1); });
         const bool released = scopes->name == nullptr && scopes->values == nullptr;
         std::free(scopes);
         return released ? got("released") : wrong("not null");
     }},
    {"free_jwt_payload", "a payload with scopes", failsOnly,
     [](Attempt& attempt) {
         JWTPayload* const payload = create_jwt_payload("subject", "id", "issuer", nullptr, nullptr,
                                                        "1800000000", scopesOnTheHeap(), 1);
         attempt.call([&] { free_jwt_payload(payload); });
         return got("released");
     }},
    {"get_jwt_header", "all members", ends,
     [](Attempt& attempt) {
         const std::string token = tokenOf(everyClaim);
         JWTHeader* made = untouched<JWTHeader>();
         const int read = attempt.call([&] { return get_jwt_header(token.c_str(), &made); });
         return stored<HeaderPtr>(read == 1, made);
     }},
    {"get_jwt_payload", "every claim", ends,
     [](Attempt& attempt) {
         return readsPayload(attempt, everyClaim);
     }},
    {"get_jwt_payload", "a structured scope", ends,
     [](Attempt& attempt) {
         return readsPayload(attempt, structuredScope);
     }},
    {"print_jwt_scopes", "an entry", failsOnly,
     [](Attempt& attempt) {
         JWTscopes scopes{};
         attempt.call([&] { print_jwt_scopes(&scopes, 1); });
         return got("nothing");
     }},
};

} // namespace

} // namespace faults
