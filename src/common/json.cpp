// SPDX-License-Identifier: Apache-2.0
#include "common/json.hpp"

#include "common/guard.hpp"
#include "common/plain_json.hpp"

#include <bmcoauth/json.h>
#include <bmcoauth/support.h>

#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <memory>
#include <new>
#include <span>
#include <sstream>
#include <utility>

namespace bmcoauth::internal
{

namespace
{

using Accepts = bool(const Json::Value&);

template <Json::ValueType type>
bool is(const Json::Value& value)
{
    return value.type() == type;
}

/** The member @p key of @p doc, provided that @p accepts it; else null. The lookup inserts a null
 *  member where @p key is missing, which callers that write the document afterwards rely on. */
const Json::Value* acceptedMember(Json::Value& doc, const char* key, Accepts& accepts)
{
    const Json::Value& found = doc[key];
    if (found.isNull())
    {
        return refuse(BMCOAUTH_RULE_JSON_MEMBER_MISSING).about(key);
    }
    if (!accepts(found))
    {
        return refuse(BMCOAUTH_RULE_JSON_MEMBER_TYPE).about(key);
    }
    return std::addressof(found);
}

/** The frame of every reader: has @p store take that member. */
template <typename Store>
bool readMember(Json::Value& doc, const char* key, Accepts& accepts, const Store& store)
{
    const Json::Value* const found = acceptedMember(doc, key, accepts);
    if (found != nullptr)
    {
        store(*found);
    }
    return found != nullptr;
}

/** Replaces @p out by a copy of @p text. The copy is made aside, so that @p out survives when
 *  memory runs out. */
void replaceText(char*& out, std::string_view text)
{
    char* const copy = requireHeapText(text).release();
    releaseSecret(out);
    out = copy;
}

/** A string array of what @p text makes of each element that @p accepts. */
template <typename Text>
StringArray arrayOf(const Json::Value& array, Accepts& accepts, Text text)
{
    StringArray result = required(emptyStringArray(array.size()));
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
    return required(heapText(text));
}

namespace
{

/** jsoncpp reads, writes, copies and destroys a tree recursively: what reads a stranger's text on a
 *  small stack must bound its depth. jsoncpp itself has had this bound since version 1.9.7. */
constexpr int deepestLevel = 256;

bool parseThroughJsoncpp(std::string_view text, Json::Value& tree)
{
    // Immutable once made, so one for the process serves every thread.
    static const Json::CharReaderBuilder builder = [] {
        Json::CharReaderBuilder bounded;
        bounded.settings_["stackLimit"] = deepestLevel;
        return bounded;
    }();
    const std::unique_ptr<Json::CharReader> reader{builder.newCharReader()};
    Json::Value parsed;
    if (!reader->parse(text.data(), text.data() + text.size(), &parsed, nullptr))
    {
        return refuse(BMCOAUTH_RULE_JSON_SYNTAX);
    }
    tree = std::move(parsed);
    return true;
}

/** Where the string that begins with the quotation mark at @p begin ends: behind its other mark. */
std::size_t endOfString(std::string_view text, std::size_t begin) noexcept
{
    std::size_t at = begin + 1;
    while (at < text.size() && text[at] != '"')
    {
        at += text[at] == '\\' ? 2U : 1U;
    }
    return std::min(at + 1, text.size());
}

/** Where the comment that begins with the slash at @p begin ends; a slash alone ends at once. */
std::size_t endOfComment(std::string_view text, std::size_t begin) noexcept
{
    const std::string_view mark = text.substr(begin, 2);
    const std::size_t end = mark == "/*"   ? text.find("*/", begin + 2)
                            : mark == "//" ? text.find_first_of("\r\n", begin + 2)
                                           : begin;
    return end == std::string_view::npos ? text.size() : end + 1;
}

/** A copy of @p text that parses alike and has the same length, without what its strings say. Names
 *  of members stay: they are strings before a colon. */
SecretString masked(std::string_view text)
{
    SecretString copy{text};
    std::size_t at = 0;
    while ((at = text.find_first_of("\"/", at)) < text.size())
    {
        if (text[at] == '/')
        {
            at = endOfComment(text, at);
            continue;
        }
        const std::size_t begin = at + 1;
        at = endOfString(text, at);
        const std::size_t after = text.find_first_not_of(" \t\r\n", at);
        if (after == std::string_view::npos || text[after] != ':')
        {
            const std::span<char> content =
                std::span{copy}.subspan(begin, std::max(begin, at - 1) - begin);
            SecretTree said;
            const bool valid = readPlainValue(text.substr(begin - 1, at + 1 - begin), said.root);
            std::ranges::fill(content, 'x');
            // A string that jsoncpp refuses must stay one, even where a later member of the same
            // name replaces it: "\x" is not an escape of JSON.
            if (!valid && content.size() > 1)
            {
                content.front() = '\\';
            }
        }
    }
    return copy;
}

/** Replaces each string of @p tree by the string at its place in @p text; false if there is no
 *  string at that place. */
// NOLINTNEXTLINE(misc-no-recursion): no deeper than the tree, whose depth the parser bounds
bool unmask(std::string_view text, Json::Value& tree)
{
    if (tree.isString())
    {
        const auto begin = static_cast<std::size_t>(tree.getOffsetStart());
        const auto end = static_cast<std::size_t>(tree.getOffsetLimit());
        SecretTree said;
        if (begin > end || end > text.size() ||
            !readPlainValue(text.substr(begin, end - begin), said.root))
        {
            return false; // GCOVR_EXCL_LINE: jsoncpp takes no string that is refused here
        }
        // The comments stay.
        tree.swapPayload(said.root);
        return true;
    }
    for (Json::Value& child : tree)
    {
        if (!unmask(text, child))
        {
            return false; // GCOVR_EXCL_LINE: jsoncpp takes no string that is refused here
        }
    }
    return true;
}

/** parseThroughJsoncpp for a text with secrets. jsoncpp copies each string while it reads it and
 *  frees the copy as it is, so it gets a text whose strings say nothing. */
bool parseMasked(std::string_view text, Json::Value& tree)
{
    if (!parseThroughJsoncpp(masked(text), tree))
    {
        return false;
    }
    // jsoncpp counts from behind the mark of UTF-8 at the beginning.
    constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";
    return unmask(text.substr(text.starts_with(byteOrderMark) ? byteOrderMark.size() : 0), tree) ||
           refuse(BMCOAUTH_RULE_JSON_SYNTAX);
}

/** Whether @p text begins as PEM does. Keys in PEM are told from keys in JSON by trying, which must
 *  not cost a reader of jsoncpp. */
bool beginsAsPem(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    return first != std::string_view::npos && text.substr(first).starts_with("--");
}

/** Whether @p root is an object. */
bool isObjectRoot(const Json::Value& root)
{
    return root.isObject() || refuse(BMCOAUTH_RULE_JSON_ROOT);
}

/** Runs @p parse. jsoncpp throws for deep nesting, which refuses the text, and where it cannot allocate
 *  a string: exhausted memory must not be taken for a text that says nothing. */
template <typename Parse>
bool guardedParse(const Parse& parse)
{
    try
    {
        return parse();
    }
    catch (const Json::Exception& error)
    {
        if (std::string_view{error.what()}.find("stackLimit") == std::string_view::npos)
        {
            raiseExhausted();
        }
        return refuse(BMCOAUTH_RULE_JSON_NESTING);
    }
}

} // namespace

bool parseJson(std::string_view text, Json::Value& tree)
{
    return guardedParse(
        [&] { return readPlainJson(text, tree) || parseThroughJsoncpp(text, tree); });
}

bool parseJsonObject(std::string_view text, Json::Value& tree)
{
    return guardedParse([&]() -> bool {
        if (beginsAsPem(text))
        {
            return refuse(BMCOAUTH_RULE_JSON_SYNTAX);
        }
        Json::Value parsed;
        if (!(readPlainJson(text, parsed) || parseThroughJsoncpp(text, parsed)) ||
            !isObjectRoot(parsed))
        {
            return false;
        }
        tree = std::move(parsed);
        return true;
    });
}

bool parseSecretObject(std::string_view text, SecretTree& tree)
{
    return guardedParse([&]() -> bool {
        if (beginsAsPem(text))
        {
            return refuse(BMCOAUTH_RULE_JSON_SYNTAX);
        }
        SecretTree parsed;
        if (!(readPlainJson(text, parsed.root) || parseMasked(text, parsed.root)) ||
            !isObjectRoot(parsed.root))
        {
            return false;
        }
        tree.root.swap(parsed.root);
        return true;
    });
}

namespace
{

SecretString writtenByJsoncpp(const Json::Value& tree)
{
    static const Json::StreamWriterBuilder builder = [] {
        Json::StreamWriterBuilder compact;
        compact.settings_["indentation"] = "";
        return compact;
    }();
    const std::unique_ptr<Json::StreamWriter> writer{builder.newStreamWriter()};
    std::ostringstream text;
    // A stream swallows std::bad_alloc and goes on, with a part of the text missing.
    if (writer->write(tree, &text) != 0 || !text)
    {
        raiseExhausted();
    }
    return SecretString{text.view()};
}

} // namespace

SecretString jsonText(const Json::Value& tree)
{
    constexpr std::size_t usualLength = 511;
    SecretString text;
    // One block for nearly every document: a block that is outgrown must be wiped.
    text.reserve(usualLength);
    if (!appendPlainJson(tree, text))
    {
        text = writtenByJsoncpp(tree);
    }
    return text;
}

HeapText heapJsonText(const Json::Value& tree)
{
    return requireHeapText(jsonText(tree));
}

bool isArrayOfStrings(const Json::Value& value)
{
    return value.isArray() && std::all_of(value.begin(), value.end(), is<Json::stringValue>);
}

StringArray stringsOf(const Json::Value& array)
{
    return arrayOf(array, is<Json::stringValue>, textOf);
}

void setText(Json::Value& object, const char* name, const char* text)
{
    if (text != nullptr)
    {
        object[name] = borrowed(text);
    }
}

Json::Value jsonArrayOf(const char* const* array)
{
    Json::Value result{Json::arrayValue};
    for (; array != nullptr && *array != nullptr; ++array)
    {
        result.append(borrowed(*array));
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

std::optional<std::string_view> stringBytes(const Json::Value& value)
{
    const char* begin = nullptr;
    const char* end = nullptr;
    return value.getString(&begin, &end) ? std::optional{std::string_view{begin, end}}
                                         : std::nullopt;
}

bool isUnsigned(const Json::Value& value)
{
    // A real number and a Boolean can be converted as well.
    return (is<Json::intValue>(value) || is<Json::uintValue>(value)) &&
           value.isConvertibleTo(Json::uintValue);
}

bool readTextMember(Json::Value& doc, const char* key, char*& out)
{
    return readMember(doc, key, is<Json::stringValue>,
                      [&](const Json::Value& value) { replaceText(out, textOf(value)); });
}

bool readTextsMember(Json::Value& doc, const char* key, char**& out)
{
    return readMember(doc, key, is<Json::arrayValue>,
                      [&](const Json::Value& value) { out = release(stringsOf(value)); });
}

bool readObjectsMember(Json::Value& doc, const char* key, char**& out)
{
    return readMember(doc, key, is<Json::arrayValue>, [&](const Json::Value& value) {
        out = release(arrayOf(value, is<Json::objectValue>, jsonText));
    });
}

bool readBoolMember(Json::Value& doc, const char* key, bool& out)
{
    return readMember(doc, key, is<Json::booleanValue>,
                      [&](const Json::Value& value) { out = value.asBool(); });
}

bool readUintMember(Json::Value& doc, const char* key, unsigned int& out)
{
    return readMember(doc, key, isUnsigned,
                      [&](const Json::Value& value) { out = value.asUInt(); });
}

bool readUint64Member(Json::Value& doc, const char* key, unsigned long long& out)
{
    // A number above 32 bits is refused although the target is wider: the services rely on it.
    return readMember(doc, key, isUnsigned,
                      [&](const Json::Value& value) { out = value.asUInt(); });
}

void rewrite(char*& text, const Json::Value& tree)
{
    const SecretString written = jsonText(tree);
    char* const copy = o2_ff_strdup(written.c_str(), "replaceDoc", 715);
    releaseSecret(text);
    text = copy;
}

std::vector<NamedMember> namedMembers(const Json::Value& object)
{
    std::vector<NamedMember> members;
    if (!object.isObject())
    {
        return members;
    }
    members.reserve(object.size());
    for (auto entry = object.begin(); entry != object.end(); ++entry)
    {
        const char* end = nullptr;
        const char* const name = entry.memberName(&end);
        if (std::string_view{name, end}.find('\0') == std::string_view::npos)
        {
            members.push_back({name, *entry});
        }
    }
    return members;
}

} // namespace bmcoauth::internal

using namespace bmcoauth::internal;

namespace
{

/** What every exported reader does around @p reader. */
template <typename Out>
int read(Json::Value& doc, const char* key, Out* out,
         bool (*reader)(Json::Value&, const char*, Out&))
{
    if (refusesNull("key out", key, out))
    {
        return refused();
    }
    return guardedMemory([&] { return reader(doc, key, *out) ? 1 : 0; });
}

bool readObjectMember(Json::Value& doc, const char* key, char*& out)
{
    return readMember(doc, key, is<Json::objectValue>,
                      [&](const Json::Value& value) { replaceText(out, jsonText(value)); });
}

} // namespace

int json_to_char(Json::Value& doc, const char* key, char** out)
{
    return read(doc, key, out, readTextMember);
}

int json_to_char_array(Json::Value& doc, const char* key, char*** out)
{
    return read(doc, key, out, readTextsMember);
}

int json_to_bool(Json::Value& doc, const char* key, bool* out)
{
    return read(doc, key, out, readBoolMember);
}

int json_to_uint(Json::Value& doc, const char* key, unsigned int* out)
{
    return read(doc, key, out, readUintMember);
}

int json_to_uint64(Json::Value& doc, const char* key, unsigned long long* out)
{
    return read(doc, key, out, readUint64Member);
}

int json_to_obj(Json::Value& doc, const char* key, char** out)
{
    return read(doc, key, out, readObjectMember);
}

int json_to_obj_array(Json::Value& doc, const char* key, char*** out)
{
    return read(doc, key, out, readObjectsMember);
}

std::string json_fastWriter(const Json::Value& tree)
{
    std::string text;
    guarded([&] {
        text.append(jsonText(tree));
        return true;
    });
    return text;
}

bool loadJsonDoc(const char* text, Json::Value& doc)
{
    if (refusesNull("text", text))
    {
        return refused();
    }
    return guarded([&] { return parseJsonObject(text, doc); });
}
