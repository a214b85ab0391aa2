/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_ECIES_H
#define BMCOAUTH_ECIES_H

#include <bmcoauth/export.h>
#include <bmcoauth/handshake_payload.h>

#ifdef __cplusplus
#include <cstddef>
#include <cstdint>
#endif

/* The envelope that protects what is exchanged with a registered peer.
 *
 * Both sides agree on a secret by ECDH on P-256 between their long-term keys. Its SHA-256 digest is
 * the key material: 16 bytes for AES-128-CBC (with PKCS#7 padding), then 16 bytes for HMAC-SHA256.
 * An envelope is two standard Base64 texts, the ciphertext and the MAC of the ciphertext, and
 * travels beside an IV of 16 bytes, written as 32 hexadecimal digits.
 *
 * NOTE: the MAC does not cover the IV. Who can alter the IV can alter the first 16 bytes of the
 * plaintext unnoticed: let the IV travel where it cannot be altered.
 *
 * The functions release and wipe every key and intermediate text that they make. */

BMCOAUTH_PLAIN_BEGIN

/** ecies_encrypt seals the `length` bytes at `data` for a peer.
 *
 *  The peer is a certificate key, `*peer`, whose first "x5c" certificate holds the public key, on
 *  P-256. The local private key is the ECPrivateKey structure (RFC 5915, DER) of `derLength` bytes
 *  at `der`, on P-256 too. `iv` is 32 hexadecimal digits (generateRandomIV makes them) and must
 *  never be used twice with the same two keys; null, on a device where isDeviceVorn gives 1 alone,
 *  stands for 16 zero bytes.
 *
 *  What is sealed is the data, a line feed unless the data ends with one, and 16 random Base64
 *  characters; after data that ends with a line feed of its own, a zero byte follows them. Data
 *  above 73,710 bytes makes a text that ecies_decrypt refuses for its length.
 *
 *  Returns a new text, the Base64 of the ciphertext, and stores another one, the Base64 of the MAC,
 *  in `*mac`; the caller releases both with `free`.
 *
 *  Returns null, with `*mac` untouched, if a pointer other than `iv` is null, a length is zero, the
 *  IV is not 32 characters long, the peer's or the local key is missing or not on P-256, the random
 *  device fails, or memory runs out. Digits of the IV that are none are not reported: see
 *  convertHextoBinary. */
BMCOAUTH_API char* ecies_encrypt(const char* data, unsigned int length, HandshakePayload** peer,
                                 char** mac, const unsigned char* der, int derLength,
                                 const char* iv);

/** ecies_decrypt opens an envelope of a peer: the Base64 `ciphertext` and the Base64 `mac`, each in
 *  the standard or the URL alphabet and at most 98304 characters long, and the `iv` that came with
 *  them. The keys are as in ecies_encrypt, each from this side's point of view.
 *
 *  On a device where isDeviceVorn gives 1, and only there, `iv` may be null, which stands for 16
 *  zero bytes, and `mac` may be null: then nothing protects the text against alteration.
 *
 *  Returns a new buffer that holds the plaintext and one zero byte, which the caller releases with
 *  `free`. The plaintext is the whole sealed text: the data, a line feed and 16 random characters.
 *
 *  With `length`, the plaintext must be a text: it may end with one zero byte, which is not
 *  counted, and must not hold another; `*length` receives its length. Without (null), it is given
 *  as it is, and the caller must know how long it is.
 *
 *  Returns null, with `*length` untouched, if `ciphertext` is null or either text is not Base64,
 *  the IV is not 32 characters long, a key is missing or not on P-256, the MAC is not that of the
 *  ciphertext, the padding is wrong, the plaintext is not a text though its length was asked for,
 *  or memory runs out. */
BMCOAUTH_API char* ecies_decrypt(const char* ciphertext, unsigned int* length,
                                 const unsigned char* der, int derLength, const char* mac,
                                 HandshakePayload** peer, const char* iv);

/** generateRandomIV stores 16 bytes of "/dev/urandom" in `*iv` as a new text of 32 upper-case
 *  hexadecimal digits, which the caller releases with `free`.
 *
 *  Returns 0, with `*iv` untouched, if `iv` is null, the device does not yield 16 bytes in one
 *  read, or memory runs out. */
BMCOAUTH_API int generateRandomIV(char** iv);

BMCOAUTH_PLAIN_END

#ifdef __cplusplus

/** ecies_key_derivation makes the key material of an envelope from an agreed secret: SHA-256 of the
 *  `inputLength` bytes at `input`, written to `output`. Its type is that of the callback of
 *  OpenSSL's ECDH_compute_key.
 *
 *  `*outputLength` is the room at `output`, at least 32 bytes; it becomes 32. Returns `output`.
 *
 *  Returns null if the room is less, with `*outputLength` untouched. It returns null if the digest
 *  cannot be computed for want of memory; NOTE: `*outputLength` becomes 0 then, since OpenSSL goes
 *  by the length alone and would take the unwritten room for the key. */
BMCOAUTH_API void* ecies_key_derivation(const void* input, std::size_t inputLength, void* output,
                                        std::size_t* outputLength);

/** secure_alloc makes the buffer in which an envelope is put together, one zeroed heap block that
 *  the caller releases with `free`.
 *
 *  It begins with the four arguments, in this order, each an unsigned 64-bit number in the
 *  machine's byte order: the lengths in bytes of the key area, the MAC area, the plaintext and the
 *  body area. The key, MAC and body areas follow without gaps; there is none for the plaintext.
 *
 *  Returns null if the whole does not fit into memory. */
BMCOAUTH_API void* secure_alloc(std::uint64_t key, std::uint64_t mac, std::uint64_t plain,
                                std::uint64_t body);

/** secure_mac_length gives the length of the MAC area of `buffer`, which secure_alloc made. */
BMCOAUTH_API std::uint64_t secure_mac_length(const void* buffer);

/** secure_body_length gives the length of the body area of `buffer`, which secure_alloc made. */
BMCOAUTH_API std::uint64_t secure_body_length(const void* buffer);

/** secure_mac_data gives the address of the MAC area inside `buffer`, which secure_alloc made. */
BMCOAUTH_API unsigned char* secure_mac_data(void* buffer);

/** secure_body_data gives the address of the body area inside `buffer`, which secure_alloc made. */
BMCOAUTH_API unsigned char* secure_body_data(void* buffer);

/** convertHextoBinary converts the first 32 hexadecimal digits of `hex`, in either case, to the 16
 *  bytes at `out`. What follows them is not looked at.
 *
 *  NOTE: wrong digits are not reported. Each pair is read as `strtol` with base 16 reads it, as far
 *  as it goes: "1G" gives 1, "G1" gives 0.
 *
 *  Returns 0, with nothing written, if a pointer is null or the text has less than 32 characters.
 */
BMCOAUTH_API int convertHextoBinary(const char* hex, unsigned char* out);

#endif

#endif
