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

// The JSON form of a parameter list, by way of its two plainest users.

namespace
{

using Texts = std::vector<std::string>;

/** One parameter of a list to write; no values at all stand for a null value array. */
struct Parameter
{
    std::string name;
    Texts values;
    bool nullArray = false;
};

/** Writes a list of @p parameters. */
std::string written(std::vector<Parameter> parameters)
{
    std::vector<std::vector<char*>> arrays;
    for (Parameter& parameter : parameters)
    {
        std::vector<char*>& array = arrays.emplace_back();
        for (std::string& value : parameter.values)
        {
            array.push_back(value.data());
        }
        array.push_back(nullptr);
    }
    std::vector<HandshakePayload> list;
    for (std::size_t i = 0; i < parameters.size(); ++i)
    {
        list.push_back(
            {parameters[i].name.data(), parameters[i].nullArray ? nullptr : arrays[i].data()});
    }
    list.push_back({nullptr, nullptr});
    return orNull(HeapText{write_handshake_payload(list.data())}.get());
}

/** What parse_handshake_payload makes of @p text: "name=value,value;" for each parameter, or the rule
 *  that refuses the text. A parameter whose value array is null would show as "name=(null);". */
std::string parsed(const std::string& text)
{
    plantRefusal();
    const PayloadPtr list{parse_handshake_payload(text.c_str())};
    if (!list)
    {
        return lastRule();
    }
    std::string shown;
    for (const HandshakePayload* parameter = list.get(); parameter->name != nullptr; ++parameter)
    {
        shown += std::string{parameter->name} + "=";
        if (parameter->values == nullptr)
        {
            shown += "(null)";
        }
        const char* separator = "";
        for (const std::string& value : texts(parameter->values))
        {
            shown += separator + value;
            separator = ",";
        }
        shown += ";";
    }
    return shown;
}

} // namespace

TEST(WriteHandshakePayload, WritesOneValueAsAStringAndSeveralAsAnArray)
{
    EXPECT_EQ(written({{"T", {"A"}}}), R"({"T":"A"})");
    EXPECT_EQ(written({{"T", {"A", "B"}}}), R"({"T":["A","B"]})");
    EXPECT_EQ(written({{"T", {"B", "A", "B"}}, {"R", {"x"}}}), R"({"R":"x","T":["B","A","B"]})");
}

TEST(WriteHandshakePayload, OrdersTheMembersByName)
{
    EXPECT_EQ(written({{"V", {"token"}},
                       {"iv", {"i"}},
                       {"T", {"A", "software_id_cert-1.0"}},
                       {"M", {"1"}},
                       {"C", {"2"}}}),
              R"({"C":"2","M":"1","T":["A","software_id_cert-1.0"],"V":"token","iv":"i"})");
}

TEST(WriteHandshakePayload, KeepsEmptyTexts)
{
    EXPECT_EQ(written({{"V", {""}}, {"T", {"", ""}}}), R"({"T":["",""],"V":""})");
    EXPECT_EQ(written({{"", {"x"}}}), R"({"":"x"})");
}

TEST(WriteHandshakePayload, LeavesOutAParameterWithoutValues)
{
    EXPECT_EQ(written({{"C", {}}, {"V", {"x"}}}), R"({"V":"x"})");
    EXPECT_EQ(written({{"C", {}}}), "{}");
}

TEST(WriteHandshakePayload, StopsAtAParameterWithoutAValueArray)
{
    EXPECT_EQ(written({{"C", {"1"}}, {"T", {}, true}, {"V", {"x"}}}), R"({"C":"1"})");
    EXPECT_EQ(written({{"T", {}, true}, {"V", {"x"}}}), "{}");
}

TEST(WriteHandshakePayload, WritesTheLastOfRepeatedNames)
{
    EXPECT_EQ(written({{"V", {"first"}}, {"V", {"x", "y"}}}), R"({"V":["x","y"]})");
    // Names are kept as they are: these are two.
    EXPECT_EQ(written({{"v", {"low"}}, {"V", {"high"}}}), R"({"V":"high","v":"low"})");
    // Without a value there is nothing to overwrite with.
    EXPECT_EQ(written({{"V", {"first"}}, {"V", {}}}), R"({"V":"first"})");
}

TEST(WriteHandshakePayload, EscapesNamesAndValues)
{
    EXPECT_EQ(written({{"\"n\n", {"\"],\"T\":[\"", "\xC3\xA9\xFF"}}}),
              R"({"\"n\n":["\"],\"T\":[\"","\u00e9\ufffd"]})");
}

TEST(WriteHandshakePayload, GivesAnEmptyObjectForAListWithoutParameters)
{
    EXPECT_EQ(written({}), "{}");
}

TEST(WriteHandshakePayload, GivesNullForNull)
{
    EXPECT_REFUSED("argument.null", write_handshake_payload(nullptr));
}

TEST(WriteHandshakePayload, GivesNullWhicheverAllocationFails)
{
    const PayloadPtr list{
        parse_handshake_payload(R"({"C":"123456","T":["first","second"],"V":"token"})")};
    withEachAllocationFailing([&](FailAllocation& failure) {
        errno = 77;
        const HeapText text{write_handshake_payload(list.get())};
        const int left = errno;
        const bool failed = failure.reached();
        EXPECT_EQ(lastRule(), failed ? "memory.exhausted" : "nothing noted");
        EXPECT_EQ(left, 77);
        EXPECT_EQ(orNull(text.get()),
                  failed ? "(null)" : R"({"C":"123456","T":["first","second"],"V":"token"})");
    });
}

TEST(ParseHandshakePayload, ReadsStringsAndArrays)
{
    EXPECT_EQ(parsed(R"({"T":"A"})"), "T=A;");
    EXPECT_EQ(parsed(R"({"T":["A","B"]})"), "T=A,B;");
    EXPECT_EQ(parsed(R"({"T":["A"]})"), "T=A;");
    EXPECT_EQ(parsed(R"({ "V" : "x", "T" : [ "b", "a" ], "C" : "" })"), "C=;T=b,a;V=x;");
    EXPECT_EQ(parsed(R"({"":"nameless"})"), "=nameless;");
}

TEST(ParseHandshakePayload, KeepsNamesAsTheyAreWritten)
{
    EXPECT_EQ(parsed(R"({"v":"low","V":"high"})"), "V=high;v=low;");
    EXPECT_EQ(parsed(R"({"\u00e9":"\u20ac"})"), "\xC3\xA9=\xE2\x82\xAC;");
}

TEST(ParseHandshakePayload, SkipsNullMembers)
{
    EXPECT_EQ(parsed(R"({"A":null,"B":"x"})"), "B=x;");
    EXPECT_EQ(parsed(R"({"A":"x","B":null,"C":"y"})"), "A=x;C=y;");
}

TEST(ParseHandshakePayload, GivesNullWhenNoParameterIsLeft)
{
    EXPECT_EQ(parsed("{}"), "document.empty");
    EXPECT_EQ(parsed(R"({"A":null})"), "document.empty");
    EXPECT_EQ(parsed(R"({"A":null,"B":null})"), "document.empty");
}

TEST(ParseHandshakePayload, RefusesANestedObject)
{
    EXPECT_EQ(parsed(R"({"A":"x","B":"y"})"), "A=x;B=y;");
    EXPECT_EQ(parsed(R"({"A":"x","B":{}})"), "document.parameter");
    EXPECT_EQ(parsed(R"({"A":"x","B":{"k":"v"}})"), "document.parameter");
    EXPECT_EQ(parsed(R"({"A":"x","Z":{}})"), "document.parameter");
    EXPECT_EQ(parsed(R"({"A":["x",{}]})"), "document.parameter");
}

TEST(ParseHandshakePayload, SaysWhichMemberCannotBeAParameter)
{
    EXPECT_EQ(parsed(R"({"A":"x","B":[1],"C":{}})"), "document.parameter");
    EXPECT_STREQ(lastRefusal().subject, "B");
}

TEST(ParseHandshakePayload, RefusesAnArrayThatHoldsAnythingButStrings)
{
    EXPECT_EQ(parsed(R"({"A":"x","T":["A","B","C"]})"), "A=x;T=A,B,C;");
    for (const char* element : {"1", "null", "true", "1.5", "[]", "[\"B\"]", "{}"})
    {
        SCOPED_TRACE(element);
        EXPECT_EQ(parsed(R"({"A":"x","T":["A",)" + std::string{element} + R"(,"C"]})"),
                  "document.parameter");
        EXPECT_EQ(parsed(R"({"A":"x","T":[)" + std::string{element} + "]}"), "document.parameter");
    }
}

TEST(ParseHandshakePayload, ReadsNumbersBooleansAndEmptyArraysAsParametersWithoutValues)
{
    for (const char* value : {"5", "-1", "1.5", "true", "false", "[]"})
    {
        SCOPED_TRACE(value);
        const PayloadPtr list{
            parse_handshake_payload((R"({"A":)" + std::string{value} + "}").c_str())};
        ASSERT_NE(list, nullptr);
        EXPECT_STREQ(list->name, "A");
        ASSERT_NE(list->values, nullptr);
        EXPECT_EQ(list->values[0], nullptr);
        EXPECT_EQ(list.get()[1].name, nullptr);
        // It can be written, but not copied.
        EXPECT_REFUSED("document.parameter-missing", set_handshake_payload(list.get()));
        EXPECT_STREQ(HeapText{write_handshake_payload(list.get())}.get(), "{}");
    }
}

TEST(ParseHandshakePayload, TakesTheLastOfRepeatedNames)
{
    EXPECT_EQ(parsed(R"({"A":"x","A":"y"})"), "A=y;");
    EXPECT_EQ(parsed(R"({"A":{},"A":"y"})"), "A=y;");
}

TEST(ParseHandshakePayload, CutsValuesAtTheirFirstZeroByte)
{
    EXPECT_EQ(parsed(R"({"A":"x\u0000y","C":["\u0000","z\u0000"]})"), "A=x;C=,z;");
}

// Cut at its zero byte, each of these names would be "A".
TEST(ParseHandshakePayload, PassesOverNamesWithAZeroByte)
{
    EXPECT_EQ(parsed(R"({"A":[],"A\u0000":["x"],"B":"y"})"), "A=;B=y;");
    // Whatever such a member holds: an object would be refused under any other name.
    EXPECT_EQ(parsed(R"({"A\u0000B":{"C":"x"},"B":"y"})"), "B=y;");
    EXPECT_REFUSED("document.empty",
                   PayloadPtr{parse_handshake_payload(R"({"A\u0000":"x","\u0000":"y"})")}.get());
}

TEST(ParseHandshakePayload, TakesWhatTheDefaultReaderTakes)
{
    EXPECT_EQ(parsed("/* why */{\"A\":\"x\"}// end"), "A=x;");
    EXPECT_EQ(parsed("{\"A\":\"x\"}]]"), "A=x;");
    EXPECT_EQ(parsed("{\"A\":\"\xFF\xC0\"}"), "A=\xFF\xC0;");
}

TEST(ParseHandshakePayload, RefusesWhatIsNoObject)
{
    EXPECT_REFUSED("argument.null", parse_handshake_payload(nullptr));
    for (const auto& [name, text] : hostileTexts())
    {
        SCOPED_TRACE(name);
        EXPECT_REFUSED(hostileRule(name), parse_handshake_payload(text.c_str()));
    }
}

TEST(ParseHandshakePayload, GivesWhatCanBeWrittenOrNull)
{
    for (const auto& [name, text] : oddObjects())
    {
        SCOPED_TRACE(name);
        const PayloadPtr list{parse_handshake_payload(text.c_str())};
        const HeapText again{write_handshake_payload(list.get())};
        EXPECT_EQ(list == nullptr, again == nullptr);
    }
}

TEST(ParseHandshakePayload, TakesManyAndLargeMembers)
{
    std::string text = "{";
    for (int i = 1000; i < 2000; ++i)
    {
        text += "\"n" + std::to_string(i) + "\":[\"x\",\"y\"],";
    }
    const std::string value(1024UL * 1024UL, 'v');
    text += "\"z\":\"" + value + "\"}";
    const PayloadPtr list{parse_handshake_payload(text.c_str())};
    ASSERT_NE(list, nullptr);
    EXPECT_STREQ(list.get()[999].name, "n1999");
    EXPECT_EQ(texts(list.get()[999].values), (Texts{"x", "y"}));
    EXPECT_STREQ(list.get()[1000].name, "z");
    EXPECT_EQ(list.get()[1000].values[0], value);
    EXPECT_EQ(list.get()[1001].name, nullptr);
}

TEST(ParseHandshakePayload, GivesNullWhicheverAllocationFails)
{
    const char* const text = R"({"A":"x","B":["y","z"],"C":5,"D":[],"E":null})";
    withEachAllocationFailing([&](FailAllocation& failure) {
        errno = 77;
        const PayloadPtr list{parse_handshake_payload(text)};
        const int left = errno;
        const bool failed = failure.reached();
        EXPECT_EQ(lastRule(), failed ? "memory.exhausted" : "nothing noted");
        EXPECT_EQ(left, 77);
        EXPECT_EQ(list == nullptr, failed);
    });
    EXPECT_EQ(parsed(text), "A=x;B=y,z;C=;D=;");
}
