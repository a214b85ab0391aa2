// SPDX-License-Identifier: Apache-2.0
#include "common/guard.hpp"
#include "common/json.hpp"
#include "common/pair_list.hpp"
#include "common/parameter_list.hpp"
#include "oauth2/authorize/records.hpp"

#include <array>

using namespace bmcoauth::internal;
using namespace bmcoauth::internal::authorize;

namespace
{

/** A proof is one of several in general, so it stays an array when there is only one. */
constexpr ListForm writtenHandshake{.alwaysArray = "R", .noValue = NoValue::raise};

constexpr ObjectForm readHandshake{
    .null = OddMember::skip,
    .emptyArray = OddMember::skip,
    .scalar = OddMember::skip,
};

HeapText writtenRequest(const AuthorizeRequest& request)
{
    Json::Value document{Json::objectValue};
    setText(document, "client_id", mandatory(request.client_id));
    setText(document, "client_secret", mandatory(request.client_secret));
    setText(document, "state", mandatory(request.state));
    if (request.policy != nullptr)
    {
        document["kest_policy_auth"] = objectOfPairs(request.policy);
    }
    if (request.handshake != nullptr)
    {
        document["handshake_response"] = objectOf(request.handshake, writtenHandshake);
    }
    else if (request.refresh_token != nullptr)
    {
        setText(document, "refresh_token", request.refresh_token);
    }
    else
    {
        return refuse(BMCOAUTH_RULE_AUTHORIZE_GRANT);
    }
    return heapJsonText(document);
}

/** Reads the handshake of @p document into @p handshake, which stays null where there is none; false,
 *  with the reason noted, where it is not a parameter list. Throws std::bad_alloc. */
bool takeHandshake(const Json::Value& document, ParameterList& handshake)
{
    const Json::Value* response = member(document, "handshake_response");
    if (response == nullptr || !response->isObject())
    {
        return true;
    }
    handshake = parameterListOf(*response, readHandshake);
    return handshake != nullptr || refused().as(BMCOAUTH_RULE_AUTHORIZE_HANDSHAKE);
}

/** What a request is made of; the first three are texts that are not null. */
struct RequestParts
{
    const char* clientSecret;
    const char* clientId;
    const char* state;
    const KestPolicyAuth* policy;
    const HandshakePayload* handshake;
    const char* refreshToken;
};

/** A copy of @p parts; null, with the reason noted, where the handshake or a mandatory text cannot be
 *  copied. */
Request makeRequest(const RequestParts& parts) noexcept
{
    Request request{zeroedBlock<AuthorizeRequest>(1).release()};
    if (!request)
    {
        return nullptr;
    }
    request->client_secret = heapText(parts.clientSecret).release();
    request->client_id = heapText(parts.clientId).release();
    request->state = heapText(parts.state).release();
    if (request->client_secret == nullptr || request->client_id == nullptr ||
        request->state == nullptr)
    {
        return nullptr;
    }
    if (parts.policy != nullptr)
    {
        request->policy = copyPairs<PolicyList>(parts.policy).release();
    }
    if (parts.handshake != nullptr)
    {
        request->handshake = copyParameters(parts.handshake).release();
        if (request->handshake == nullptr)
        {
            return nullptr;
        }
    }
    request->refresh_token = copyText(parts.refreshToken).release();
    return request;
}

} // namespace

namespace bmcoauth::internal::authorize
{

Request readRequest(const char* text)
{
    SecretTree tree;
    if (!parseSecretObject(text, tree))
    {
        return nullptr;
    }
    const Json::Value& document = tree.root;
    ParameterList handshake;
    if (!takeHandshake(document, handshake))
    {
        return nullptr;
    }
    const char* refreshToken = stringMember(document, "refresh_token");
    if (!handshake && refreshToken == nullptr)
    {
        return refuse(BMCOAUTH_RULE_AUTHORIZE_GRANT);
    }
    const Json::Value* pairs = member(document, "kest_policy_auth");
    const bool hasPolicy = pairs != nullptr && !namedMembers(*pairs).empty();
    const PolicyList policy = hasPolicy ? pairsOf<PolicyList>(*pairs) : nullptr;
    if (hasPolicy && !policy)
    {
        return refused().as(BMCOAUTH_RULE_AUTHORIZE_POLICY);
    }
    constexpr std::array mandatoryNames{"client_secret", "client_id", "state"};
    const auto texts = stringMembers(document, mandatoryNames);
    if (!texts)
    {
        return nullptr;
    }
    const auto [clientSecret, clientId, state] = *texts;
    return makeRequest(
        {clientSecret, clientId, state, policy.get(), handshake.get(), refreshToken});
}

} // namespace bmcoauth::internal::authorize

extern "C" AuthorizeRequest*
create_authorize_request(const char* client_secret, const char* client_id, const char* state,
                         const char* /*unused*/, KestPolicyAuth* policy,
                         HandshakePayload* handshake, const char* refresh_token)
{
    if (refusesNull("client_secret client_id state", client_secret, client_id, state))
    {
        return refused();
    }
    return guardedMemory([=] {
        return makeRequest({client_secret, client_id, state, policy, handshake, refresh_token})
            .release();
    });
}

extern "C" void free_authorize_request(AuthorizeRequest* request)
{
    if (request == nullptr)
    {
        return;
    }
    std::free(request->client_id);
    releaseSecret(request->client_secret);
    std::free(request->state);
    std::free(request->reserved);
    free_kest_policy_response(request->policy);
    releaseSecret(request->refresh_token);
    free_handshake_payload(request->handshake);
    std::free(request);
}

extern "C" AuthorizeRequest* parse_authorize_request(const char* text)
{
    if (refusesNull("text", text))
    {
        return refused();
    }
    return guarded([=] { return readRequest(text).release(); });
}

extern "C" char* write_authorize_request(AuthorizeRequest* request)
{
    if (refusesNull("request", request))
    {
        return refused();
    }
    return guarded([=] { return writtenRequest(*request).release(); });
}

extern "C" void free_kest_policy_response(KestPolicyAuth* policy)
{
    if (policy == nullptr)
    {
        return;
    }
    for (KestPolicyAuth* pair = policy; pair->name != nullptr || pair->value != nullptr; ++pair)
    {
        std::free(pair->name);
        std::free(pair->value);
    }
    std::free(policy);
}

KestPolicyAuth* set_kest_policy_response(KestPolicyAuth* policy)
{
    if (refusesNull("policy", policy))
    {
        return refused();
    }
    return guardedMemory([=] { return copyPairs<PolicyList>(policy).release(); });
}
