/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_ECIES_H
#define BMCOAUTH_ECIES_H

#include <bmcoauth/export.h>
#include <bmcoauth/handshake_payload.h>

#ifdef __cplusplus
#include <cstddef>
#include <cstdint>
#endif

/* The envelope that protects messages between registered peers.
 *
 * Both sides agree on a secret by ECDH on P-256 between their long-term keys. The secret's SHA-256
 * digest is the key material: 16 bytes for AES-128-CBC (with PKCS#7 padding), then 16 bytes for
 * HMAC-SHA256. An envelope is two standard Base64 texts: the ciphertext, and the MAC of the
 * ciphertext. An IV of 16 bytes travels beside it, written as 32 hexadecimal digits.
 *
 * NOTE: the MAC does not cover the IV. Anybody who can change the IV can change the first 16 bytes
 * of the plaintext without being noticed. Transmit the IV where nobody can change it.
 *
 * The functions wipe and free every key and intermediate text that they make. */

BMCOAUTH_PLAIN_BEGIN

/** ecies_encrypt seals the `length` bytes at `data` for a peer.
 *
 *  | argument | meaning |
 *  |---|---|
 *  | `*peer` | a certificate key; the first "x5c" certificate holds the peer's public key, on P-256 |
 *  | `der` | the local private key on P-256: an ECPrivateKey structure (RFC 5915, DER) of `derLength` bytes |
 *  | `iv` | 32 hexadecimal digits (see generateRandomIV); never use one twice with the same two keys |
 *  | `mac` | receives the Base64 text of the MAC |
 *
 *  A null `iv` stands for 16 zero bytes, but only on a device where isDeviceVorn returns 1.
 *
 *  The sealed text is the data, a line feed unless the data ends with one, and 16 random Base64
 *  characters. If the data ends with a line feed of its own, a zero byte follows. Data above 73,710
 *  bytes makes a text that is too long for ecies_decrypt.
 *
 *  Returns the Base64 text of the ciphertext. The caller frees it and `*mac` with `free`. Returns
 *  null and leaves `*mac` unchanged if:
 *  - a pointer other than `iv` is null, or a length is zero;
 *  - the IV is not 32 characters long. Characters that are not digits are not reported: see
 *    convertHextoBinary;
 *  - the peer's or the local key is missing or not on P-256;
 *  - the random device fails, or memory runs out. */
BMCOAUTH_API char* ecies_encrypt(const char* data, unsigned int length, HandshakePayload** peer,
                                 char** mac, const unsigned char* der, int derLength,
                                 const char* iv);

/** ecies_decrypt opens an envelope of a peer.
 *
 *  | argument | meaning |
 *  |---|---|
 *  | `ciphertext`, `mac` | Base64 in the standard or the URL alphabet, at most 98304 characters each |
 *  | `iv` | the IV that came with them |
 *  | `der`, `derLength`, `*peer` | as for ecies_encrypt, from this side's point of view |
 *  | `length` | receives the plaintext's length, or null (see below) |
 *
 *  Only on a device where isDeviceVorn returns 1, `iv` may be null, which stands for 16 zero bytes,
 *  and `mac` may be null: then nothing protects the text from changes.
 *
 *  Returns a new buffer with the plaintext and one zero byte behind it. The caller frees it with
 *  `free`. The plaintext is the whole sealed text: the data, a line feed and 16 random characters.
 *
 *  If `length` is not null, the plaintext must be a text: it may end with one zero byte, which is
 *  not counted, and must not hold another. If `length` is null, any plaintext is returned, and the
 *  caller must know how long it is.
 *
 *  Returns null and leaves `*length` unchanged if:
 *  - `ciphertext` is null, or one of the two texts is not Base64;
 *  - the IV is not 32 characters long;
 *  - a key is missing or not on P-256;
 *  - the MAC does not match the ciphertext, or the padding is wrong;
 *  - `length` is not null and the plaintext is not a text;
 *  - memory runs out. */
BMCOAUTH_API char* ecies_decrypt(const char* ciphertext, unsigned int* length,
                                 const unsigned char* der, int derLength, const char* mac,
                                 HandshakePayload** peer, const char* iv);

/** generateRandomIV stores 16 bytes of "/dev/urandom" in `*iv`, as a new text of 32 upper-case
 *  hexadecimal digits. The caller frees it with `free`.
 *
 *  Returns 0 and leaves `*iv` unchanged if `iv` is null, the device does not return 16 bytes in one
 *  read, or memory runs out. */
BMCOAUTH_API int generateRandomIV(char** iv);

BMCOAUTH_PLAIN_END

#ifdef __cplusplus

/** ecies_key_derivation derives an envelope's key material from an agreed secret: the SHA-256
 *  digest of the `inputLength` bytes at `input`, written to `output`. It has the type of the
 *  callback of OpenSSL's ECDH_compute_key.
 *
 *  `*outputLength` is the size of `output`, at least 32 bytes. It becomes 32. Returns `output`, or
 *  null in these cases:
 *
 *  | failure | `*outputLength` |
 *  |---|---|
 *  | `output` is too small | unchanged |
 *  | no memory for the digest | 0. NOTE: OpenSSL looks at the length alone and would otherwise use the unwritten buffer as the key |
 */
BMCOAUTH_API void* ecies_key_derivation(const void* input, std::size_t inputLength, void* output,
                                        std::size_t* outputLength);

/** secure_alloc allocates the buffer in which an envelope is put together: one zeroed heap block,
 *  which the caller frees with `free`.
 *
 *  The block begins with the four arguments, in this order, each an unsigned 64-bit number in the
 *  machine's byte order: the lengths in bytes of the key area, the MAC area, the plaintext and the
 *  body area. The key, MAC and body areas follow without gaps. There is no area for the plaintext.
 *
 *  Returns null if the block does not fit into memory. */
BMCOAUTH_API void* secure_alloc(std::uint64_t key, std::uint64_t mac, std::uint64_t plain,
                                std::uint64_t body);

/** secure_mac_length returns the length of the MAC area of `buffer`, which secure_alloc made. */
BMCOAUTH_API std::uint64_t secure_mac_length(const void* buffer);

/** secure_body_length returns the length of the body area of `buffer`, which secure_alloc made. */
BMCOAUTH_API std::uint64_t secure_body_length(const void* buffer);

/** secure_mac_data returns the address of the MAC area in `buffer`, which secure_alloc made. */
BMCOAUTH_API unsigned char* secure_mac_data(void* buffer);

/** secure_body_data returns the address of the body area in `buffer`, which secure_alloc made. */
BMCOAUTH_API unsigned char* secure_body_data(void* buffer);

/** convertHextoBinary converts the first 32 hexadecimal digits of `hex`, upper or lower case, to 16
 *  bytes at `out`. Anything behind them is ignored.
 *
 *  NOTE: characters that are not digits are not reported. Each pair is read as far as `strtol` with
 *  base 16 reads it: "1G" gives 1, "G1" gives 0.
 *
 *  Returns 0 and writes nothing if a pointer is null or the text has fewer than 32 characters. */
BMCOAUTH_API int convertHextoBinary(const char* hex, unsigned char* out);

#endif

#endif
