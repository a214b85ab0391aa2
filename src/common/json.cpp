// SPDX-License-Identifier: Apache-2.0
#include "common/json.hpp"

#include "common/guard.hpp"

#include <bmcoauth/json.h>

#include <json/reader.h>
#include <json/writer.h>

#include <strutil.h>

#include <sstream>

namespace bmcoauth
{

namespace
{

/** The member that the exported readers look at: the lookup inserts a null member where @p key is
 *  missing, which callers that write the document afterwards rely on. */
Json::Value* readableMember(Json::Value& doc, const char* key)
{
    if (key == nullptr)
    {
        return nullptr;
    }
    Json::Value& found = doc[key];
    return found.isNull() ? nullptr : &found;
}

/** jsoncpp orders values of different types by type, so a real number or a Boolean, which passes
 *  the first test, fails the second: only integers are left. */
bool isUnsigned(const Json::Value& value, const Json::Value& largest)
{
    return value.isConvertibleTo(Json::uintValue) && value <= largest;
}

/** Replaces *@p out by a copy of @p text. The copy is made aside, so that *@p out survives when
 *  memory runs out. */
void replaceText(char** out, const char* text)
{
    char* copy = nullptr;
    copyReplace(&copy, text);
    if (copy == nullptr)
    {
        throw std::bad_alloc();
    }
    std::free(*out);
    *out = copy;
}

/** A string array of what @p text makes of each element that @p accepts. */
template <typename Accepts, typename Text>
StringArray arrayOf(const Json::Value& array, Accepts accepts, Text text)
{
    StringArray result = emptyStringArray(array.size());
    if (!result)
    {
        throw std::bad_alloc();
    }
    char** slot = result.get();
    for (const Json::Value& element : array)
    {
        if (accepts(element))
        {
            *slot++ = requireHeapText(text(element)).release();
        }
    }
    return result;
}

bool isString(const Json::Value& value)
{
    return value.isString();
}

/** The text of @p value up to its first zero byte: what fits into a NUL-terminated text. */
const char* textOf(const Json::Value& value)
{
    return value.asCString();
}

/** An empty list crosses the interface as null, never as an array that holds only its end. */
char** release(StringArray array)
{
    return *array == nullptr ? nullptr : array.release();
}

} // namespace

HeapText requireHeapText(std::string_view text)
{
    HeapText copy = heapText(text);
    if (!copy)
    {
        throw std::bad_alloc();
    }
    return copy;
}

bool parseJson(std::string_view text, Json::Value& tree)
{
    // Immutable once made, so one for the process serves every thread.
    static const Json::CharReaderBuilder builder;
    const std::unique_ptr<Json::CharReader> reader{builder.newCharReader()};
    try
    {
        return reader->parse(text.data(), text.data() + text.size(), &tree, nullptr);
    }
    catch (const Json::Exception&)
    {
        return false;
    }
}

bool parseJsonObject(std::string_view text, Json::Value& tree)
{
    return parseJson(text, tree) && tree.isObject();
}

std::string jsonText(const Json::Value& tree)
{
    static const Json::StreamWriterBuilder builder = []
    {
        Json::StreamWriterBuilder compact;
        compact["indentation"] = "";
        return compact;
    }();
    const std::unique_ptr<Json::StreamWriter> writer{builder.newStreamWriter()};
    std::ostringstream text;
    return writer->write(tree, &text) == 0 ? std::move(text).str() : std::string{};
}

HeapText heapJsonText(const Json::Value& tree)
{
    const std::string text = jsonText(tree);
    return text.empty() ? nullptr : requireHeapText(text);
}

StringArray stringsOf(const Json::Value& array)
{
    return arrayOf(array, isString, textOf);
}

Json::Value jsonArrayOf(const char* const* array)
{
    Json::Value result{Json::arrayValue};
    for (; array != nullptr && *array != nullptr; ++array)
    {
        result.append(*array);
    }
    return result;
}

const Json::Value* member(const Json::Value& object, std::string_view name)
{
    return object.find(name.data(), name.data() + name.size());
}

const char* stringMember(const Json::Value& object, const char* name)
{
    const Json::Value* found = member(object, name);
    return found != nullptr && found->isString() ? found->asCString() : nullptr;
}

} // namespace bmcoauth

using namespace bmcoauth;

int json_to_char(Json::Value& doc, const char* key, char** out)
{
    return guardedMemory(0,
                         [&]
                         {
                             const Json::Value* value = readableMember(doc, key);
                             if (value == nullptr || !value->isString())
                             {
                                 return 0;
                             }
                             replaceText(out, value->asCString());
                             return 1;
                         });
}

int json_to_char_array(Json::Value& doc, const char* key, char*** out)
{
    return guardedMemory(0,
                         [&]
                         {
                             const Json::Value* value = readableMember(doc, key);
                             if (value == nullptr || !value->isArray())
                             {
                                 return 0;
                             }
                             *out = release(stringsOf(*value));
                             return 1;
                         });
}

int json_to_bool(Json::Value& doc, const char* key, bool* out)
{
    return guardedMemory(0,
                         [&]
                         {
                             const Json::Value* value = readableMember(doc, key);
                             if (value == nullptr || !value->isBool())
                             {
                                 return 0;
                             }
                             *out = value->asBool();
                             return 1;
                         });
}

int json_to_uint(Json::Value& doc, const char* key, unsigned int* out)
{
    return guardedMemory(0,
                         [&]
                         {
                             const Json::Value* value = readableMember(doc, key);
                             if (value == nullptr ||
                                 !isUnsigned(*value, Json::Value{Json::Value::maxUInt}))
                             {
                                 return 0;
                             }
                             *out = value->asUInt();
                             return 1;
                         });
}

int json_to_uint64(Json::Value& doc, const char* key, unsigned long long* out)
{
    return guardedMemory(0,
                         [&]
                         {
                             const Json::Value* value = readableMember(doc, key);
                             // The 32-bit test stays although the target is wider: what the
                             // services accept today.
                             if (value == nullptr ||
                                 !isUnsigned(*value, Json::Value{Json::Value::maxUInt64}))
                             {
                                 return 0;
                             }
                             *out = value->asUInt64();
                             return 1;
                         });
}

int json_to_obj(Json::Value& doc, const char* key, char** out)
{
    return guardedMemory(0,
                         [&]
                         {
                             const Json::Value* value = readableMember(doc, key);
                             if (value == nullptr || !value->isObject())
                             {
                                 return 0;
                             }
                             replaceText(out, jsonText(*value).c_str());
                             return 1;
                         });
}

int json_to_obj_array(Json::Value& doc, const char* key, char*** out)
{
    return guardedMemory(
        0,
        [&]
        {
            const Json::Value* value = readableMember(doc, key);
            if (value == nullptr || !value->isArray())
            {
                return 0;
            }
            *out = release(arrayOf(
                *value, [](const Json::Value& element) { return element.isObject(); }, jsonText));
            return 1;
        });
}

std::string json_fastWriter(const Json::Value& tree)
{
    return guarded(std::string{}, [&] { return jsonText(tree); });
}

bool loadJsonDoc(const char* text, Json::Value& doc)
{
    return text != nullptr && guarded(false, [&] { return parseJsonObject(text, doc); });
}
