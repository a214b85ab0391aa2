/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_SUPPORT_H
#define BMCOAUTH_SUPPORT_H

/* String arrays, allocation that cannot fail, the clock and the device. */

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

/** set_char_array gives a deep copy of the string array `array`, which the caller releases with
 *  `free_char_array`.
 *
 *  Returns null if `array` is null or holds only its end, or if memory runs out. */
BMCOAUTH_API char** set_char_array(char** array);

/** free_char_array releases the string array `array`, a `char**`: each text up to the end, then the
 *  array. Null is nothing to do. */
BMCOAUTH_API void free_char_array(void* array);

/** o2_ff_malloc, o2_ff_calloc, o2_ff_realloc and o2_ff_strdup allocate as `malloc`, `calloc`,
 *  `realloc` and `strdup` do, and never return null for exhausted memory: then they end the process
 *  at once with exit status 255, without clean-up and without a message. What they return is
 *  released with `free`.
 *
 *  `caller` and `line` tell where the call stands; they are not used and may be anything.
 *
 *  NOTE: o2_ff_realloc to size 0 releases `pointer` and ends the process where the C library
 *  answers that with null. */
BMCOAUTH_API void* o2_ff_malloc(size_t size, const char* caller, unsigned int line);

/** o2_ff_calloc: see o2_ff_malloc. */
BMCOAUTH_API void* o2_ff_calloc(size_t count, size_t size, const char* caller, unsigned int line);

/** o2_ff_realloc: see o2_ff_malloc. */
BMCOAUTH_API void* o2_ff_realloc(void* pointer, size_t size, const char* caller, unsigned int line);

/** o2_ff_strdup: see o2_ff_malloc. A null `text` gives null. */
BMCOAUTH_API char* o2_ff_strdup(const char* text, const char* caller, unsigned int line);

/** get_seconds_from_epoch gives the seconds from 1 January 1970, 00:00:00 local time, to `time`,
 *  which is in seconds as `time()` gives it; 0 if `time` lies before.
 *
 *  NOTE: outside UTC the result differs from `time` by the offset that the local zone had on
 *  1 January 1970, such as 3600 s in Berlin. */
BMCOAUTH_API uint64_t get_seconds_from_epoch(time_t time);

/** isDeviceVorn tells whether the marker file /etc/vorn_fw exists: 1 or 0, looked up on every call.
 *
 *  On such a device the development factory root is trusted, and an ECIES envelope may be opened
 *  without an IV or MAC. */
BMCOAUTH_API int isDeviceVorn(void);

BMCOAUTH_PLAIN_END

#endif
