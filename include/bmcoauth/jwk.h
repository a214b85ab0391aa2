/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_JWK_H
#define BMCOAUTH_JWK_H

#include <bmcoauth/export.h>
#include <bmcoauth/handshake_payload.h>

/** jwk is one member of a JSON Web Key (RFC 7517) kept as a record: its name and its text.
 *
 *  A pointer to the first pair stands for the key. The key is a heap array and ends with a pair
 *  whose `key` is null. A pair with a key and no value is not valid: functions that copy and free
 *  lists stop at it. Keys whose members have several texts, such as a certificate chain ("x5c"),
 *  are parameter lists instead (HandshakePayload). They are called certificate keys here.
 *
 *  A list of keys of either kind is a null-terminated heap array of pointers to them. An empty list
 *  is a null pointer. */
typedef struct jwk
{
    char* key;
    char* value;
} jwk;

BMCOAUTH_PLAIN_BEGIN

/** free_jwk frees the key `*record`: every pair up to the end, also those without a value. Sets
 *  `*record` to null, so a second call does nothing. Does nothing if `record` or `*record` is null.
 */
BMCOAUTH_API void free_jwk(jwk** record);

/** free_jwk_list frees a list of keys. Does nothing if it is null.
 *
 *  NOTE: of each key, only the pairs before the first one without a key or a value are freed. Do
 *  not put a key into a list if oauth2_parse_jwk made it from a text with members that are not
 *  strings. */
BMCOAUTH_API void free_jwk_list(jwk** list);

/** set_jwk_list returns a deep copy of `list`. The caller frees it with free_jwk_list.
 *
 *  The copy of a key has the pairs before the first one without a key or a value. Returns null if
 *  `list` is null or empty, if a key has no such pair, or if memory runs out. */
BMCOAUTH_API jwk** set_jwk_list(jwk** list);

/** free_jwk_certs frees a list of certificate keys. Does nothing if it is null. */
BMCOAUTH_API void free_jwk_certs(HandshakePayload** list);

/** set_jwk_certs returns a deep copy of `list`. The caller frees it with free_jwk_certs.
 *
 *  The copy of a key has the parameters before the first one without a name or a value array.
 *  Returns null if `list` is null or empty, if a key has no such parameter, if one of these has no
 *  value, or if memory runs out. */
BMCOAUTH_API HandshakePayload** set_jwk_certs(HandshakePayload** list);

/** encode_cert_jwk creates a key for the `length` bytes of `data`. Its pairs are ("kty", `kty`),
 *  (`member`, the data in standard Base64 with padding) and, unless `kid` is null, ("kid", `kid`).
 *
 *  The caller frees the key with free_jwk. Returns null if `kty`, `member` or `data` is null,
 *  `length` is negative, or the data cannot be encoded. NOTE: if memory for the key itself runs
 *  out, the process ends, as o2_ff_calloc describes. */
BMCOAUTH_API jwk* encode_cert_jwk(const char* kty, const char* kid, const char* member,
                                  const unsigned char* data, int length);

/** encode_dfs_jwk creates the key of a shared secret of `length` bytes: the pairs ("kty", "DFS")
 *  and ("dfs", the data in Base64). Otherwise it works like encode_cert_jwk without a key id. */
BMCOAUTH_API jwk* encode_dfs_jwk(const unsigned char* data, int length);

/** jwk_key_value returns the value of the first pair of `record` whose key is exactly `key`.
 *
 *  The text still belongs to `record`: do not free it. Returns null if there is no such pair, if it
 *  has no value, or if an argument is null. */
BMCOAUTH_API char* jwk_key_value(jwk* record, const char* key);

/** decode_dfs_jwk returns the bytes of a key that encode_dfs_jwk made, and stores their number in
 *  `*length`. A zero byte that is not counted follows them. The caller frees them with `free`.
 *
 *  Only the first two pairs are read, and "kty" may be missing. Returns null if "kty" is not "DFS",
 *  if "dfs" is missing, or if its text is empty or not Base64 (either alphabet of RFC 4648, padded
 *  or not). */
BMCOAUTH_API unsigned char* decode_dfs_jwk(jwk* record, int* length);

/** createEcPublicKey returns the PEM text of the EC public key with the coordinates `x` and `y`,
 *  with a line feed at the end. The coordinates are Base64url texts of big-endian numbers (RFC
 *  7518, section 6.2.1). The caller frees the text with `free`.
 *
 *  `curve` is "P-384" or "P-521", regardless of case. Any other text, or null, stands for P-256.
 *  Returns null if a coordinate is null or does not decode, if the two are not a point of the
 *  curve, or if memory runs out. */
BMCOAUTH_API char* createEcPublicKey(const char* x, const char* y, const char* curve);

/** createRsaPublicKey returns the PEM text of the RSA public key with the modulus `n` and the
 *  exponent `e`, with a line feed at the end. The numbers are Base64url texts of big-endian numbers
 *  (RFC 7518, section 6.3.1). The caller frees the text with `free`.
 *
 *  NOTE: any modulus and exponent are accepted, usable or not. Returns null if one of them is null
 *  or does not decode, or if memory runs out. */
BMCOAUTH_API char* createRsaPublicKey(const char* n, const char* e);

/** appendPublicKey adds the member "kest_decoded_key" to the JSON Web Key `*text`: its public key
 *  in PEM, without the line feed at the end.
 *
 *  | "kty", regardless of case | members read | made by |
 *  |---|---|---|
 *  | "EC" | "crv", "x", "y" | createEcPublicKey |
 *  | "RSA" | "n", "e" | createRsaPublicKey |
 *
 *  `*text` is a heap text. It is replaced by the compact form of the changed document. NOTE:
 *  without memory for that text, the process ends at once.
 *
 *  Returns 0 and leaves `*text` unchanged if it is null or not a JSON object, if "kty" is another
 *  one, or if its members do not make a key. NOTE: a "kest_decoded_key" that the text already had
 *  stays in it on failure: do not use such a key. */
BMCOAUTH_API int appendPublicKey(char** text);

/** oauth2_parse_jwk creates a record of the JSON Web Key `text`: a pair for each member that is not
 *  an object, in ascending byte order of the names. The caller frees it with free_jwk.
 *
 *  The value of a pair is null if the member is not a string. jwk_key_value and free_jwk see the
 *  pairs behind such a pair; functions that work on lists do not.
 *
 *  Returns null if `text` is null or not a JSON object, or has no such member. NOTE: if memory for
 *  the record runs out, the process ends, as o2_ff_calloc describes. */
BMCOAUTH_API jwk* oauth2_parse_jwk(const char* text);

BMCOAUTH_PLAIN_END

#endif
