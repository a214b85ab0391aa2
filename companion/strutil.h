/* SPDX-License-Identifier: Apache-2.0 */
#ifndef STRUTIL_H
#define STRUTIL_H

/* The device's string library, as far as bmcoauth calls it. All texts and arrays are of the C
 * heap; an array of texts ends with a null pointer. */

#if defined(__GNUC__)
#define STRUTIL_API __attribute__((visibility("default")))
#else
#define STRUTIL_API
#endif

#ifdef __cplusplus
extern "C"
{
#endif

    /** copyReplace stores a fresh copy of `text` in `*destination` and releases what was there,
     *  which may be null. A null `text` releases and stores null; so does exhausted memory. */
    STRUTIL_API void copyReplace(char** destination, const char* text);

    /** copyAppendArray appends a copy of `text` to the array `*array`, which may be null and which
     *  ends with a null pointer at every moment. A null `text` appends nothing. When memory runs
     *  out the array stays as it is. */
    STRUTIL_API void copyAppendArray(char*** array, const char* text);

    /** freeStrArray releases every text of `*array`, which may be null, and the array, and stores
     *  null. */
    STRUTIL_API void freeStrArray(char*** array);

    /** splitString gives a new array of the pieces of `text` between occurrences of `separator`,
     *  without the empty ones; the whole text where `separator` is empty. The caller releases it
     *  with `freeStrArray`. Null when no piece is left, an argument is null or memory runs out. */
    STRUTIL_API char** splitString(const char* text, const char* separator);

    /** cleanPrint prepares `text`, in place, for being parsed. This library leaves it as it is. */
    STRUTIL_API void cleanPrint(char* text);

#ifdef __cplusplus
}
#endif

#endif
