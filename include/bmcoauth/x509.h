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
 * bare Base64 without PEM markers (RFC 7517, section 4.7). NOTE: names and public keys are taken
 * from the first value, but chainVerify verifies the last one. */

/** bmcoauth_chain_result names the results of chainVerify. */
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
 *  `body`: the begin marker, lines of 64 characters, and the end marker without a line feed. The
 *  caller frees it with `free`.
 *
 *  `body` is not checked. Returns null if it is null or memory runs out. */
BMCOAUTH_API char* recreate_x509_cert(const char* body);

/** decode_x509_jwk returns the PEM text of the first "x5c" value of `certificate`, and stores its
 *  length in bytes in `*length`. The caller frees the text with `free`.
 *
 *  Of several "x5c" parameters the first counts, even if it has no value. A parameter without a
 *  value array ends the search. Returns null if `certificate` is null or has no "x5c" value, or if
 *  memory runs out. NOTE: `*length` is then 0. */
BMCOAUTH_API char* decode_x509_jwk(HandshakePayload* certificate, unsigned int* length);

/** getX509Cert reads the first certificate of the PEM text `pem`. The caller frees it with
 *  `X509_free`.
 *
 *  An encrypted body is refused; the function never asks for a pass phrase. Returns null if `pem`
 *  is null or holds no certificate. */
BMCOAUTH_API X509* getX509Cert(const char* pem);

/** encode_x509_jwk creates a certificate key of the PEM chain `pem` of `length` bytes. "kty" is
 *  "EC", "alg" is "ES-256" (spelled so, unlike in RFC 7518), and "x5c" holds the chain's
 *  certificates in their order. The caller frees it with `free_handshake_payload`.
 *
 *  Each certificate must be readable, and its common name, if it has one, must not be empty. Line
 *  feeds and markers are removed. Anything else before a begin marker, also a carriage return,
 *  stays in the value. A text without an end marker gives an "x5c" without values.
 *
 *  Returns null if `pem` is null or empty, `length` is not its length, a certificate is refused, or
 *  memory runs out. */
BMCOAUTH_API HandshakePayload* encode_x509_jwk(const char* pem, unsigned int length);

/** validate_x509_jwk returns 1 if validateX509 accepts the first "x5c" value of `certificate` with
 *  the name `commonName`, which may be null, and chainVerify verifies the chain. Otherwise returns
 *  0.
 *
 *  NOTE: the name is checked in the first value, the chain for the last one. To check both for one
 *  certificate, pass a key with one value. Both are values of the first "x5c" parameter. A key in
 *  which it is missing or empty is refused. */
BMCOAUTH_API int validate_x509_jwk(HandshakePayload* certificate, const char* commonName);

/** get_EC_pubKey returns the public key of the certificate `pem`, on any elliptic curve. The caller
 *  frees it with `EC_KEY_free`.
 *
 *  The certificate is not verified. Returns null if `pem` is null or holds no certificate, if its
 *  key is not an EC key or not a point of its curve, or if memory runs out. */
BMCOAUTH_API EC_KEY* get_EC_pubKey(const char* pem);

/** get_EC_privKey returns the P-256 key of the `length` bytes at `der`, an ECPrivateKey structure
 *  (RFC 5915). The caller frees it with `EC_KEY_free`.
 *
 *  Returns null if `der` is null, `length` is not positive, the bytes do not decode, or the key is
 *  on another curve or out of its range. */
BMCOAUTH_API EC_KEY* get_EC_privKey(const unsigned char* der, int length);

/** validateKestRootCert returns 0 for every `certificate`. It is kept for services that bind it.
 *  chainVerify verifies chains. */
BMCOAUTH_API int validateKestRootCert(HandshakePayload* certificate);

BMCOAUTH_PLAIN_END

#ifdef __cplusplus

/** removeSubStr removes every occurrence of `substring` from `text`, also those that a removal
 *  creates, and returns `std::string::npos`. A null or empty `substring` removes nothing. */
BMCOAUTH_API std::size_t removeSubStr(std::string& text, const char* substring);

/** validateX509 returns 1 if `pem` holds a readable certificate and the first common name of its
 *  subject is `commonName`, regardless of the case of ASCII letters. Otherwise returns 0.
 *
 *  Only the first 17 bytes of the name are compared, so a longer `commonName` never matches. A name
 *  with a zero byte in its first 17 bytes never matches. If `commonName` is null, a certificate
 *  with any name or none is accepted, but not one with an empty name. */
BMCOAUTH_API int validateX509(const char* pem, const char* commonName);

/** chainVerify verifies the last "x5c" value of `certificate` against the factory roots (RFC 5280,
 *  section 6): "/etc/default/certs/FactorycertProdRoot.pem" and, if isDeviceVorn returns 1,
 *  "/etc/default/certs/FactorycertDevRoot.pem".
 *
 *  The values between the first and the last are the intermediate certificates. The first one is
 *  not used unless it is the only one, and may be anything. NOTE: chains are verified as of 1
 *  January 2035, local time, not as of today.
 *
 *  | result | meaning |
 *  |---|---|
 *  | BMCOAUTH_CHAIN_VERIFIED (1) | the chain verifies |
 *  | BMCOAUTH_CHAIN_REFUSED (0) | it does not; or, whatever `certificate` is, one of the two root files cannot be read |
 *  | BMCOAUTH_CHAIN_FAILED (-1) | `certificate` is null or has no "x5c" value, a value that is used cannot be read, or memory runs out |
 *
 *  Of several "x5c" parameters the first counts, even if it has no value. */
BMCOAUTH_API int chainVerify(HandshakePayload* certificate);

#endif

#endif
