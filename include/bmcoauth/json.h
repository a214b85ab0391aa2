/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_JSON_H
#define BMCOAUTH_JSON_H

/* Reading and editing jsoncpp documents. All of it takes C++ types: a C program finds the same on
 * texts in <bmcoauth/document.h>. */

#ifdef __cplusplus

#include <bmcoauth/export.h>

#include <json/value.h>

#include <string>

BMCOAUTH_API int json_to_char(Json::Value& doc, const char* key, char** out);
BMCOAUTH_API int json_to_char_array(Json::Value& doc, const char* key, char*** out);
BMCOAUTH_API int json_to_bool(Json::Value& doc, const char* key, bool* out);
BMCOAUTH_API int json_to_uint(Json::Value& doc, const char* key, unsigned int* out);
BMCOAUTH_API int json_to_uint64(Json::Value& doc, const char* key, unsigned long long* out);
BMCOAUTH_API int json_to_obj(Json::Value& doc, const char* key, char** out);
BMCOAUTH_API int json_to_obj_array(Json::Value& doc, const char* key, char*** out);
BMCOAUTH_API std::string json_fastWriter(const Json::Value& tree);
BMCOAUTH_API bool loadJsonDoc(const char* text, Json::Value& doc);
BMCOAUTH_API int replaceDoc(char** text, const Json::Value& tree);
BMCOAUTH_API void update(Json::Value& destination, Json::Value& source);

#endif

#endif
