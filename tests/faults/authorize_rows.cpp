// SPDX-License-Identifier: Apache-2.0
#include "inputs.hpp"
#include "show.hpp"
#include "support/lists.hpp"

#include <array>
#include <stdexcept>

using support::PairList;
using support::ParameterList;

namespace faults
{

namespace
{

using PolicyPairs = PairList<KestPolicyAuth>;

constexpr const char* requestText =
    R"({"client_id":"an identifier that is long enough","client_secret":"secret",)"
    R"("handshake_response":{"R":["x"],"T":["a","b"]},"kest_policy_auth":{"a":"1","b":"2"},)"
    R"("refresh_token":"refresh","state":"state"})";
constexpr const char* refreshText =
    R"({"client_id":"id","client_secret":"secret","refresh_token":"refresh","state":"state"})";

AuthorizeRequest* create(bool withAll)
{
    static PolicyPairs policy{{"a", "1"}, {"b", "2"}};
    static ParameterList handshake{{"R", {"x"}}, {"T", {"a", "b"}}};
    return withAll ? create_authorize_request("secret", "id", "state", nullptr, policy, handshake,
                                              "refresh")
                   : create_authorize_request("secret", "id", "state", nullptr, nullptr, nullptr,
                                              nullptr);
}

AuthorizeResponse* createResponse()
{
    return create_authorize_response("state", "access", "refresh", "3600", "bearer");
}

/** What the writer makes of a record, or the words of its logic error. */
template <typename Write>
Outcome writes(Attempt& attempt, const Write& write)
{
    try
    {
        return made<HeapText>(attempt.call(write));
    }
    catch (const std::logic_error& error)
    {
        return got(error.what());
    }
}

const Table rows{
    {"create_authorize_request",
     "everything",
     failsOnly,
     [](Attempt& attempt) {
         return made<AuthorizeRequestPtr>(attempt.call([] { return create(true); }));
     },
     {"policy", "refresh_token"}},
    {"create_authorize_request", "the texts alone", failsOnly,
     [](Attempt& attempt) {
         return made<AuthorizeRequestPtr>(attempt.call([] { return create(false); }));
     }},
    {"free_authorize_request", "everything", failsOnly,
     [](Attempt& attempt) {
         AuthorizeRequest* const request = create(true);
         attempt.call([&] { free_authorize_request(request); });
         return got("released");
     }},
    {"parse_authorize_request",
     "everything",
     failsOnly,
     [](Attempt& attempt) {
         return made<AuthorizeRequestPtr>(
             attempt.call([] { return parse_authorize_request(requestText); }));
     },
     {"policy", "refresh_token"}},
    {"parse_authorize_request",
     "a refresh token",
     failsOnly,
     [](Attempt& attempt) {
         return made<AuthorizeRequestPtr>(
             attempt.call([] { return parse_authorize_request(refreshText); }));
     },
     {"refresh_token"}},
    {"write_authorize_request", "a handshake", failsOnly,
     [](Attempt& attempt) {
         const AuthorizeRequestPtr request{create(true)};
         return writes(attempt, [&] { return write_authorize_request(request.get()); });
     }},
    {"write_authorize_request", "a refresh token", failsOnly,
     [](Attempt& attempt) {
         const AuthorizeRequestPtr request{parse_authorize_request(refreshText)};
         return writes(attempt, [&] { return write_authorize_request(request.get()); });
     }},
    {"write_authorize_request", "no state", getsBy,
     [](Attempt& attempt) {
         AuthorizeRequest request{};
         std::string given = "given";
         request.client_id = given.data();
         request.client_secret = given.data();
         return writes(attempt, [&] { return write_authorize_request(&request); });
     }},
    {"create_authorize_response", "all texts", failsOnly,
     [](Attempt& attempt) {
         return made<AuthorizeResponsePtr>(attempt.call(createResponse));
     }},
    {"free_authorize_response", "all texts", failsOnly,
     [](Attempt& attempt) {
         AuthorizeResponse* const response = createResponse();
         attempt.call([&] { free_authorize_response(response); });
         return got("released");
     }},
    {"parse_authorize_response", "all texts", failsOnly,
     [](Attempt& attempt) {
         return made<AuthorizeResponsePtr>(attempt.call([] {
             return parse_authorize_response(
                 R"({"access_token":"access","expires_in":"3600","refresh_token":"refresh",)"
                 R"("state":"state","token_type":"bearer"})");
         }));
     }},
    {"write_authorize_response", "all texts", failsOnly,
     [](Attempt& attempt) {
         const AuthorizeResponsePtr response{createResponse()};
         return writes(attempt, [&] { return write_authorize_response(response.get()); });
     }},
    {"write_authorize_response", "no texts", getsBy,
     [](Attempt& attempt) {
         AuthorizeResponse response{};
         return writes(attempt, [&] { return write_authorize_response(&response); });
     }},
    {"client_authorize", "a refresh token", getsBy,
     [](Attempt& attempt) {
         const HeapText text{attempt.call([] { return client_authorize(refreshText); })};
         return text ? made<AuthorizeResponsePtr>(parse_authorize_response(text.get())) : failed();
     }},
    {"client_authorize", "a handshake", getsBy,
     [](Attempt& attempt) {
         const HeapText text{attempt.call([] { return client_authorize(requestText); })};
         return text ? made<AuthorizeResponsePtr>(parse_authorize_response(text.get())) : failed();
     }},
    {"authorize_client", "a key and nothing else", getsBy,
     [](Attempt& attempt) {
         return made<AuthorizeResponsePtr>(attempt.call([] {
             return authorize_client("state", deviceKey().data(), deviceKey().length(), nullptr,
                                     nullptr);
         }));
     }},
    {"authorize_client", "a template and claims", getsBy,
     [](Attempt& attempt) {
         const AuthorizeResponsePtr settings{configure_auth_response("600", "mac")};
         std::string subject = "subject";
         std::string name = "USER_PRIV";
         std::string value = "511";
         std::array<char*, 1> values{value.data()};
         JWTscopes scope{name.data(), values.data(), 1};
         AuthorizeClaims claims{subject.data(), nullptr, &scope, 1};
         return made<AuthorizeResponsePtr>(attempt.call([&] {
             return authorize_client("state", deviceKey().data(), deviceKey().length(),
                                     settings.get(), &claims);
         }));
     }},
    {"configure_auth_response", "both texts", failsOnly,
     [](Attempt& attempt) {
         return made<AuthorizeResponsePtr>(
             attempt.call([] { return configure_auth_response("600", "mac"); }));
     }},
    {"set_kest_policy_response", "two pairs", failsOnly,
     [](Attempt& attempt) {
         PolicyPairs policy{{"a", "1"}, {"b", "2"}};
         return made<PolicyPtr>(attempt.call([&] { return set_kest_policy_response(policy); }));
     }},
    {"free_kest_policy_response", "two pairs", failsOnly,
     [](Attempt& attempt) {
         PolicyPairs policy{{"a", "1"}, {"b", "2"}};
         KestPolicyAuth* const copy = set_kest_policy_response(policy);
         attempt.call([&] { free_kest_policy_response(copy); });
         return got("released");
     }},
};

} // namespace

} // namespace faults
