/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_JWT_H
#define BMCOAUTH_JWT_H

#include <bmcoauth/export.h>
#include <bmcoauth/privileges.h>
#include <bmcoauth/token.h>

#ifdef __cplusplus
#include <string>
#endif

/** bmcoauth_token_result names the results of `validateJWT`, `validateJWT_Delegated` and `parseJWT`. */
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

/** generateJWT gives the signed compact token (RFC 7515, section 7.1) of two records: the Base64url
 *  texts of the header, the payload and the signature, joined by dots.
 *
 *  The signature is ECDSA with SHA-256 in its DER form, not the 64 bytes of RFC 7518, whatever
 *  `alg` says: the token is meant for `validateJWT`. `der` is an ECPrivateKey structure (RFC 5915)
 *  of `derLength` bytes on P-256. NOTE: with a null `der` the token is signed by a fresh key that
 *  nobody keeps, so that nothing can verify it.
 *
 *  "kid" is written unless it is null, "scope" (an object of arrays) if `scopes_count` is at least
 *  1; of two entries with the same name the later one counts. The times are written as JSON
 *  strings. `aud`, `xidp`, `act`, `ravok_roles` and `scope` are not written.
 *
 *  The records are only read. The caller releases the token with `free`. Returns null if an
 *  argument but `der` is null, if a text to be written is null (`kid` apart), if the key does not
 *  decode, or if memory runs out. An error in writing or encoding a part is told to the journal. */
BMCOAUTH_API char* generateJWT(JWTHeader* header, JWTPayload* payload, const unsigned char* der,
                               int derLength);

/** validateJWT checks a token that `generateJWT` made with the same key `der` of `derLength` bytes:
 *  its form, its period of validity, which begins with "nbf" and ends before "exp", without any
 *  allowance for clocks that differ, and its signature.
 *
 *  Returns 1 if the token is valid and 2 if it has expired, in which case its signature has not
 *  been looked at. Returns 0 if it is invalid in any other way: malformed, not yet valid, of a
 *  wrong signature, or an argument is null; so it does if memory runs out while the token is read.
 *  Returns 3 without a clock or memory for a record; without memory for "kid" the process ends.
 *
 *  "typ", "alg", "sub", "iss", "jti", "iat", "nbf" and "exp" must be strings, "kid" and "scope" may
 *  be missing; "scope" is an object, not an empty one, of arrays of strings. A time is decimal,
 *  hexadecimal after "0x" or octal after "0", as `strtoull` reads it.
 *
 *  NOTE: "crit" in the header is ignored. Several texts are the same token (padding, unused bits of
 *  the last character, the second value that ECDSA allows): revoke tokens by "jti", not by text.
 *
 *  NOTE: each record is stored as soon as it is built, before the later checks. A token with a
 *  wrong signature gives 0 and both records, an expired one 2 and the header. Set both pointers to
 *  null before the call, release what is there afterwards with `free_jwt_header` and
 *  `free_jwt_payload`, and trust no record unless the result is 1. */
BMCOAUTH_API int validateJWT(const char* token, const unsigned char* der, int derLength,
                             JWTHeader** header, JWTPayload** payload);

/** validateJWT_Delegated checks a token that another party issued, by the keys of parties that the
 *  caller trusts, and tells what the token's subject may do.
 *
 *  `keys` is an array that ends with a null pointer. Each key is either a public key in PEM form
 *  ("PUBLIC KEY" or "RSA PUBLIC KEY") or a JSON Web Key (RFC 7517) as `appendPublicKey` completes
 *  it: only the PEM text in its member "kest_decoded_key" is used to verify, so a key as published
 *  verifies nothing. A PEM key is tried on every token. A JWK is tried if its "alg" or its "kid" is
 *  the header's; or, by its "kty", if it is "RSA" and the header's "alg" begins with "RS" or "P",
 *  or "EC" and "alg" begins with "E", where P-256, P-384 and P-521 keys fit ES256, ES384 and ES512
 *  only. NOTE: the order counts where the list mixes both. A JWK that verifies ends the search; a
 *  PEM key does not: its success holds if the list ends there or a JWK follows that is not tried,
 *  and is lost if the next key that is tried fails.
 *
 *  "alg" names the algorithm of RFC 7518, section 3.1, leniently: RSASSA-PKCS1-v1_5 ("RS256"),
 *  RSASSA-PSS ("PS256", with a salt of any length) or ECDSA ("ES256", the signature of two integers
 *  side by side or DER), with SHA-256, SHA-384 or SHA-512. HMAC ("HS256") and "none" never verify,
 *  nor does an RSA key whose exponent is 1 or even. How long a key must be is the caller's to say.
 *  "crit" in the header is ignored, and several texts are the same token, as in validateJWT.
 *
 *  The period of validity begins with "nbf", where the token has one, and ends before "exp"; `skew`
 *  seconds are allowed in both directions. Times are read as by get_jwt_payload: a number beyond
 *  4294967295 is no time, so that such an "exp" makes the token invalid and such an "nbf" counts
 *  for nothing.
 *
 *  Returns 1 if the token is valid, and 2 if it is signed by a trusted key but has expired, or the
 *  clock cannot be read. Returns 0 if it is invalid in any other way, if an argument is null
 *  (`roles` and `providers` may be), if `keys` is empty, or if memory runs out. `*verified` becomes
 *  1 as soon as a trusted key has verified the signature, and is otherwise left as it was.
 *
 *  A token that can be read, signed or not, is stored in `*header` and `*payload`: release both
 *  with `free_jwt_header` and `free_jwt_payload` whatever the result, and trust neither unless it
 *  is 1. If "scope" is no object, the payload's `scopes` are three entries of one value each:
 *  "AUTHNZ_USER" (the subject, empty if there is none), "USER_PRIV" (a decimal mask: the rights of
 *  `get_xidp_privileges` for `providers`, `get_scope_privileges` and `get_roles_privileges` for
 *  `roles` together) and "singleUse" ("false"). If it is an object, its entries stay as they are,
 *  and no rights are computed.
 *
 *  `unused` is ignored. NOTE: where memory for a record runs out, the process ends, as o2_ff_calloc
 *  describes. */
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
