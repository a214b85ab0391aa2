/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_TESTING_H
#define BMCOAUTH_TESTING_H

/* The clock, the random bytes, the factory roots and the device's marker, as a test sets them. A
 * test needs no root, writes nothing to /etc and does not sleep.
 *
 * - These functions are only in libbmcoauth-testing (pkg-config: bmcoauth-testing). It has the code
 *   of libbmcoauth and everything that libbmcoauth exports. Link a test with it instead of
 *   libbmcoauth, and never ship it: a program that was linked with it does not start on a device.
 * - Until something is set, and after bmcoauth_testing_reset, it behaves as libbmcoauth does.
 * - A setting holds for the whole process, from the next call of the library on. Any thread may
 *   call any function here at any time.
 * - OpenSSL is not replaced: keys and ECDSA signatures differ from run to run. */

#include <bmcoauth/export.h>

#ifdef __cplusplus
#include <cstddef>
#include <cstdint>
#else
#include <stddef.h>
#include <stdint.h>
#endif

BMCOAUTH_PLAIN_BEGIN

/** bmcoauth_testing_fill writes `count` bytes to `bytes` in place of the random device. Returns 1,
 *  or 0 to make the device fail.
 *
 *  Only one thread calls it at a time. It must not throw, and must not call the library. */
typedef int (*bmcoauth_testing_fill)(void* context, unsigned char* bytes, size_t count);

/** bmcoauth_testing_set_clock stops the clock at `seconds` since 1 January 1970, 00:00:00 UTC.
 *
 *  Returns 1. Returns 0 and leaves the clock unchanged if the library's `time_t` cannot hold the
 *  value. */
BMCOAUTH_API int bmcoauth_testing_set_clock(int64_t seconds);

/** bmcoauth_testing_set_random takes all bytes of the random device from `fill`, which is called
 *  with `context`. If `fill` is null, takes them from the device again.
 *
 *  The library keeps both. When the function returns, no thread is in an earlier `fill` any more.
 */
BMCOAUTH_API void bmcoauth_testing_set_random(bmcoauth_testing_fill fill, void* context);

/** bmcoauth_testing_set_roots reads the factory roots from the directory `directory`:
 *  FactorycertProdRoot.pem and FactorycertDevRoot.pem, as `bmcoauth pki make` writes them. If it is
 *  null, reads them from the machine's directory again. The text is copied.
 *
 *  Returns 1. Returns 0 and leaves the roots unchanged if the text is empty or longer than PATH_MAX
 *  allows. A directory without the files is accepted: every chain is refused, as on a device
 *  without them. */
BMCOAUTH_API int bmcoauth_testing_set_roots(const char* directory);

/** bmcoauth_testing_set_marker makes the marker of a development device exist, or not exist if
 *  `exists` is 0: see isDeviceVorn. */
BMCOAUTH_API void bmcoauth_testing_set_marker(int exists);

/** bmcoauth_testing_reset takes everything from the machine again. */
BMCOAUTH_API void bmcoauth_testing_reset(void);

BMCOAUTH_PLAIN_END

#endif
