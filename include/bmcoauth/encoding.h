/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_ENCODING_H
#define BMCOAUTH_ENCODING_H

#include <bmcoauth/export.h>

BMCOAUTH_PLAIN_BEGIN

BMCOAUTH_API int issueRandomBytesInHex(char* out, int count);
BMCOAUTH_API void issueRandomToken(char** out, unsigned int count);
BMCOAUTH_API int base64encode(const void* data, char** out, int length);
BMCOAUTH_API int base64URIencode(char* text);
BMCOAUTH_API int base64URIdecode(const char* text, char** out, int* length);

BMCOAUTH_PLAIN_END

#endif
