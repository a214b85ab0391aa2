/* SPDX-License-Identifier: Apache-2.0 */
#ifndef RECORD_LAYOUT_H
#define RECORD_LAYOUT_H

/* The layout of every public record, in both languages. Services are built against it, so it
 * changes only together with the library's soname. Positions are counted in pointers, because
 * nearly all fields are pointers: the same lines are right for both word sizes. */

#include <bmcoauth.h>

#include <assert.h>
#include <stddef.h>

/* Names of fields are not values, and C does not have templates. */
/* NOLINTBEGIN(cppcoreguidelines-macro-usage) */
#define FIELD(record, position, field)                                                             \
    static_assert(offsetof(record, field) == (position) * sizeof(void*), "offset of " #field)
#define SIZE(record, pointers)                                                                     \
    static_assert(sizeof(record) == (pointers) * sizeof(void*), "size of " #record)
/* NOLINTEND(cppcoreguidelines-macro-usage) */

static_assert(sizeof(oauthError) == 4, "size of oauthError");

FIELD(HandshakePayload, 0, name);
FIELD(HandshakePayload, 1, values);
SIZE(HandshakePayload, 2);

FIELD(jwk, 0, key);
FIELD(jwk, 1, value);
SIZE(jwk, 2);

FIELD(JWTHeader, 0, typ);
FIELD(JWTHeader, 1, alg);
FIELD(JWTHeader, 2, kid);
SIZE(JWTHeader, 3);

FIELD(JWTscopes, 0, name);
FIELD(JWTscopes, 1, values);
FIELD(JWTscopes, 2, count);
SIZE(JWTscopes, 3);

FIELD(JWTPayload, 0, jti);
FIELD(JWTPayload, 1, sub);
FIELD(JWTPayload, 2, iss);
FIELD(JWTPayload, 3, iat);
FIELD(JWTPayload, 4, exp);
FIELD(JWTPayload, 5, nbf);
FIELD(JWTPayload, 6, aud);
FIELD(JWTPayload, 7, xidp);
FIELD(JWTPayload, 8, act);
FIELD(JWTPayload, 9, ravok_roles);
FIELD(JWTPayload, 10, scope);
FIELD(JWTPayload, 11, scopes);
FIELD(JWTPayload, 12, scopes_count);
SIZE(JWTPayload, 13);

FIELD(userRole_s, 0, name);
FIELD(userRole_s, 1, privileges);
SIZE(userRole_s, 2);

FIELD(KestPolicyAuth, 0, name);
FIELD(KestPolicyAuth, 1, value);
SIZE(KestPolicyAuth, 2);

FIELD(AuthorizeRequest, 0, client_id);
FIELD(AuthorizeRequest, 1, client_secret);
FIELD(AuthorizeRequest, 2, state);
FIELD(AuthorizeRequest, 3, reserved);
FIELD(AuthorizeRequest, 4, refresh_token);
FIELD(AuthorizeRequest, 5, policy);
FIELD(AuthorizeRequest, 6, handshake);
SIZE(AuthorizeRequest, 7);

FIELD(AuthorizeResponse, 0, access_token);
FIELD(AuthorizeResponse, 1, state);
FIELD(AuthorizeResponse, 2, refresh_token);
FIELD(AuthorizeResponse, 3, expires_in);
FIELD(AuthorizeResponse, 4, token_type);
FIELD(AuthorizeResponse, 5, issued_at);
SIZE(AuthorizeResponse, 6);

FIELD(AuthorizeClaims, 0, subject);
FIELD(AuthorizeClaims, 1, issuer);
FIELD(AuthorizeClaims, 2, scopes);
FIELD(AuthorizeClaims, 3, scope_count);
SIZE(AuthorizeClaims, 4);

FIELD(RegisterRequest, 0, redirect_uri);
FIELD(RegisterRequest, 1, client_name);
FIELD(RegisterRequest, 2, software_id);
FIELD(RegisterRequest, 3, handshake_types);
FIELD(RegisterRequest, 4, dfs);
FIELD(RegisterRequest, 5, software_id_cert);
FIELD(RegisterRequest, 6, handshake_challenge);
FIELD(RegisterRequest, 7, redirect_uris);
FIELD(RegisterRequest, 8, scope);
SIZE(RegisterRequest, 9);

FIELD(RegisterResponse, 0, client_secret);
FIELD(RegisterResponse, 1, client_id);
FIELD(RegisterResponse, 2, reserved_text);
FIELD(RegisterResponse, 3, client_secret_expires_in);
FIELD(RegisterResponse, 4, issued_at);
FIELD(RegisterResponse, 5, grant_types);
FIELD(RegisterResponse, 6, reserved_value);
FIELD(RegisterResponse, 7, kest_policy_auth_types);
FIELD(RegisterResponse, 8, kest_policy_auth_req);
FIELD(RegisterResponse, 9, ssl_cert_cryptex);
FIELD(RegisterResponse, 10, handshake_challenge);
FIELD(RegisterResponse, 11, handshake_response);
FIELD(RegisterResponse, 12, software_id_cert);
SIZE(RegisterResponse, 13);

FIELD(OidcRegisterResponse, 0, client_id);
FIELD(OidcRegisterResponse, 1, client_secret);
FIELD(OidcRegisterResponse, 2, registration_access_token);
FIELD(OidcRegisterResponse, 3, registration_client_uri);
FIELD(OidcRegisterResponse, 4, client_id_issued_at);
FIELD(OidcRegisterResponse, 5, client_secret_expires_at);
SIZE(OidcRegisterResponse, 6);

#endif
