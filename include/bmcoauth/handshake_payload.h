/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_HANDSHAKE_PAYLOAD_H
#define BMCOAUTH_HANDSHAKE_PAYLOAD_H

#include <bmcoauth/export.h>

#ifdef __cplusplus
#include <string>
#else
#include <stdbool.h>
#endif

/** HandshakePayload is one parameter of a parameter list: a name and its values, in order.
 *
 *  A pointer to the first parameter stands for the list. The list is a heap array and ends with a
 *  parameter whose name is null. `values` is a heap array of texts and ends with a null pointer.
 *  Handshake messages and certificate keys are such lists. The functions below look a parameter up
 *  by its name regardless of case. Of several parameters with one name, the first counts. */
typedef struct HandshakePayload
{
    char* name;
    char** values;
} HandshakePayload;

BMCOAUTH_PLAIN_BEGIN

/** free_handshake_payload frees a parameter list and all its texts. The list ends at the first null
 *  name, the values of a parameter at the first null value. Does nothing if `payload` is null. */
BMCOAUTH_API void free_handshake_payload(HandshakePayload* payload);

/** set_handshake_payload returns a deep copy of `payload`, up to the first parameter whose name or
 *  value array is null. The caller frees it with `free_handshake_payload`.
 *
 *  Returns null if there is no parameter to copy, if one of them has no value, or if memory runs
 *  out. */
BMCOAUTH_API HandshakePayload* set_handshake_payload(const HandshakePayload* payload);

/** getKeyNames lists the member names of the JSON text `text` (RFC 8259), in ascending byte order.
 *  `length` is the text's length in bytes, without the terminating zero.
 *
 *  On success stores a new null-terminated array of texts in `*names` and returns 1. The caller
 *  frees it with `free_char_array`. NOTE: the array is never null. It has no names if the object
 *  has no members, or if the root is an array, a string, a number or a Boolean.
 *
 *  Returns 0 and leaves `*names` unchanged if an argument is null, `text` is empty, `length` is not
 *  its length, `text` does not parse or is the JSON null, or memory runs out. */
BMCOAUTH_API int getKeyNames(const char* text, unsigned int length, char*** names);

/** write_handshake_payload returns the JSON text of `payload`, up to the first parameter whose name
 *  or value array is null. The caller frees it with `free`.
 *
 *  The text is an object in the form of `json_fastWriter`:
 *
 *  | parameter | member |
 *  |---|---|
 *  | one value | a string |
 *  | several values | an array of strings |
 *  | no values | none |
 *  | several with one name | that of the last one |
 *
 *  Returns null if `payload` is null or memory runs out. A list whose first name is null gives {}.
 */
BMCOAUTH_API char* write_handshake_payload(HandshakePayload* payload);

/** parse_handshake_payload reads the JSON text `text` (RFC 8259), an object, as a parameter list
 *  with one parameter for each member, in ascending byte order of the names.
 *
 *  | member | parameter |
 *  |---|---|
 *  | a string | one value, cut at its first zero byte |
 *  | an array of strings | several values, each cut at its first zero byte |
 *  | null, or a name that holds a zero byte | none |
 *  | a number, a Boolean or an empty array | NOTE: no values; `set_handshake_payload` refuses to copy it, and `write_handshake_payload` does not write it |
 *  | an object, or any other array | the text is refused |
 *
 *  The caller frees the list with `free_handshake_payload`. Returns null if `text` is null, does
 *  not parse, is not an object, or is refused, if there is no parameter, or if memory runs out. */
BMCOAUTH_API HandshakePayload* parse_handshake_payload(const char* text);

#ifdef __cplusplus
/** get_handshake_payload_paramValue sets `value` to the first value of the parameter `name`.
 *
 *  Returns false and leaves `value` unchanged if there is no such parameter or it has no value, if
 *  `payload` or `name` is null, or if memory runs out. */
BMCOAUTH_API bool get_handshake_payload_paramValue(HandshakePayload* payload, const char* name,
                                                   std::string& value);
#endif

BMCOAUTH_PLAIN_END

#ifdef __cplusplus
/** getChallengeValue copies the first value of the parameter `name` into `buffer`. `size` is the
 *  size of `buffer` in bytes, with room for the terminating zero. A longer value is cut.
 *
 *  Returns false and leaves `buffer` unchanged if there is no such parameter or it has no value, if
 *  `size` is 0, or if an argument is null. */
BMCOAUTH_API bool getChallengeValue(HandshakePayload* payload, const char* name, char* buffer,
                                    unsigned int size);

/** getChallengeValueArray returns all values of the parameter `name`: `*values` becomes a new
 *  string array, which the caller frees with `free_char_array`.
 *
 *  Returns false and leaves `*values` unchanged if there is no such parameter or an argument is
 *  null. NOTE: if the parameter has no values or memory runs out, `*values` becomes null. */
BMCOAUTH_API bool getChallengeValueArray(HandshakePayload* payload, const char* name,
                                         char*** values);

/** create_handshake_types_copy returns a deep copy of the string array `types` and stores the
 *  number of its texts in `*count`. The caller frees it with `free_handshake_types_copy`.
 *
 *  Returns null and leaves `*count` unchanged if an argument is null, `types` has no texts, or
 *  memory runs out. */
BMCOAUTH_API char** create_handshake_types_copy(char** types, unsigned int* count);

/** free_handshake_types_copy frees a string array, as `free_char_array` does. */
BMCOAUTH_API void free_handshake_types_copy(char** types);
#endif

#endif
