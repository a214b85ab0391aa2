/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_AUTHORIZE_H
#define BMCOAUTH_AUTHORIZE_H

#include <bmcoauth/export.h>
#include <bmcoauth/handshake_payload.h>
#include <bmcoauth/token.h>

/** KestPolicyAuth is one name/value pair of a policy list.
 *
 *  A pointer to the first pair stands for the list, a heap array that ends with a pair whose name
 *  and value are null. An empty list is that single pair. */
typedef struct KestPolicyAuth
{
    char* name;
    char* value;
} KestPolicyAuth;

/** AuthorizeRequest is what a client sends to the token endpoint.
 *
 *  A request carries a refresh token or a handshake response; `policy` may be null. `reserved` is
 *  never set by this library, only released. */
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

/** AuthorizeResponse is what the token endpoint answers (RFC 6749, section 5.1).
 *
 *  `expires_in` is the lifetime of the access token in seconds, as a text. `issued_at` is the
 *  moment when the record was made, in seconds since the epoch as decimal text; it is never written
 *  to a document. */
typedef struct AuthorizeResponse
{
    char* access_token;
    char* state;
    char* refresh_token;
    char* expires_in;
    char* token_type;
    char* issued_at;
} AuthorizeResponse;

/** AuthorizeClaims is what a service wants in the access tokens that authorize_client issues.
 *
 *  Any of the pointers may be null. The record stays the service's. */
typedef struct AuthorizeClaims
{
    char* subject; /**< the claim "sub"; null for "EC OAuth Token" */
    char* issuer;  /**< the claim "iss"; null for "EC" */
    JWTscopes*
        scopes;      /**< `scope_count` entries of the claim "scope", each with a name and values */
    int scope_count; /**< 0 or less for no "scope" */
} AuthorizeClaims;

BMCOAUTH_PLAIN_BEGIN

/** create_authorize_request makes a request. NOTE: `client_secret` comes before `client_id`, unlike
 *  in the record. `unused` is ignored; `policy`, `handshake` and `refresh_token` may be null.
 *
 *  Returns null if one of the first three texts is null, if set_handshake_payload refuses
 *  `handshake`, or if memory runs out. Where memory runs out for the policy list or the refresh
 *  token, the request is made without it. */
BMCOAUTH_API AuthorizeRequest* create_authorize_request(const char* client_secret,
                                                        const char* client_id, const char* state,
                                                        const char* unused, KestPolicyAuth* policy,
                                                        HandshakePayload* handshake,
                                                        const char* refresh_token);

/** free_authorize_request releases a request; null is nothing to do. */
BMCOAUTH_API void free_authorize_request(AuthorizeRequest* request);

/** parse_authorize_request reads a request from a JSON object.
 *
 *  "client_id", "client_secret" and "state" must be strings. "refresh_token" is taken if it is a
 *  string. "handshake_response" is taken if it is an object: a string member gives a parameter with
 *  one value, a non-empty array of strings one with all of them; null, numbers, Booleans and empty
 *  arrays are left out. "kest_policy_auth" is taken if it is an object; all of its members must be
 *  strings.
 *
 *  Returns null if the text does not parse or breaks one of these rules, if there is neither a
 *  refresh token nor a handshake response, or if memory runs out, but for what
 *  create_authorize_request makes the request without. NOTE: a handshake response that gives no
 *  parameter refuses the request, even beside a refresh token. */
BMCOAUTH_API AuthorizeRequest* parse_authorize_request(const char* text);

/** write_authorize_request gives the JSON object that parse_authorize_request reads.
 *
 *  A request with a handshake is written without its refresh token. The handshake is written up to
 *  its first parameter whose value array is null; a parameter "R" is an array even when it has one
 *  value, and of several with the same name the last one counts, as in the policy list. The
 *  policy list is written up to its first pair without a value, as {} when it is empty.
 *
 *  Returns null if `request` is null or has neither refresh token nor handshake, or if memory runs
 *  out. From C++, a request without client id, client secret or state, and a parameter whose value
 *  array is empty, raise std::logic_error. */
BMCOAUTH_API char* write_authorize_request(AuthorizeRequest* request);

/** create_authorize_response makes a response, issued now. NOTE: `state` comes before
 *  `access_token`, unlike in the record. `expires_in` is not checked.
 *
 *  Returns null if one of the texts is null, if the clock cannot be read, or if memory runs out. */
BMCOAUTH_API AuthorizeResponse*
create_authorize_response(const char* state, const char* access_token, const char* refresh_token,
                          const char* expires_in, const char* token_type);

/** free_authorize_response releases a response; null is nothing to do. */
BMCOAUTH_API void free_authorize_response(AuthorizeResponse* response);

/** parse_authorize_response reads a response from a JSON object, whose members "state",
 *  "access_token", "refresh_token", "expires_in" and "token_type" must all be strings.
 *
 *  NOTE: RFC 6749 makes "expires_in" a number; here it is a string, and a number is refused.
 *  `issued_at` is the time of this call. Returns null if the text does not parse or breaks a rule,
 *  if the clock cannot be read, or if memory runs out. */
BMCOAUTH_API AuthorizeResponse* parse_authorize_response(const char* text);

/** write_authorize_response gives the JSON object that parse_authorize_response reads.
 *
 *  Returns null if `response` is null or memory runs out. From C++, a response that lacks one of
 *  the five texts raises std::logic_error. */
BMCOAUTH_API char* write_authorize_response(AuthorizeResponse* response);

/** free_kest_policy_response releases a policy list; null is nothing to do. */
BMCOAUTH_API void free_kest_policy_response(KestPolicyAuth* policy);

/** client_authorize issues tokens for a request that is given as JSON text, and gives the response
 *  as JSON text.
 *
 *  NOTE: it checks nothing but the shape of the request (see parse_authorize_request): who sends
 *  it, and whether secret, refresh token and handshake are right, the caller must have verified.
 *  The access token is signed with a throwaway key, so that no key verifies it later.
 *
 *  Returns null if the request is refused or no tokens can be issued. */
BMCOAUTH_API char* client_authorize(const char* text);

/** authorize_client issues an access token, a JSON Web Token signed with ES256 (RFC 7519,
 *  RFC 7518), and a refresh token of 16 random bytes in Base64, and puts them into a response.
 *
 *  `der` is the service's private key, `derLength` bytes of an ECPrivateKey structure (RFC 5915) on
 *  P-256; with null the token is signed with a throwaway key. `response_template` gives lifetime
 *  and token type, `claims` the claims; each may be null. Without a template the token lives 3600
 *  seconds and is of the type "bearer".
 *
 *  The lifetime is read from the template as `strtoull` reads a number of any base: "0x258" is 600
 *  seconds. NOTE: a text that is no number, or zero, gives a token that lives 3600 seconds,
 *  although the response repeats that text. A lifetime that carries the expiry beyond 64 bits wraps
 *  around.
 *
 *  The caller releases the response with free_authorize_response. Returns null if `state` or one of
 *  the template's two texts is null, if a scope entry has no name, no values, a null value, or a
 *  count below 1, if the key does not sign, if there are no random bytes, if the clock cannot be
 *  read, or if memory runs out. */
BMCOAUTH_API AuthorizeResponse* authorize_client(const char* state, const unsigned char* der,
                                                 unsigned int derLength,
                                                 AuthorizeResponse* response_template,
                                                 AuthorizeClaims* claims);

/** configure_auth_response makes a template for authorize_client: a response whose lifetime is
 *  `expires_in`, "3600" if null, and whose token type is `token_type`, "bearer" if null. Its other
 *  texts are empty. */
BMCOAUTH_API AuthorizeResponse* configure_auth_response(const char* expires_in,
                                                        const char* token_type);

BMCOAUTH_PLAIN_END

#ifdef __cplusplus
/** set_kest_policy_response returns a copy of `policy`: the pairs before the first one without name
 *  or value. The caller releases it with free_kest_policy_response.
 *
 *  Returns null if `policy` is null or memory runs out. */
BMCOAUTH_API KestPolicyAuth* set_kest_policy_response(KestPolicyAuth* policy);
#endif

#endif
