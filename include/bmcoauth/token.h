/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_TOKEN_H
#define BMCOAUTH_TOKEN_H

/* The records of a JSON Web Token (RFC 7519). All times in them are decimal texts of seconds since
 * 1970-01-01 00:00:00 UTC. Each text in a record is a heap block of its own and belongs to the
 * record. */

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

/** create_jwt_header creates a header with copies of the three texts. `kid` may be null. The caller
 *  frees it with `free_jwt_header`.
 *
 *  Returns null if `typ` or `alg` is null or memory runs out. NOTE: if it runs out for `kid`, the
 *  process ends at once with exit status 255. */
BMCOAUTH_API JWTHeader* create_jwt_header(const char* typ, const char* alg, const char* kid);

/** free_jwt_header frees a header and its texts. Does nothing if it is null. */
BMCOAUTH_API void free_jwt_header(JWTHeader* header);

/** create_jwt_payload creates a payload with copies of the texts. The caller frees it with
 *  `free_jwt_payload`. NOTE: the order of the arguments is not that of the record.
 *
 *  | argument | meaning |
 *  |---|---|
 *  | `sub`, `jti`, `iss` | the subject, the token identifier, the issuer |
 *  | `iat`, `nbf` | the times of issue and of first validity; null for the current time |
 *  | `exp` | the time of expiry: decimal, hexadecimal after "0x" or octal after "0", as `strtoull` reads it |
 *  | `scopes` | an array of `count` entries, or null |
 *
 *  If `iat` is null, an `exp` that is exactly the current second is refused. Any other `exp` is
 *  accepted, also one in the past.
 *
 *  On success the payload owns the array `scopes`, which is not copied. If `scopes` is null or
 *  `count` is 0, it has no scopes. All other fields are null.
 *
 *  Returns null if another text is null, if `exp` is refused, if the clock cannot be read, or if
 *  memory runs out. `scopes` then still belongs to the caller. */
BMCOAUTH_API JWTPayload* create_jwt_payload(const char* sub, const char* jti, const char* iss,
                                            const char* iat, const char* nbf, const char* exp,
                                            JWTscopes* scopes, int count);

/** free_jwt_scopes frees the names and values of the `count` entries of `scopes` and sets them to
 *  null. The array itself is not freed: it belongs to the caller, or to its payload. Does nothing
 *  if `scopes` is null or `count` is below 1. */
BMCOAUTH_API void free_jwt_scopes(JWTscopes* scopes, int count);

/** free_jwt_payload frees a payload and everything in it, also the array `scopes`. Does nothing if
 *  it is null. */
BMCOAUTH_API void free_jwt_payload(JWTPayload* payload);

/** get_jwt_header reads the header of the compact token `token` (RFC 7515, section 7.1). It looks
 *  at neither the payload nor the signature. "alg" is required. "typ" and "kid" are null if they
 *  are missing or not strings.
 *
 *  On success `*header` is a new record. The caller frees it with `free_jwt_header`. Returns 0 if
 *  an argument is null, if `token` has fewer than two dots, if its header holds a raw zero byte or
 *  does not decode to a JSON object with an "alg", or if memory runs out. NOTE: if it runs out for
 *  the record itself, the process ends at once with exit status 255. */
BMCOAUTH_API int get_jwt_header(const char* token, JWTHeader** header);

/** get_jwt_payload reads the payload of the compact token `token`. It looks at neither the header
 *  nor the signature: do not trust anything in the record.
 *
 *  | claim | type | field |
 *  |---|---|---|
 *  | "sub", "iss", "jti", "act" | string | the text |
 *  | "aud" | array of strings, or one string | a string array |
 *  | "ravok_roles" | array of strings | a string array |
 *  | "iat", "nbf", "exp" | integer up to 4294967295 | a decimal text |
 *  | "iat", "nbf", "exp" | string | the text as it is |
 *  | "xidp" | object | its compact JSON text |
 *  | "scope" | string | `scope`: the names, split at spaces |
 *  | "scope" | object | `scopes`: its entries (see below) |
 *
 *  A claim that is missing or has another type is null in the record. Array elements of other types
 *  are skipped. `scopes` is null if the compact JSON text of "scope" does not parse, because a
 *  comment with two slashes hides its end.
 *
 *  NOTE: every entry of `scopes` has a `count` of 1. Its value is the first element of the member's
 *  array: a number or a Boolean as its text, null as the empty text. If the member is an empty
 *  array or not an array, the value is a null pointer.
 *
 *  On success `*payload` is a new record. The caller frees it with `free_jwt_payload`. Returns 0
 *  if:
 *  - an argument is null, or `token` has fewer than two dots;
 *  - the payload holds a raw zero byte or does not decode to a JSON object;
 *  - an array inside "scope" holds an array or an object;
 *  - memory runs out. NOTE: if it runs out for the record, its scope entries or a time that was a
 *    number, the process ends at once with exit status 255. */
BMCOAUTH_API int get_jwt_payload(const char* token, JWTPayload** payload);

BMCOAUTH_PLAIN_END

#ifdef __cplusplus
/** print_jwt_scopes does nothing: the rights that a token grants do not belong in logs. It is kept
 *  for callers that bind it. */
BMCOAUTH_API void print_jwt_scopes(JWTscopes* scopes, int count);
#endif

#endif
