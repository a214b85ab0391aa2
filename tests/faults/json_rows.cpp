// SPDX-License-Identifier: Apache-2.0
#include "show.hpp"

#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>

#include <algorithm>
#include <array>

namespace faults
{

namespace
{

/** A document, read by jsoncpp itself. */
Json::Value treeOf(const std::string& text)
{
    Json::Value tree;
    const std::unique_ptr<Json::CharReader> reader{Json::CharReaderBuilder{}.newCharReader()};
    reader->parse(text.data(), text.data() + text.size(), &tree, nullptr);
    return tree;
}

std::string textOf(const Json::Value& tree)
{
    Json::StreamWriterBuilder compact;
    compact["indentation"] = "";
    return Json::writeString(compact, tree);
}

constexpr const char* everything =
    R"({"array":["a","b"],"flag":true,"number":42,"object":{"a":"b"},"objects":[{"a":1},{"b":2}],)"
    R"("text":"a text that is too long for the string itself"})";

/** A reader that replaces the text that is there. */
Outcome replacesText(Attempt& attempt, int (*reader)(Json::Value&, const char*, char**),
                     const char* member)
{
    Json::Value doc = treeOf(everything);
    char* out = support::heapText("old").release();
    const int read = attempt.call([&] { return reader(doc, member, &out); });
    const HeapText text{out};
    return read == 1 ? got(text.get()) : failedLeaving(show(text.get()) == "old");
}

Outcome readsArray(Attempt& attempt, int (*reader)(Json::Value&, const char*, char***),
                   const char* member)
{
    Json::Value doc = treeOf(everything);
    char** out = untouched<char*>();
    const int read = attempt.call([&] { return reader(doc, member, &out); });
    return stored<StringArray>(read == 1, out);
}

template <typename Value>
Outcome readsValue(Attempt& attempt, int (*reader)(Json::Value&, const char*, Value*),
                   const char* member)
{
    Json::Value doc = treeOf(everything);
    Value out{};
    const int read = attempt.call([&] { return reader(doc, member, &out); });
    return read == 1 ? gave(out) : failedLeaving(out == Value{});
}

const Table rows{
    {"json_to_char", "a string", failsOnly,
     [](Attempt& attempt) {
         return replacesText(attempt, json_to_char, "text");
     }},
    {"json_to_char", "a document that is an array", getsBy,
     [](Attempt& attempt) {
         Json::Value doc{Json::arrayValue};
         char* out = untouched<char>();
         try
         {
             const int read = attempt.call([&] { return json_to_char(doc, "text", &out); });
             return read == 0 ? failedLeaving(out == untouched<char>()) : wrong("read");
         }
         catch (const Json::LogicError&)
         {
             return got("Json::LogicError");
         }
     }},
    {"json_to_obj", "an object", failsOnly,
     [](Attempt& attempt) {
         return replacesText(attempt, json_to_obj, "object");
     }},
    {"json_to_char_array", "two strings", failsOnly,
     [](Attempt& attempt) {
         return readsArray(attempt, json_to_char_array, "array");
     }},
    {"json_to_obj_array", "two objects", failsOnly,
     [](Attempt& attempt) {
         return readsArray(attempt, json_to_obj_array, "objects");
     }},
    {"json_to_bool", "a Boolean", failsOnly,
     [](Attempt& attempt) {
         return readsValue(attempt, json_to_bool, "flag");
     }},
    {"json_to_uint", "a number", failsOnly,
     [](Attempt& attempt) {
         return readsValue(attempt, json_to_uint, "number");
     }},
    {"json_to_uint64", "a number", failsOnly,
     [](Attempt& attempt) {
         return readsValue(attempt, json_to_uint64, "number");
     }},
    {"json_to_uint", "a member that is missing", getsBy | isRefused,
     [](Attempt& attempt) {
         Json::Value doc = treeOf(everything);
         unsigned int out = 7;
         const int read = attempt.call([&] { return json_to_uint(doc, "missing", &out); });
         return read == 0 && out == 7 ? got("nothing") : wrong("read");
     }},
    {"json_fastWriter", "a document", failsOnly,
     [](Attempt& attempt) {
         const Json::Value doc = treeOf(everything);
         const std::string text = attempt.call([&] { return json_fastWriter(doc); });
         return text.empty() ? failed() : got(text);
     }},
    {"loadJsonDoc", "a document", failsOnly,
     [](Attempt& attempt) {
         Json::Value doc = "before";
         const bool loaded = attempt.call([&] { return loadJsonDoc(everything, doc); });
         return loaded ? got(textOf(doc)) : failedLeaving(doc == "before");
     }},
    {"replaceDoc", "a document", ends,
     [](Attempt& attempt) {
         const Json::Value doc = treeOf(everything);
         char* text = support::heapText("before").release();
         const int replaced = attempt.call([&] { return replaceDoc(&text, doc); });
         const HeapText after{text};
         return replaced == 1 ? got(text) : failedLeaving(show(text) == "before");
     }},
    {"update", "members of every kind", failsOnly,
     [](Attempt& attempt) {
         Json::Value destination = treeOf(R"({"a":1,"b":{"c":1}})");
         Json::Value source = treeOf(R"({"a":"two","b":{"d":3},"e":{"f":4}})");
         attempt.call([&] { update(destination, source); });
         // What was merged until then; what has only been made room for is null.
         constexpr std::array steps{
             R"({"a":1,"b":{"c":1}})",
             R"({"a":"two","b":{"c":1}})",
             R"({"a":"two","b":{"c":1,"d":null}})",
             R"({"a":"two","b":{"c":1,"d":3}})",
         };
         const std::string text = textOf(destination);
         return std::ranges::find(steps, text) != steps.end() ? failed() : got(text);
     }},
};

} // namespace

} // namespace faults
