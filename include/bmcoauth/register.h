/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_REGISTER_H
#define BMCOAUTH_REGISTER_H

#include <bmcoauth/export.h>
#include <bmcoauth/handshake_payload.h>
#include <bmcoauth/jwk.h>

/** RegisterRequest is a client's request to be registered.
 *
 *  In the document, "jwks" holds `dfs` and `software_id_cert`. The other members have the names of
 *  their fields. Only the texts `client_name` and `software_id` must not be null. */
typedef struct RegisterRequest
{
    char** redirect_uri;
    char* client_name;
    char* software_id;
    char** handshake_types;
    jwk** dfs;                             /**< the client's keys */
    HandshakePayload** software_id_cert;   /**< the client's software certificates */
    HandshakePayload* handshake_challenge; /**< the client's challenge */
    char** redirect_uris;                  /**< further URIs; written, never read */
    char* scope;                           /**< written, never read */
} RegisterRequest;

/** RegisterResponse is the answer to a client that registers.
 *
 *  `client_secret_expires_in` is the lifetime of the secret in seconds, as decimal text; "0" for no
 *  end. `issued_at` is the time at which the record was made, as decimal text in seconds since the
 *  epoch. It is never written to a document. The library never sets `reserved_text`; it only frees
 *  it. It neither sets nor frees `reserved_value`. */
typedef struct RegisterResponse
{
    char* client_secret;
    char* client_id;
    char* reserved_text;
    char* client_secret_expires_in;
    char* issued_at;
    char** grant_types;
    const char* reserved_value;
    char** kest_policy_auth_types; /**< the policy authorizations offered */
    char** kest_policy_auth_req;   /**< the policy authorizations required */
    char* ssl_cert_cryptex;        /**< a certificate for the client, sealed by ecies_encrypt */
    HandshakePayload* handshake_challenge;
    HandshakePayload* handshake_response;
    HandshakePayload** software_id_cert;
} RegisterResponse;

/** OidcRegisterResponse is the answer of an OpenID Connect registration endpoint (OpenID Connect
 *  Dynamic Client Registration 1.0, section 3.2). The two times are decimal texts. */
typedef struct OidcRegisterResponse
{
    char* client_id;
    char* client_secret;
    char* registration_access_token;
    char* registration_client_uri;
    char* client_id_issued_at;
    char* client_secret_expires_at;
} OidcRegisterResponse;

BMCOAUTH_PLAIN_BEGIN

/** parse_register_request reads a registration request from a JSON object (similar to RFC 7591,
 *  section 2).
 *
 *  | member | rule |
 *  |---|---|
 *  | "redirect_uri" | must be an array of one string or more |
 *  | "client_name", "software_id" | must be strings |
 *  | "handshake_challenge" | missing, null, or an object with the single member "T" (or "t"), an array of one string or more |
 *  | "handshake_types" | missing, null, or an array of strings |
 *  | "jwks" | read if it is an object |
 *  | "dfs" in "jwks" | read if it is a non-empty array; its elements must be objects of strings |
 *  | "software_id_cert" in "jwks" | read if it is a non-empty array; its elements must be objects of strings and arrays of strings |
 *  | "redirect_uris", "scope" | not read |
 *
 *  NOTE: if set_jwk_list or set_jwk_certs cannot copy a key, such as one without members, the
 *  request has no list of such keys, but is not refused.
 *
 *  The caller frees the request with free_register_request. Returns null if the text does not parse
 *  or breaks a rule, or if memory runs out. If it runs out for a list of the record, that list is
 *  null, as create_register_request says. */
BMCOAUTH_API RegisterRequest* parse_register_request(const char* text);

/** write_register_request returns the JSON object of a registration request: the members that
 *  parse_register_request reads, and "redirect_uris" and "scope". The caller frees it with `free`.
 *
 *  | part | how it is written |
 *  |---|---|
 *  | null fields, empty string arrays | not at all |
 *  | "T" in the challenge, "x5c" in a certificate | as an array, even with one value or none |
 *  | other parameters | a string for one value, an array for several; not at all without a value |
 *
 *  NOTE: only an upper-case "T" is treated so. parse_register_request reads a challenge "t" of one
 *  type, which is written as a string, which parse_register_request refuses. Returns null if
 *  `request` is null or memory runs out. */
BMCOAUTH_API char* write_register_request(RegisterRequest* request);

/** client_register answers a registration request in the JSON text `text`.
 *
 *  NOTE: returns null for every request. An answer needs a server's handshake challenge, and there
 *  is none here. A service that registers clients calls register_client with a template that has
 *  the challenge, and write_register_response on its result. */
BMCOAUTH_API char* client_register(const char* text);

/** parse_oidc_register_response reads the answer of a registration endpoint from a JSON object.
 *
 *  | member | rule |
 *  |---|---|
 *  | "client_id" | must be a string |
 *  | "client_secret", "registration_access_token", "registration_client_uri" | read if they are strings |
 *  | "client_id_issued_at" | read if it is an integer from 0 to 4294967295 |
 *  | "client_secret_expires_at" | must be such an integer if there is a secret; otherwise not read, and the text is "0" |
 *
 *  The caller frees the record with free_oidc_register_response. Returns null if the text does not
 *  parse or breaks a rule, or if memory runs out. */
BMCOAUTH_API OidcRegisterResponse* parse_oidc_register_response(const char* text);

/** free_oidc_register_response frees an answer. Does nothing if it is null. */
BMCOAUTH_API void free_oidc_register_response(OidcRegisterResponse* response);

/** create_register_request creates a request. `redirect_uris` and `scope` stay null: a caller that
 *  wants them written sets them. NOTE: the order of the arguments is not that of the record.
 *
 *  The caller frees the request with free_register_request. Returns null if `client_name` or
 *  `software_id` is null, or if memory runs out for the record or one of these texts. A list that
 *  is null, empty or cannot be copied is null in the record. NOTE: so is a challenge that has a
 *  parameter without a value. */
BMCOAUTH_API RegisterRequest* create_register_request(char** redirect_uri, const char* client_name,
                                                      const char* software_id, jwk** dfs,
                                                      HandshakePayload** software_id_cert,
                                                      char** handshake_types,
                                                      HandshakePayload* handshake_challenge);

/** free_register_request frees a request. Does nothing if it is null. */
BMCOAUTH_API void free_register_request(RegisterRequest* request);

/** create_register_response creates a response whose `issued_at` is now. All arguments from
 *  `grant_types` on may be null. `unused` is ignored. NOTE: the order of the arguments is not that
 *  of the record.
 *
 *  `client_secret_expires_in` must begin with a decimal number from 0 to LONG_MAX, optionally
 *  preceded by white space and a plus sign. It is kept as it is, with anything that follows the
 *  number.
 *
 *  The caller frees the response with free_register_response. Returns null if one of the first
 *  three texts is null, if the lifetime is refused, if the clock cannot be read, or if memory runs
 *  out for the record or one of its texts. A list that is null, empty or cannot be copied is null
 *  in the record. */
BMCOAUTH_API RegisterResponse*
create_register_response(const char* client_secret, const char* client_id,
                         const char* client_secret_expires_in, char** grant_types,
                         const char* unused, char** kest_policy_auth_types,
                         char** kest_policy_auth_req, HandshakePayload* handshake_challenge,
                         HandshakePayload* handshake_response, const char* ssl_cert_cryptex,
                         HandshakePayload** software_id_cert);

/** free_register_response frees a response, except its `reserved_value`. Does nothing if it is
 *  null. */
BMCOAUTH_API void free_register_response(RegisterResponse* response);

/** register_client answers a request with a new client identifier and a new secret, 16 random bytes
 *  in Base64 each, and with the settings of `response_template`.
 *
 *  The request is not looked at: the caller performs the handshake and puts its messages into the
 *  template. The template is copied. Without one (null), the secret has no end ("0") and everything
 *  else is null. The caller frees the response with free_register_response.
 *
 *  Returns null if `request` is null, if the random device fails, or as create_register_response
 *  does. */
BMCOAUTH_API RegisterResponse* register_client(RegisterRequest* request,
                                               RegisterResponse* response_template);

/** configure_reg_response creates a template for register_client, as create_register_response does,
 *  with an empty secret and an empty identifier. The caller frees it with free_register_response.
 */
BMCOAUTH_API RegisterResponse*
configure_reg_response(const char* client_secret_expires_in, char** grant_types, const char* unused,
                       char** kest_policy_auth_types, char** kest_policy_auth_req,
                       HandshakePayload* handshake_challenge, HandshakePayload* handshake_response,
                       const char* ssl_cert_cryptex, HandshakePayload** software_id_cert);

/** write_register_response returns the JSON object that answers a client that registers. The caller
 *  frees it with `free`.
 *
 *  | part | how it is written |
 *  |---|---|
 *  | null lists | not at all; "kest_policy_auth_req" as [] |
 *  | "T" in the challenge, "R" in the response, "x5c" in a certificate | as an array |
 *  | other parameters | a string for one value, an array for several |
 *  | a parameter without a value | ends its list |
 *
 *  Returns null if `response` is null, if its challenge gives fewer than two parameters, if its
 *  handshake response is there and empty, or if memory runs out. Called from C++, raises
 *  std::logic_error if the secret, the identifier or the lifetime is null. */
BMCOAUTH_API char* write_register_response(RegisterResponse* response);

/** parse_register_response returns null for every text.
 *
 *  NOTE: it is kept for callers that bind it and rely on null. Clients read a response with
 *  get_value_char and similar functions (<bmcoauth/document.h>). */
BMCOAUTH_API RegisterResponse* parse_register_response(const char* text);

BMCOAUTH_PLAIN_END

#endif
