// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/secret.hpp"

#include <bmcoauth/register.h>

namespace bmcoauth::internal::registration
{

using Request = std::unique_ptr<RegisterRequest, Releaser<free_register_request>>;
using Response = std::unique_ptr<RegisterResponse, Releaser<free_register_response>>;

/** What a server puts into a response beside the issued secret and identifier. */
struct ResponseSettings
{
    const char* secretExpiresIn = nullptr; /**< seconds, as decimal text */
    char** grantTypes = nullptr;
    char** policyTypes = nullptr;
    char** policyRequired = nullptr;
    HandshakePayload* challenge = nullptr;
    HandshakePayload* handshakeResponse = nullptr;
    const char* sslCertCryptex = nullptr;
    HandshakePayload** certificates = nullptr;
};

/** See parse_register_request. */
[[nodiscard]] Request readRequest(const char* text);

/** create_register_response with the secret and the identifier handed over, so that no copy of a
 *  secret is left in the heap; null where one of them is. */
[[nodiscard]] Response makeResponse(SecretText secret, HeapText id,
                                    const ResponseSettings& settings);

/** See write_register_response. */
[[nodiscard]] HeapText writtenResponse(const RegisterResponse& response);

} // namespace bmcoauth::internal::registration
