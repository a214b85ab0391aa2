// SPDX-License-Identifier: Apache-2.0
#include "show.hpp"
#include "support/lists.hpp"

#include <array>

using support::ParameterList;
using support::TextList;

namespace faults
{

namespace
{

ParameterList& parameters()
{
    static ParameterList list{{"T", {"one", "two"}}, {"M", {"a value that is long enough"}}};
    return list;
}

constexpr const char* listText =
    R"({"M":"a value that is long enough","N":null,"T":["one","two"],"X":7})";

const Table rows{
    {"set_handshake_payload", "two parameters", failsOnly,
     [](Attempt& attempt) {
         return made<PayloadPtr>(attempt.call([] { return set_handshake_payload(parameters()); }));
     }},
    {"free_handshake_payload", "two parameters", failsOnly,
     [](Attempt& attempt) {
         HandshakePayload* const copy = set_handshake_payload(parameters());
         attempt.call([&] { free_handshake_payload(copy); });
         return got("released");
     }},
    {"getKeyNames", "four members", failsOnly,
     [](Attempt& attempt) {
         char** names = untouched<char*>();
         const int found = attempt.call([&] {
             return getKeyNames(listText, static_cast<unsigned int>(std::strlen(listText)), &names);
         });
         return stored<StringArray>(found == 1, names);
     }},
    {"write_handshake_payload", "two parameters", failsOnly,
     [](Attempt& attempt) {
         return made<HeapText>(attempt.call([] { return write_handshake_payload(parameters()); }));
     }},
    {"parse_handshake_payload", "members of every kind", failsOnly,
     [](Attempt& attempt) {
         return made<PayloadPtr>(attempt.call([] { return parse_handshake_payload(listText); }));
     }},
    {"get_handshake_payload_paramValue", "a long value", failsOnly,
     [](Attempt& attempt) {
         std::string value = "before";
         const bool found = attempt.call(
             [&] { return get_handshake_payload_paramValue(parameters(), "m", value); });
         return found ? got(value) : failedLeaving(value == "before");
     }},
    {"getChallengeValue", "a value that is cut", failsOnly,
     [](Attempt& attempt) {
         std::array<char, 8> buffer{};
         const bool found =
             attempt.call([&] { return getChallengeValue(parameters(), "M", buffer.data(), 8); });
         return found ? got(buffer.data()) : failed();
     }},
    {"getChallengeValueArray", "two values", failsOnly,
     [](Attempt& attempt) {
         char** values = untouched<char*>();
         const bool found =
             attempt.call([&] { return getChallengeValueArray(parameters(), "T", &values); });
         // Where memory runs out it becomes null.
         return found ? made<StringArray>(values) : failedLeaving(values == nullptr);
     }},
    {"create_handshake_types_copy", "two types", failsOnly,
     [](Attempt& attempt) {
         TextList types{"one", "two"};
         unsigned int count = 77;
         const StringArray copy{
             attempt.call([&] { return create_handshake_types_copy(types, &count); })};
         return copy ? got(show(copy.get()) + std::to_string(count)) : failedLeaving(count == 77);
     }},
    {"free_handshake_types_copy", "two types", failsOnly,
     [](Attempt& attempt) {
         TextList types{"one", "two"};
         unsigned int count = 0;
         char** const copy = create_handshake_types_copy(types, &count);
         attempt.call([&] { free_handshake_types_copy(copy); });
         return got("released");
     }},
};

} // namespace

} // namespace faults
