/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_DOCUMENT_H
#define BMCOAUTH_DOCUMENT_H

/* Reading and changing one member of a document that is kept as JSON text (RFC 8259).
 *
 * A document is a text whose root is an object; it may hold comments, and what follows the root is
 * ignored. What `loadJsonDoc` refuses is not a document. Each function parses the text anew: a C++
 * program that reads several members is better served by <bmcoauth/json.h>.
 *
 * The `get_value_*` functions read a member of the document `text` into `*out`. They return 0, with
 * `*out` untouched, if `text` is not a document, has no such member or one of another type, if an
 * argument is null or memory runs out.
 *
 * The functions that change a document take the address of a text that was allocated with `malloc`.
 * On success they release it, store a new text in `*text`, which the caller releases with `free`,
 * and return 1. The new text is compact, without spaces or line feeds, and its members stand in
 * ascending byte order of their names, whatever the old one looked like. They return 0, with
 * `*text` as it was, if `*text` is not a document, if an argument is null that may not be, or if
 * memory runs out while the document is read and changed. NOTE: they end the process with exit
 * status 255 when there is no memory for the new text itself.
 *
 * A document may hold secrets: no copy of its texts stays in freed memory, unless a document with
 * comments or real numbers is written.
 *
 * NOTE: comments survive a change, but no line feed is written after one. A comment that begins
 * with two slashes hides what follows it in the new text. */

#include <bmcoauth/export.h>

#ifndef __cplusplus
#include <stdbool.h>
#endif

BMCOAUTH_PLAIN_BEGIN

/** get_value_char reads the string `key` of the document `text`. `*out` must be null or a text of
 *  the heap, which is released; it receives a new text that the caller releases with `free`, cut
 *  at the first zero byte that the string holds. */
BMCOAUTH_API int get_value_char(const char* text, const char* key, char** out);

/** get_value_chararray reads the array `key` of the document `text`: `*out` receives a new string
 *  array of its strings, in order, which the caller releases with `free_char_array`, or null if
 *  there are none. Elements that are not strings are left out.
 *
 *  NOTE: what `*out` held is overwritten, not released. */
BMCOAUTH_API int get_value_chararray(const char* text, const char* key, char*** out);

/** get_value_objarray reads the array `key` of the document `text` as get_value_chararray does, but
 *  takes its objects, each as compact JSON text, and leaves out what is not an object. */
BMCOAUTH_API int get_value_objarray(const char* text, const char* key, char*** out);

/** get_value_bool reads the Boolean `key` of the document `text` into `*out`. */
BMCOAUTH_API int get_value_bool(const char* text, const char* key, bool* out);

/** get_value_uint reads the number `key` of the document `text` into `*out`. Only an integer from 0
 *  to 4294967295 that is written without fraction and exponent is taken. */
BMCOAUTH_API int get_value_uint(const char* text, const char* key, unsigned int* out);

/** set_value_char sets the member `key` of the document `*text` to the string `value`, whatever it
 *  was before, or removes it if `value` is null. A document that has no such member is rewritten
 *  all the same. Bytes of `value` that are not UTF-8 are written as U+FFFD. */
BMCOAUTH_API int set_value_char(char** text, const char* key, const char* value);

/** set_value_chararray sets the member `key` of the document `*text` to an array of the strings
 *  of the string array `values`, in order; to the empty array if `values` is null. */
BMCOAUTH_API int set_value_chararray(char** text, const char* key, char** values);

/** merge_doc merges the document `other` into the document `*text`.
 *
 *  Each member of `other` that is not an object replaces the member of that name or is added;
 *  arrays are replaced whole. A member that is an object is merged in the same way into an object
 *  of that name. NOTE: where `*text` has something else at that name it stays, and where it has
 *  nothing it ends up with null: {"a":1} merged with {"b":{"c":2}} gives {"a":1,"b":null}. */
BMCOAUTH_API int merge_doc(char** text, const char* other);

BMCOAUTH_PLAIN_END

#endif
