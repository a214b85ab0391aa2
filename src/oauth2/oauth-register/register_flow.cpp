// SPDX-License-Identifier: Apache-2.0
#include "common/guard.hpp"
#include "crypto/random.hpp"
#include "oauth2/oauth-register/records.hpp"

namespace bmcoauth::internal::registration
{

namespace
{

constexpr unsigned int tokenBytes = 16;

ResponseSettings settingsOf(const RegisterResponse* settings)
{
    if (settings == nullptr)
    {
        return {.secretExpiresIn = "0"};
    }
    return {.secretExpiresIn = settings->client_secret_expires_in,
            .grantTypes = settings->grant_types,
            .policyTypes = settings->kest_policy_auth_types,
            .policyRequired = settings->kest_policy_auth_req,
            .challenge = settings->handshake_challenge,
            .handshakeResponse = settings->handshake_response,
            .sslCertCryptex = settings->ssl_cert_cryptex,
            .certificates = settings->software_id_cert};
}

/** Issues an identifier and a secret; @p settings may be null. */
Response registerClient(const RegisterResponse* settings)
{
    SecretText id = crypto::randomToken(tokenBytes);
    SecretText secret = id ? crypto::randomToken(tokenBytes) : nullptr;
    return makeResponse(std::move(secret), HeapText{id.release()}, settingsOf(settings));
}

} // namespace

} // namespace bmcoauth::internal::registration

using namespace bmcoauth::internal;
using namespace bmcoauth::internal::registration;

extern "C" RegisterResponse* register_client(RegisterRequest* request,
                                             RegisterResponse* response_template)
{
    if (refusesNull("request", request))
    {
        return refused();
    }
    return guarded([=] { return registerClient(response_template).release(); });
}

extern "C" char* client_register(const char* text)
{
    if (refusesNull("text", text))
    {
        return refused();
    }
    return guarded([=]() -> char* {
        const Request request = readRequest(text);
        const Response response = request ? registerClient(nullptr) : nullptr;
        return response ? writtenResponse(*response).release() : nullptr;
    });
}
