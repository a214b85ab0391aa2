// SPDX-License-Identifier: Apache-2.0
#include "show.hpp"

using support::MarkerFile;
using support::TextList;

namespace faults
{

namespace
{

const Table rows{
    {"set_char_array", "three texts", failsOnly,
     [](Attempt& attempt) {
         TextList texts{"one", "", "three"};
         return made<StringArray>(attempt.call([&] { return set_char_array(texts); }));
     }},
    {"free_char_array", "two texts", failsOnly,
     [](Attempt& attempt) {
         TextList texts{"one", "two"};
         char** const copy = set_char_array(texts);
         attempt.call([&] { free_char_array(copy); });
         return got("released");
     }},
    {"o2_ff_malloc", "ten bytes", ends,
     [](Attempt& attempt) {
         const HeapText block{
             static_cast<char*>(attempt.call([] { return o2_ff_malloc(10, "caller", 1); }))};
         return block ? got("a block") : wrong("null");
     }},
    {"o2_ff_calloc", "two times four bytes", ends,
     [](Attempt& attempt) {
         const HeapText block{
             static_cast<char*>(attempt.call([] { return o2_ff_calloc(2, 4, "caller", 1); }))};
         return block ? got(hexOf(block.get(), 8)) : wrong("null");
     }},
    {"o2_ff_realloc", "a larger size", ends,
     [](Attempt& attempt) {
         HeapText block = support::heapText("text");
         block.reset(static_cast<char*>(attempt.call(
             [old = block.release()] { return o2_ff_realloc(old, 1000, "caller", 1); })));
         return block ? got(block.get()) : wrong("null");
     }},
    {"o2_ff_strdup", "a text", ends,
     [](Attempt& attempt) {
         const HeapText copy{attempt.call([] { return o2_ff_strdup("text", "caller", 1); })};
         return copy ? got(copy.get()) : wrong("null");
     }},
    {"o2_ff_strdup", "null", failsOnly,
     [](Attempt& attempt) {
         const HeapText copy{attempt.call([] { return o2_ff_strdup(nullptr, "caller", 1); })};
         return got(show(copy.get()));
     }},
    {"get_seconds_from_epoch", "a time", failsOnly,
     [](Attempt& attempt) {
         return gave(attempt.call([] { return get_seconds_from_epoch(86400); }));
     }},
    {"isDeviceVorn", "a device with the marker", givesNoReason,
     [](Attempt& attempt) {
         const MarkerFile marker;
         return said(attempt.call([] { return isDeviceVorn(); }));
     }},
};

} // namespace

} // namespace faults
