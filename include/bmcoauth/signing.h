/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_SIGNING_H
#define BMCOAUTH_SIGNING_H

#include <bmcoauth/export.h>

#ifdef __cplusplus
#include <openssl/types.h>

#include <string>
#endif

/* The keys with which the token service signs lie on NIST P-256 (prime256v1), always; no function
 * here takes a curve. In memory a private key is its ECPrivateKey structure (RFC 5915, DER) and a
 * public key the uncompressed point (SEC 1, section 2.3.3); a key file holds a PKCS#8 private key
 * in PEM form, not encrypted. */

BMCOAUTH_PLAIN_BEGIN

/** generateECKey makes a key pair.
 *
 *  `*publicKey` and `*privateKey` are either null, and then receive a new buffer each, which the
 *  caller releases with `free` (the private one after wiping it); or they point into a buffer that
 *  is long enough, which receives the bytes while the pointer moves behind the last of them, as the
 *  `i2d_` functions of OpenSSL do it. 65 and 128 bytes are enough. `*publicLength` and
 *  `*privateLength` receive the lengths in bytes.
 *
 *  Returns 0 if an argument is null, the key cannot be made or memory runs out. */
BMCOAUTH_API int generateECKey(unsigned char** publicKey, unsigned char** privateKey,
                               int* publicLength, int* privateLength);

/** generateECPrivateKey makes a private key and writes it to the file `path`.
 *
 *  An existing file is emptied first. The file has mode 0600 before anything is written to it,
 *  whatever mode it had. A symbolic link is followed.
 *
 *  Returns 0 if `path` is null, the key cannot be made or written completely, or the mode of a
 *  file of somebody else cannot be set. The file may then exist and be empty or incomplete. */
BMCOAUTH_API int generateECPrivateKey(const char* path);

/** validateECPrivateKey tells whether the file `path` holds an elliptic-curve private key that is
 *  consistent: the public point lies on the curve and belongs to the private scalar.
 *
 *  Returns 0 also if `path` is null or the file cannot be read. The curve may be any that OpenSSL
 *  knows. */
BMCOAUTH_API int validateECPrivateKey(const char* path);

/** getECPublicKey gives the public point of the private key in the file `path`.
 *
 *  `*publicKey` is null or points into a buffer, exactly as for generateECKey; `*length` receives
 *  the number of bytes.
 *
 *  Returns 0 if an argument is null, the file holds no elliptic-curve private key, or memory runs
 *  out. */
BMCOAUTH_API int getECPublicKey(const char* path, unsigned char** publicKey, int* length);

BMCOAUTH_PLAIN_END

#ifdef __cplusplus

/** getECKeyFromFile reads the private key in the file `path`, which the caller releases with
 *  `EC_KEY_free`. An elliptic-curve key of any other curve that OpenSSL knows is given, too.
 *
 *  Returns null if `path` is null, the file cannot be opened, or it holds no PEM private key, one
 *  of another kind, or an encrypted one: no pass phrase is ever asked for. */
BMCOAUTH_API EC_KEY* getECKeyFromFile(const char* path);

/** signToken signs `signingInput`, of any content and length, with the private key in the
 *  `derLength` bytes at `der`: ECDSA over SHA-256. The DER form of the signature comes back as
 *  Base64url without padding (RFC 4648, section 5), a text to be released with `free`.
 *
 *  NOTE: where `der` is null, a key made for this one call signs. Nobody keeps it, and nothing
 *  will ever verify the signature.
 *
 *  NOTE: JSON Web Signature (RFC 7518, section 3.4) wants the two integers of the signature side by
 *  side instead of the DER structure; tokens of this service have always carried the latter.
 *
 *  Returns null if the key does not decode, is not one of P-256, or memory runs out. */
BMCOAUTH_API char* signToken(const std::string& signingInput, const unsigned char* der,
                             int derLength);

/** verifySignature tells whether the `signatureLength` bytes at `signature`, a signature in DER
 *  form, sign `signingInput` by the key of the private key in the `derLength` bytes at `der`: the
 *  issuer checks its own signatures with the private key, and there is no public one on this path.
 *  The digest is SHA-256, whatever algorithm a token names.
 *
 *  Returns 0 if it does not, a pointer is null, the key does not decode, or memory runs out. */
BMCOAUTH_API int verifySignature(const std::string& signingInput, const unsigned char* signature,
                                 int signatureLength, const unsigned char* der, int derLength);

#endif

#endif
