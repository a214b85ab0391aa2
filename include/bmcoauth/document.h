/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_DOCUMENT_H
#define BMCOAUTH_DOCUMENT_H

#include <bmcoauth/export.h>

#ifndef __cplusplus
#include <stdbool.h>
#endif

BMCOAUTH_PLAIN_BEGIN

BMCOAUTH_API int get_value_char(const char* text, const char* key, char** out);
BMCOAUTH_API int get_value_chararray(const char* text, const char* key, char*** out);
BMCOAUTH_API int get_value_objarray(const char* text, const char* key, char*** out);
BMCOAUTH_API int get_value_bool(const char* text, const char* key, bool* out);
BMCOAUTH_API int get_value_uint(const char* text, const char* key, unsigned int* out);
BMCOAUTH_API int set_value_char(char** text, const char* key, const char* value);
BMCOAUTH_API int set_value_chararray(char** text, const char* key, char** values);
BMCOAUTH_API int merge_doc(char** text, const char* other);

BMCOAUTH_PLAIN_END

#endif
