// SPDX-License-Identifier: Apache-2.0
#include "common/guard.hpp"
#include "common/json.hpp"

#include <bmcoauth/document.h>
#include <bmcoauth/json.h>
#include <bmcoauth/support.h>

using namespace bmcoauth;

namespace
{

/** Reads @p text and hands the document to one of the field readers. */
template <typename Out>
int readMember(const char* text, const char* key, Out* out,
               int (*reader)(Json::Value&, const char*, Out*))
{
    return guarded(0, [&] {
        Json::Value document;
        return loadJsonDoc(text, document) ? reader(document, key, out) : 0;
    });
}

/** Merges @p source into @p destination as `update` promises; exhausted memory is thrown, half the
 *  way through. */
// NOLINTNEXTLINE(misc-no-recursion): no deeper than the document, whose depth the parser bounds.
void merge(Json::Value& destination, const Json::Value& source)
{
    if (!destination.isObject() || !source.isObject())
    {
        return;
    }
    for (const std::string& name : source.getMemberNames())
    {
        const Json::Value& replacement = source[name];
        // Made null where it is missing, and null it stays if the replacement is an object: an
        // object is merged only into an object that is there already.
        Json::Value& current = destination[name];
        if (replacement.isObject())
        {
            merge(current, replacement);
        }
        else
        {
            current = replacement;
        }
    }
}

/** Reads the document *@p text, has @p change applied to it and writes it back. */
template <typename Change>
int edit(char** text, Change change)
{
    return guarded(0, [&] {
        Json::Value document;
        if (text == nullptr || !loadJsonDoc(*text, document) || !change(document))
        {
            return 0;
        }
        return replaceDoc(text, document);
    });
}

} // namespace

extern "C" int get_value_char(const char* text, const char* key, char** out)
{
    return readMember(text, key, out, json_to_char);
}

extern "C" int get_value_chararray(const char* text, const char* key, char*** out)
{
    return readMember(text, key, out, json_to_char_array);
}

extern "C" int get_value_objarray(const char* text, const char* key, char*** out)
{
    return readMember(text, key, out, json_to_obj_array);
}

extern "C" int get_value_bool(const char* text, const char* key, bool* out)
{
    return readMember(text, key, out, json_to_bool);
}

extern "C" int get_value_uint(const char* text, const char* key, unsigned int* out)
{
    return readMember(text, key, out, json_to_uint);
}

extern "C" int set_value_char(char** text, const char* key, const char* value)
{
    if (key == nullptr)
    {
        return 0;
    }
    return edit(text, [&](Json::Value& document) {
        if (value == nullptr)
        {
            document.removeMember(key);
        }
        else
        {
            document[key] = value;
        }
        return true;
    });
}

extern "C" int set_value_chararray(char** text, const char* key, char** values)
{
    if (key == nullptr)
    {
        return 0;
    }
    return edit(text, [&](Json::Value& document) {
        document[key] = jsonArrayOf(values);
        return true;
    });
}

extern "C" int merge_doc(char** text, const char* other)
{
    return edit(text, [&](Json::Value& document) {
        Json::Value source;
        if (!loadJsonDoc(other, source))
        {
            return false;
        }
        merge(document, source);
        return true;
    });
}

int replaceDoc(char** text, const Json::Value& tree)
{
    if (text == nullptr)
    {
        return 0;
    }
    return guarded(0, [&] {
        const std::string written = jsonText(tree);
        if (written.empty())
        {
            return 0;
        }
        char* copy = o2_ff_strdup(written.c_str(), "replaceDoc", 715);
        std::free(*text);
        *text = copy;
        return 1;
    });
}

// NOLINTNEXTLINE(misc-no-recursion): as deep as the documents, which jsoncpp reads recursively too
void update(Json::Value& destination, Json::Value& source)
{
    guarded(false, [&] {
        merge(destination, source);
        return true;
    });
}
