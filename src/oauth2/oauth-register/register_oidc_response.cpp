// SPDX-License-Identifier: Apache-2.0
#include "common/guard.hpp"
#include "common/json.hpp"
#include "common/text.hpp"

#include <bmcoauth/register.h>

#include <optional>

using namespace bmcoauth::internal;

namespace
{

using OidcResponse = std::unique_ptr<OidcRegisterResponse, Releaser<free_oidc_register_response>>;

char* optionalText(const Json::Value& document, const char* name)
{
    const char* text = stringMember(document, name);
    return text == nullptr ? nullptr : requireHeapText(text).release();
}

/** The decimal text of the member @p name; null if it is not an unsigned number. */
HeapText numberText(Json::Value& document, const char* name)
{
    unsigned int number = 0;
    return readUintMember(document, name, number) ? requireHeapText(decimal(number)) : nullptr;
}

OidcResponse readAnswer(const char* text)
{
    SecretTree tree;
    if (!parseSecretObject(text, tree))
    {
        return nullptr;
    }
    Json::Value& document = tree.root;
    OidcResponse answer{zeroedBlock<OidcRegisterResponse>(1).release()};
    if (!answer)
    {
        return nullptr;
    }
    const auto id = stringMembers<1>(document, {"client_id"});
    if (!id)
    {
        return nullptr;
    }
    answer->client_id = requireHeapText(id->front()).release();
    answer->client_secret = optionalText(document, "client_secret");
    // The expiry is the secret's: without one it is neither asked for nor looked at.
    HeapText expiry = answer->client_secret == nullptr
                          ? requireHeapText("0")
                          : numberText(document, "client_secret_expires_at");
    if (!expiry)
    {
        return refuse(BMCOAUTH_RULE_REGISTRATION_LIFETIME).about("client_secret_expires_at");
    }
    answer->client_secret_expires_at = expiry.release();
    answer->registration_client_uri = optionalText(document, "registration_client_uri");
    answer->registration_access_token = optionalText(document, "registration_access_token");
    answer->client_id_issued_at = numberText(document, "client_id_issued_at").release();
    return answer;
}

} // namespace

extern "C" OidcRegisterResponse* parse_oidc_register_response(const char* text)
{
    if (refusesNull("text", text))
    {
        return refused();
    }
    return guarded([=] { return readAnswer(text).release(); });
}

extern "C" void free_oidc_register_response(OidcRegisterResponse* response)
{
    if (response == nullptr)
    {
        return;
    }
    std::free(response->client_id);
    releaseSecret(response->client_secret);
    releaseSecret(response->registration_access_token);
    std::free(response->registration_client_uri);
    std::free(response->client_id_issued_at);
    std::free(response->client_secret_expires_at);
    std::free(response);
}
