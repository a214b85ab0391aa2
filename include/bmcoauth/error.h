/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_ERROR_H
#define BMCOAUTH_ERROR_H

#include <bmcoauth/export.h>

#include <stdint.h>

/** oauthError names every outcome that is reported to an OAuth client (RFC 6749, section 5.2, and
 *  some more). `oauthErro_toStr` returns their texts.
 *
 *  The numbers are part of the interface: processes pass them to each other. */
#ifdef __cplusplus
enum oauthError : uint32_t
#else
typedef uint32_t oauthError;
enum
#endif
{
    OAUTH_SUCCESS = 0,
    OAUTH_SERVER_ERROR = 1,
    OAUTH_INVALID_REQUEST = 2,
    OAUTH_INVALID_CLIENT = 3,
    OAUTH_INVALID_CLIENT_SECRET = 4,
    OAUTH_INVALID_GRANT = 5,
    OAUTH_INVALID_PARAM = 6,
    OAUTH_UNAUTHORIZED_CLIENT = 7,
    OAUTH_UNSUPPORTED_GRANT_TYPE = 8,
    OAUTH_INVALID_SCOPE = 9,
    OAUTH_TOKEN_EXPIRED = 10,
    OAUTH_INVALID_TOKEN = 11,
    OAUTH_ACCESS_DENIED = 12,
    OAUTH_NETWORK_ERROR = 13
};

BMCOAUTH_PLAIN_BEGIN

/** write_oauth_error returns the JSON document that reports an error to a client (RFC 6749, section
 *  5.2). The caller frees it with `free`.
 *
 *  | member, in this order | value |
 *  |---|---|
 *  | "error" | the text of `code`; "" for a code outside the enumeration |
 *  | "error_description" | `description`; missing if it is null |
 *  | "error_resolution" | `resolution`; missing if it is null |
 *  | "error_uri" | `uri`; missing if it is null |
 *
 *  An empty text is written as an empty string. Characters that JSON does not allow in a string are
 *  escaped, as by `json_fastWriter`.
 *
 *  Returns null if memory runs out. */
BMCOAUTH_API char* write_oauth_error(oauthError code, const char* description,
                                     const char* resolution, const char* uri);

BMCOAUTH_PLAIN_END

#ifdef __cplusplus
/** oauthErro_toStr returns the OAuth error text of `code`, for example "invalid_request" for 2.
 *  Returns "" for a value outside the enumeration, and never null.
 *
 *  The text is static: do not free it. */
BMCOAUTH_API const char* oauthErro_toStr(oauthError code);
#endif

#endif
