// SPDX-License-Identifier: Apache-2.0
#include "show.hpp"

#include <strutil.h>

using support::TextList;

namespace faults
{

namespace
{

const Table rows{
    {"copyReplace", "another text", changesErrno | givesNoReason,
     [](Attempt& attempt) {
         char* text = support::heapText("old").release();
         attempt.call([&] { copyReplace(&text, "new"); });
         const HeapText after{text};
         return text == nullptr ? failed() : got(text);
     }},
    {"copyAppendArray", "an array of one", changesErrno | givesNoReason,
     [](Attempt& attempt) {
         TextList one{"first"};
         char** array = set_char_array(one);
         attempt.call([&] { copyAppendArray(&array, "second"); });
         const StringArray after{array};
         return show(array) == "first," ? failed() : got(show(array));
     }},
    {"copyAppendArray", "no array", changesErrno | givesNoReason,
     [](Attempt& attempt) {
         char** array = nullptr;
         attempt.call([&] { copyAppendArray(&array, "first"); });
         return made<StringArray>(array);
     }},
    {"freeStrArray", "two texts", failsOnly,
     [](Attempt& attempt) {
         TextList two{"one", "two"};
         char** array = set_char_array(two);
         attempt.call([&] { freeStrArray(&array); });
         return array == nullptr ? got("released") : wrong("not null");
     }},
    {"splitString", "three pieces", changesErrno | givesNoReason,
     [](Attempt& attempt) {
         return made<StringArray>(attempt.call([] { return splitString("one  two three", " "); }));
     }},
    {"cleanPrint", "a text", failsOnly,
     [](Attempt& attempt) {
         std::string text = "a text";
         attempt.call([&] { cleanPrint(text.data()); });
         return got(text);
     }},
};

} // namespace

} // namespace faults
