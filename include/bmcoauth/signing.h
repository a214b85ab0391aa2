/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_SIGNING_H
#define BMCOAUTH_SIGNING_H

#include <bmcoauth/export.h>

#ifdef __cplusplus
#include <openssl/types.h>

#include <string>
#endif

/* The token service's signing keys. They are always on NIST P-256 (prime256v1); no function here
 * takes a curve. In memory, a private key is its ECPrivateKey structure (RFC 5915, DER), and a
 * public key the uncompressed point (SEC 1, section 2.3.3). A key file holds an unencrypted PKCS#8
 * private key in PEM. */

BMCOAUTH_PLAIN_BEGIN

/** generateECKey creates a key pair. 65 bytes are enough for the public key, 128 for the private
 *  one.
 *
 *  | `*publicKey`, `*privateKey` | result |
 *  |---|---|
 *  | null | becomes a new buffer; the caller frees it with `free`, the private one after wiping it |
 *  | points into a buffer that is long enough | receives the bytes; the pointer moves behind the last one, as with OpenSSL's `i2d_` functions |
 *
 *  `*publicLength` and `*privateLength` receive the lengths in bytes. Returns 0 if an argument is
 *  null, the key cannot be made, or memory runs out. */
BMCOAUTH_API int generateECKey(unsigned char** publicKey, unsigned char** privateKey,
                               int* publicLength, int* privateLength);

/** generateECPrivateKey creates a private key and writes it to the file `path`.
 *
 *  An existing file is emptied first. The file gets mode 0600 before anything is written to it,
 *  whatever its mode was. A symbolic link is followed.
 *
 *  Returns 0 if `path` is null, the key cannot be made or written completely, or the mode of
 *  somebody else's file cannot be set. The file may then exist and be empty or incomplete. */
BMCOAUTH_API int generateECPrivateKey(const char* path);

/** validateECPrivateKey returns 1 if the file `path` holds a consistent elliptic-curve private key:
 *  the public point is on the curve and belongs to the private number. The curve may be any that
 *  OpenSSL knows.
 *
 *  Otherwise returns 0, also if `path` is null or the file cannot be read. */
BMCOAUTH_API int validateECPrivateKey(const char* path);

/** getECPublicKey returns the public point of the private key in the file `path`. `*publicKey` is
 *  null or points into a buffer, exactly as for generateECKey. `*length` receives the number of
 *  bytes.
 *
 *  Returns 0 if an argument is null, the file holds no elliptic-curve private key, or memory runs
 *  out. */
BMCOAUTH_API int getECPublicKey(const char* path, unsigned char** publicKey, int* length);

BMCOAUTH_PLAIN_END

#ifdef __cplusplus

/** getECKeyFromFile reads the private key in the file `path`. The caller frees it with
 *  `EC_KEY_free`. The elliptic curve may be any that OpenSSL knows.
 *
 *  Returns null if `path` is null, if the file cannot be opened, or if it holds no PEM private key,
 *  a key of another kind, or an encrypted one. It never asks for a pass phrase. */
BMCOAUTH_API EC_KEY* getECKeyFromFile(const char* path);

/** signToken signs `signingInput`, of any content and length, with a private key: ECDSA with
 *  SHA-256. `der` is the key's structure, `derLength` bytes long. Returns the DER signature as
 *  Base64url without padding (RFC 4648, section 5). The caller frees it with `free`.
 *
 *  NOTE: if `der` is null, a key made for this call signs. Nobody keeps it, and nothing can ever
 *  verify the signature.
 *
 *  NOTE: JSON Web Signature (RFC 7518, section 3.4) uses the two integers of the signature side by
 *  side. The tokens of this service have always had the DER structure instead.
 *
 *  Returns null if the key does not decode or is not on P-256, or if memory runs out. */
BMCOAUTH_API char* signToken(const std::string& signingInput, const unsigned char* der,
                             int derLength);

/** verifySignature returns 1 if `signature`, a DER signature of `signatureLength` bytes, signs
 *  `signingInput` with the private key in the `derLength` bytes at `der`. An issuer checks its own
 *  signatures with its private key, so no public key is needed. The digest is SHA-256, whatever
 *  algorithm a token names.
 *
 *  Otherwise returns 0, also if a pointer is null, the key does not decode, or memory runs out. */
BMCOAUTH_API int verifySignature(const std::string& signingInput, const unsigned char* signature,
                                 int signatureLength, const unsigned char* der, int derLength);

#endif

#endif
