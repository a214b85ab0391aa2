/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_HANDSHAKE_H
#define BMCOAUTH_HANDSHAKE_H

/* The registration handshake: a server asks a client for proofs of its software identity with a
 * challenge, and the client gives them in a response.
 *
 * The parameters of a challenge and of a response (names are looked up without regard to case):
 *
 *   "T"  the handshake types in force; "software_id_cert-1.0" asks for a certificate proof, every
 *        other type for a one-time password (HOTP, RFC 4226)
 *   "M"  decimal number that selects the shared secret: index M modulo the number of secrets
 *   "C"  decimal HOTP moving factor
 *   "V"  random token that the certificate proof signs
 *   "R"  in a response: one proof for each value of "T", in that order
 *   "encrypted_sslcert", "HMAC", "iv"  in a response: see appendSSLCertToResponse
 *
 * A key document is a JSON object whose member names are handshake types and whose values are
 * arrays of secrets, as generateKeyTool makes it. The characters of a secret are the HOTP key. */

#include <bmcoauth/export.h>
#include <bmcoauth/handshake_payload.h>

#include <openssl/types.h>

#ifdef __cplusplus
#include <cstdint>
#include <string>
#else
#include <stdbool.h>
#include <stdint.h>
#endif

BMCOAUTH_PLAIN_BEGIN

/** compareSoftwareCertTag says whether `type`, which may be null, is exactly the certificate type
 *  "software_id_cert-1.0"; case matters. */
BMCOAUTH_API bool compareSoftwareCertTag(const char* type);

/** genRandHexValue draws a random number below 2^63 from the kernel's random device. Returns 0 on
 *  failure, which a drawn 0 cannot be told from: treat 0 as failure. */
BMCOAUTH_API uint64_t genRandHexValue(void);

/** _do_random draws a random 32-bit number from the kernel's random device; 0 on failure. */
BMCOAUTH_API uint32_t _do_random(void);

/** generateServerHandshakeChallenge makes the server's challenge for a client that supports
 *  `types`, a null-ended list in any order.
 *
 *  `mode` says which proofs are asked for:
 *
 *    1  the certificate proof: "T" (the certificate type), "V"
 *    2  a one-time password: "T" (one of the other types, drawn at random), "M", "C"
 *    3  both: "T" (a one-time-password type, then the certificate type), "M", "C", "V"
 *
 *  On success stores a new list in `*challenge`, which the caller releases with
 *  `free_handshake_payload`, and returns 1. Returns 0 when `types` is null or empty or lacks a
 *  type that the mode needs, for any other mode, when memory runs out, and when the random device
 *  fails, but for the draw of the type: a failure there draws the first one. */
BMCOAUTH_API int generateServerHandshakeChallenge(char** types, unsigned int mode,
                                                  HandshakePayload** challenge);

/** generateClientHandshakeChallenge makes the client's challenge: the single parameter "T" with
 *  one one-time-password type of the null-ended list `types`, drawn at random, repeated `count`
 *  times. NOTE: a count of 0 gives "T" without values, a challenge that create_register_request
 *  does not copy: the request then has none.
 *
 *  On success stores a new list in `*challenge`, which the caller releases with
 *  `free_handshake_payload`, and returns 1. Returns 0 when `types` is null, holds fewer than two
 *  entries or only the certificate type, and when memory runs out.
 *
 *  NOTE: a failing random device is not reported: it draws the first type. */
BMCOAUTH_API int generateClientHandshakeChallenge(char** types, unsigned int count,
                                                  HandshakePayload** challenge);

/** generateKeyTool makes a key document of random secrets: `keys` members named `prefix`, the
 *  number from 1 on and ".0", each an array of `tokens` secrets of `tokenLength` random bytes as
 *  Base64url without padding (RFC 4648, section 5).
 *
 *  On success stores a new text in `*text`, which the caller releases with `free`, and returns 1.
 *  Returns 0 when `prefix` is null, a member name is longer than 49 characters, `tokenLength` is
 *  negative, the random device fails or memory runs out. */
BMCOAUTH_API int generateKeyTool(const char* prefix, unsigned int keys, unsigned int tokens,
                                 int tokenLength, char** text);

/** generateHandshakeResponseForChallenge answers a challenge or checks an answer: it is what
 *  generateHandshakeResponse (`validate` is 0) and validateHandshakeResponse (any other value)
 *  run. Prefer those.
 *
 *  Returns 1 on success, 0 on failure. */
BMCOAUTH_API int generateHandshakeResponseForChallenge(HandshakePayload* challenge,
                                                       const char* keys, unsigned int keysLength,
                                                       HandshakePayload** certificate,
                                                       HandshakePayload** response,
                                                       const unsigned char* der,
                                                       unsigned int derLength, int validate);

/** generateHandshakeResponse gives the client's answer to `challenge`: "R" with one proof for each
 *  value of the challenge's "T", after "M" and "C", drawn here, when the challenge carries neither
 *  these nor "V".
 *
 *  `keys` is the key document, `keysLength` its exact length in bytes; neither is looked at when
 *  "T" is the certificate type alone. `*certificate` is the client's certificate key (with "x5c")
 *  and `der` its private key, an ECPrivateKey structure on P-256 (RFC 5915, DER) of `derLength`
 *  bytes; both are needed only where the challenge carries "V" or a proof asks for them.
 *
 *  The one-time password has 8 digits (HOTP, RFC 4226, without checksum). The certificate proof is
 *  the Base64url text of the DER ECDSA signature over the SHA-256 digest of the value of "V", ":"
 *  and the certificate's common name.
 *
 *  On success stores a new list in `*response`, which the caller releases with
 *  `free_handshake_payload`, and returns true. Returns false otherwise. */
BMCOAUTH_API bool generateHandshakeResponse(HandshakePayload* challenge, const char* keys,
                                            unsigned int keysLength, HandshakePayload** certificate,
                                            HandshakePayload** response, const unsigned char* der,
                                            unsigned int derLength);

/** validateHandshakeResponse checks the client's answer `response` to `challenge`; the other
 *  arguments are those of generateHandshakeResponse. "M" and "C" are taken from the response where
 *  the challenge carries neither; a challenge with one of them alone is refused. Returns true if the
 *  answer is accepted.
 *
 *  NOTE: a wrong one-time password ends the check with false at once, but a certificate proof does
 *  not: the result is that of the last proof checked, and proofs missing at the end of "R" are not
 *  asked for. Where several proofs must all hold, count the values of "R" and let the certificate
 *  type stand last, as generateServerHandshakeChallenge does. The certificate chain is not
 *  verified here: see validate_x509_jwk. Nothing remembers used values of "C". */
BMCOAUTH_API bool validateHandshakeResponse(HandshakePayload* challenge, const char* keys,
                                            unsigned int keysLength, HandshakePayload** certificate,
                                            HandshakePayload* response);

/** get_x509_CN gives the subject's common name of the certificate in the PEM text `pem`, cut to 24
 *  bytes, as a new text that the caller releases with `free`. Returns null when `pem` is null or
 *  holds no certificate, or the certificate has no common name. */
BMCOAUTH_API char* get_x509_CN(const char* pem);

/** appendSSLCertToResponse appends "encrypted_sslcert" with `certificate`, "HMAC" with `hmac` and
 *  "iv" with `iv` (32 characters) to `*response`, or to a new list when that is null. The three
 *  texts are what ecies_encrypt made of a certificate.
 *
 *  On success stores the list, which may have moved, in `*response` and returns 1. Returns 0 when
 *  an argument is null, `iv` is not exactly 32 characters long or memory runs out.
 *
 *  NOTE: when only the IV is refused, an existing list keeps "encrypted_sslcert" and "HMAC", and
 *  `*response` may have moved even then; a list that was made here is released, and `*response` is
 *  null. */
BMCOAUTH_API int appendSSLCertToResponse(HandshakePayload** response, const char* certificate,
                                         const char* hmac, const char* iv);

BMCOAUTH_PLAIN_END

#ifdef __cplusplus

/** generateSignedResponseValue signs the SHA-256 digest of `text` with `key` (ECDSA) and verifies
 *  the fresh signature once. Returns the DER signature as Base64url without padding, a new text
 *  that the caller releases with `free`; null when `key` is null or holds no private key, or
 *  signing or the self-check fails. */
BMCOAUTH_API char* generateSignedResponseValue(const std::string& text, EC_KEY* key);

/** verifyHRSignature checks a signature made by generateSignedResponseValue: `signature` is a
 *  Base64 or Base64url text of `signatureLength` bytes, which is converted to Base64url in place,
 *  `key` the signer's public key. Returns 1 for a valid signature, else 0. */
BMCOAUTH_API int verifyHRSignature(const std::string& text, char* signature,
                                   unsigned int signatureLength, EC_KEY* key);

#endif

#endif
