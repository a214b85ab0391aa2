/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_REGISTER_H
#define BMCOAUTH_REGISTER_H

#include <bmcoauth/export.h>
#include <bmcoauth/handshake_payload.h>
#include <bmcoauth/jwk.h>

/** RegisterRequest is what a client sends to register itself.
 *
 *  The document's "jwks" holds `dfs` and `software_id_cert`; the other members carry the names of
 *  their fields. All but the two texts `client_name` and `software_id` may be null. */
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

/** RegisterResponse is what a registering client is answered.
 *
 *  `client_secret_expires_in` is the lifetime of the secret in seconds as decimal text, "0" for no
 *  end. `issued_at` is the moment when the record was made, in seconds since the epoch as decimal
 *  text; it is never written to a document. `reserved_text` is never set by this library, only
 *  released; `reserved_value` is neither. */
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

/** parse_register_request reads a registration request from a JSON object (in the manner of
 *  RFC 7591, section 2).
 *
 *  - "redirect_uri" must be an array of one string or more.
 *  - "client_name" and "software_id" must be strings.
 *  - "handshake_challenge", unless missing or null, must be an object with the single member "T"
 *    (in either case), an array of one string or more.
 *  - "handshake_types", unless missing or null, must be an array of strings.
 *  - "jwks" is looked at if it is an object, and its members "dfs" and "software_id_cert" if they
 *    are arrays that are not empty. Their elements must be objects: of strings in "dfs", of strings
 *    and arrays of strings in "software_id_cert".
 *
 *  "redirect_uris" and "scope" are not read. NOTE: a key that set_jwk_list or set_jwk_certs does
 *  not copy, such as one without members, costs the request its whole list, not its acceptance.
 *
 *  Returns null if the text does not parse or breaks one of these rules, or if memory runs out;
 *  where it does for a list of the record, that list is null, as create_register_request says. */
BMCOAUTH_API RegisterRequest* parse_register_request(const char* text);

/** write_register_request gives the JSON object of a registration request: what
 *  parse_register_request reads, and "redirect_uris" and "scope".
 *
 *  Fields that are null and string arrays that are empty are left out. A parameter with one value
 *  is a string, except "T" in the challenge and "x5c" in a certificate, which are always arrays,
 *  empty ones too; any other parameter without a value is left out. NOTE: "T" is meant as it stands here: a
 *  challenge "t" of one type, which parse_register_request takes, is written as a string, which it
 *  refuses. Returns null if `request` is null or memory runs out. */
BMCOAUTH_API char* write_register_request(RegisterRequest* request);

/** client_register answers a registration request that is given as JSON text.
 *
 *  NOTE: it returns null for every request. An answer without a server's handshake challenge is not
 *  written, and there is none here: a service that registers clients calls register_client with a
 *  template that carries the challenge, and write_register_response on what it returns. */
BMCOAUTH_API char* client_register(const char* text);

/** parse_oidc_register_response reads the answer of a registration endpoint from a JSON object.
 *
 *  "client_id" must be a string; "client_secret", "registration_access_token" and
 *  "registration_client_uri" are taken if they are strings, "client_id_issued_at" if it is an
 *  integer from 0 to 4294967295. "client_secret_expires_at" must be such an integer if there is a
 *  secret; without one it is not looked at and the text is "0".
 *
 *  The caller releases the record with free_oidc_register_response. Returns null if the text does
 *  not parse or breaks a rule, or if memory runs out. */
BMCOAUTH_API OidcRegisterResponse* parse_oidc_register_response(const char* text);

/** free_oidc_register_response releases an answer; null is nothing to do. */
BMCOAUTH_API void free_oidc_register_response(OidcRegisterResponse* response);

/** create_register_request makes a request. NOTE: the order of the arguments is not that of the
 *  record. `redirect_uris` and `scope` stay null: a caller that wants them written sets them.
 *
 *  Returns null if `client_name` or `software_id` is null or memory runs out for the record or for
 *  one of them. Of the lists, one that is null, empty or cannot be copied is null in the record.
 *  NOTE: so is a challenge that holds a parameter without a value. */
BMCOAUTH_API RegisterRequest* create_register_request(char** redirect_uri, const char* client_name,
                                                      const char* software_id, jwk** dfs,
                                                      HandshakePayload** software_id_cert,
                                                      char** handshake_types,
                                                      HandshakePayload* handshake_challenge);

/** free_register_request releases a request; null is nothing to do. */
BMCOAUTH_API void free_register_request(RegisterRequest* request);

/** create_register_response makes a response, issued now. NOTE: the order of the arguments is not
 *  that of the record. `unused` is ignored; all from `grant_types` on may be null.
 *
 *  `client_secret_expires_in` must begin with a decimal number from 0 to LONG_MAX, after white
 *  space and a plus sign at will; it is kept as it is, with whatever follows the number.
 *
 *  Returns null if one of the first three texts is null, if the lifetime is refused, if the clock
 *  cannot be read, or if memory runs out for the record or one of its texts. Of the lists, one that
 *  is null, empty or cannot be copied is null in the record. */
BMCOAUTH_API RegisterResponse*
create_register_response(const char* client_secret, const char* client_id,
                         const char* client_secret_expires_in, char** grant_types,
                         const char* unused, char** kest_policy_auth_types,
                         char** kest_policy_auth_req, HandshakePayload* handshake_challenge,
                         HandshakePayload* handshake_response, const char* ssl_cert_cryptex,
                         HandshakePayload** software_id_cert);

/** free_register_response releases a response, but not its `reserved_value`; null is nothing to do.
 */
BMCOAUTH_API void free_register_response(RegisterResponse* response);

/** register_client answers any request with a fresh client identifier and a fresh secret, 16 random
 *  bytes in Base64 each, and with the settings of `response_template`.
 *
 *  Nothing in the request is looked at: the caller performs the handshake and puts its messages
 *  into the template. The template is copied, not changed; without one (null) the secret has no end
 *  ("0") and everything else is null. The caller releases the response with free_register_response.
 *
 *  Returns null if `request` is null, if no random bytes can be had, or as
 *  create_register_response does. */
BMCOAUTH_API RegisterResponse* register_client(RegisterRequest* request,
                                               RegisterResponse* response_template);

/** configure_reg_response makes a template for register_client: create_register_response with an
 *  empty secret and an empty identifier. */
BMCOAUTH_API RegisterResponse*
configure_reg_response(const char* client_secret_expires_in, char** grant_types, const char* unused,
                       char** kest_policy_auth_types, char** kest_policy_auth_req,
                       HandshakePayload* handshake_challenge, HandshakePayload* handshake_response,
                       const char* ssl_cert_cryptex, HandshakePayload** software_id_cert);

/** write_register_response gives the JSON object that answers a registering client.
 *
 *  Lists that are null are left out, except "kest_policy_auth_req", which is [] then. A parameter
 *  with one value is a string, except "T" in the challenge, "R" in the response and "x5c" in a
 *  certificate, which are always arrays; the first parameter without a value ends its list.
 *
 *  Returns null if `response` is null, if its challenge gives fewer than two parameters, if its
 *  handshake response is there and empty, or if memory runs out. From C++, a response without
 *  secret, identifier or lifetime raises std::logic_error. */
BMCOAUTH_API char* write_register_response(RegisterResponse* response);

/** parse_register_response returns null for every text.
 *
 *  NOTE: it is kept for the callers that bind it, and they count on null. A client reads what it
 *  needs with get_value_char and its kin (<bmcoauth/document.h>). */
BMCOAUTH_API RegisterResponse* parse_register_response(const char* text);

BMCOAUTH_PLAIN_END

#endif
