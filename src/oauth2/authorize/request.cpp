// SPDX-License-Identifier: Apache-2.0
#include "common/guard.hpp"
#include "common/json.hpp"
#include "common/pair_list.hpp"
#include "common/parameter_list.hpp"
#include "oauth2/authorize/records.hpp"

using namespace bmcoauth;
using namespace bmcoauth::authorize;

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
    document["client_id"] = borrowed(mandatory(request.client_id));
    document["client_secret"] = borrowed(mandatory(request.client_secret));
    document["state"] = borrowed(mandatory(request.state));
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
        document["refresh_token"] = borrowed(request.refresh_token);
    }
    else
    {
        return nullptr;
    }
    return heapJsonText(document);
}

Request readRequest(const char* text)
{
    SecretTree tree;
    if (!parseSecretObject(text, tree))
    {
        return nullptr;
    }
    const Json::Value& document = tree.root;
    ParameterList handshake;
    const Json::Value* response = member(document, "handshake_response");
    if (response != nullptr && response->isObject())
    {
        handshake = parameterListOf(*response, readHandshake);
        if (!handshake)
        {
            return nullptr;
        }
    }
    const char* refreshToken = stringMember(document, "refresh_token");
    if (!handshake && refreshToken == nullptr)
    {
        return nullptr;
    }
    PolicyList policy;
    const Json::Value* pairs = member(document, "kest_policy_auth");
    if (pairs != nullptr && !namedMembers(*pairs).empty())
    {
        policy = pairsOf<PolicyList>(*pairs);
        if (!policy)
        {
            return nullptr;
        }
    }
    return Request{create_authorize_request(
        stringMember(document, "client_secret"), stringMember(document, "client_id"),
        stringMember(document, "state"), nullptr, policy.get(), handshake.get(), refreshToken)};
}

} // namespace

extern "C" AuthorizeRequest*
create_authorize_request(const char* client_secret, const char* client_id, const char* state,
                         const char* /*unused*/, KestPolicyAuth* policy,
                         HandshakePayload* handshake, const char* refresh_token)
{
    const ErrnoKeeper keeper;
    Request request{zeroedBlock<AuthorizeRequest>(1).release()};
    if (!request)
    {
        return nullptr;
    }
    request->client_secret = copyText(client_secret).release();
    request->client_id = copyText(client_id).release();
    request->state = copyText(state).release();
    if (request->client_secret == nullptr || request->client_id == nullptr ||
        request->state == nullptr)
    {
        return nullptr;
    }
    request->policy = set_kest_policy_response(policy);
    if (handshake != nullptr)
    {
        request->handshake = set_handshake_payload(handshake);
        if (request->handshake == nullptr)
        {
            return nullptr;
        }
    }
    request->refresh_token = copyText(refresh_token).release();
    return request.release();
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
    if (text == nullptr)
    {
        return nullptr;
    }
    return guarded(nullptr, [&] { return readRequest(text).release(); });
}

extern "C" char* write_authorize_request(AuthorizeRequest* request)
{
    if (request == nullptr)
    {
        return nullptr;
    }
    return guarded(nullptr, [&] { return writtenRequest(*request).release(); });
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
    const ErrnoKeeper keeper;
    return policy == nullptr ? nullptr : copyPairs<PolicyList>(policy).release();
}
