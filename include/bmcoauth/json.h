/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_JSON_H
#define BMCOAUTH_JSON_H

/* Reading and writing jsoncpp documents. All of it takes C++ types: a C program finds most of it,
 * on texts, in <bmcoauth/document.h>.
 *
 * The `json_to_*` functions copy the member `key` of `doc` into `*out` and return 1. They return
 * 0, with `*out` untouched, if the member is missing, null or of another type, if `key` or `out`
 * is null, or if memory runs out.
 *
 * NOTE: reading a member that is missing adds it to `doc` with the value null, so a document that
 * is written afterwards carries it, and two threads must not read one document at a time. A `doc`
 * that is null becomes an object first. A `doc` that is anything but an object or null makes
 * jsoncpp throw Json::LogicError, which passes to the caller. */

#ifdef __cplusplus

#include <bmcoauth/export.h>

#include <json/value.h>

#include <string>

/** json_to_char reads a string. `*out` must be null or a text of the heap, which is released; it
 *  receives a new text that the caller releases with `free`, cut at the first zero byte that the
 *  string holds. */
BMCOAUTH_API int json_to_char(Json::Value& doc, const char* key, char** out);

/** json_to_char_array reads an array: `*out` receives a new string array of its strings, in order,
 *  which the caller releases with `free_char_array`, or null if there are none. Elements that are
 *  not strings are left out.
 *
 *  NOTE: what `*out` held is overwritten, not released. */
BMCOAUTH_API int json_to_char_array(Json::Value& doc, const char* key, char*** out);

/** json_to_bool reads a Boolean. */
BMCOAUTH_API int json_to_bool(Json::Value& doc, const char* key, bool* out);

/** json_to_uint reads an integer from 0 to 4294967295. A number that was written with a fraction or
 *  an exponent, such as 5.0, and a string of digits are refused. */
BMCOAUTH_API int json_to_uint(Json::Value& doc, const char* key, unsigned int* out);

/** json_to_uint64 reads an integer as json_to_uint does. NOTE: although the target is wider, an
 *  integer beyond 4294967295 is refused. */
BMCOAUTH_API int json_to_uint64(Json::Value& doc, const char* key, unsigned long long* out);

/** json_to_obj reads an object, as text in the form of json_fastWriter. `*out` must be null or a
 *  text of the heap, which is released; it receives a new text that the caller releases with
 *  `free`. */
BMCOAUTH_API int json_to_obj(Json::Value& doc, const char* key, char** out);

/** json_to_obj_array reads an array as json_to_char_array does, but takes its objects, each as
 *  text in the form of json_fastWriter, and leaves out what is not an object. */
BMCOAUTH_API int json_to_obj_array(Json::Value& doc, const char* key, char*** out);

/** json_fastWriter gives the compact JSON text of `tree` (RFC 8259), the form of every text that
 *  this library writes: no whitespace and no line feed at the end, members in ascending byte order
 *  of their names, characters outside ASCII as `\u` escapes, bytes that are not UTF-8 as U+FFFD,
 *  real numbers with 17 significant digits, null members as null, and the comments that `tree`
 *  carries.
 *
 *  Returns an empty string if memory runs out. */
BMCOAUTH_API std::string json_fastWriter(const Json::Value& tree);

/** loadJsonDoc reads the JSON text `text` into `doc`. Comments are allowed, of several members with
 *  one name the last counts, and what follows the root is ignored.
 *
 *  Returns false, with `doc` as it was, if `text` is null or does not parse, if its root is not an
 *  object, if it is nested deeper than 256 levels, of which the root is the first, or if memory runs
 *  out. */
BMCOAUTH_API bool loadJsonDoc(const char* text, Json::Value& doc);

/** replaceDoc replaces the text `*text`, which may be null, by the text of `tree` in the form of
 *  json_fastWriter: releases the old one and stores a new one that the caller releases with `free`.
 *
 *  Returns 0, with `*text` as it was, if `text` is null or `tree` cannot be written. NOTE: ends the
 *  process with exit status 255 when there is no memory for the new text. */
BMCOAUTH_API int replaceDoc(char** text, const Json::Value& tree);

/** update merges `source` into `destination`; nothing happens unless both are objects.
 *
 *  Each member of `source` that is not an object replaces the member of that name in `destination`
 *  or is added; arrays are replaced whole. A member that is an object is merged in the same way
 *  into an object of that name. NOTE: where `destination` has something else at that name it
 *  stays, and where it has nothing it ends up with null.
 *
 *  If memory runs out, `destination` keeps what was merged until then. */
BMCOAUTH_API void update(Json::Value& destination, Json::Value& source);

#endif

#endif
