// SPDX-License-Identifier: Apache-2.0
#pragma once

/* JSON documents of jsoncpp, over <bmcoauth/json.h>.
 *
 * A `document` that is neither an object nor null, for which the functions there throw, is refused.
 * NOTE: as there, a member that is missing is added to the document as null. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/json.h>

#include <json/value.h>

#include <string>
#include <string_view>

namespace bmcoauth
{
inline namespace v1
{

/** The document that `text` holds: loadJsonDoc. */
[[nodiscard]] inline Expected<Json::Value> parseJson(std::string_view text)
{
    detail::Arguments in;
    const char* const source = in.text("text", text);
    if (in.failed())
    {
        return in.failure();
    }
    Json::Value document;
    if (!::loadJsonDoc(source, document))
    {
        return Error::last();
    }
    return document;
}

/** The compact text of `tree`: json_fastWriter. */
[[nodiscard]] inline Expected<std::string> jsonText(const Json::Value& tree)
{
    std::string text = ::json_fastWriter(tree);
    if (text.empty())
    {
        return Error::last();
    }
    return text;
}

namespace detail
{

/** The member `key`, as `Reader` reads it. */
template <auto Reader, typename Raw, typename Owner>
[[nodiscard]] Expected<Owner> readMember(Json::Value& document, std::string_view key)
{
    Arguments in;
    const char* const name = in.text("key", key);
    if (in.failed())
    {
        return in.failure();
    }
    if (!document.isObject() && !document.isNull())
    {
        return Error{BMCOAUTH_RULE_JSON_ROOT, key};
    }
    Raw value{};
    if (Reader(document, name, &value) != 1)
    {
        return Error::last();
    }
    return Owner{value};
}

} // namespace detail

/** The string `key`: json_to_char. */
[[nodiscard]] inline Expected<Text> readString(Json::Value& document, std::string_view key)
{
    return detail::readMember<::json_to_char, char*, Text>(document, key);
}
/** The strings of the array `key`: json_to_char_array. */
[[nodiscard]] inline Expected<Texts> readStrings(Json::Value& document, std::string_view key)
{
    return detail::readMember<::json_to_char_array, char**, Texts>(document, key);
}
/** The text of the object `key`: json_to_obj. */
[[nodiscard]] inline Expected<Text> readObject(Json::Value& document, std::string_view key)
{
    return detail::readMember<::json_to_obj, char*, Text>(document, key);
}
/** The objects of the array `key`, each as text: json_to_obj_array. */
[[nodiscard]] inline Expected<Texts> readObjects(Json::Value& document, std::string_view key)
{
    return detail::readMember<::json_to_obj_array, char**, Texts>(document, key);
}
/** The Boolean `key`: json_to_bool. */
[[nodiscard]] inline Expected<bool> readBoolean(Json::Value& document, std::string_view key)
{
    return detail::readMember<::json_to_bool, bool, bool>(document, key);
}
/** The integer `key`: json_to_uint. */
[[nodiscard]] inline Expected<unsigned int> readNumber(Json::Value& document, std::string_view key)
{
    return detail::readMember<::json_to_uint, unsigned int, unsigned int>(document, key);
}
/** The integer `key`, up to 64 bits: json_to_uint64. */
[[nodiscard]] inline Expected<unsigned long long> readLongNumber(Json::Value& document,
                                                                 std::string_view key)
{
    return detail::readMember<::json_to_uint64, unsigned long long, unsigned long long>(document,
                                                                                        key);
}
/** Merges `source` into `destination`, both objects: update. */
inline Expected<void> merge(Json::Value& destination, Json::Value& source)
{
    if (!destination.isObject() || !source.isObject())
    {
        return Error{BMCOAUTH_RULE_JSON_ROOT, destination.isObject() ? "source" : "destination"};
    }
    ::update(destination, source);
    return {};
}

} // namespace v1
} // namespace bmcoauth
