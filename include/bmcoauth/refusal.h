/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_REFUSAL_H
#define BMCOAUTH_REFUSAL_H

#include <bmcoauth/export.h>

#include <stddef.h>

/* Why the last failed call of a thread failed. As with errno, the answer is meaningful directly
 * after a call that failed, on the thread that made it. A call that succeeds neither reads nor
 * changes it, and threads do not see each other's.
 *
 * Every function names the rule when it fails. If 0 can also be an ordinary result, as with a
 * privilege mask, only a null argument, an unreadable claim and exhausted memory have a rule.
 *
 * A refusal is for logs and tests, never for the peer: a stranger who learns which rule stopped him
 * knows how to get past it. */

/** bmcoauth_rule names every rule that can refuse. The hundreds are the area: 13 is tokens. Numbers
 *  are never reused; new rules get new numbers. */
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
    BMCOAUTH_RULE_ARGUMENT_ZERO_BYTE =
        104,                            /**< C++: a text holds a zero byte, where C would cut it */
    BMCOAUTH_RULE_ARGUMENT_EMPTY = 105, /**< C++: the argument, or the object, holds nothing */
    BMCOAUTH_RULE_ARGUMENT_CONFLICT = 106, /**< C++: two arguments say the same thing */

    /* memory, random, clock: what the machine lacks */
    BMCOAUTH_RULE_MEMORY_EXHAUSTED = 201, /**< memory ran out */
    BMCOAUTH_RULE_RANDOM_DEVICE = 301,    /**< the random device cannot be opened or read */
    BMCOAUTH_RULE_CLOCK_UNREADABLE = 401, /**< the time does not convert to a date */

    /* file: `subject` is the path, or "..." and its end; `saw` is the system's error */
    BMCOAUTH_RULE_FILE_UNREADABLE = 501, /**< a file cannot be opened for reading */
    BMCOAUTH_RULE_FILE_UNWRITABLE = 502, /**< a file cannot be created or written */

    /* json: `subject` is the document or the member */
    BMCOAUTH_RULE_JSON_SYNTAX = 601,         /**< the text is not JSON */
    BMCOAUTH_RULE_JSON_NESTING = 602,        /**< the text nests more than 256 levels */
    BMCOAUTH_RULE_JSON_ROOT = 603,           /**< the root is not an object */
    BMCOAUTH_RULE_JSON_MEMBER_MISSING = 604, /**< the member is absent or null */
    BMCOAUTH_RULE_JSON_MEMBER_TYPE = 605,    /**< the member has another type */

    /* base64 */
    BMCOAUTH_RULE_BASE64_MALFORMED = 701, /**< the text is not Base64, or empty */
    BMCOAUTH_RULE_BASE64_LENGTH = 702,    /**< the text or the data is longer than is converted */

    /* key: private and public keys outside JSON Web Keys */
    BMCOAUTH_RULE_KEY_ENCODING =
        801,                      /**< the bytes, the text or the file do not hold a readable key */
    BMCOAUTH_RULE_KEY_KIND = 802, /**< the key is not an EC key */
    BMCOAUTH_RULE_KEY_CURVE = 803,   /**< the key is on another curve */
    BMCOAUTH_RULE_KEY_RANGE = 804,   /**< the private number is zero or not below the order */
    BMCOAUTH_RULE_KEY_UNSOUND = 805, /**< the parts of the key do not belong together */
    BMCOAUTH_RULE_KEY_POINT = 806,   /**< the public point is not on the curve */

    /* jwk: JSON Web Keys; `subject` is the member */
    BMCOAUTH_RULE_JWK_KIND = 901,   /**< "kty" is not the kind that is read here */
    BMCOAUTH_RULE_JWK_NUMBER = 902, /**< a number of the key is absent */
    BMCOAUTH_RULE_JWK_POINT = 903,  /**< the coordinates are not a point of the curve */
    BMCOAUTH_RULE_JWK_EMPTY = 904,  /**< there is no member that a record can hold */
    BMCOAUTH_RULE_JWK_MEMBER = 905, /**< the record lacks the member */

    /* certificate: `index` is its place in "x5c" */
    BMCOAUTH_RULE_CERTIFICATE_MISSING = 1001,    /**< there is no certificate */
    BMCOAUTH_RULE_CERTIFICATE_ENCODING = 1002,   /**< the text is not a certificate */
    BMCOAUTH_RULE_CERTIFICATE_NAME = 1003,       /**< the common name is another one, or absent */
    BMCOAUTH_RULE_CERTIFICATE_NAME_EMPTY = 1004, /**< the common name is empty */

    /* chain: up to the factory's root */
    BMCOAUTH_RULE_CHAIN_ROOT_MISSING =
        1101, /**< a root file cannot be opened or does not hold a certificate */
    BMCOAUTH_RULE_CHAIN_UNTRUSTED = 1102, /**< no chain leads to a trusted root; `saw` is why */
    BMCOAUTH_RULE_CHAIN_UNSUPPORTED =
        1103, /**< the entry point is kept for old services and accepts nothing */
    BMCOAUTH_RULE_CHAIN_ENDS = 1104, /**< C++: the first certificate is not the last one */

    /* envelope: ECIES */
    BMCOAUTH_RULE_ENVELOPE_IV = 1201,          /**< the IV is absent or not 32 hexadecimal digits */
    BMCOAUTH_RULE_ENVELOPE_MAC_MISSING = 1202, /**< there is no MAC */
    BMCOAUTH_RULE_ENVELOPE_MAC_WRONG = 1203,   /**< the MAC is not that of the ciphertext */
    BMCOAUTH_RULE_ENVELOPE_PADDING = 1204,     /**< the ciphertext does not decrypt */
    BMCOAUTH_RULE_ENVELOPE_TEXT = 1205, /**< the plaintext holds a zero byte, so it is not a text */
    BMCOAUTH_RULE_ENVELOPE_LENGTH = 1206, /**< there is too much to seal or to open */

    /* token: `subject` is the part or the claim, `index` the trusted key */
    BMCOAUTH_RULE_TOKEN_PARTS = 1301,  /**< the text is not three parts between dots */
    BMCOAUTH_RULE_TOKEN_MEMBER = 1302, /**< a header member or claim is absent or not a string */
    BMCOAUTH_RULE_TOKEN_SCOPE = 1303,  /**< "scope" is not an object of arrays of strings */
    BMCOAUTH_RULE_TOKEN_NOT_YET_VALID = 1304,    /**< now is before "nbf" */
    BMCOAUTH_RULE_TOKEN_EXPIRED = 1305,          /**< now is not before "exp" */
    BMCOAUTH_RULE_TOKEN_SIGNATURE = 1306,        /**< the signature is not that of a trusted key */
    BMCOAUTH_RULE_TOKEN_ALGORITHM = 1307,        /**< the algorithm is not one for public keys */
    BMCOAUTH_RULE_TOKEN_KEY_NOT_SELECTED = 1308, /**< no trusted key is meant for this token */
    BMCOAUTH_RULE_TOKEN_KEY_NOT_IMPORTED =
        1309, /**< a trusted key is meant for it, but holds no public key */
    BMCOAUTH_RULE_TOKEN_INCOMPLETE = 1310, /**< the record to be written lacks a text */
    BMCOAUTH_RULE_TOKEN_EXPIRES_NOW =
        1311, /**< a token that is made now would expire this very second */

    /* privileges */
    BMCOAUTH_RULE_PRIVILEGES_CLAIM = 1401, /**< the identity provider claim is not an object */

    /* document: records, and the parameter lists in them; `subject` is the member */
    BMCOAUTH_RULE_DOCUMENT_MEMBER = 1501,     /**< a member is absent or of another type */
    BMCOAUTH_RULE_DOCUMENT_INCOMPLETE = 1502, /**< a record lacks what must be written */
    BMCOAUTH_RULE_DOCUMENT_PARAMETER = 1503,  /**< a member cannot be a parameter */
    BMCOAUTH_RULE_DOCUMENT_PARAMETER_MISSING =
        1504,                            /**< the list lacks the parameter, or it has no value */
    BMCOAUTH_RULE_DOCUMENT_EMPTY = 1505, /**< a list without an entry */

    /* registration: `subject` is the member */
    BMCOAUTH_RULE_REGISTRATION_REDIRECT_URI =
        1601, /**< "redirect_uri" is not an array of strings, or empty */
    BMCOAUTH_RULE_REGISTRATION_CHALLENGE =
        1602, /**< the challenge is not one that this side sends */
    BMCOAUTH_RULE_REGISTRATION_HANDSHAKE_TYPES =
        1603,                                   /**< "handshake_types" is not an array of strings */
    BMCOAUTH_RULE_REGISTRATION_KEYS = 1604,     /**< an entry of a list of keys is not a key */
    BMCOAUTH_RULE_REGISTRATION_LIFETIME = 1605, /**< the expiry is not a number from 0 */
    BMCOAUTH_RULE_REGISTRATION_UNSUPPORTED =
        1606, /**< responses of this form are never given as a record */

    /* authorize */
    BMCOAUTH_RULE_AUTHORIZE_GRANT =
        1701, /**< there is neither a handshake response nor a refresh token */
    BMCOAUTH_RULE_AUTHORIZE_HANDSHAKE = 1702, /**< the handshake response is not a parameter list */
    BMCOAUTH_RULE_AUTHORIZE_POLICY = 1703,    /**< a policy entry is not a string */
    BMCOAUTH_RULE_AUTHORIZE_SCOPE = 1704,     /**< a scope entry lacks its name or its values */

    /* handshake: `index` is the proof, `subject` the type or the parameter */
    BMCOAUTH_RULE_HANDSHAKE_TYPES = 1801, /**< there is no type to choose or to answer */
    BMCOAUTH_RULE_HANDSHAKE_TOKEN = 1802, /**< "V", which a certificate proof signs, is absent */
    BMCOAUTH_RULE_HANDSHAKE_CERTIFICATE = 1803, /**< there is no certificate to prove */
    BMCOAUTH_RULE_HANDSHAKE_COUNTERS = 1804,    /**< "M" or "C" is absent or not a number from 1 */
    BMCOAUTH_RULE_HANDSHAKE_KEYS = 1805,        /**< the key document is absent or empty */
    BMCOAUTH_RULE_HANDSHAKE_SECRET = 1806, /**< the key document holds no secret for the type */
    BMCOAUTH_RULE_HANDSHAKE_PROOF_MISSING = 1807, /**< there are fewer proofs than types, or none */
    BMCOAUTH_RULE_HANDSHAKE_PROOF_WRONG = 1808, /**< the proof is not the one that was asked for */
    BMCOAUTH_RULE_HANDSHAKE_IV = 1810,          /**< the IV of the sealed certificate is absent */

    /* policy: C++ service layer, which keys and tokens are taken; `subject` is the member */
    BMCOAUTH_RULE_POLICY_KEY_UNKNOWN = 2001, /**< "kid" is not that of a key of this issuer */
    BMCOAUTH_RULE_POLICY_KEY_ID = 2002, /**< of several keys, one has no "kid" or that of another */
    BMCOAUTH_RULE_POLICY_KEY_WEAK = 2003, /**< an RSA key has fewer than 2048 bits */
    BMCOAUTH_RULE_POLICY_KEY_UNUSABLE =
        2004, /**< no key of the set is meant for signatures by an expected algorithm */
    BMCOAUTH_RULE_POLICY_ENCODING = 2005,  /**< a part is not plain Base64url of UTF-8 */
    BMCOAUTH_RULE_POLICY_CRITICAL = 2006,  /**< the header has "crit" */
    BMCOAUTH_RULE_POLICY_TYPE = 2007,      /**< "typ" is another one, or absent */
    BMCOAUTH_RULE_POLICY_ALGORITHM = 2008, /**< "alg" is not an algorithm of the key */
    BMCOAUTH_RULE_POLICY_ISSUER = 2009,    /**< "iss" is not an expected issuer */
    BMCOAUTH_RULE_POLICY_AUDIENCE = 2010,  /**< the token is not meant for this audience */
    BMCOAUTH_RULE_POLICY_LIFETIME = 2011,  /**< the token lives longer than allowed */
    BMCOAUTH_RULE_POLICY_REVOKED = 2012,   /**< the token has been revoked */
    BMCOAUTH_RULE_POLICY_SCOPES =
        2013, /**< "scope" is an object, by which the issuer grants rights */

    /* client: C++, what a service decides about a registered client */
    BMCOAUTH_RULE_CLIENT_UNKNOWN = 2101, /**< there is no such client, or it has been removed */
    BMCOAUTH_RULE_CLIENT_SECRET = 2102,  /**< the client's secret is another one, or absent */
    BMCOAUTH_RULE_CLIENT_LOCKED = 2103,  /**< too many proofs have failed of late */
    BMCOAUTH_RULE_CLIENT_CHALLENGE_USED = 2104,    /**< the challenge has been answered before */
    BMCOAUTH_RULE_CLIENT_CHALLENGE_EXPIRED = 2105, /**< the challenge is too old */
    BMCOAUTH_RULE_CLIENT_REFRESH_UNKNOWN = 2106,   /**< the client was never given this token */
    BMCOAUTH_RULE_CLIENT_REFRESH_REUSED =
        2107, /**< the refresh token was used up before; the client is removed */
    BMCOAUTH_RULE_CLIENT_REFRESH_EXPIRED = 2108, /**< the refresh token was not used in time */
    BMCOAUTH_RULE_CLIENT_FAMILY_EXPIRED =
        2109, /**< the registration, with all its refresh tokens, has ended */
    BMCOAUTH_RULE_CLIENT_REDIRECT_URI = 2110,   /**< a redirect URI is not one of those allowed */
    BMCOAUTH_RULE_CLIENT_NOT_AUTHORIZED = 2111, /**< the sender may not ask about tokens */
    BMCOAUTH_RULE_CLIENT_STORE_FAILED = 2112,   /**< the store of clients failed, or was too busy */
};

/** bmcoauth_refusal describes what a call refused. It may grow at its end; `bmcoauth_last_refusal`
 *  takes the size that the program was compiled with.
 *
 *  The texts are printable ASCII. Other bytes are written as "\x00", and a text that was cut ends
 *  with "...". They may hold data that a stranger sent. They never hold a key, a password, a MAC or
 *  a plaintext. A text that does not apply is empty. */
typedef struct bmcoauth_refusal
{
    int rule;         /**< one of `enum bmcoauth_rule` */
    int index;        /**< which key, certificate or proof, from 0; -1 where there is one only */
    char subject[32]; /**< the member, file or parameter that it concerns */
    char saw[96];     /**< what was there */
    char wanted[96];  /**< what should have been there */
} bmcoauth_refusal;

BMCOAUTH_PLAIN_BEGIN

/** bmcoauth_last_refusal copies the last refusal of the calling thread to `refusal`, at most `size`
 *  bytes: pass `sizeof(bmcoauth_refusal)`. If the program's record is newer and longer than the
 *  library's, the rest is set to zero.
 *
 *  Returns 1. Returns 0 and writes nothing if no rule is known, `refusal` is null, or `size` is
 *  below `sizeof(int)`. Does not count as a failed call itself. */
BMCOAUTH_API int bmcoauth_last_refusal(bmcoauth_refusal* refusal, size_t size);

/** bmcoauth_rule_name returns the stable name of `rule`, for example "token.expired": a static text
 *  for logs, metrics and tests. Returns null if the number is not a rule. */
BMCOAUTH_API const char* bmcoauth_rule_name(int rule);

BMCOAUTH_PLAIN_END

#endif
