/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_JSON_H
#define BMCOAUTH_JSON_H

/* Reading and writing jsoncpp documents. All functions here take C++ types. C programs find most of
 * them, for texts, in <bmcoauth/document.h>.
 *
 * The `json_to_*` functions copy the member `key` of `doc` into `*out` and return 1. They return 0
 * and leave `*out` unchanged if the member is missing, null or of another type, if `key` or `out`
 * is null, or if memory runs out.
 *
 * NOTE: reading a missing member adds it to `doc` with the value null. A document that is written
 * afterwards has that member, and two threads must not read one document at the same time. If `doc`
 * is null, it first becomes an object. If `doc` is neither an object nor null, jsoncpp throws
 * Json::LogicError, which the caller receives. */

#ifdef __cplusplus

#include <bmcoauth/export.h>

#include <json/value.h>

#include <string>

/** json_to_char reads a string. `*out` must be null or a heap text, which is freed. It becomes a
 *  new text, cut at the string's first zero byte. The caller frees it with `free`. */
BMCOAUTH_API int json_to_char(Json::Value& doc, const char* key, char** out);

/** json_to_char_array reads the strings of an array. `*out` becomes a new string array, in the same
 *  order, which the caller frees with `free_char_array`; or null if there are no strings. Elements
 *  of other types are skipped.
 *
 *  NOTE: the old `*out` is overwritten, not freed. */
BMCOAUTH_API int json_to_char_array(Json::Value& doc, const char* key, char*** out);

/** json_to_bool reads a Boolean. */
BMCOAUTH_API int json_to_bool(Json::Value& doc, const char* key, bool* out);

/** json_to_uint reads an integer from 0 to 4294967295. Refuses a number that was written with a
 *  fraction or an exponent, such as 5.0, and a string of digits. */
BMCOAUTH_API int json_to_uint(Json::Value& doc, const char* key, unsigned int* out);

/** json_to_uint64 reads an integer as json_to_uint does. NOTE: although `*out` is wider, an integer
 *  above 4294967295 is refused. */
BMCOAUTH_API int json_to_uint64(Json::Value& doc, const char* key, unsigned long long* out);

/** json_to_obj reads an object as text in the form of json_fastWriter. `*out` must be null or a
 *  heap text, which is freed. It becomes a new text, which the caller frees with `free`. */
BMCOAUTH_API int json_to_obj(Json::Value& doc, const char* key, char** out);

/** json_to_obj_array reads the objects of an array, each as text in the form of json_fastWriter.
 *  Elements of other types are skipped. Otherwise it works like json_to_char_array. */
BMCOAUTH_API int json_to_obj_array(Json::Value& doc, const char* key, char*** out);

/** json_fastWriter returns the compact JSON text of `tree` (RFC 8259). All texts that this library
 *  writes have this form:
 *  - no white space, and no line feed at the end;
 *  - members in ascending byte order of their names; null members as null;
 *  - characters outside ASCII as `\u` escapes, bytes that are not UTF-8 as U+FFFD;
 *  - real numbers with 17 significant digits;
 *  - the comments that `tree` has.
 *
 *  Returns an empty string if memory runs out. */
BMCOAUTH_API std::string json_fastWriter(const Json::Value& tree);

/** loadJsonDoc reads the JSON text `text` into `doc`. Comments are allowed. Of several members with
 *  one name, the last counts. Anything after the root is ignored.
 *
 *  Returns false and leaves `doc` unchanged if `text` is null or does not parse, if its root is not
 *  an object, if it nests deeper than 256 levels (the root is the first), or if memory runs out. */
BMCOAUTH_API bool loadJsonDoc(const char* text, Json::Value& doc);

/** replaceDoc replaces the text `*text`, which may be null, by the text of `tree` in the form of
 *  json_fastWriter: frees the old one and stores a new one, which the caller frees with `free`.
 *
 *  Returns 0 and leaves `*text` unchanged if `text` is null or `tree` cannot be written. NOTE: if
 *  there is no memory for the new text, the process ends with exit status 255. */
BMCOAUTH_API int replaceDoc(char** text, const Json::Value& tree);

/** update merges `source` into `destination`. Does nothing unless both are objects.
 *
 *  | member of `source` | same name in `destination` | result |
 *  |---|---|---|
 *  | not an object | anything, or missing | replaced or added; arrays are replaced whole |
 *  | an object | an object | merged in the same way |
 *  | an object | something else | NOTE: stays as it is |
 *  | an object | missing | NOTE: becomes null |
 *
 *  If memory runs out, `destination` keeps the members merged so far. */
BMCOAUTH_API void update(Json::Value& destination, Json::Value& source);

#endif

#endif
