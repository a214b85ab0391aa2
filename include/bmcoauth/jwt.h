/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_JWT_H
#define BMCOAUTH_JWT_H

#include <bmcoauth/export.h>
#include <bmcoauth/privileges.h>
#include <bmcoauth/token.h>

#ifdef __cplusplus
#include <string>
#endif

/** bmcoauth_token_result names the results of `validateJWT`, `validateJWT_Delegated` and
 *  `parseJWT`. */
#ifdef __cplusplus
enum bmcoauth_token_result : int
#else
enum bmcoauth_token_result
#endif
{
    BMCOAUTH_TOKEN_INVALID = 0, /**< refused: forged, malformed, not valid yet, a bad argument */
    BMCOAUTH_TOKEN_VALID = 1,   /**< accepted */
    BMCOAUTH_TOKEN_EXPIRED = 2, /**< refused: its time is over */
    BMCOAUTH_TOKEN_FAILED = 3   /**< not judged: memory ran out or the clock cannot be read */
};

BMCOAUTH_PLAIN_BEGIN

/** generateJWT returns the signed compact token (RFC 7515, section 7.1) of two records: the
 *  Base64url texts of the header, the payload and the signature, joined by dots. The caller frees
 *  it with `free`.
 *
 *  The signature is ECDSA with SHA-256 in DER form, not the 64 bytes of RFC 7518, whatever `alg`
 *  says: the token is meant for `validateJWT`. `der` is a private key on P-256, an ECPrivateKey
 *  structure (RFC 5915) of `derLength` bytes. NOTE: if `der` is null, a fresh key signs that nobody
 *  keeps. Nothing can verify that token.
 *
 *  | member | written |
 *  |---|---|
 *  | "kid" | unless it is null |
 *  | "scope", an object of arrays | if `scopes_count` is at least 1; of two entries with the same name the later one |
 *  | times | as JSON strings |
 *  | `aud`, `xidp`, `act`, `ravok_roles`, `scope` | never |
 *
 *  The records are not changed. Returns null if an argument other than `der` is null, if a text to
 *  be written is null (except `kid`), if the key does not decode, or if memory runs out.
 *  Serialization and encoding errors are logged to the journal. */
BMCOAUTH_API char* generateJWT(JWTHeader* header, JWTPayload* payload, const unsigned char* der,
                               int derLength);

/** validateJWT checks a token that `generateJWT` made with the same key `der` of `derLength` bytes:
 *  its form, its period of validity and its signature. The period begins with "nbf" and ends before
 *  "exp". Different clocks are not allowed for.
 *
 *  | result | meaning | stored |
 *  |---|---|---|
 *  | BMCOAUTH_TOKEN_VALID (1) | the token is valid | both records |
 *  | BMCOAUTH_TOKEN_EXPIRED (2) | it has expired; its signature was not checked | the header |
 *  | BMCOAUTH_TOKEN_INVALID (0) | it is malformed, not valid yet, or has a wrong signature; also if an argument is null or memory runs out while the token is read | the records read before the failure: both if only the signature is wrong |
 *  | BMCOAUTH_TOKEN_FAILED (3) | the clock cannot be read, or memory for a record runs out | the records made before the failure |
 *
 *  NOTE: without memory for "kid", the process ends.
 *
 *  "typ", "alg", "sub", "iss", "jti", "iat", "nbf" and "exp" must be strings. "kid" and "scope" are
 *  optional. "scope" is a non-empty object of arrays of strings. A time is decimal, hexadecimal
 *  after "0x", or octal after "0", as `strtoull` reads it.
 *
 *  NOTE: "crit" in the header is ignored. Several texts are the same token (padding, unused bits of
 *  the last character, the second value that ECDSA allows): revoke tokens by "jti", not by text.
 *
 *  NOTE: each record is stored as soon as it is built, before the later checks. Set both pointers
 *  to null before the call. Afterwards free both with `free_jwt_header` and `free_jwt_payload`, and
 *  do not trust a record unless the result is 1. */
BMCOAUTH_API int validateJWT(const char* token, const unsigned char* der, int derLength,
                             JWTHeader** header, JWTPayload** payload);

/** validateJWT_Delegated checks a token that another party issued, with the keys of parties that
 *  the caller trusts, and computes the privileges of the token's subject.
 *
 *  | result | meaning |
 *  |---|---|
 *  | BMCOAUTH_TOKEN_VALID (1) | the token is valid |
 *  | BMCOAUTH_TOKEN_EXPIRED (2) | a trusted key signed it, but it has expired or the clock cannot be read |
 *  | BMCOAUTH_TOKEN_INVALID (0) | it is invalid in any other way; an argument is null (`roles` and `providers` may be), `keys` is empty, or memory runs out |
 *
 *  `*verified` becomes 1 as soon as a trusted key has verified the signature. Otherwise it is
 *  unchanged. `unused` is ignored.
 *
 *  `keys` is a null-terminated array. Each key has one of two forms:
 *
 *  | key | tried on |
 *  |---|---|
 *  | a public key in PEM ("PUBLIC KEY" or "RSA PUBLIC KEY") | every token |
 *  | a JSON Web Key (RFC 7517) that `appendPublicKey` has completed | a token whose header has its "alg" or its "kid" |
 *  | the same, with "kty" "RSA" | a token whose "alg" begins with "RS" or "P" |
 *  | the same, with "kty" "EC" | a token whose "alg" begins with "E"; P-256, P-384 and P-521 keys only with ES256, ES384 and ES512 |
 *
 *  Of a JWK, only the PEM text in "kest_decoded_key" verifies. A key as published, without it,
 *  verifies nothing. NOTE: the order matters if the list has keys of both forms. A JWK that
 *  verifies ends the search. A PEM key does not: its success counts if the list ends there or a JWK
 *  follows that is not tried, and is lost if the next key that is tried fails.
 *
 *  "alg" names an algorithm of RFC 7518, section 3.1, and is read leniently: RSASSA-PKCS1-v1_5
 *  ("RS256"), RSASSA-PSS ("PS256", with a salt of any length) or ECDSA ("ES256", the signature as
 *  two integers side by side or DER), with SHA-256, SHA-384 or SHA-512. HMAC ("HS256") and "none"
 *  never verify; neither does an RSA key whose exponent is 1 or even. The caller decides how long a
 *  key must be. "crit" in the header is ignored, and several texts are the same token, as for
 *  validateJWT.
 *
 *  The period of validity begins with "nbf", if there is one, and ends before "exp". `skew` seconds
 *  are allowed in both directions. Times are read as by get_jwt_payload. A number above 4294967295
 *  is not a time: such an "exp" makes the token invalid, and such an "nbf" is ignored.
 *
 *  A token that can be read, signed or not, is stored in `*header` and `*payload`. Free both with
 *  `free_jwt_header` and `free_jwt_payload` whatever the result is, and trust neither unless it is
 *  1.
 *
 *  If "scope" is not an object, the payload's `scopes` are three entries with one value each:
 *
 *  | entry | value |
 *  |---|---|
 *  | "AUTHNZ_USER" | the subject; empty if there is none |
 *  | "USER_PRIV" | a decimal mask: the privileges of `get_xidp_privileges` for `providers`, of `get_scope_privileges`, and of `get_roles_privileges` for `roles`, together |
 *  | "singleUse" | "false" |
 *
 *  If it is an object, its entries stay as they are, and no privileges are computed. NOTE: if
 *  memory for a record runs out, the process ends, as o2_ff_calloc describes. */
BMCOAUTH_API int validateJWT_Delegated(const char* token, const char** keys, unsigned int unused,
                                       JWTHeader** header, JWTPayload** payload, unsigned int skew,
                                       userRole_s* roles, const char** providers, int* verified);

BMCOAUTH_PLAIN_END

#ifdef __cplusplus
/** parseJWT is validateJWT for a token in a string. */
BMCOAUTH_API int parseJWT(const std::string& token, const unsigned char* der, int derLength,
                          JWTHeader** header, JWTPayload** payload);
#endif

#endif
