/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_JWK_H
#define BMCOAUTH_JWK_H

#include <bmcoauth/export.h>
#include <bmcoauth/handshake_payload.h>

/** jwk is one member of a JSON Web Key (RFC 7517) held as a record: its name and its text.
 *
 *  A pointer to the first pair stands for the key, a heap array that ends with a pair whose key is
 *  null. A pair with a key and no value is not valid: what copies and frees lists stops at it. Keys
 *  whose members hold several texts, above all a certificate chain ("x5c"), are parameter lists
 *  instead (HandshakePayload), called certificate keys here.
 *
 *  A list of keys of either sort is a heap array of pointers to them that ends with a null pointer;
 *  an empty list is a null pointer. */
typedef struct jwk
{
    char* key;
    char* value;
} jwk;

BMCOAUTH_PLAIN_BEGIN

/** free_jwk releases the key `*record`: every pair up to the end, those without a value too.
 *
 *  `*record` is null afterwards, so that a second call does nothing; neither does a call with a
 *  null `record` or `*record`. */
BMCOAUTH_API void free_jwk(jwk** record);

/** free_jwk_list releases a list of keys; null is nothing to do.
 *
 *  NOTE: of each key only the pairs before the first one without key or value are released. A key
 *  that oauth2_parse_jwk made from a text with members that are not strings does not belong into a
 *  list. */
BMCOAUTH_API void free_jwk_list(jwk** list);

/** set_jwk_list returns a deep copy of `list`, which the caller releases with free_jwk_list.
 *
 *  A key's copy holds the pairs before the first one without key or value. Returns null if `list`
 *  is null or empty, if a key has no such pair, or if memory runs out. */
BMCOAUTH_API jwk** set_jwk_list(jwk** list);

/** free_jwk_certs releases a list of certificate keys; null is nothing to do. */
BMCOAUTH_API void free_jwk_certs(HandshakePayload** list);

/** set_jwk_certs returns a deep copy of `list`, which the caller releases with free_jwk_certs.
 *
 *  A key's copy holds the parameters before the first one without name or value array. Returns null
 *  if `list` is null or empty, if a key has no such parameter, if one of them holds no value, or if
 *  memory runs out. */
BMCOAUTH_API HandshakePayload** set_jwk_certs(HandshakePayload** list);

/** encode_cert_jwk makes a key that holds `length` bytes of `data`: the pairs ("kty", `kty`) and
 *  (`member`, the data in standard Base64 with padding), then ("kid", `kid`) unless `kid` is null.
 *
 *  The caller releases the key with free_jwk. Returns null if `kty`, `member` or `data` is null,
 *  `length` is negative, or the data cannot be encoded. NOTE: where memory for the key itself runs
 *  out, the process ends, as o2_ff_calloc describes. */
BMCOAUTH_API jwk* encode_cert_jwk(const char* kty, const char* kid, const char* member,
                                  const unsigned char* data, int length);

/** encode_dfs_jwk makes the key ("kty", "DFS"), ("dfs", the data in Base64) of a shared secret of
 *  `length` bytes, as encode_cert_jwk does without a key id. */
BMCOAUTH_API jwk* encode_dfs_jwk(const unsigned char* data, int length);

/** jwk_key_value returns the value of the first pair of `record` whose key is exactly `key`.
 *
 *  The text still belongs to `record`; do not free it. Returns null if there is no such pair, if it
 *  has no value, or if an argument is null. */
BMCOAUTH_API char* jwk_key_value(jwk* record, const char* key);

/** decode_dfs_jwk returns the bytes of a key that encode_dfs_jwk made, and their number in
 *  `*length`.
 *
 *  The bytes are followed by one zero byte that is not counted; the caller releases them with
 *  `free`. Only the first two pairs are looked at, and "kty" may be missing. Returns null if `kty`
 *  is there and not "DFS", if "dfs" is not there, or if its text is empty or not Base64 (either
 *  alphabet of RFC 4648, padded or not). */
BMCOAUTH_API unsigned char* decode_dfs_jwk(jwk* record, int* length);

/** createEcPublicKey returns the PEM text of the EC public key with the coordinates `x` and `y`,
 *  Base64url texts of big-endian numbers as in RFC 7518, section 6.2.1, with a line feed at the
 *  end.
 *
 *  `curve` is "P-384" or "P-521" in any case; every other text, and null, stands for P-256. Returns
 *  null if a coordinate is null or does not decode, if the two are not a point of the curve, or if
 *  memory runs out. */
BMCOAUTH_API char* createEcPublicKey(const char* x, const char* y, const char* curve);

/** createRsaPublicKey returns the PEM text of the RSA public key with the modulus `n` and the
 *  exponent `e`, Base64url texts of big-endian numbers as in RFC 7518, section 6.3.1, with a line
 *  feed at the end.
 *
 *  NOTE: the numbers are not judged: any modulus and exponent make a text, usable or not. Returns
 *  null if one of them is null or does not decode, or if memory runs out. */
BMCOAUTH_API char* createRsaPublicKey(const char* n, const char* e);

/** appendPublicKey adds the member "kest_decoded_key" to the JSON Web Key `*text`: its public key
 *  in PEM without the line feed at the end. `*text` is a text of the heap and is replaced by the
 *  compact form of the changed document; without memory for that text the process ends at once.
 *  NOTE: on failure a "kest_decoded_key" that came along stays in it: do not use such a key.
 *  The key is an EC key ("kty" is "EC"; "crv", "x", "y") or an RSA key ("RSA"; "n", "e"), the type
 *  in any case. Returns 0, with `*text` as it was, if it is null or not a JSON object, if its type
 *  is another one, or if createEcPublicKey or createRsaPublicKey makes nothing of its members. */
BMCOAUTH_API int appendPublicKey(char** text);

/** oauth2_parse_jwk makes a record of the JSON Web Key `text`: a pair for each member that is not
 *  an object, in ascending byte order of their names.
 *
 *  The value of a pair is null where the member is not a string; jwk_key_value and free_jwk, by
 *  which the caller releases the record, see the pairs behind it, unlike what works on lists.
 *  Returns null if `text` is null or not a JSON object, or has no such member. NOTE: where memory
 *  for the record runs out, the process ends, as o2_ff_calloc describes. */
BMCOAUTH_API jwk* oauth2_parse_jwk(const char* text);

BMCOAUTH_PLAIN_END

#endif
