/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_ENCODING_H
#define BMCOAUTH_ENCODING_H

#include <bmcoauth/export.h>

BMCOAUTH_PLAIN_BEGIN

/** issueRandomBytesInHex writes `count` bytes of "/dev/urandom" as a hexadecimal number.
 *
 *  `out` receives "0x", two lower-case digits for each byte, and the terminating zero: 3 + 2 *
 *  `count` bytes, at most 35. The largest count is 16. A count of 0 gives "0x".
 *
 *  Returns 0 and writes nothing if `count` is above 16 or the device does not return that many
 *  bytes in one read. NOTE: a negative count ends the process. */
BMCOAUTH_API int issueRandomBytesInHex(char* out, int count);

/** issueRandomToken stores `count` bytes of "/dev/urandom" in `*out` as standard Base64 (RFC 4648,
 *  section 4): a new text of 4 * ceil(`count` / 3) characters in one line. The caller frees it with
 *  `free`.
 *
 *  There is no result. `*out` is unchanged if the device does not return that many bytes in one
 *  read, `count` is above 1610612730 (see base64encode), or memory runs out. Set it to null before
 *  the call to see whether a token was issued. */
BMCOAUTH_API void issueRandomToken(char** out, unsigned int count);

/** base64encode encodes the `length` bytes at `data` as standard Base64 (RFC 4648, section 4), with
 *  padding, in one line. `*out` becomes a new text, which the caller frees with `free`. No bytes
 *  give an empty text.
 *
 *  Returns 0 if `data` is null, if `length` is negative or above 1610612730 (the length of the text
 *  would not fit into an int), or if memory runs out. */
BMCOAUTH_API int base64encode(const void* data, char** out, int length);

/** base64URIencode converts the standard Base64 text `text` to Base64url without padding (RFC 7515,
 *  section 2), in place: "+" becomes "-", "/" becomes "_", and every "=" is removed. All other
 *  bytes stay, so a Base64url text does not change.
 *
 *  Returns 0 only if `text` is null. */
BMCOAUTH_API int base64URIencode(char* text);

/** base64URIdecode decodes the Base64url text `text` (RFC 4648, section 5), at most 98304 bytes
 *  long.
 *
 *  Padding is optional, but where there is some, it must complete the text. Line feeds and the
 *  standard alphabet are accepted. On success, `*out` is a new buffer of `*length` bytes, at least
 *  one, and a zero byte behind them that is not counted. The caller frees it with `free`.
 *
 *  Returns 0 and leaves `*out` unchanged if `text` is null, empty, too long or malformed, or memory
 *  runs out. NOTE: `*length` may be overwritten even then. The unused bits of the last character
 *  are ignored, so several texts decode to the same bytes. */
BMCOAUTH_API int base64URIdecode(const char* text, char** out, int* length);

BMCOAUTH_PLAIN_END

#endif
