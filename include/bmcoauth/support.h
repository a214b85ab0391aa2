/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_SUPPORT_H
#define BMCOAUTH_SUPPORT_H

/* String arrays, allocation that never returns null, the clock and the device. */

#include <bmcoauth/export.h>

#ifdef __cplusplus
#include <cstddef>
#include <cstdint>
#include <ctime>
#else
#include <stddef.h>
#include <stdint.h>
#include <time.h>
#endif

BMCOAUTH_PLAIN_BEGIN

/** set_char_array returns a deep copy of the string array `array`. The caller frees it with
 *  `free_char_array`.
 *
 *  Returns null if `array` is null or has no texts, or if memory runs out. */
BMCOAUTH_API char** set_char_array(char** array);

/** free_char_array frees the string array `array`, a `char**`: each text, then the array. Does
 *  nothing if it is null. */
BMCOAUTH_API void free_char_array(void* array);

/** o2_ff_malloc, o2_ff_calloc, o2_ff_realloc and o2_ff_strdup allocate like `malloc`, `calloc`,
 *  `realloc` and `strdup`, but never return null when memory runs out: they end the process at once
 *  with exit status 255, without clean-up and without a message. The caller frees the result with
 *  `free`.
 *
 *  `caller` and `line` name the place of the call. They are not used and may be anything.
 *
 *  NOTE: o2_ff_realloc to size 0 frees `pointer`. If the C library then returns null, the process
 *  ends. */
BMCOAUTH_API void* o2_ff_malloc(size_t size, const char* caller, unsigned int line);

/** o2_ff_calloc: see o2_ff_malloc. */
BMCOAUTH_API void* o2_ff_calloc(size_t count, size_t size, const char* caller, unsigned int line);

/** o2_ff_realloc: see o2_ff_malloc. */
BMCOAUTH_API void* o2_ff_realloc(void* pointer, size_t size, const char* caller, unsigned int line);

/** o2_ff_strdup: see o2_ff_malloc. A null `text` gives null. */
BMCOAUTH_API char* o2_ff_strdup(const char* text, const char* caller, unsigned int line);

/** get_seconds_from_epoch returns the seconds from 1 January 1970, 00:00:00 local time, to `time`,
 *  which is in seconds as `time()` returns it. Returns 0 if `time` is before that.
 *
 *  NOTE: outside UTC, the result differs from `time` by the local zone's offset on 1 January 1970,
 *  for example by 3600 s in Berlin. */
BMCOAUTH_API uint64_t get_seconds_from_epoch(time_t time);

/** isDeviceVorn returns 1 if the marker file /etc/vorn_fw exists, otherwise 0. It looks each time.
 *
 *  On such a device, the development factory root is trusted, and an ECIES envelope may be opened
 *  without an IV or a MAC. */
BMCOAUTH_API int isDeviceVorn(void);

BMCOAUTH_PLAIN_END

#endif
