// SPDX-License-Identifier: Apache-2.0
#include "common/guard.hpp"
#include "crypto/random.hpp"
#include "oauth2/oauth-register/records.hpp"

using namespace bmcoauth;
using namespace bmcoauth::registration;

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

} // namespace

extern "C" RegisterResponse* register_client(RegisterRequest* request,
                                             RegisterResponse* response_template)
{
    if (request == nullptr)
    {
        return nullptr;
    }
    return guarded(nullptr, [&]() -> RegisterResponse* {
        SecretText id = crypto::randomToken(tokenBytes);
        SecretText secret = id ? crypto::randomToken(tokenBytes) : nullptr;
        return makeResponse(std::move(secret), HeapText{id.release()},
                            settingsOf(response_template))
            .release();
    });
}

extern "C" RegisterResponse*
configure_reg_response(const char* client_secret_expires_in, char** grant_types, const char* unused,
                       char** kest_policy_auth_types, char** kest_policy_auth_req,
                       HandshakePayload* handshake_challenge, HandshakePayload* handshake_response,
                       const char* ssl_cert_cryptex, HandshakePayload** software_id_cert)
{
    return create_register_response("", "", client_secret_expires_in, grant_types, unused,
                                    kest_policy_auth_types, kest_policy_auth_req,
                                    handshake_challenge, handshake_response, ssl_cert_cryptex,
                                    software_id_cert);
}

extern "C" char* client_register(const char* text)
{
    const Request request{parse_register_request(text)};
    const Response response{register_client(request.get(), nullptr)};
    return write_register_response(response.get());
}
