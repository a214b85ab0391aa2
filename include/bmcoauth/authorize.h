/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_AUTHORIZE_H
#define BMCOAUTH_AUTHORIZE_H

#include <bmcoauth/export.h>
#include <bmcoauth/handshake_payload.h>
#include <bmcoauth/token.h>

/** KestPolicyAuth is one name/value pair of a policy list.
 *
 *  A pointer to the first pair stands for the list. The list is a heap array and ends with a pair
 *  whose name and value are both null. An empty list consists of that pair alone. */
typedef struct KestPolicyAuth
{
    char* name;
    char* value;
} KestPolicyAuth;

/** AuthorizeRequest is a client's request to the token endpoint.
 *
 *  A request has a refresh token or a handshake response. `policy` may be null. The library never
 *  sets `reserved`; it only frees it. */
typedef struct AuthorizeRequest
{
    char* client_id;
    char* client_secret;
    char* state; /**< chosen by the client, echoed in the response */
    char* reserved;
    char* refresh_token;
    KestPolicyAuth* policy;
    HandshakePayload* handshake; /**< the client's handshake response */
} AuthorizeRequest;

/** AuthorizeResponse is the token endpoint's answer (RFC 6749, section 5.1).
 *
 *  `expires_in` is the lifetime of the access token in seconds, as a text. `issued_at` is the time
 *  at which the record was made, as decimal text in seconds since the epoch. It is never written to
 *  a document. */
typedef struct AuthorizeResponse
{
    char* access_token;
    char* state;
    char* refresh_token;
    char* expires_in;
    char* token_type;
    char* issued_at;
} AuthorizeResponse;

/** AuthorizeClaims lists the claims that a service wants in the access tokens of authorize_client.
 *
 *  Any of the pointers may be null. The record still belongs to the service. */
typedef struct AuthorizeClaims
{
    char* subject; /**< the claim "sub"; null for "EC OAuth Token" */
    char* issuer;  /**< the claim "iss"; null for "EC" */
    JWTscopes*
        scopes;      /**< `scope_count` entries of the claim "scope", each with a name and values */
    int scope_count; /**< 0 or less for no "scope" */
} AuthorizeClaims;

BMCOAUTH_PLAIN_BEGIN

/** create_authorize_request creates a request. `policy`, `handshake` and `refresh_token` may be
 *  null. `unused` is ignored. NOTE: `client_secret` comes before `client_id`, unlike in the record.
 *
 *  The caller frees the request with free_authorize_request. Returns null if one of the first three
 *  texts is null, if set_handshake_payload refuses `handshake`, or if memory runs out. If memory
 *  runs out for the policy list or the refresh token, the request is created without it. */
BMCOAUTH_API AuthorizeRequest* create_authorize_request(const char* client_secret,
                                                        const char* client_id, const char* state,
                                                        const char* unused, KestPolicyAuth* policy,
                                                        HandshakePayload* handshake,
                                                        const char* refresh_token);

/** free_authorize_request frees a request. Does nothing if it is null. */
BMCOAUTH_API void free_authorize_request(AuthorizeRequest* request);

/** parse_authorize_request reads a request from a JSON object.
 *
 *  | member | rule |
 *  |---|---|
 *  | "client_id", "client_secret", "state" | must be strings |
 *  | "refresh_token" | read if it is a string |
 *  | "handshake_response" | read if it is an object; each member becomes a parameter (see below) |
 *  | "kest_policy_auth" | read if it is an object; all of its members must be strings |
 *
 *  In "handshake_response", a string becomes a parameter with one value, and a non-empty array of
 *  strings a parameter with several. Null, numbers, Booleans and empty arrays are skipped.
 *
 *  The caller frees the request with free_authorize_request. Returns null if:
 *  - the text does not parse or breaks one of these rules;
 *  - there is neither a refresh token nor a handshake response;
 *  - "handshake_response" gives no parameter. NOTE: this holds even if there is a refresh token;
 *  - memory runs out. If it runs out for the policy list or the refresh token, the request is
 *    created without it. */
BMCOAUTH_API AuthorizeRequest* parse_authorize_request(const char* text);

/** write_authorize_request returns the JSON object that parse_authorize_request reads. The caller
 *  frees it with `free`.
 *
 *  | part | how it is written |
 *  |---|---|
 *  | refresh token | not at all if the request has a handshake |
 *  | handshake | up to the first parameter whose value array is null |
 *  | parameter "R" | as an array, even if it has one value |
 *  | parameters or policy pairs with the same name | the last one |
 *  | policy list | up to the first pair without a value; {} if it is empty |
 *
 *  Returns null if `request` is null or has neither a refresh token nor a handshake, or if memory
 *  runs out. Called from C++, raises std::logic_error if the client id, the client secret or the
 *  state is null, or if the value array of a parameter is empty. */
BMCOAUTH_API char* write_authorize_request(AuthorizeRequest* request);

/** create_authorize_response creates a response whose `issued_at` is now. `expires_in` is not
 *  checked. NOTE: `state` comes before `access_token`, unlike in the record.
 *
 *  The caller frees the response with free_authorize_response. Returns null if one of the texts is
 *  null, if the clock cannot be read, or if memory runs out. */
BMCOAUTH_API AuthorizeResponse*
create_authorize_response(const char* state, const char* access_token, const char* refresh_token,
                          const char* expires_in, const char* token_type);

/** free_authorize_response frees a response. Does nothing if it is null. */
BMCOAUTH_API void free_authorize_response(AuthorizeResponse* response);

/** parse_authorize_response reads a response from a JSON object. Its members "state",
 *  "access_token", "refresh_token", "expires_in" and "token_type" must all be strings. `issued_at`
 *  is the time of this call.
 *
 *  NOTE: RFC 6749 defines "expires_in" as a number. Here it is a string, and a number is refused.
 *
 *  The caller frees the response with free_authorize_response. Returns null if the text does not
 *  parse or breaks a rule, if the clock cannot be read, or if memory runs out. */
BMCOAUTH_API AuthorizeResponse* parse_authorize_response(const char* text);

/** write_authorize_response returns the JSON object that parse_authorize_response reads. The caller
 *  frees it with `free`.
 *
 *  Returns null if `response` is null or memory runs out. Called from C++, raises std::logic_error
 *  if one of the five texts is null. */
BMCOAUTH_API char* write_authorize_response(AuthorizeResponse* response);

/** free_kest_policy_response frees a policy list. Does nothing if it is null. */
BMCOAUTH_API void free_kest_policy_response(KestPolicyAuth* policy);

/** client_authorize issues tokens for the request in the JSON text `text` and returns the response
 *  as JSON text. The caller frees it with `free`.
 *
 *  NOTE: only the form of the request is checked (see parse_authorize_request). The caller must
 *  have verified who sent it, and that the secret, the refresh token and the handshake are right.
 *  The access token is signed with a throwaway key, so no key can verify it later.
 *
 *  Returns null if the request is refused or no tokens can be issued. */
BMCOAUTH_API char* client_authorize(const char* text);

/** authorize_client issues an access token and a refresh token and puts them into a response. The
 *  access token is a JSON Web Token signed with ES256 (RFC 7519, RFC 7518). The refresh token is 16
 *  random bytes in Base64.
 *
 *  | argument | meaning | if null |
 *  |---|---|---|
 *  | `der` | the service's private key on P-256: an ECPrivateKey structure (RFC 5915) of `derLength` bytes | a throwaway key signs |
 *  | `response_template` | lifetime and token type | 3600 seconds, "bearer" |
 *  | `claims` | the claims | see AuthorizeClaims |
 *
 *  The template's lifetime is read as `strtoull` reads a number of any base: "0x258" is 600
 *  seconds. NOTE: if the text is zero or not a number, the token lives 3600 seconds, although the
 *  response repeats the text. A lifetime that carries the expiry beyond 64 bits wraps around.
 *
 *  The caller frees the response with free_authorize_response. Returns null if:
 *  - `state` or one of the template's two texts is null;
 *  - a scope entry has no name, no values, a null value, or a count below 1;
 *  - the key cannot sign;
 *  - the random device or the clock cannot be read, or memory runs out. */
BMCOAUTH_API AuthorizeResponse* authorize_client(const char* state, const unsigned char* der,
                                                 unsigned int derLength,
                                                 AuthorizeResponse* response_template,
                                                 AuthorizeClaims* claims);

/** configure_auth_response creates a template for authorize_client: a response with the lifetime
 *  `expires_in` ("3600" if null) and the token type `token_type` ("bearer" if null). Its other
 *  texts are empty. The caller frees it with free_authorize_response. */
BMCOAUTH_API AuthorizeResponse* configure_auth_response(const char* expires_in,
                                                        const char* token_type);

BMCOAUTH_PLAIN_END

#ifdef __cplusplus
/** set_kest_policy_response returns a copy of the pairs of `policy` before the first one without a
 *  name or a value. The caller frees it with free_kest_policy_response.
 *
 *  Returns null if `policy` is null or memory runs out. */
BMCOAUTH_API KestPolicyAuth* set_kest_policy_response(KestPolicyAuth* policy);
#endif

#endif
