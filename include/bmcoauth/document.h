/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_DOCUMENT_H
#define BMCOAUTH_DOCUMENT_H

/* Reading and changing one member of a document that is kept as JSON text (RFC 8259).
 *
 * A document is a text that `loadJsonDoc` accepts. Its root is an object. It may hold comments, and
 * anything after the root is ignored. Each function parses the text anew: a C++ program that reads
 * several members should use <bmcoauth/json.h>.
 *
 * The `get_value_*` functions read a member of the document `text` into `*out`. They return 0 and
 * leave `*out` unchanged if:
 * - `text` is not a document;
 * - the member is missing or has another type;
 * - an argument is null, or memory runs out.
 *
 * The functions that change a document take the address of a text that was allocated with `malloc`.
 * On success they free it, store a new text in `*text` and return 1. The caller frees the new text
 * with `free`. It is compact, without spaces and line feeds, and its members are in ascending byte
 * order of their names. On failure they return 0 and leave `*text` unchanged: `*text` is not a
 * document, a required argument is null, or memory runs out while the document is read and changed.
 * NOTE: if there is no memory for the new text itself, the process ends with exit status 255.
 *
 * A document may hold secrets. The functions leave no copy of its texts in freed memory, unless
 * they write a document with comments or real numbers.
 *
 * NOTE: comments survive a change, but no line feed is written after them. A comment that begins
 * with two slashes hides everything after it in the new text. */

#include <bmcoauth/export.h>

#ifndef __cplusplus
#include <stdbool.h>
#endif

BMCOAUTH_PLAIN_BEGIN

/** get_value_char reads the string `key` of the document `text`. `*out` must be null or a heap
 *  text, which is freed. It becomes a new text, cut at the string's first zero byte. The caller
 *  frees it with `free`. */
BMCOAUTH_API int get_value_char(const char* text, const char* key, char** out);

/** get_value_chararray reads the strings of the array `key` of the document `text`. `*out` becomes
 *  a new string array, in the same order, which the caller frees with `free_char_array`; or null if
 *  there are no strings. Elements of other types are skipped.
 *
 *  NOTE: the old `*out` is overwritten, not freed. */
BMCOAUTH_API int get_value_chararray(const char* text, const char* key, char*** out);

/** get_value_objarray reads the objects of the array `key` of the document `text`, each as compact
 *  JSON text. Elements of other types are skipped. Otherwise it works like get_value_chararray. */
BMCOAUTH_API int get_value_objarray(const char* text, const char* key, char*** out);

/** get_value_bool reads the Boolean `key` of the document `text` into `*out`. */
BMCOAUTH_API int get_value_bool(const char* text, const char* key, bool* out);

/** get_value_uint reads the number `key` of the document `text` into `*out`. It must be an integer
 *  from 0 to 4294967295, written without a fraction and an exponent. */
BMCOAUTH_API int get_value_uint(const char* text, const char* key, unsigned int* out);

/** set_value_char sets the member `key` of the document `*text` to the string `value`, whatever it
 *  was before. If `value` is null, removes the member. The text is written anew even if there was
 *  no such member. Bytes of `value` that are not UTF-8 are written as U+FFFD. */
BMCOAUTH_API int set_value_char(char** text, const char* key, const char* value);

/** set_value_chararray sets the member `key` of the document `*text` to an array of the strings in
 *  the string array `values`, in the same order; to an empty array if `values` is null. */
BMCOAUTH_API int set_value_chararray(char** text, const char* key, char** values);

/** merge_doc merges the document `other` into the document `*text`.
 *
 *  | member of `other` | same name in `*text` | result |
 *  |---|---|---|
 *  | not an object | anything, or missing | replaced or added; arrays are replaced whole |
 *  | an object | an object | merged in the same way |
 *  | an object | something else | NOTE: stays as it is |
 *  | an object | missing | NOTE: becomes null: {"a":1} merged with {"b":{"c":2}} gives {"a":1,"b":null} |
 */
BMCOAUTH_API int merge_doc(char** text, const char* other);

BMCOAUTH_PLAIN_END

#endif
