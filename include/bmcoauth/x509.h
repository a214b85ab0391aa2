/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_X509_H
#define BMCOAUTH_X509_H

#include <bmcoauth/export.h>
#include <bmcoauth/handshake_payload.h>

#include <openssl/types.h>

#ifdef __cplusplus
#include <cstddef>
#include <string>
#endif

/* A certificate key is a parameter list whose "x5c" values are the certificates of a chain, each as
 * bare Base64 without PEM markers (RFC 7517, section 4.7). NOTE: which value speaks for the key's
 * holder depends on the function: names and public keys are taken from the first value, while
 * chainVerify verifies the last one. */

/** bmcoauth_chain_result is what chainVerify returns. */
#ifdef __cplusplus
enum bmcoauth_chain_result : int
#else
enum bmcoauth_chain_result
#endif
{
    BMCOAUTH_CHAIN_FAILED = -1, /**< not judged: no chain, an unreadable value, or memory ran out */
    BMCOAUTH_CHAIN_REFUSED = 0, /**< it does not verify, or a root file cannot be read */
    BMCOAUTH_CHAIN_VERIFIED = 1 /**< it leads to a trusted root */
};

BMCOAUTH_PLAIN_BEGIN

/** recreate_x509_cert returns the PEM text (RFC 7468) of the certificate whose bare Base64 text is
 *  `body`: the begin marker, lines of 64 characters, the end marker, and no line feed after it.
 *
 *  `body` is not checked. Returns null if it is null or memory runs out. */
BMCOAUTH_API char* recreate_x509_cert(const char* body);

/** decode_x509_jwk returns the PEM text of the first "x5c" value of `certificate`, and its length
 *  in bytes in `*length`.
 *
 *  Of several "x5c" parameters the first one counts, even if it holds no value. NOTE: on failure
 *  `*length` is 0. Returns null if `certificate` is null, has no "x5c" value, or memory runs out.
 *  A parameter without value array ends the search. */
BMCOAUTH_API char* decode_x509_jwk(HandshakePayload* certificate, unsigned int* length);

/** getX509Cert reads the first certificate of the PEM text `pem`. The caller releases it with
 *  `X509_free`.
 *
 *  An encrypted body is refused; nothing asks for a pass phrase. Returns null if `pem` is null or
 *  holds no certificate. */
BMCOAUTH_API X509* getX509Cert(const char* pem);

/** encode_x509_jwk makes a certificate key of the PEM chain `pem` of `length` bytes: "kty" is "EC",
 *  "alg" is "ES-256" (this spelling, not that of RFC 7518), and "x5c" holds the chain's
 *  certificates in their order. The caller releases it with `free_handshake_payload`.
 *
 *  Each certificate must be readable, and its common name, if it has one, must not be empty. Line
 *  feeds and markers are taken out; what else stands before a begin marker, carriage returns
 *  included, stays in the value. A text without an end marker gives an "x5c" without values.
 *
 *  Returns null if `pem` is null or empty, `length` is not its length, a certificate is refused, or
 *  memory runs out. */
BMCOAUTH_API HandshakePayload* encode_x509_jwk(const char* pem, unsigned int length);

/** validate_x509_jwk returns 1 if validateX509 accepts the first "x5c" value of `certificate` under
 *  the name `commonName`, which may be null, and chainVerify verifies the chain; otherwise 0.
 *
 *  NOTE: the name is checked on the first value and the chain on the last: a caller that needs both
 *  for one certificate passes a key with one value. Both are values of the first "x5c" parameter; a
 *  key in which it is missing or empty is refused. */
BMCOAUTH_API int validate_x509_jwk(HandshakePayload* certificate, const char* commonName);

/** get_EC_pubKey returns the public key of the certificate `pem`, whatever elliptic curve it is on.
 *  The caller releases it with `EC_KEY_free`.
 *
 *  The certificate is not verified. Returns null if `pem` is null or holds no certificate, if its
 *  key is not an EC key or not a point of its curve, or if memory runs out. */
BMCOAUTH_API EC_KEY* get_EC_pubKey(const char* pem);

/** get_EC_privKey returns the P-256 key of the `length` bytes at `der`, an ECPrivateKey structure
 *  (RFC 5915). The caller releases it with `EC_KEY_free`.
 *
 *  Returns null if `der` is null, `length` is not positive, the bytes do not decode, or the key is
 *  on another curve or out of its range. */
BMCOAUTH_API EC_KEY* get_EC_privKey(const unsigned char* der, int length);

/** validateKestRootCert returns 0 for every `certificate`. The entry point is kept for services
 *  that bind to it; chainVerify verifies. */
BMCOAUTH_API int validateKestRootCert(HandshakePayload* certificate);

BMCOAUTH_PLAIN_END

#ifdef __cplusplus

/** removeSubStr removes every occurrence of `substring` from `text`, those included that a removal
 *  joins together, and returns `std::string::npos`. A null or empty `substring` removes nothing. */
BMCOAUTH_API std::size_t removeSubStr(std::string& text, const char* substring);

/** validateX509 returns 1 if `pem` holds a readable certificate whose subject's first common name
 *  is `commonName` without regard to the case of ASCII letters; otherwise 0.
 *
 *  Only the first 17 bytes of the name are compared, so a longer `commonName` never matches. A name
 *  that holds a zero byte matches no `commonName`, unless the byte lies beyond those 17. With a
 *  null `commonName` every name is accepted, none at all too, but not an empty one. */
BMCOAUTH_API int validateX509(const char* pem, const char* commonName);

/** chainVerify verifies the last "x5c" value of `certificate` against the factory roots
 *  "/etc/default/certs/FactorycertProdRoot.pem" and, where isDeviceVorn returns 1,
 *  "/etc/default/certs/FactorycertDevRoot.pem" (RFC 5280, section 6).
 *
 *  The values between the first and the last are the intermediate certificates; the first itself
 *  takes no part unless it is the only one, and may be anything. NOTE: validity is judged as of
 *  1 January 2035, local time, not as of today.
 *
 *  Returns one of `enum bmcoauth_chain_result`:
 *
 *  | result | meaning |
 *  |---|---|
 *  | BMCOAUTH_CHAIN_VERIFIED (1) | the chain verifies |
 *  | BMCOAUTH_CHAIN_REFUSED (0) | it does not, or, whatever `certificate` is, one of the two root files cannot be read |
 *  | BMCOAUTH_CHAIN_FAILED (-1) | `certificate` is null or has no "x5c" value, a value that takes part cannot be read, or memory runs out |
 *
 *  Of several "x5c" parameters the first one counts, even if it holds no value. */
BMCOAUTH_API int chainVerify(HandshakePayload* certificate);

#endif

#endif
