/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_HANDSHAKE_H
#define BMCOAUTH_HANDSHAKE_H

/* The registration handshake: with a challenge, a server asks a client for proofs of its software
 * identity, and the client gives them in a response.
 *
 * The parameters of a challenge and of a response (names are looked up regardless of case):
 *
 *   "T"  the handshake types in force: "software_id_cert-1.0" asks for a certificate proof, every
 *        other type for a one-time password (HOTP, RFC 4226)
 *   "M"  a decimal number that selects the shared secret: index M modulo the number of secrets
 *   "C"  the HOTP moving factor, decimal
 *   "V"  a random token that the certificate proof signs
 *   "R"  in a response: one proof for each value of "T", in that order
 *   "encrypted_sslcert", "HMAC", "iv"  in a response: see appendSSLCertToResponse
 *
 * A key document is a JSON object, as generateKeyTool makes it. Its member names are handshake
 * types, and its values are arrays of secrets. The characters of a secret are the HOTP key. */

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

/** compareSoftwareCertTag returns whether `type`, which may be null, is exactly the certificate
 *  type "software_id_cert-1.0". Case matters. */
BMCOAUTH_API bool compareSoftwareCertTag(const char* type);

/** genRandHexValue returns a random number below 2^63 from the kernel's random device, or 0 on
 *  failure. A random 0 looks the same: treat 0 as failure. */
BMCOAUTH_API uint64_t genRandHexValue(void);

/** _do_random returns a random 32-bit number from the kernel's random device, or 0 on failure. */
BMCOAUTH_API uint32_t _do_random(void);

/** generateServerHandshakeChallenge creates the server's challenge for a client that supports
 *  `types`, a null-terminated list in any order.
 *
 *  `mode` says which proofs are wanted:
 *
 *    1  the certificate proof: "T" (the certificate type), "V"
 *    2  a one-time password: "T" (one of the other types, drawn at random), "M", "C"
 *    3  both: "T" (a one-time-password type, then the certificate type), "M", "C", "V"
 *
 *  On success stores a new list in `*challenge` and returns 1. The caller frees the list with
 *  `free_handshake_payload`.
 *
 *  Returns 0 if:
 *  - `types` is null or empty, or lacks a type that the mode needs;
 *  - `mode` is another number;
 *  - the random device fails. A failure while choosing the type is not reported: the first type is
 *    used;
 *  - memory runs out. */
BMCOAUTH_API int generateServerHandshakeChallenge(char** types, unsigned int mode,
                                                  HandshakePayload** challenge);

/** generateClientHandshakeChallenge creates the client's challenge: the single parameter "T" with
 *  one one-time-password type of the null-terminated list `types`, drawn at random and repeated
 *  `count` times.
 *
 *  On success stores a new list in `*challenge` and returns 1. The caller frees the list with
 *  `free_handshake_payload`. Returns 0 if `types` is null, has fewer than two entries or only the
 *  certificate type, or if memory runs out.
 *
 *  NOTE: a count of 0 gives "T" without values. create_register_request does not copy such a
 *  challenge: the request then has none.
 *
 *  NOTE: a failure of the random device is not reported: the first type is used. */
BMCOAUTH_API int generateClientHandshakeChallenge(char** types, unsigned int count,
                                                  HandshakePayload** challenge);

/** generateKeyTool creates a key document of random secrets: `keys` members. Each member is named
 *  `prefix`, the number from 1 on, and ".0". Each is an array of `tokens` secrets of `tokenLength`
 *  random bytes, as Base64url without padding (RFC 4648, section 5).
 *
 *  On success stores a new text in `*text` and returns 1. The caller frees the text with `free`.
 *  Returns 0 if `prefix` is null, a member name is longer than 49 characters, `tokenLength` is
 *  negative, the random device fails, or memory runs out. */
BMCOAUTH_API int generateKeyTool(const char* prefix, unsigned int keys, unsigned int tokens,
                                 int tokenLength, char** text);

/** generateHandshakeResponseForChallenge answers a challenge, or checks an answer. Prefer the two
 *  functions that call it: generateHandshakeResponse (`validate` is 0) and
 *  validateHandshakeResponse (any other value).
 *
 *  Returns 1 on success, 0 on failure. */
BMCOAUTH_API int generateHandshakeResponseForChallenge(HandshakePayload* challenge,
                                                       const char* keys, unsigned int keysLength,
                                                       HandshakePayload** certificate,
                                                       HandshakePayload** response,
                                                       const unsigned char* der,
                                                       unsigned int derLength, int validate);

/** generateHandshakeResponse creates the client's answer to `challenge`: "R" with one proof for
 *  each value of the challenge's "T". If the challenge has none of "M", "C" and "V", the function
 *  draws "M" and "C" and puts them before "R".
 *
 *  | argument | meaning | needed |
 *  |---|---|---|
 *  | `keys`, `keysLength` | the key document and its exact length in bytes | unless "T" is only the certificate type |
 *  | `*certificate` | the client's certificate key (with "x5c") | if the challenge has "V" or asks for a certificate proof |
 *  | `der`, `derLength` | the certificate's private key on P-256: an ECPrivateKey structure (RFC 5915, DER) | if `*certificate` is |
 *
 *  A one-time password has 8 digits (HOTP, RFC 4226, without checksum). A certificate proof is a
 *  DER ECDSA signature in Base64url. It signs the SHA-256 digest of the value of "V", ":" and the
 *  certificate's common name.
 *
 *  On success stores a new list in `*response` and returns true. The caller frees the list with
 *  `free_handshake_payload`. Otherwise returns false. */
BMCOAUTH_API bool generateHandshakeResponse(HandshakePayload* challenge, const char* keys,
                                            unsigned int keysLength, HandshakePayload** certificate,
                                            HandshakePayload** response, const unsigned char* der,
                                            unsigned int derLength);

/** validateHandshakeResponse checks the client's answer `response` to `challenge`. The other
 *  arguments are those of generateHandshakeResponse. If the challenge has neither "M" nor "C", they
 *  are taken from the response. A challenge with only one of them is refused. Returns true if the
 *  answer is accepted.
 *
 *  NOTE: a wrong one-time password ends the check with false at once, but a wrong certificate proof
 *  does not: the result is that of the last proof checked. Proofs missing at the end of "R" are not
 *  asked for. If all of several proofs must hold, count the values of "R", and let the certificate
 *  type be the last one, as generateServerHandshakeChallenge does.
 *
 *  NOTE: the certificate chain is not verified here: see validate_x509_jwk. Used values of "C" are
 *  not remembered. */
BMCOAUTH_API bool validateHandshakeResponse(HandshakePayload* challenge, const char* keys,
                                            unsigned int keysLength, HandshakePayload** certificate,
                                            HandshakePayload* response);

/** get_x509_CN returns the common name of the subject of the certificate in the PEM text `pem`, cut
 *  to 24 bytes. The caller frees the text with `free`.
 *
 *  Returns null if `pem` is null or holds no certificate, or if the certificate has no common name.
 */
BMCOAUTH_API char* get_x509_CN(const char* pem);

/** appendSSLCertToResponse appends three parameters to `*response`, or to a new list if that is
 *  null: "encrypted_sslcert" with `certificate`, "HMAC" with `hmac`, and "iv" with `iv` (32
 *  characters). The three texts are those that ecies_encrypt made of a certificate.
 *
 *  On success stores the list, which may have moved, in `*response` and returns 1. Returns 0 if an
 *  argument is null, `iv` is not exactly 32 characters long, or memory runs out.
 *
 *  NOTE: if only the IV is refused, an existing list keeps "encrypted_sslcert" and "HMAC", and
 *  `*response` may have moved. A list that was created here is freed, and `*response` is null. */
BMCOAUTH_API int appendSSLCertToResponse(HandshakePayload** response, const char* certificate,
                                         const char* hmac, const char* iv);

BMCOAUTH_PLAIN_END

#ifdef __cplusplus

/** generateSignedResponseValue signs the SHA-256 digest of `text` with `key` (ECDSA) and verifies
 *  the new signature once. Returns the DER signature as Base64url without padding. The caller frees
 *  the text with `free`.
 *
 *  Returns null if `key` is null or has no private key, or if signing or the check fails. */
BMCOAUTH_API char* generateSignedResponseValue(const std::string& text, EC_KEY* key);

/** verifyHRSignature checks a signature made by generateSignedResponseValue. `signature` is a
 *  Base64 or Base64url text of `signatureLength` bytes. It is converted to Base64url in place.
 *  `key` is the signer's public key.
 *
 *  Returns 1 if the signature is valid, otherwise 0. */
BMCOAUTH_API int verifyHRSignature(const std::string& text, char* signature,
                                   unsigned int signatureLength, EC_KEY* key);

#endif

#endif
