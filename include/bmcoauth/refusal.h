/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_REFUSAL_H
#define BMCOAUTH_REFUSAL_H

#include <bmcoauth/export.h>

#include <stddef.h>

/* Why the last failed call of a thread failed. As with errno, the answer means something directly
 * after a call that failed, on the thread that made it: a call that succeeds neither reads nor
 * changes it, and a thread never sees another thread's.
 *
 * A refusal is for logs and for tests, never for the peer: an error document that tells a stranger
 * which rule stopped him helps him past it. */

/** bmcoauth_rule names every rule that can refuse. The hundreds are the area: 13 is tokens. Numbers
 *  are never reused; new rules are added with new numbers. */
#ifdef __cplusplus
enum bmcoauth_rule : int
#else
enum bmcoauth_rule
#endif
{
    /* argument: what the caller passed */
    BMCOAUTH_RULE_ARGUMENT_NULL = 101,   /**< a pointer that must not be null is null */
    BMCOAUTH_RULE_ARGUMENT_LENGTH = 102, /**< a length is negative, too large, or not the text's */
    BMCOAUTH_RULE_ARGUMENT_RANGE = 103,  /**< a number is not one of those that have a meaning */

    /* memory, random, clock: what the machine lacks */
    BMCOAUTH_RULE_MEMORY_EXHAUSTED = 201, /**< memory ran out */
    BMCOAUTH_RULE_RANDOM_DEVICE = 301,    /**< the random device cannot be opened or read */
    BMCOAUTH_RULE_CLOCK_UNREADABLE = 401, /**< the time does not convert to a date */

    /* file: `subject` is the path's end, `saw` the system's error */
    BMCOAUTH_RULE_FILE_UNREADABLE = 501, /**< a file cannot be opened for reading */
    BMCOAUTH_RULE_FILE_UNWRITABLE = 502, /**< a file cannot be created or written */

    /* json: `subject` is the document or the member */
    BMCOAUTH_RULE_JSON_SYNTAX = 601,         /**< the text is not JSON */
    BMCOAUTH_RULE_JSON_NESTING = 602,        /**< the text nests more than 256 levels */
    BMCOAUTH_RULE_JSON_ROOT = 603,           /**< the root is not an object */
    BMCOAUTH_RULE_JSON_MEMBER_MISSING = 604, /**< the member is absent or null */
    BMCOAUTH_RULE_JSON_MEMBER_TYPE = 605,    /**< the member has another type */
    BMCOAUTH_RULE_JSON_UNWRITABLE = 606,     /**< the tree has no text form */

    /* base64 */
    BMCOAUTH_RULE_BASE64_MALFORMED = 701, /**< the text is not Base64, or empty */
    BMCOAUTH_RULE_BASE64_LENGTH = 702,    /**< the text or the data is longer than is converted */

    /* key: private and public keys outside JSON Web Keys */
    BMCOAUTH_RULE_KEY_ENCODING = 801, /**< the bytes or the file do not hold a readable key */
    BMCOAUTH_RULE_KEY_KIND = 802,     /**< the key is not an EC key */
    BMCOAUTH_RULE_KEY_CURVE = 803,    /**< the key is on another curve */
    BMCOAUTH_RULE_KEY_RANGE = 804,    /**< the private number is zero or not below the order */
    BMCOAUTH_RULE_KEY_UNSOUND = 805,  /**< the parts of the key do not belong together */

    /* token: `subject` is the part or the claim */
    BMCOAUTH_RULE_TOKEN_PARTS = 1301,  /**< the text is not three parts between dots */
    BMCOAUTH_RULE_TOKEN_MEMBER = 1302, /**< a header member or claim is absent or no string */
    BMCOAUTH_RULE_TOKEN_SCOPE = 1303,  /**< "scope" is not an object of arrays of strings */
    BMCOAUTH_RULE_TOKEN_NOT_YET_VALID = 1304, /**< now is before "nbf" */
    BMCOAUTH_RULE_TOKEN_EXPIRED = 1305,       /**< now is not before "exp" */
    BMCOAUTH_RULE_TOKEN_SIGNATURE = 1306,     /**< the signature is not that of the key */
};

/** bmcoauth_refusal tells what a call refused. It may grow at its end; `bmcoauth_last_refusal` takes
 *  the size that the program was compiled with.
 *
 *  The texts are printable ASCII: other bytes stand as "\x00", and a text that was cut ends with
 *  "...". They may hold what a stranger sent; they never hold a key, a password, a MAC or a
 *  plaintext. A text that does not apply is empty. */
typedef struct bmcoauth_refusal
{
    int rule;         /**< one of `enum bmcoauth_rule` */
    int index;        /**< which key, certificate or proof, from 0; -1 where there is one only */
    char subject[32]; /**< the member, file or parameter that it concerns */
    char saw[96];     /**< what was there */
    char wanted[96];  /**< what should have been there */
} bmcoauth_refusal;

BMCOAUTH_PLAIN_BEGIN

/** bmcoauth_last_refusal copies the last refusal of the calling thread to `refusal`, `size` bytes of
 *  it at most: pass `sizeof(bmcoauth_refusal)`. What a newer program's record has beyond the
 *  library's is set to zero.
 *
 *  Returns 1, or 0 if nothing has been refused on this thread yet, or if `refusal` is null or `size`
 *  is below `sizeof(int)`; then nothing is written. Does not count as a failed call itself. */
BMCOAUTH_API int bmcoauth_last_refusal(bmcoauth_refusal* refusal, size_t size);

/** bmcoauth_rule_name returns the stable name of `rule`, "token.expired" for instance: a static
 *  text, for logs, metrics and tests. Returns null for a number that is not a rule. */
BMCOAUTH_API const char* bmcoauth_rule_name(int rule);

BMCOAUTH_PLAIN_END

#endif
