/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_ENCODING_H
#define BMCOAUTH_ENCODING_H

#include <bmcoauth/export.h>

BMCOAUTH_PLAIN_BEGIN

/** issueRandomBytesInHex writes `count` bytes of "/dev/urandom" as a hexadecimal number.
 *
 *  `out` receives "0x", two lower-case digits for each byte and the terminating zero, 3 + 2 *
 *  `count` bytes in all: 35 for the largest count, 16. A count of 0 yields "0x".
 *
 *  Returns 0, with nothing written, if `count` is above 16 or the device does not yield that many
 *  bytes in one read. NOTE: a negative count ends the process. */
BMCOAUTH_API int issueRandomBytesInHex(char* out, int count);

/** issueRandomToken stores the standard Base64 (RFC 4648, section 4) of `count` bytes of
 *  "/dev/urandom" in `*out`: a new text of 4 * ceil(`count` / 3) characters in one line, which the
 *  caller releases with `free`.
 *
 *  There is no result: `*out` is untouched if the device does not yield that many bytes in one
 *  read, `count` is above 1610612730 (see base64encode), or memory runs out. Set it to null before
 *  the call to see whether a token was issued. */
BMCOAUTH_API void issueRandomToken(char** out, unsigned int count);

/** base64encode encodes the `length` bytes at `data` as standard Base64 (RFC 4648, section 4), with
 *  padding, in one line. `*out` receives the new text, which the caller releases with `free`; that
 *  of no bytes is empty.
 *
 *  Returns 0 if `data` is null, `length` is negative or above 1610612730 (the text would not be
 *  countable in an int), or memory runs out. */
BMCOAUTH_API int base64encode(const void* data, char** out, int length);

/** base64URIencode turns the standard Base64 text `text` into Base64url without padding (RFC 7515,
 *  section 2), in place: "+" becomes "-", "/" becomes "_" and every "=" is dropped. All other bytes
 *  stay, so a text that is Base64url already stays as it is.
 *
 *  Returns 0 only if `text` is null. */
BMCOAUTH_API int base64URIencode(char* text);

/** base64URIdecode decodes the Base64url text `text` (RFC 4648, section 5).
 *
 *  `text` is at most 98304 bytes long. Padding may be missing, but what there is of it must
 *  complete the text; line feeds may occur, and the standard alphabet is accepted too. On success
 *  `*out` is a new buffer of `*length` bytes, at least one, and one zero byte that is not counted,
 *  which the caller releases with `free`.
 *
 *  Returns 0, with `*out` untouched, if `text` is null, empty, too long or malformed, or memory
 *  runs out. NOTE: `*length` may be overwritten even then. The bits that the last character of a
 *  text carries beyond the last byte are ignored, so that several texts decode to the same
 *  bytes. */
BMCOAUTH_API int base64URIdecode(const char* text, char** out, int* length);

BMCOAUTH_PLAIN_END

#endif
