// SPDX-License-Identifier: Apache-2.0
#include "show.hpp"

using support::TextList;

namespace faults
{

namespace
{

constexpr const char* everything =
    R"({"array":["a","b"],"flag":true,"number":42,"objects":[{"a":1},{"b":2}],)"
    R"("text":"a text that is too long for the string itself"})";

Outcome readsArray(Attempt& attempt, int (*reader)(const char*, const char*, char***),
                   const char* member)
{
    char** out = untouched<char*>();
    const int read = attempt.call([&] { return reader(everything, member, &out); });
    return stored<StringArray>(read == 1, out);
}

/** A change of the document, which ends the process where there is no memory for its text. */
template <typename Change>
Outcome changes(Attempt& attempt, const Change& change)
{
    char* text = support::heapText(everything).release();
    const int changed = attempt.call([&] { return change(&text); });
    const HeapText after{text};
    return changed == 1 ? got(text) : failedLeaving(show(text) == everything);
}

const Table rows{
    {"get_value_char", "a string", failsOnly,
     [](Attempt& attempt) {
         char* out = support::heapText("old").release();
         const int read = attempt.call([&] { return get_value_char(everything, "text", &out); });
         const HeapText text{out};
         return read == 1 ? got(out) : failedLeaving(show(out) == "old");
     }},
    {"get_value_chararray", "two strings", failsOnly,
     [](Attempt& attempt) {
         return readsArray(attempt, get_value_chararray, "array");
     }},
    {"get_value_objarray", "two objects", failsOnly,
     [](Attempt& attempt) {
         return readsArray(attempt, get_value_objarray, "objects");
     }},
    {"get_value_bool", "a Boolean", failsOnly,
     [](Attempt& attempt) {
         bool out = false;
         const int read = attempt.call([&] { return get_value_bool(everything, "flag", &out); });
         return read == 1 ? gave(out) : failedLeaving(!out);
     }},
    {"get_value_uint", "a number", failsOnly,
     [](Attempt& attempt) {
         unsigned int out = 0;
         const int read = attempt.call([&] { return get_value_uint(everything, "number", &out); });
         return read == 1 ? gave(out) : failedLeaving(out == 0);
     }},
    {"set_value_char", "another text", ends,
     [](Attempt& attempt) {
         return changes(attempt, [](char** text) {
             return set_value_char(text, "text", "another text, which is as long as that one");
         });
     }},
    {"set_value_char", "no text", ends,
     [](Attempt& attempt) {
         return changes(attempt, [](char** text) { return set_value_char(text, "text", nullptr); });
     }},
    {"set_value_chararray", "two texts", ends,
     [](Attempt& attempt) {
         TextList texts{"one", "two"};
         return changes(attempt,
                        [&](char** text) { return set_value_chararray(text, "texts", texts); });
     }},
    {"merge_doc", "members of every kind", ends,
     [](Attempt& attempt) {
         return changes(attempt, [](char** text) {
             return merge_doc(text, R"({"array":[],"new":{"a":1},"text":"x"})");
         });
     }},
};

} // namespace

} // namespace faults
