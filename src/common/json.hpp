// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/owners.hpp"
#include "common/secret.hpp"
#include "common/string_array.hpp"

#include <json/value.h>

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bmcoauth::internal
{

/** Reads @p text into @p tree with jsoncpp's default settings; false, with @p tree as it was and the
 *  rule noted, when it does not parse or is nested deeper than 256 levels, of which the root is the
 *  first. Throws std::bad_alloc.
 *
 *  The one place where a text is parsed: jsoncpp throws for deep nesting instead of reporting a
 *  failure, and that is a failure to parse here. */
[[nodiscard]] bool parseJson(std::string_view text, Json::Value& tree);

/** As parseJson, and true only when the root is an object. */
[[nodiscard]] bool parseJsonObject(std::string_view text, Json::Value& tree);

/** As parseJsonObject, for a text with secrets: leaves no copy of its strings behind but those in
 *  @p tree. What its comments say is not taken for a secret. */
[[nodiscard]] bool parseSecretObject(std::string_view text, SecretTree& tree);

/** The compact text form of @p tree: no whitespace, members in ascending byte order of their
 *  names. Throws std::bad_alloc. */
[[nodiscard]] SecretString jsonText(const Json::Value& tree);

/** The text form on the C heap. Throws std::bad_alloc. */
[[nodiscard]] HeapText heapJsonText(const Json::Value& tree);

/** Whether @p value is an array that holds strings only, or nothing. */
[[nodiscard]] bool isArrayOfStrings(const Json::Value& value);

/** A new string array of those elements of the JSON array @p array that are strings, in order.
 *  Throws std::bad_alloc. */
[[nodiscard]] StringArray stringsOf(const Json::Value& array);

/** A JSON string that is @p text itself, not a copy which would have to be wiped; @p text must
 *  outlive it. */
[[nodiscard]] inline Json::Value borrowed(const char* text)
{
    return Json::StaticString{text};
}

/** Writes @p text, borrowed, as the member @p name of @p object; does nothing if it is null. Throws
 *  std::bad_alloc. */
void setText(Json::Value& object, const char* name, const char* text);

/** A JSON array of the texts of @p array, in order, borrowed; null gives the empty array. Throws
 *  std::bad_alloc. */
[[nodiscard]] Json::Value jsonArrayOf(const char* const* array);

/** The member @p name of the object @p object if it is a string, else null; @p object is left as
 *  it is, unlike by the exported readers. */
[[nodiscard]] const char* stringMember(const Json::Value& object, const char* name);

/** The member @p name of the object @p object, or null where it has none. */
[[nodiscard]] const Json::Value* member(const Json::Value& object, std::string_view name);

/** The bytes of the string @p value where they are, zero bytes included: one in a name must not make
 *  it equal to a shorter one. Nothing if it is not a string. */
[[nodiscard]] std::optional<std::string_view> stringBytes(const Json::Value& value);

/** Whether @p value is an integer that an unsigned number of 32 bits holds. */
[[nodiscard]] bool isUnsigned(const Json::Value& value);

/** The members @p names of the object @p object, which must be strings; nothing, and
 *  `document.member` is noted, if one is not. */
template <std::size_t count>
[[nodiscard]] std::optional<std::array<const char*, count>>
stringMembers(const Json::Value& object, const std::array<const char*, count>& names)
{
    std::array<const char*, count> texts{};
    for (std::size_t i = 0; i < count; ++i)
    {
        texts[i] = stringMember(object, names[i]);
        if (texts[i] == nullptr)
        {
            return refuse(BMCOAUTH_RULE_DOCUMENT_MEMBER).about(names[i]);
        }
    }
    return texts;
}

/* What json_to_char, json_to_char_array and so on do behind their guard. Throw std::bad_alloc, and
 * jsoncpp's errors. */
[[nodiscard]] bool readTextMember(Json::Value& doc, const char* key, char*& out);
[[nodiscard]] bool readTextsMember(Json::Value& doc, const char* key, char**& out);
[[nodiscard]] bool readObjectsMember(Json::Value& doc, const char* key, char**& out);
[[nodiscard]] bool readBoolMember(Json::Value& doc, const char* key, bool& out);
[[nodiscard]] bool readUintMember(Json::Value& doc, const char* key, unsigned int& out);
[[nodiscard]] bool readUint64Member(Json::Value& doc, const char* key, unsigned long long& out);

/** Replaces the text *@p text of the C heap by the text form of @p tree. Throws std::bad_alloc; where
 *  memory for the last copy is missing, the process ends. */
void rewrite(char*& text, const Json::Value& tree);

/** A member of an object that becomes an entry of a record. Both belong to the object. */
struct NamedMember
{
    const char* name;
    const Json::Value& value;
};

/** The members of @p object in their order, without those whose name holds a zero byte: a C text
 *  ends there, so a record would show such a member under another member's name. Empty for a value
 *  that is not an object. */
[[nodiscard]] std::vector<NamedMember> namedMembers(const Json::Value& object);

/** heapText that throws std::bad_alloc, for code that runs inside a guard. */
[[nodiscard]] HeapText requireHeapText(std::string_view text);

} // namespace bmcoauth::internal
