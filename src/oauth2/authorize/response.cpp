// SPDX-License-Identifier: Apache-2.0
#include "common/clock.hpp"
#include "common/guard.hpp"
#include "common/json.hpp"
#include "common/text.hpp"
#include "oauth2/authorize/records.hpp"

#include <array>
#include <tuple>

namespace bmcoauth::internal::authorize
{

Response makeResponse(const char* state, SecretText accessToken, SecretText refreshToken,
                      const char* expiresIn, const char* tokenType, std::uint64_t now)
{
    Response response{zeroedBlock<AuthorizeResponse>(1).release()};
    if (!response)
    {
        return nullptr;
    }
    response->state = copyText(state).release();
    response->access_token = accessToken.release();
    response->refresh_token = refreshToken.release();
    response->expires_in = copyText(expiresIn).release();
    response->issued_at = heapText(decimal(now)).release();
    response->token_type = copyText(tokenType).release();
    const bool complete = response->state != nullptr && response->access_token != nullptr &&
                          response->refresh_token != nullptr && response->expires_in != nullptr &&
                          response->issued_at != nullptr && response->token_type != nullptr;
    return complete ? std::move(response) : nullptr;
}

Response createResponse(const char* state, const char* accessToken, const char* refreshToken,
                        const char* expiresIn, const char* tokenType)
{
    const std::optional<std::uint64_t> now = currentSeconds();
    if (!now)
    {
        return nullptr;
    }
    return makeResponse(state, secretText(copyText(accessToken)),
                        secretText(copyText(refreshToken)), expiresIn, tokenType, *now);
}

HeapText writtenResponse(const AuthorizeResponse& response)
{
    Json::Value document{Json::objectValue};
    setText(document, "access_token", mandatory(response.access_token));
    setText(document, "refresh_token", mandatory(response.refresh_token));
    setText(document, "state", mandatory(response.state));
    setText(document, "expires_in", mandatory(response.expires_in));
    setText(document, "token_type", mandatory(response.token_type));
    return heapJsonText(document);
}

} // namespace bmcoauth::internal::authorize

using namespace bmcoauth::internal;
using namespace bmcoauth::internal::authorize;

extern "C" AuthorizeResponse* create_authorize_response(const char* state, const char* access_token,
                                                        const char* refresh_token,
                                                        const char* expires_in,
                                                        const char* token_type)
{
    if (refusesNull("state access_token refresh_token expires_in token_type", state, access_token,
                    refresh_token, expires_in, token_type))
    {
        return refused();
    }
    return guarded([=] {
        return createResponse(state, access_token, refresh_token, expires_in, token_type).release();
    });
}

extern "C" void free_authorize_response(AuthorizeResponse* response)
{
    if (response == nullptr)
    {
        return;
    }
    releaseSecret(response->access_token);
    std::free(response->state);
    releaseSecret(response->refresh_token);
    std::free(response->expires_in);
    std::free(response->token_type);
    std::free(response->issued_at);
    std::free(response);
}

extern "C" AuthorizeResponse* parse_authorize_response(const char* text)
{
    if (refusesNull("text", text))
    {
        return refused();
    }
    return guarded([=]() -> AuthorizeResponse* {
        constexpr std::array names{"state", "access_token", "refresh_token", "expires_in",
                                   "token_type"};
        SecretTree tree;
        if (!parseSecretObject(text, tree))
        {
            return nullptr;
        }
        const auto texts = stringMembers(tree.root, names);
        return texts ? std::apply(createResponse, *texts).release() : nullptr;
    });
}

extern "C" char* write_authorize_response(AuthorizeResponse* response)
{
    if (refusesNull("response", response))
    {
        return refused();
    }
    return guarded([=] { return writtenResponse(*response).release(); });
}
