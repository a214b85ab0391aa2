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
        SecretTree document;
        return text != nullptr && parseSecretObject(text, document)
                   ? reader(document.root, key, out)
                   : 0;
    });
}

/** Merges @p source into @p destination as `update` promises, where @p replace puts one value in the
 *  place of another; exhausted memory is thrown, half the way through. */
template <typename Replace>
// NOLINTNEXTLINE(misc-no-recursion): no deeper than the document, whose depth the parser bounds.
void merge(Json::Value& destination, Json::Value& source, Replace replace)
{
    if (!destination.isObject() || !source.isObject())
    {
        return;
    }
    for (const std::string& name : source.getMemberNames())
    {
        Json::Value& replacement = source[name];
        // Made null where it is missing, and null it stays if the replacement is an object: an
        // object is merged only into an object that is there already.
        Json::Value& current = destination[name];
        if (replacement.isObject())
        {
            merge(current, replacement, replace);
        }
        else
        {
            replace(current, replacement);
        }
    }
}

/** The member @p key of @p document, made where it is missing, without its old value. */
Json::Value& emptyMember(Json::Value& document, const char* key)
{
    Json::Value& found = document[key];
    wipeTexts(found);
    return found;
}

/** Reads the document *@p text, has @p change applied to it and writes it back. */
template <typename Change>
int edit(char** text, Change change)
{
    return guarded(0, [&] {
        SecretTree document;
        if (text == nullptr || *text == nullptr || !parseSecretObject(*text, document) ||
            !change(document.root))
        {
            return 0;
        }
        return replaceDoc(text, document.root);
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
        if (value != nullptr)
        {
            emptyMember(document, key) = value;
            return true;
        }
        static_cast<void>(emptyMember(document, key));
        document.removeMember(key);
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
        Json::Value& array = emptyMember(document, key) = Json::Value{Json::arrayValue};
        // Copies: what the document holds is wiped.
        for (; values != nullptr && *values != nullptr; ++values)
        {
            array.append(*values);
        }
        return true;
    });
}

extern "C" int merge_doc(char** text, const char* other)
{
    return edit(text, [&](Json::Value& document) {
        SecretTree source;
        if (other == nullptr || !parseSecretObject(other, source))
        {
            return false;
        }
        // What is replaced is wiped with the source.
        merge(document, source.root,
              [](Json::Value& current, Json::Value& replacement) { current.swap(replacement); });
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
        const SecretString written = jsonText(tree);
        if (written.empty())
        {
            return 0;
        }
        char* copy = o2_ff_strdup(written.c_str(), "replaceDoc", 715);
        releaseSecret(*text);
        *text = copy;
        return 1;
    });
}

void update(Json::Value& destination, Json::Value& source)
{
    guarded(false, [&] {
        merge(destination, source,
              [](Json::Value& current, const Json::Value& replacement) { current = replacement; });
        return true;
    });
}
