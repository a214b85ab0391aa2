/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_SUPPORT_H
#define BMCOAUTH_SUPPORT_H

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

BMCOAUTH_API char** set_char_array(char** array);
BMCOAUTH_API void free_char_array(void* array);
BMCOAUTH_API void* o2_ff_malloc(size_t size, const char* caller, unsigned int line);
BMCOAUTH_API void* o2_ff_calloc(size_t count, size_t size, const char* caller, unsigned int line);
BMCOAUTH_API void* o2_ff_realloc(void* pointer, size_t size, const char* caller, unsigned int line);
BMCOAUTH_API char* o2_ff_strdup(const char* text, const char* caller, unsigned int line);
BMCOAUTH_API uint64_t get_seconds_from_epoch(time_t time);
BMCOAUTH_API int isDeviceVorn(void);

BMCOAUTH_PLAIN_END

#endif
