/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_TOKEN_H
#define BMCOAUTH_TOKEN_H

/* The records of a JSON Web Token (RFC 7519). All times in them are decimal texts of seconds since
 * 1970-01-01 00:00:00 UTC. Every text in a record is a block of its own on the C heap and belongs
 * to the record. */

#include <bmcoauth/export.h>

/** JWTHeader is the JOSE header of a token (RFC 7515, section 4). */
typedef struct JWTHeader
{
    char* typ; /**< the token type, "JWT" */
    char* alg; /**< the name of the signature algorithm, such as "ES256" */
    char* kid; /**< the key identifier; null when the token has none */
} JWTHeader;

/** JWTscopes is one entry of a "scope" claim that is an object: a member and its texts. */
typedef struct JWTscopes
{
    char* name;    /**< the name of the member */
    char** values; /**< `count` texts; no null pointer ends them */
    int count;     /**< the number of texts in `values` */
} JWTscopes;

/** JWTPayload holds the claims of a token (RFC 7519, section 4). */
typedef struct JWTPayload
{
    char* jti;          /**< the token identifier */
    char* sub;          /**< the subject: the name of the user or client */
    char* iss;          /**< the issuer */
    char* iat;          /**< the time of issue */
    char* exp;          /**< the time of expiry */
    char* nbf;          /**< the time before which the token is not valid */
    char** aud;         /**< the audiences, a string array, or null */
    char* xidp;         /**< the text of the "xidp" object, or null */
    char* act;          /**< the actor, or null */
    char** ravok_roles; /**< the role names, a string array, or null */
    char** scope;       /**< the scope names, where the claim is a text, a string array, or null */
    JWTscopes* scopes;  /**< the scope entries, where the claim is an object, or null */
    int scopes_count;   /**< the number of entries in `scopes` */
} JWTPayload;

BMCOAUTH_PLAIN_BEGIN

/** create_jwt_header gives a new header with copies of the three texts; `kid` may be null.
 *
 *  The caller releases it with `free_jwt_header`. Null if `typ` or `alg` is null or memory runs
 *  out; NOTE: the process ends at once, with exit status 255, if it runs out for `kid`. */
BMCOAUTH_API JWTHeader* create_jwt_header(const char* typ, const char* alg, const char* kid);

/** free_jwt_header releases a header and its texts. Null is nothing to do. */
BMCOAUTH_API void free_jwt_header(JWTHeader* header);

/** create_jwt_payload gives a new payload with copies of the texts: the subject, the token
 *  identifier, the issuer, the times of issue, of first validity and of expiry. NOTE: the order of
 *  the arguments is not that of the record.
 *
 *  `iat` and `nbf` may be null and are then the current time. If `iat` is null, an `exp` that is
 *  exactly the current second is refused; any other `exp`, a past one too, is accepted. `exp` is
 *  decimal, hexadecimal after "0x" or octal after "0", as `strtoull` reads it.
 *
 *  On success the payload takes over the array `scopes` of `count` entries, which is not copied,
 *  unless `scopes` is null or `count` is 0: then it has no scopes. All other fields are null. The
 *  caller releases the payload, and the scopes with it, with `free_jwt_payload`.
 *
 *  Returns null, and `scopes` stays with the caller, if another text is null, if `exp` is refused,
 *  if the clock cannot be read or memory runs out. */
BMCOAUTH_API JWTPayload* create_jwt_payload(const char* sub, const char* jti, const char* iss,
                                            const char* iat, const char* nbf, const char* exp,
                                            JWTscopes* scopes, int count);

/** free_jwt_scopes releases the names and values of the `count` entries of `scopes` and sets them
 *  to null. The array itself stays: it belongs to the caller, or to its payload. Null and a count
 *  below 1 are nothing to do. */
BMCOAUTH_API void free_jwt_scopes(JWTscopes* scopes, int count);

/** free_jwt_payload releases a payload with all that it holds, the array `scopes` included. Null is
 *  nothing to do. */
BMCOAUTH_API void free_jwt_payload(JWTPayload* payload);

/** get_jwt_header reads the header of the compact token `token` (RFC 7515, section 7.1) without
 *  looking at its payload or its signature. "alg" must be there; "typ" and "kid" are null when they
 *  are missing or not strings.
 *
 *  On success `*header` is a new record that the caller releases with `free_jwt_header`. Returns 0
 *  if an argument is null, `token` has fewer than two dots, its header does not decode to a JSON
 *  object with an "alg" or holds a raw zero byte, or memory runs out; NOTE: the process ends at once, with exit status 255,
 *  if it runs out for the record itself. */
BMCOAUTH_API int get_jwt_header(const char* token, JWTHeader** header);

/** get_jwt_payload reads the payload of the compact token `token` without looking at its header
 *  or its signature: nothing in the record may be trusted.
 *
 *  A claim that is missing, or of another type than said here, is null in the record. "sub",
 *  "iss", "jti" and "act" are strings. "aud" is an array of strings or one string, "ravok_roles" an
 *  array of strings; elements of other types are left out. "iat", "nbf" and "exp" are integers up
 *  to 4294967295, which become decimal texts, or strings, which are kept as they are. "xidp" is an
 *  object and becomes its compact JSON text. "scope" is a string, which is split at spaces into
 *  `scope`, or an object, whose compact JSON text becomes `scopes`; the field is null if that text
 *  does not parse, because a comment with two slashes hides its end.
 *
 *  NOTE: every entry of `scopes` has a `count` of 1, and its value is the first element of the
 *  member's array, a number or Boolean as its text and null as the empty one; or a null pointer
 *  where the member is no array or an empty one.
 *
 *  On success `*payload` is a new record that the caller releases with `free_jwt_payload`. Returns
 *  0 if an argument is null, `token` has fewer than two dots, its payload does not decode to a JSON
 *  object or holds a raw zero byte, an array inside "scope" holds an array or an object, or memory runs out; NOTE: the
 *  process ends at once, with exit status 255, if it runs out for the record, its scope entries or
 *  a time that was a number. */
BMCOAUTH_API int get_jwt_payload(const char* token, JWTPayload** payload);

BMCOAUTH_PLAIN_END

#ifdef __cplusplus
/** print_jwt_scopes does nothing: what a token grants is not for logs. It is kept for the callers
 *  that bind it. */
BMCOAUTH_API void print_jwt_scopes(JWTscopes* scopes, int count);
#endif

#endif
