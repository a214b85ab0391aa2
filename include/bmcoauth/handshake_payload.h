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
 *  whose name is null. `values` ends with a null pointer. Handshake messages and certificate keys
 *  are such lists. */
typedef struct HandshakePayload
{
    char* name;
    char** values;
} HandshakePayload;

BMCOAUTH_PLAIN_BEGIN

BMCOAUTH_API void free_handshake_payload(HandshakePayload* payload);
BMCOAUTH_API HandshakePayload* set_handshake_payload(const HandshakePayload* payload);
BMCOAUTH_API int getKeyNames(const char* text, unsigned int length, char*** names);
BMCOAUTH_API char* write_handshake_payload(HandshakePayload* payload);
BMCOAUTH_API HandshakePayload* parse_handshake_payload(const char* text);
#ifdef __cplusplus
BMCOAUTH_API bool get_handshake_payload_paramValue(HandshakePayload* payload, const char* name,
                                                   std::string& value);
#endif

BMCOAUTH_PLAIN_END

#ifdef __cplusplus
BMCOAUTH_API bool getChallengeValue(HandshakePayload* payload, const char* name, char* buffer,
                                    unsigned int size);
BMCOAUTH_API bool getChallengeValueArray(HandshakePayload* payload, const char* name,
                                         char*** values);
BMCOAUTH_API char** create_handshake_types_copy(char** types, unsigned int* count);
BMCOAUTH_API void free_handshake_types_copy(char** types);
#endif

#endif
