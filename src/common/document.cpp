// SPDX-License-Identifier: Apache-2.0
#include "common/guard.hpp"
#include "common/json.hpp"

#include <bmcoauth/document.h>
#include <bmcoauth/json.h>

using namespace bmcoauth::internal;

namespace
{

/** Reads @p text and hands the document to one of the field readers. */
template <typename Out>
int read(const char* text, const char* key, Out* out,
         bool (*reader)(Json::Value&, const char*, Out&))
{
    if (refusesNull("text key out", text, key, out))
    {
        return refused();
    }
    return guarded([=] {
        SecretTree document;
        return parseSecretObject(text, document) && reader(document.root, key, *out) ? 1 : 0;
    });
}

/** What merging does with the values of its source. */
enum class Replacement : unsigned char
{
    take,
    copy,
};

/** Merges @p source into @p destination as `update` promises; exhausted memory is thrown, half the
 *  way through. */
// NOLINTNEXTLINE(misc-no-recursion): no deeper than the document, whose depth the parser bounds.
void merge(Json::Value& destination, Json::Value& source, Replacement how)
{
    if (!destination.isObject() || !source.isObject())
    {
        return;
    }
    for (const std::string& name : source.getMemberNames())
    {
        Json::Value& replacement = source[name];
        // Makes a missing member null. It stays null if the replacement is an object: an object is
        // merged only into an existing object.
        Json::Value& current = destination[name];
        if (replacement.isObject())
        {
            merge(current, replacement, how);
        }
        else if (how == Replacement::take)
        {
            current.swap(replacement);
        }
        else
        {
            current = replacement;
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

/** Reads the document *@p text, has @p change applied to it and writes it back. @p argument must not
 *  be null either; @p names are those of both. */
template <typename Change>
int edit(char** text, const char* names, const void* argument, Change change)
{
    const char* const before = text == nullptr ? nullptr : *text;
    if (refusesNull(names, before, argument))
    {
        return refused();
    }
    return guarded([&] {
        SecretTree document;
        if (!parseSecretObject(before, document) || !change(document.root))
        {
            return 0;
        }
        rewrite(*text, document.root);
        return 1;
    });
}

} // namespace

extern "C" int get_value_char(const char* text, const char* key, char** out)
{
    return read(text, key, out, readTextMember);
}

extern "C" int get_value_chararray(const char* text, const char* key, char*** out)
{
    return read(text, key, out, readTextsMember);
}

extern "C" int get_value_objarray(const char* text, const char* key, char*** out)
{
    return read(text, key, out, readObjectsMember);
}

extern "C" int get_value_bool(const char* text, const char* key, bool* out)
{
    return read(text, key, out, readBoolMember);
}

extern "C" int get_value_uint(const char* text, const char* key, unsigned int* out)
{
    return read(text, key, out, readUintMember);
}

extern "C" int set_value_char(char** text, const char* key, const char* value)
{
    return edit(text, "text key", key, [&](Json::Value& document) {
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
    return edit(text, "text key", key, [&](Json::Value& document) {
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
    return edit(text, "text other", other, [&](Json::Value& document) {
        SecretTree source;
        if (!parseSecretObject(other, source))
        {
            return false;
        }
        // Replaced values are wiped with the source.
        merge(document, source.root, Replacement::take);
        return true;
    });
}

int replaceDoc(char** text, const Json::Value& tree)
{
    if (refusesNull("text", text))
    {
        return refused();
    }
    return guarded([&] {
        rewrite(*text, tree);
        return 1;
    });
}

void update(Json::Value& destination, Json::Value& source)
{
    guarded([&] {
        merge(destination, source, Replacement::copy);
        return true;
    });
}
