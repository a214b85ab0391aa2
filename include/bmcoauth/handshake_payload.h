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
 *  A pointer to the first parameter stands for the list, a heap array that ends with a parameter
 *  whose name is null. `values` is a heap array of texts that ends with a null pointer. Handshake
 *  messages and certificate keys are such lists; the functions below look a parameter up by its
 *  name without regard to case, and the first one of several counts. */
typedef struct HandshakePayload
{
    char* name;
    char** values;
} HandshakePayload;

BMCOAUTH_PLAIN_BEGIN

/** free_handshake_payload releases a parameter list with all its texts: the list ends at the first
 *  null name, the values of a parameter at the first null value. Null is nothing to do. */
BMCOAUTH_API void free_handshake_payload(HandshakePayload* payload);

/** set_handshake_payload gives a deep copy of `payload`, up to the first parameter whose name or
 *  value array is null. The caller releases it with `free_handshake_payload`.
 *
 *  Returns null if there is no parameter to copy, if one of them has no value, or if memory runs
 *  out. */
BMCOAUTH_API HandshakePayload* set_handshake_payload(const HandshakePayload* payload);

/** getKeyNames gives the member names of the JSON text `text` (RFC 8259), which is `length` bytes
 *  long, without its NUL. `*names` receives a new array of texts that ends with a null pointer,
 *  which the caller releases with `free_char_array`; 1 is returned. The names stand in ascending
 *  byte order.
 *
 *  NOTE: the array is never null. It holds only its end for an object without members, and for a
 *  text whose root is an array, a string, a number or a Boolean.
 *
 *  Returns 0, with `*names` untouched, if an argument is null, `text` is empty, `length` is not its
 *  length, `text` does not parse or is null in JSON, or memory runs out. */
BMCOAUTH_API int getKeyNames(const char* text, unsigned int length, char*** names);

/** write_handshake_payload gives the JSON text of `payload`, up to the first parameter whose name
 *  or value array is null: an object in the form of `json_fastWriter`, with one member for each
 *  parameter. A single value is written as a string, several as an array of strings; a parameter
 *  without values is left out. Of several parameters with one name the last is written.
 *
 *  Returns a new text that the caller releases with `free`, or null if `payload` is null or memory
 *  runs out. A list whose first name is null gives {}. */
BMCOAUTH_API char* write_handshake_payload(HandshakePayload* payload);

/** parse_handshake_payload reads the JSON text `text` (RFC 8259), an object, as a parameter list:
 *  one parameter for each member, in ascending byte order of the names. A string becomes one value,
 *  an array of strings several; a member that is null is left out. A value is cut at its
 *  first zero byte; a member whose name holds one is left out.
 *
 *  NOTE: a number, a Boolean or an empty array becomes a parameter without values, which
 *  `set_handshake_payload` refuses to copy and `write_handshake_payload` leaves out.
 *
 *  Returns a new list that the caller releases with `free_handshake_payload`. Returns null if
 *  `text` is null, does not parse or is not an object, if a member is an object or an array that
 *  holds anything but strings, if no parameter is left, or if memory runs out. */
BMCOAUTH_API HandshakePayload* parse_handshake_payload(const char* text);

#ifdef __cplusplus
/** get_handshake_payload_paramValue sets `value` to the first value of the parameter `name`.
 *
 *  Returns false, with `value` as it was, if there is no such parameter, if it has no value, if
 *  `payload` or `name` is null, or if memory runs out. */
BMCOAUTH_API bool get_handshake_payload_paramValue(HandshakePayload* payload, const char* name,
                                                   std::string& value);
#endif

BMCOAUTH_PLAIN_END

#ifdef __cplusplus
/** getChallengeValue copies the first value of the parameter `name` into `buffer`, which has room
 *  for `size` bytes, the terminating NUL included. A longer value is cut.
 *
 *  Returns false, with `buffer` as it was, if there is no such parameter, if it has no value, if
 *  `size` is 0, or if an argument is null. */
BMCOAUTH_API bool getChallengeValue(HandshakePayload* payload, const char* name, char* buffer,
                                    unsigned int size);

/** getChallengeValueArray gives all values of the parameter `name`: `*values` receives a new string
 *  array that the caller releases with `free_char_array`.
 *
 *  Returns false if there is no such parameter or an argument is null, with `*values` untouched.
 *  NOTE: if the parameter has no values or memory runs out, `*values` becomes null. */
BMCOAUTH_API bool getChallengeValueArray(HandshakePayload* payload, const char* name,
                                         char*** values);

/** create_handshake_types_copy gives a deep copy of the string array `types` and stores the number
 *  of its texts in `*count`. The caller releases it with `free_handshake_types_copy`.
 *
 *  Returns null, with `*count` untouched, if an argument is null, `types` holds only its end, or
 *  memory runs out. */
BMCOAUTH_API char** create_handshake_types_copy(char** types, unsigned int* count);

/** free_handshake_types_copy releases a string array, as `free_char_array` does. */
BMCOAUTH_API void free_handshake_types_copy(char** types);
#endif

#endif
