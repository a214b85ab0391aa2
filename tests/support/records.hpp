// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/owners.hpp"

#include <bmcoauth.h>

#include <memory>

/** Owners of the library's records. */
namespace support
{

using HeaderPtr = std::unique_ptr<JWTHeader, Releaser<free_jwt_header>>;
using TokenPayloadPtr = std::unique_ptr<JWTPayload, Releaser<free_jwt_payload>>;
using AuthorizeRequestPtr = std::unique_ptr<AuthorizeRequest, Releaser<free_authorize_request>>;
using AuthorizeResponsePtr = std::unique_ptr<AuthorizeResponse, Releaser<free_authorize_response>>;
using PolicyPtr = std::unique_ptr<KestPolicyAuth, Releaser<free_kest_policy_response>>;
using RegisterRequestPtr = std::unique_ptr<RegisterRequest, Releaser<free_register_request>>;
using RegisterResponsePtr = std::unique_ptr<RegisterResponse, Releaser<free_register_response>>;
using OidcResponsePtr =
    std::unique_ptr<OidcRegisterResponse, Releaser<free_oidc_register_response>>;
using KeyList = std::unique_ptr<jwk*, Releaser<free_jwk_list>>;
using CertificateList = std::unique_ptr<HandshakePayload*, Releaser<free_jwk_certs>>;

} // namespace support
