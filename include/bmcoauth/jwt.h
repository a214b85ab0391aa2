/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_JWT_H
#define BMCOAUTH_JWT_H

#include <bmcoauth/export.h>
#include <bmcoauth/token.h>

#ifdef __cplusplus
#include <string>
#endif

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
 *  argument but `der` is null, if a text of the records is null (`kid` apart), if the key does not
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
 *  Returns 3 if the clock cannot be read or memory runs out for a record.
 *
 *  "typ", "alg", "sub", "iss", "jti", "iat", "nbf" and "exp" must be strings, "kid" and "scope" may
 *  be missing; "scope" is an object, not an empty one, of arrays of strings. A time is decimal,
 *  hexadecimal after "0x" or octal after "0", as `strtoull` reads it.
 *
 *  NOTE: each record is stored as soon as it is built, before the later checks. A token with a
 * wrong signature gives 0 and both records, an expired one 2 and the header. Set both pointers to
 * null before the call, release what is there afterwards with `free_jwt_header` and
 * `free_jwt_payload`, and trust no record unless the result is 1. */
BMCOAUTH_API int validateJWT(const char* token, const unsigned char* der, int derLength,
                             JWTHeader** header, JWTPayload** payload);

BMCOAUTH_PLAIN_END

#ifdef __cplusplus
/** parseJWT is validateJWT for a token in a string. */
BMCOAUTH_API int parseJWT(const std::string& token, const unsigned char* der, int derLength,
                          JWTHeader** header, JWTPayload** payload);
#endif

#endif
