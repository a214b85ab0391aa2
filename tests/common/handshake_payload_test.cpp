// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/hostile.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

using namespace support;

namespace
{

using Texts = std::vector<std::string>;
using TypesPtr = std::unique_ptr<char*, Releaser<free_handshake_types_copy>>;

/** The parameters of @p payload with their values. */
std::vector<std::pair<std::string, Texts>> parameters(const HandshakePayload* payload)
{
    std::vector<std::pair<std::string, Texts>> list;
    for (; payload != nullptr && payload->name != nullptr; ++payload)
    {
        list.emplace_back(payload->name, texts(payload->values));
    }
    return list;
}

using Parameters = decltype(parameters(nullptr));

// What the lists below are made of; nothing releases or changes it.
char nameC[] = "C";
char nameT[] = "T";
char nameV[] = "V";
char nameV2[] = "V2";
char empty[] = "";
char number[] = "123456";
char token[] = "token";
char first[] = "first";
char second[] = "second";
char* oneNumber[] = {number, nullptr};
char* oneToken[] = {token, nullptr};
char* twoTypes[] = {first, second, nullptr};
char* oneEmpty[] = {empty, nullptr};
char* none[] = {nullptr};

HandshakePayload challenge[] = {
    {nameC, oneNumber}, {nameT, twoTypes}, {nameV, oneToken}, {nullptr, nullptr}};

HandshakePayload nothing[] = {{nullptr, nullptr}};

/** A list whose second parameter has a name, but no value array. */
HandshakePayload broken[] = {
    {nameC, oneNumber}, {nameT, nullptr}, {nameV, oneToken}, {nullptr, nullptr}};

/** A list with two parameters of one name, and one without values. */
HandshakePayload repeated[] = {
    {nameV, none}, {nameC, oneToken}, {nameC, oneNumber}, {nullptr, nullptr}};

std::string value(HandshakePayload* payload, const char* name)
{
    std::string text = "untouched";
    const std::string rule =
        ruleOf([&] { return get_handshake_payload_paramValue(payload, name, text); });
    return rule == "accepted" ? text : rule + ", " + text;
}

std::string buffered(HandshakePayload* payload, const char* name, unsigned int size)
{
    std::string buffer(64, '#');
    plantRefusal();
    const bool found = getChallengeValue(payload, name, buffer.data(), size);
    const std::string_view written = std::string_view{buffer}.substr(0, buffer.find('#'));
    // Nothing is written beyond the terminator.
    EXPECT_EQ(buffer.find_first_not_of('#', written.size()), std::string::npos);
    EXPECT_EQ(found, !written.empty() && written.back() == '\0');
    return found ? std::string{written.substr(0, written.size() - 1)} : lastRule();
}

} // namespace

TEST(FreeHandshakePayload, TakesNull)
{
    free_handshake_payload(nullptr);
}

TEST(FreeHandshakePayload, TakesIncompleteParameters)
{
    auto* list = static_cast<HandshakePayload*>(std::calloc(4, sizeof(HandshakePayload)));
    list[0] = {strdup("without values"), nullptr};
    list[1] = {strdup("without value"), static_cast<char**>(std::calloc(1, sizeof(char*)))};
    list[2] = {strdup("whole"), static_cast<char**>(std::calloc(2, sizeof(char*)))};
    list[2].values[0] = strdup("value");
    // Whether all of it is released is for the leak checker.
    free_handshake_payload(list);
}

TEST(SetHandshakePayload, CopiesEveryParameter)
{
    const PayloadPtr copy{set_handshake_payload(challenge)};
    EXPECT_EQ(parameters(copy.get()),
              (Parameters{{"C", {"123456"}}, {"T", {"first", "second"}}, {"V", {"token"}}}));
    EXPECT_NE(copy.get(), challenge);
    EXPECT_NE(copy->name, challenge[0].name);
    EXPECT_NE(copy->values, challenge[0].values);
    EXPECT_NE(copy->values[0], challenge[0].values[0]);
}

TEST(SetHandshakePayload, KeepsRepeatedNamesAndEmptyTexts)
{
    HandshakePayload list[] = {
        {empty, oneEmpty}, {nameC, oneNumber}, {nameC, oneToken}, {nullptr, nullptr}};
    const PayloadPtr copy{set_handshake_payload(list)};
    EXPECT_EQ(parameters(copy.get()),
              (Parameters{{"", {""}}, {"C", {"123456"}}, {"C", {"token"}}}));
}

TEST(SetHandshakePayload, CopiesUpToTheFirstIncompleteParameter)
{
    const PayloadPtr copy{set_handshake_payload(broken)};
    EXPECT_EQ(parameters(copy.get()), (Parameters{{"C", {"123456"}}}));
}

TEST(SetHandshakePayload, RefusesAListWithoutParameters)
{
    EXPECT_REFUSED("argument.null", set_handshake_payload(nullptr));
    EXPECT_REFUSED("document.empty", set_handshake_payload(nothing));
    HandshakePayload list[] = {{nameC, nullptr}, {nameV, oneToken}, {nullptr, nullptr}};
    EXPECT_REFUSED("document.empty", set_handshake_payload(list));
}

TEST(SetHandshakePayload, RefusesAParameterWithoutValues)
{
    HandshakePayload list[] = {
        {nameC, oneNumber}, {nameV, none}, {nameT, twoTypes}, {nullptr, nullptr}};
    EXPECT_REFUSED("document.parameter-missing", set_handshake_payload(list));
    list[1].values = oneToken;
    const PayloadPtr copy{set_handshake_payload(list)};
    EXPECT_NE(copy, nullptr);
}

TEST(SetHandshakePayload, GivesNullWhicheverAllocationFails)
{
    withEachAllocationFailing([](FailAllocation& failure) {
        errno = 77;
        const PayloadPtr copy{set_handshake_payload(challenge)};
        const int left = errno;
        const bool failed = failure.reached();
        EXPECT_EQ(lastRule(), failed ? "memory.exhausted" : "nothing noted");
        EXPECT_EQ(left, 77);
        EXPECT_EQ(copy == nullptr, failed);
    });
}

TEST(GetHandshakePayloadParamValue, FindsANameWithoutRegardToCase)
{
    EXPECT_EQ(value(challenge, "V"), "token");
    EXPECT_EQ(value(challenge, "v"), "token");
    char mixed[] = "encrypted_SSLcert";
    HandshakePayload list[] = {{mixed, oneToken}, {nullptr, nullptr}};
    EXPECT_EQ(value(list, "ENCRYPTED_sslCERT"), "token");
}

TEST(GetHandshakePayloadParamValue, ComparesTheWholeName)
{
    EXPECT_EQ(value(challenge, "V2"), "document.parameter-missing, untouched");
    EXPECT_EQ(value(challenge, "TT"), "document.parameter-missing, untouched");
    EXPECT_EQ(value(challenge, ""), "document.parameter-missing, untouched");
    HandshakePayload list[] = {{nameV2, oneToken}, {nullptr, nullptr}};
    EXPECT_EQ(value(list, "V"), "document.parameter-missing, untouched");
    EXPECT_EQ(value(list, "V2"), "token");
    // Only letters have a case: these differ by the same bit.
    char name[] = "a@";
    HandshakePayload signs[] = {{name, oneToken}, {nullptr, nullptr}};
    EXPECT_EQ(value(signs, "A`"), "document.parameter-missing, untouched");
}

TEST(GetHandshakePayloadParamValue, SaysWhichParameterOrArgumentIsMissing)
{
    EXPECT_EQ(value(challenge, "V2"), "document.parameter-missing, untouched");
    EXPECT_STREQ(lastRefusal().subject, "V2");
    EXPECT_EQ(value(nullptr, nullptr), "argument.null, untouched");
    EXPECT_STREQ(lastRefusal().subject, "payload");
    EXPECT_EQ(value(challenge, nullptr), "argument.null, untouched");
    EXPECT_STREQ(lastRefusal().subject, "name");
}

TEST(GetHandshakePayloadParamValue, GivesTheFirstValueOfTheFirstMatch)
{
    EXPECT_EQ(value(challenge, "T"), "first");
    EXPECT_EQ(value(repeated, "c"), "token");
}

TEST(GetHandshakePayloadParamValue, FailsForAMatchWithoutValues)
{
    EXPECT_EQ(value(repeated, "V"), "document.parameter-missing, untouched");
    EXPECT_EQ(value(broken, "T"), "document.parameter-missing, untouched");
}

// Unlike a copy, a lookup walks on behind a parameter without a value array.
TEST(GetHandshakePayloadParamValue, WalksToTheNullName)
{
    EXPECT_EQ(value(broken, "V"), "token");
}

TEST(GetHandshakePayloadParamValue, FailsForNothing)
{
    EXPECT_EQ(value(nullptr, "V"), "argument.null, untouched");
    EXPECT_EQ(value(nothing, "V"), "document.parameter-missing, untouched");
    EXPECT_EQ(value(challenge, nullptr), "argument.null, untouched");
}

TEST(GetHandshakePayloadParamValue, FailsWhicheverAllocationFails)
{
    char longValue[] = "a value that does not fit into the string object itself";
    char* values[] = {longValue, nullptr};
    HandshakePayload list[] = {{nameV, values}, {nullptr, nullptr}};
    withEachAllocationFailing([&](FailAllocation& failure) {
        std::string text = "untouched";
        const bool found = get_handshake_payload_paramValue(list, "V", text);
        const bool failed = failure.reached();
        EXPECT_EQ(lastRule(), failed ? "memory.exhausted" : "nothing noted");
        EXPECT_EQ(found, !failed);
        EXPECT_EQ(text, failed ? "untouched" : longValue);
    });
}

TEST(GetChallengeValue, CopiesTheFirstValue)
{
    EXPECT_EQ(buffered(challenge, "C", 25), "123456");
    EXPECT_EQ(buffered(challenge, "c", 7), "123456");
    EXPECT_EQ(buffered(challenge, "T", 25), "first");
}

TEST(GetChallengeValue, CutsAValueToTheBuffer)
{
    EXPECT_EQ(buffered(challenge, "C", 6), "12345");
    EXPECT_EQ(buffered(challenge, "C", 4), "123");
    EXPECT_EQ(buffered(challenge, "C", 1), "");
}

TEST(GetChallengeValue, FailsForABufferWithoutRoom)
{
    EXPECT_EQ(buffered(challenge, "C", 0), "argument.length");
    EXPECT_REFUSED("argument.null", getChallengeValue(challenge, "C", nullptr, 25));
}

TEST(GetChallengeValue, FailsWhenThereIsNoValue)
{
    EXPECT_EQ(buffered(nullptr, "C", 25), "argument.null");
    EXPECT_EQ(buffered(nothing, "C", 25), "document.parameter-missing");
    EXPECT_EQ(buffered(challenge, "C2", 25), "document.parameter-missing");
    EXPECT_EQ(buffered(challenge, nullptr, 25), "argument.null");
    EXPECT_EQ(buffered(repeated, "V", 25), "document.parameter-missing");
    EXPECT_EQ(buffered(broken, "T", 25), "document.parameter-missing");
}

TEST(GetChallengeValueArray, CopiesAllValues)
{
    char** values = nullptr;
    EXPECT_TRUE(getChallengeValueArray(challenge, "t", &values));
    const StringArray owned{values};
    EXPECT_EQ(texts(values), (Texts{"first", "second"}));
    EXPECT_NE(values, twoTypes);
    EXPECT_NE(values[0], twoTypes[0]);
}

TEST(GetChallengeValueArray, StoresNullForAMatchWithoutValues)
{
    char** values = twoTypes;
    EXPECT_REFUSED("document.parameter-missing", getChallengeValueArray(repeated, "V", &values));
    EXPECT_EQ(values, nullptr);
    values = twoTypes;
    EXPECT_REFUSED("document.parameter-missing", getChallengeValueArray(broken, "T", &values));
    EXPECT_EQ(values, nullptr);
}

TEST(GetChallengeValueArray, LeavesTheOutParameterWithoutAMatch)
{
    char** values = twoTypes;
    EXPECT_REFUSED("document.parameter-missing", getChallengeValueArray(challenge, "TT", &values));
    EXPECT_REFUSED("argument.null", getChallengeValueArray(nullptr, "T", &values));
    EXPECT_REFUSED("document.parameter-missing", getChallengeValueArray(nothing, "T", &values));
    EXPECT_REFUSED("argument.null", getChallengeValueArray(challenge, nullptr, &values));
    EXPECT_EQ(values, twoTypes);
    EXPECT_REFUSED("argument.null", getChallengeValueArray(challenge, "T", nullptr));
}

TEST(GetChallengeValueArray, StoresNullWhicheverAllocationFails)
{
    withEachAllocationFailing([](FailAllocation& failure) {
        char** values = twoTypes;
        const bool found = getChallengeValueArray(challenge, "T", &values);
        const bool failed = failure.reached();
        EXPECT_EQ(lastRule(), failed ? "memory.exhausted" : "nothing noted");
        const StringArray owned{values};
        EXPECT_EQ(found, !failed);
        EXPECT_EQ(texts(values), failed ? Texts{} : (Texts{"first", "second"}));
    });
}

TEST(CreateHandshakeTypesCopy, CopiesAndCounts)
{
    unsigned int count = 77;
    const TypesPtr copy{create_handshake_types_copy(twoTypes, &count)};
    EXPECT_EQ(texts(copy.get()), (Texts{"first", "second"}));
    EXPECT_EQ(count, 2U);
    EXPECT_NE(copy.get(), twoTypes);
    EXPECT_NE(*copy, *twoTypes);
}

TEST(CreateHandshakeTypesCopy, GivesNullForNothing)
{
    unsigned int count = 77;
    EXPECT_REFUSED("argument.null", create_handshake_types_copy(nullptr, &count));
    EXPECT_REFUSED("document.empty", create_handshake_types_copy(none, &count));
    EXPECT_EQ(count, 77U);
    EXPECT_REFUSED("argument.null", create_handshake_types_copy(twoTypes, nullptr));
}

TEST(CreateHandshakeTypesCopy, GivesNullWhicheverAllocationFails)
{
    withEachAllocationFailing([](FailAllocation& failure) {
        unsigned int count = 77;
        errno = 77;
        const TypesPtr copy{create_handshake_types_copy(twoTypes, &count)};
        const int left = errno;
        const bool failed = failure.reached();
        EXPECT_EQ(lastRule(), failed ? "memory.exhausted" : "nothing noted");
        EXPECT_EQ(left, 77);
        EXPECT_EQ(copy == nullptr, failed);
        EXPECT_EQ(count, failed ? 77U : 2U);
    });
}

TEST(FreeHandshakeTypesCopy, TakesNull)
{
    free_handshake_types_copy(nullptr);
}

namespace
{

/** The names that getKeyNames gives for the whole of @p text. */
Texts keyNames(const std::string& text)
{
    char** names = nullptr;
    EXPECT_EQ(getKeyNames(text.c_str(), static_cast<unsigned int>(text.size()), &names), 1);
    const StringArray owned{names};
    // An array in every case, although one without texts is a null pointer elsewhere.
    EXPECT_NE(names, nullptr);
    return texts(names);
}

} // namespace

TEST(GetKeyNames, GivesTheNamesInTheirOrder)
{
    EXPECT_EQ(keyNames(R"({"b":1,"a":{"inner":2},"B":[],"":null})"), (Texts{"", "B", "a", "b"}));
    EXPECT_EQ(keyNames(R"({"a":1,"a":2})"), Texts{"a"});
}

TEST(GetKeyNames, PassesOverNamesWithAZeroByte)
{
    EXPECT_EQ(keyNames(R"({"a\u0000b":1,"a\u0000":2,"\u0000":3,"b":4})"), Texts{"b"});
    EXPECT_EQ(keyNames(R"({"a\u0000b":1})"), Texts{});
}

TEST(GetKeyNames, GivesAnArrayWithoutNamesForARootWithoutNames)
{
    for (const char* text : {"{}", "[]", "[1,2]", "[{\"a\":1}]", "\"x\"", "5", "-1.5", "true"})
    {
        SCOPED_TRACE(text);
        EXPECT_EQ(keyNames(text), Texts{});
    }
}

TEST(GetKeyNames, RefusesANullRoot)
{
    char** names = twoTypes;
    EXPECT_REFUSED("json.root", getKeyNames("null", 4, &names));
    EXPECT_EQ(names, twoTypes);
}

TEST(GetKeyNames, AsksForTheExactLength)
{
    char** names = twoTypes;
    const char text[] = R"({"a":1})";
    EXPECT_REFUSED("argument.length", getKeyNames(text, 6, &names));
    EXPECT_REFUSED("argument.length", getKeyNames(text, 8, &names));
    EXPECT_REFUSED("argument.length", getKeyNames(text, 0, &names));
    // Never read there.
    EXPECT_REFUSED("argument.length", getKeyNames(text, 4294967295U, &names));
    EXPECT_EQ(names, twoTypes);
    EXPECT_EQ(getKeyNames(text, 7, &names), 1);
    const StringArray owned{names};
    EXPECT_EQ(texts(names), Texts{"a"});
}

TEST(GetKeyNames, RefusesNothing)
{
    char** names = twoTypes;
    EXPECT_REFUSED("argument.null", getKeyNames(nullptr, 0, &names));
    EXPECT_REFUSED("json.syntax", getKeyNames("", 0, &names));
    EXPECT_EQ(names, twoTypes);
    EXPECT_REFUSED("argument.null", getKeyNames("{}", 2, nullptr));
}

TEST(GetKeyNames, FindsNoNameInAHostileText)
{
    for (const auto& [name, text] : hostileTexts())
    {
        SCOPED_TRACE(name);
        char** names = nullptr;
        support::plantRefusal();
        const std::string rule = support::ruleBehind(
            getKeyNames(text.c_str(), static_cast<unsigned int>(text.size()), &names));
        const StringArray owned{names};
        EXPECT_EQ(names != nullptr, rule == "accepted");
        // Roots that are not objects have no names; null alone is refused.
        const std::string expected = hostileRule(name);
        EXPECT_EQ(rule, expected == "json.root" && text != "null" ? "accepted" : expected);
        EXPECT_EQ(texts(names), Texts{});
    }
}

TEST(GetKeyNames, BoundsTheDepth)
{
    EXPECT_EQ(keyNames(nestedMember("a", 255)), Texts{"a"});
    const std::string deep = nestedMember("a", 256);
    char** names = nullptr;
    EXPECT_REFUSED("json.nesting",
                   getKeyNames(deep.c_str(), static_cast<unsigned int>(deep.size()), &names));
}

TEST(GetKeyNames, FailsWhicheverAllocationFails)
{
    const std::string text = R"({"a":1,"b":[2],"c":"x"})";
    withEachAllocationFailing([&](FailAllocation& failure) {
        char** names = twoTypes;
        errno = 77;
        const int result =
            getKeyNames(text.c_str(), static_cast<unsigned int>(text.size()), &names);
        const int left = errno;
        const bool failed = failure.reached();
        EXPECT_EQ(lastRule(), failed ? "memory.exhausted" : "nothing noted");
        const StringArray owned{result == 1 ? names : nullptr};
        EXPECT_EQ(left, 77);
        EXPECT_EQ(result, failed ? 0 : 1);
        EXPECT_EQ(texts(names), failed ? texts(twoTypes) : (Texts{"a", "b", "c"}));
    });
}
