// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/hostile.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

using namespace support;

namespace
{

using Texts = std::vector<std::string>;

/** The tree of @p text, read by jsoncpp itself. */
Json::Value tree(const std::string& text)
{
    Json::Value root;
    std::istringstream stream{text};
    EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder{}, stream, &root, nullptr)) << text;
    return root;
}

/** A value that no reader below gives, to see that an out parameter is untouched. */
char untouchedText[] = "untouched";
char* untouchedElements[] = {untouchedText, nullptr};
char** const untouchedArray = untouchedElements;

int readsChar(Json::Value& doc, const char* key)
{
    char* out = nullptr;
    const int result = json_to_char(doc, key, &out);
    const HeapText owned{out};
    EXPECT_EQ(result == 1, out != nullptr);
    return result;
}

int readsCharArray(Json::Value& doc, const char* key)
{
    char** out = untouchedArray;
    const int result = json_to_char_array(doc, key, &out);
    EXPECT_EQ(result == 0, out == untouchedArray);
    const StringArray owned{result == 1 ? out : nullptr};
    return result;
}

int readsBool(Json::Value& doc, const char* key)
{
    bool low = false;
    bool high = true;
    const int result = json_to_bool(doc, key, &low);
    EXPECT_EQ(json_to_bool(doc, key, &high), result);
    EXPECT_EQ(result == 1, low == high);
    return result;
}

int readsUint(Json::Value& doc, const char* key)
{
    unsigned int low = 1;
    unsigned int high = 2;
    const int result = json_to_uint(doc, key, &low);
    EXPECT_EQ(json_to_uint(doc, key, &high), result);
    EXPECT_EQ(result == 1, low == high);
    return result;
}

int readsUint64(Json::Value& doc, const char* key)
{
    unsigned long long low = 1;
    unsigned long long high = 2;
    const int result = json_to_uint64(doc, key, &low);
    EXPECT_EQ(json_to_uint64(doc, key, &high), result);
    EXPECT_EQ(result == 1, low == high);
    return result;
}

int readsObj(Json::Value& doc, const char* key)
{
    char* out = nullptr;
    const int result = json_to_obj(doc, key, &out);
    const HeapText owned{out};
    EXPECT_EQ(result == 1, out != nullptr);
    return result;
}

int readsObjArray(Json::Value& doc, const char* key)
{
    char** out = untouchedArray;
    const int result = json_to_obj_array(doc, key, &out);
    EXPECT_EQ(result == 0, out == untouchedArray);
    const StringArray owned{result == 1 ? out : nullptr};
    return result;
}

/** One reader, which also checks that the out parameter survives a failure, and the values of the
 *  list jsonValuesOfEveryType that it takes. */
struct Reader
{
    const char* name;
    int (*read)(Json::Value&, const char*);
    Texts accepted;
};

const std::vector<Reader>& readers()
{
    static const std::vector<Reader> list{
        {"json_to_char", readsChar, {"\"\"", "\"x\""}},
        {"json_to_char_array", readsCharArray, {"[]", "[1]", "[\"x\"]"}},
        {"json_to_bool", readsBool, {"true", "false"}},
        {"json_to_uint", readsUint, {"0"}},
        {"json_to_uint64", readsUint64, {"0"}},
        {"json_to_obj", readsObj, {"{}", "{\"a\":1}"}},
        {"json_to_obj_array", readsObjArray, {"[]", "[1]", "[\"x\"]"}},
    };
    return list;
}

bool contains(const Texts& list, const std::string& text)
{
    return std::find(list.begin(), list.end(), text) != list.end();
}

std::string readText(const std::string& document, const char* key)
{
    Json::Value doc = tree(document);
    char* out = nullptr;
    EXPECT_EQ(json_to_char(doc, key, &out), 1);
    return orNull(HeapText{out}.get());
}

/** What an array reader makes of the member "a" of @p document. */
Texts readArray(int (*reader)(Json::Value&, const char*, char***), const std::string& document)
{
    Json::Value doc = tree(document);
    char** out = untouchedArray;
    EXPECT_EQ(reader(doc, "a", &out), 1);
    const StringArray owned{out};
    if (owned && *owned == nullptr)
    {
        return {"an array that holds only its end"};
    }
    return texts(out);
}

struct Number
{
    const char* written;
    const char* rule;   /**< "accepted" for none */
    unsigned int value; /**< what the out parameter holds then: 7, if refused */
};

constexpr Number numbers[] = {
    {"0", "accepted", 0},
    {"5", "accepted", 5},
    {"-0", "accepted", 0},
    {"2147483647", "accepted", 2147483647U},
    {"2147483648", "accepted", 2147483648U},
    {"4294967295", "accepted", 4294967295U},
    {"4294967296", "json.member-type", 7},
    {"9223372036854775807", "json.member-type", 7},
    {"9223372036854775808", "json.member-type", 7},
    {"18446744073709551615", "json.member-type", 7},
    {"18446744073709551616", "json.member-type", 7},
    {"-1", "json.member-type", 7},
    {"-9223372036854775808", "json.member-type", 7},
    {"5.0", "json.member-type", 7},
    {"0.0", "json.member-type", 7},
    {"1e3", "json.member-type", 7},
    {"1E0", "json.member-type", 7},
    {"true", "json.member-type", 7},
    {"false", "json.member-type", 7},
    {"null", "json.member-missing", 7},
    {"\"5\"", "json.member-type", 7},
    {"[5]", "json.member-type", 7},
    {"{\"a\":5}", "json.member-type", 7},
};

} // namespace

TEST(JsonReaders, TakeOnlyTheirOwnType)
{
    for (const auto& [name, read, accepted] : readers())
    {
        for (const std::string& value : jsonValuesOfEveryType())
        {
            SCOPED_TRACE(std::string{name} + " of " + value);
            Json::Value doc = tree("{\"a\":" + value + "}");
            const char* const rule = contains(accepted, value) ? "accepted"
                                     : value == "null"         ? "json.member-missing"
                                                               : "json.member-type";
            EXPECT_REFUSED(rule, read(doc, "a"));
            EXPECT_EQ(json_fastWriter(doc), json_fastWriter(tree("{\"a\":" + value + "}")));
        }
    }
}

TEST(JsonReaders, AddAMissingMemberAsNull)
{
    for (const auto& [name, read, accepted] : readers())
    {
        SCOPED_TRACE(name);
        Json::Value doc{Json::objectValue};
        EXPECT_REFUSED("json.member-missing", read(doc, "scope"));
        EXPECT_EQ(json_fastWriter(doc), R"({"scope":null})");
        EXPECT_REFUSED("json.member-missing", read(doc, ""));
        EXPECT_EQ(json_fastWriter(doc), R"({"":null,"scope":null})");
    }
}

TEST(JsonReaders, MakeANullDocumentAnObject)
{
    for (const auto& [name, read, accepted] : readers())
    {
        SCOPED_TRACE(name);
        Json::Value doc;
        EXPECT_REFUSED("json.member-missing", read(doc, "a"));
        EXPECT_EQ(json_fastWriter(doc), R"({"a":null})");
    }
}

TEST(JsonReaders, LetTheErrorOfAnotherDocumentPass)
{
    for (const auto& [name, read, accepted] : readers())
    {
        for (const char* document : {"[1,2]", "\"x\"", "5", "1.5", "true"})
        {
            SCOPED_TRACE(std::string{name} + " of " + document);
            Json::Value doc = tree(document);
            EXPECT_THROW(read(doc, "a"), Json::LogicError);
            EXPECT_EQ(doc, tree(document));
        }
    }
}

TEST(JsonReaders, RefuseANullKeyAtOnce)
{
    for (const auto& [name, read, accepted] : readers())
    {
        SCOPED_TRACE(name);
        Json::Value object = tree(R"({"a":1})");
        EXPECT_REFUSED("argument.null", read(object, nullptr));
        EXPECT_EQ(json_fastWriter(object), R"({"a":1})");
        Json::Value nothing;
        EXPECT_REFUSED("argument.null", read(nothing, nullptr));
        EXPECT_TRUE(nothing.isNull());
        Json::Value array = tree("[1]");
        EXPECT_REFUSED("argument.null", read(array, nullptr));
    }
}

TEST(JsonReaders, SayWhichArgumentOrMemberIsAtFault)
{
    Json::Value doc = tree(R"({"a":5})");
    char* out = nullptr;
    EXPECT_REFUSED("json.member-type", json_to_char(doc, "a", &out));
    EXPECT_STREQ(lastRefusal().subject, "a");
    EXPECT_REFUSED("argument.null", json_to_char(doc, nullptr, nullptr));
    EXPECT_STREQ(lastRefusal().subject, "key");
    EXPECT_REFUSED("argument.null", json_to_char(doc, "a", nullptr));
    EXPECT_STREQ(lastRefusal().subject, "out");
}

TEST(JsonReaders, RefuseANullOutParameter)
{
    Json::Value doc = tree(R"({"a":"x","b":["x"],"c":true,"d":5,"e":{},"f":[{}]})");
    EXPECT_REFUSED("argument.null", json_to_char(doc, "a", nullptr));
    EXPECT_REFUSED("argument.null", json_to_char_array(doc, "b", nullptr));
    EXPECT_REFUSED("argument.null", json_to_bool(doc, "c", nullptr));
    EXPECT_REFUSED("argument.null", json_to_uint(doc, "d", nullptr));
    EXPECT_REFUSED("argument.null", json_to_uint64(doc, "d", nullptr));
    EXPECT_REFUSED("argument.null", json_to_obj(doc, "e", nullptr));
    EXPECT_REFUSED("argument.null", json_to_obj_array(doc, "f", nullptr));
}

// A member name ends at its zero byte for a caller, who has no way to write one.
TEST(JsonReaders, FindNamesByteForByte)
{
    Json::Value doc = tree(R"({"Key":"right","key":"wrong","Key\u0000":"longer"})");
    char* out = nullptr;
    EXPECT_EQ(json_to_char(doc, "Key", &out), 1);
    EXPECT_STREQ(out, "right");
    EXPECT_REFUSED("json.member-missing", json_to_char(doc, "KEY", &out));
    EXPECT_STREQ(out, "right");
    const HeapText owned{out};
}

TEST(JsonReaders, GiveFailureWhicheverAllocationFails)
{
    const Json::Value source = tree(R"({"a":"text","b":["x","y"],"e":{"k":"v"},"f":[{"k":1}]})");
    struct Case
    {
        const char* name;
        std::function<int(Json::Value&)> read;
    };
    char* text = strdup("before");
    char** array = untouchedArray;
    const Case cases[] = {
        {"json_to_char",
         [&](Json::Value& doc) {
             return json_to_char(doc, "a", &text);
         }},
        {"json_to_char_array",
         [&](Json::Value& doc) {
             return json_to_char_array(doc, "b", &array);
         }},
        {"json_to_obj",
         [&](Json::Value& doc) {
             return json_to_obj(doc, "e", &text);
         }},
        {"json_to_obj_array",
         [&](Json::Value& doc) {
             return json_to_obj_array(doc, "f", &array);
         }},
    };
    for (const auto& [name, read] : cases)
    {
        bool failed = true;
        for (unsigned int nth = 1; failed; ++nth)
        {
            SCOPED_TRACE(std::string{name} + ", allocation " + std::to_string(nth));
            Json::Value doc = source;
            const std::string before = text;
            plantRefusal();
            errno = 77;
            FailAllocation failure{nth};
            const int result = read(doc);
            const int left = errno;
            failed = failure.reached();
            EXPECT_EQ(lastRule(), failed ? "memory.exhausted" : "nothing noted");
            EXPECT_EQ(left, 77);
            EXPECT_EQ(result, failed ? 0 : 1);
            if (failed)
            {
                EXPECT_EQ(text, before);
                EXPECT_EQ(array, untouchedArray);
            }
        }
        if (array != untouchedArray)
        {
            free_char_array(array);
            array = untouchedArray;
        }
    }
    EXPECT_STREQ(text, R"({"k":"v"})");
    std::free(text);
}

// The member that is added needs memory, too, and jsoncpp has an error of its own for that.
TEST(JsonReaders, GiveFailureWhenAMissingMemberCannotBeAdded)
{
    for (const auto& [name, read, accepted] : readers())
    {
        bool failed = true;
        for (unsigned int nth = 1; failed; ++nth)
        {
            SCOPED_TRACE(std::string{name} + ", allocation " + std::to_string(nth));
            Json::Value doc;
            bool threw = false;
            int result = -1;
            FailAllocation failure{nth};
            try
            {
                result = read(doc, "missing");
            }
            catch (...)
            {
                threw = true;
            }
            failed = failure.reached();
            EXPECT_FALSE(threw);
            EXPECT_EQ(result, 0);
        }
    }
}

TEST(JsonToChar, CopiesAString)
{
    EXPECT_EQ(readText(R"({"a":"x"})", "a"), "x");
    EXPECT_EQ(readText(R"({"a":""})", "a"), "");
    EXPECT_EQ(readText(R"({"a":"\u00e9\ud83d\ude00\n\"\\"})", "a"),
              "\xC3\xA9\xF0\x9F\x98\x80\n\"\\");
    EXPECT_EQ(readText("{\"a\":\"\xFF\xC0\"}", "a"), "\xFF\xC0");
    EXPECT_EQ(readText(R"({"":"nameless"})", ""), "nameless");
}

TEST(JsonToChar, ReplacesAndReleasesThePreviousText)
{
    Json::Value doc = tree(R"({"a":"new","b":5})");
    char* out = strdup("old");
    EXPECT_REFUSED("json.member-type", json_to_char(doc, "b", &out));
    EXPECT_STREQ(out, "old");
    EXPECT_EQ(json_to_char(doc, "a", &out), 1);
    EXPECT_STREQ(out, "new");
    const HeapText owned{out};
}

TEST(JsonToChar, CutsAStringAtItsFirstZeroByte)
{
    EXPECT_EQ(readText(R"({"a":"corp\u0000evil"})", "a"), "corp");
    EXPECT_EQ(readText(R"({"a":"\u0000"})", "a"), "");
}

TEST(JsonToChar, TakesTheLastOfTwoMembersWithOneName)
{
    EXPECT_EQ(readText(R"({"a":"first","a":"last"})", "a"), "last");
}

TEST(JsonToChar, TakesAMebibyte)
{
    const std::string value(1024UL * 1024UL, 'x');
    EXPECT_EQ(readText("{\"a\":\"" + value + "\"}", "a"), value);
}

TEST(JsonToCharArray, TakesTheStringsInOrder)
{
    EXPECT_EQ(readArray(json_to_char_array, R"({"a":["x",1,null,"y"]})"), (Texts{"x", "y"}));
    EXPECT_EQ(readArray(json_to_char_array, R"({"a":["b","","a"]})"), (Texts{"b", "", "a"}));
    EXPECT_EQ(readArray(json_to_char_array, R"({"a":[true,["x"],{"k":"x"},"z\u0000z"]})"),
              Texts{"z"});
}

TEST(JsonToCharArray, GivesNullWhenNoStringIsThere)
{
    EXPECT_EQ(readArray(json_to_char_array, R"({"a":[]})"), Texts{});
    EXPECT_EQ(readArray(json_to_char_array, R"({"a":[1,null,{},[]]})"), Texts{});
}

TEST(JsonToCharArray, OverwritesWithoutReleasing)
{
    Json::Value doc = tree(R"({"a":["x"],"b":[]})");
    TextList mine{"mine"};
    char** out = mine;
    EXPECT_EQ(json_to_char_array(doc, "a", &out), 1);
    const StringArray owned{out};
    EXPECT_EQ(texts(out), Texts{"x"});
    // Released, it could not be read any more.
    EXPECT_EQ(texts(mine), Texts{"mine"});
    out = mine;
    EXPECT_EQ(json_to_char_array(doc, "b", &out), 1);
    EXPECT_EQ(out, nullptr);
}

TEST(JsonToBool, GivesTheValue)
{
    Json::Value doc = tree(R"({"a":true,"b":false})");
    bool out = false;
    EXPECT_EQ(json_to_bool(doc, "a", &out), 1);
    EXPECT_TRUE(out);
    EXPECT_EQ(json_to_bool(doc, "b", &out), 1);
    EXPECT_FALSE(out);
}

TEST(JsonToUint, TakesIntegersOf32BitsAlone)
{
    for (const auto& [written, rule, value] : numbers)
    {
        SCOPED_TRACE(written);
        Json::Value doc = tree("{\"a\":" + std::string{written} + "}");
        unsigned int out = 7;
        EXPECT_EQ(ruleOf([&] { return json_to_uint(doc, "a", &out); }), rule);
        EXPECT_EQ(out, value);
    }
}

TEST(JsonToUint64, TakesIntegersOf32BitsAloneToo)
{
    for (const auto& [written, rule, value] : numbers)
    {
        SCOPED_TRACE(written);
        Json::Value doc = tree("{\"a\":" + std::string{written} + "}");
        unsigned long long out = 7;
        EXPECT_EQ(ruleOf([&] { return json_to_uint64(doc, "a", &out); }), rule);
        EXPECT_EQ(out, value);
    }
}

// A parsed number is signed for jsoncpp while it fits; one that a program stores need not be.
TEST(JsonToUint, TakesANumberThatAProgramStored)
{
    Json::Value doc{Json::objectValue};
    doc["unsigned"] = Json::UInt{4294967295U};
    doc["wide"] = Json::UInt64{4294967296U};
    doc["signed"] = Json::Int64{4294967295};
    unsigned int out = 7;
    EXPECT_EQ(json_to_uint(doc, "unsigned", &out), 1);
    EXPECT_EQ(out, 4294967295U);
    EXPECT_REFUSED("json.member-type", json_to_uint(doc, "wide", &out));
    unsigned long long wide = 7;
    EXPECT_REFUSED("json.member-type", json_to_uint64(doc, "wide", &wide));
    EXPECT_EQ(wide, 7U);
    EXPECT_EQ(json_to_uint64(doc, "signed", &wide), 1);
    EXPECT_EQ(wide, 4294967295U);
}

TEST(JsonToObj, GivesTheCompactText)
{
    Json::Value doc = tree(R"({"a" : {"k": "v", "b": 1}, "c": {}})");
    char* out = strdup("old");
    EXPECT_EQ(json_to_obj(doc, "a", &out), 1);
    EXPECT_STREQ(out, R"({"b":1,"k":"v"})");
    EXPECT_EQ(json_to_obj(doc, "c", &out), 1);
    EXPECT_STREQ(out, "{}");
    EXPECT_REFUSED("json.member-missing", json_to_obj(doc, "missing", &out));
    EXPECT_STREQ(out, "{}");
    const HeapText owned{out};
}

TEST(JsonToObjArray, GivesTheTextOfEachObject)
{
    EXPECT_EQ(
        readArray(json_to_obj_array, R"({"a":[{"y":1,"x":[ 2 ]},"text",null,5,[{"z":1}],{}]})"),
        (Texts{R"({"x":[2],"y":1})", "{}"}));
}

TEST(JsonToObjArray, GivesNullWhenNoObjectIsThere)
{
    EXPECT_EQ(readArray(json_to_obj_array, R"({"a":[]})"), Texts{});
    EXPECT_EQ(readArray(json_to_obj_array, R"({"a":["x",null,[{}]]})"), Texts{});
}

TEST(JsonFastWriter, WritesWithoutWhitespace)
{
    EXPECT_EQ(
        json_fastWriter(tree("{ \"a\" : 1 ,\n\"b\" : [ 1 , 2 ],\t\"c\" : { \"d\" : \"x\" } }")),
        R"({"a":1,"b":[1,2],"c":{"d":"x"}})");
    EXPECT_EQ(json_fastWriter(tree("{ }")), "{}");
    EXPECT_EQ(json_fastWriter(tree("[ ]")), "[]");
    EXPECT_EQ(json_fastWriter(tree(R"({"a":[[],{},[[]]]})")), R"({"a":[[],{},[[]]]})");
}

TEST(JsonFastWriter, OrdersMembersByTheBytesOfTheirNames)
{
    EXPECT_EQ(json_fastWriter(tree(R"({"b":1,"a":2,"B":3,"aa":4,"":5,"_":6,"\u00e9":7,"z":8})")),
              R"({"":5,"B":3,"_":6,"a":2,"aa":4,"b":1,"z":8,"\u00e9":7})");
}

TEST(JsonFastWriter, EscapesStrings)
{
    Json::Value doc{Json::objectValue};
    doc["a"] = "\"\\/\b\f\n\r\t\x01\x1F\x7F";
    EXPECT_EQ(json_fastWriter(doc), "{\"a\":\"\\\"\\\\/\\b\\f\\n\\r\\t\\u0001\\u001f\x7F\"}");
    doc["a"] = "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
    EXPECT_EQ(json_fastWriter(doc), R"({"a":"\u00e9\u20ac\ud83d\ude00"})");
    doc["a"] = std::string("x\0y", 3);
    EXPECT_EQ(json_fastWriter(doc), R"({"a":"x\u0000y"})");
}

TEST(JsonFastWriter, WritesBytesThatAreNoUtf8AsTheReplacementCharacter)
{
    Json::Value doc{Json::objectValue};
    doc["a"] = "x\xFF";
    EXPECT_EQ(json_fastWriter(doc), R"({"a":"x\ufffd"})");
}

TEST(JsonFastWriter, WritesScalars)
{
    EXPECT_EQ(json_fastWriter(Json::Value{}), "null");
    EXPECT_EQ(json_fastWriter(Json::Value{true}), "true");
    EXPECT_EQ(json_fastWriter(Json::Value{"x"}), R"("x")");
    EXPECT_EQ(json_fastWriter(tree(R"({"a":null,"b":[null]})")), R"({"a":null,"b":[null]})");
}

TEST(JsonFastWriter, WritesNumbers)
{
    EXPECT_EQ(json_fastWriter(tree("[0,-1,18446744073709551615,-9223372036854775808]")),
              "[0,-1,18446744073709551615,-9223372036854775808]");
    EXPECT_EQ(json_fastWriter(tree("[0.1,5.0,1e3,18446744073709551616]")),
              "[0.10000000000000001,5.0,1000.0,1.8446744073709552e+19]");
}

TEST(JsonFastWriter, KeepsComments)
{
    EXPECT_EQ(json_fastWriter(tree("{\"a\":1} // comment")), "{\"a\":1} // comment");
    EXPECT_EQ(json_fastWriter(tree("{/* why */\"a\":1}")), "{/* why */\"a\":1}");
}

TEST(JsonFastWriter, GivesNothingWhicheverAllocationFails)
{
    // Long enough for the text to outgrow its first buffers.
    const std::string text = "{\"a\":\"" + std::string(5000, 'x') + "\",\"b\":[1,2.5,{}]}";
    const Json::Value doc = tree(text);
    withEachAllocationFailing([&](FailAllocation& failure) {
        const std::string written = json_fastWriter(doc);
        const bool failed = failure.reached();
        EXPECT_EQ(lastRule(), failed ? "memory.exhausted" : "nothing noted");
        EXPECT_EQ(written, failed ? "" : text);
    });
}

TEST(LoadJsonDoc, ReadsAnObject)
{
    Json::Value doc;
    EXPECT_TRUE(loadJsonDoc("{}", doc));
    EXPECT_TRUE(doc.isObject());
    EXPECT_TRUE(loadJsonDoc(" \t\r\n{ \"b\" : 1, \"a\" : [ true ] } ", doc));
    EXPECT_EQ(json_fastWriter(doc), R"({"a":[true],"b":1})");
}

TEST(LoadJsonDoc, TakesWhatTheDefaultReaderTakes)
{
    Json::Value doc;
    EXPECT_TRUE(loadJsonDoc("{\"a\":1} // comment", doc));
    EXPECT_TRUE(loadJsonDoc("/* comment */ {\"a\":1}", doc));
    EXPECT_TRUE(loadJsonDoc("{\"a\":1} trailing [garbage", doc));
    EXPECT_TRUE(loadJsonDoc("\xEF\xBB\xBF{\"a\":1}", doc));
    EXPECT_TRUE(loadJsonDoc("{\"a\":1,}", doc));
    EXPECT_TRUE(loadJsonDoc("{\"a\":1,\"a\":2}", doc));
    EXPECT_EQ(json_fastWriter(doc), R"({"a":2})");
    EXPECT_TRUE(loadJsonDoc("{\"a\":\"\xFF\"}", doc));
}

TEST(LoadJsonDoc, ReplacesWhatTheDocumentHeld)
{
    Json::Value doc = tree("[1,2] // comment");
    EXPECT_TRUE(loadJsonDoc(R"({"a":1})", doc));
    EXPECT_EQ(json_fastWriter(doc), R"({"a":1})");
}

TEST(LoadJsonDoc, RefusesAnythingElseAndLeavesTheDocument)
{
    const Json::Value before = tree(R"({"kept":1})");
    Json::Value doc = before;
    EXPECT_REFUSED("argument.null", loadJsonDoc(nullptr, doc));
    EXPECT_EQ(doc, before);
    for (const auto& [name, text] : hostileTexts())
    {
        SCOPED_TRACE(name);
        EXPECT_REFUSED(hostileRule(name), loadJsonDoc(text.c_str(), doc));
        EXPECT_EQ(doc, before);
    }
}

// Not handed to jsoncpp, whose word for it is the same.
TEST(LoadJsonDoc, RefusesAKeyInPem)
{
    Json::Value doc;
    for (const std::string text : {"-----BEGIN PUBLIC KEY-----", " \t\r\n-----BEGIN", "--"})
    {
        SCOPED_TRACE(text);
        EXPECT_REFUSED("json.syntax", loadJsonDoc(text.c_str(), doc));
        char* out = nullptr;
        EXPECT_REFUSED("json.syntax", get_value_char(text.c_str(), "a", &out));
    }
    // A negative number is JSON.
    EXPECT_REFUSED("json.root", loadJsonDoc("-1", doc));
}

TEST(LoadJsonDoc, TakesOddObjects)
{
    for (const auto& [name, text] : oddObjects())
    {
        SCOPED_TRACE(name);
        Json::Value doc;
        EXPECT_TRUE(loadJsonDoc(text.c_str(), doc));
        EXPECT_TRUE(doc.isObject());
        EXPECT_FALSE(json_fastWriter(doc).empty());
    }
}

TEST(LoadJsonDoc, BoundsTheDepth)
{
    Json::Value doc;
    // The object is a level itself.
    EXPECT_TRUE(loadJsonDoc(nestedMember("a", 255).c_str(), doc));
    for (const int depth : {256, 257, 999, 1000, 100000})
    {
        EXPECT_REFUSED("json.nesting", loadJsonDoc(nestedMember("a", depth).c_str(), doc)) << depth;
    }
    // So is a value that is neither object nor array.
    const auto around = [](int depth, const std::string& value) {
        const std::string text = nestedMember("a", depth);
        return std::string{text}.insert(text.find(']'), value);
    };
    EXPECT_TRUE(loadJsonDoc(around(254, "1").c_str(), doc));
    EXPECT_REFUSED("json.nesting", loadJsonDoc(around(255, "1").c_str(), doc));
}

TEST(LoadJsonDoc, ReadsUpToTheTerminator)
{
    Json::Value doc;
    const char text[] = "{\"a\":1}\0}";
    EXPECT_TRUE(loadJsonDoc(text, doc));
    const char cut[] = "{\"a\":\0 1}";
    EXPECT_REFUSED("json.syntax", loadJsonDoc(cut, doc));
}

TEST(LoadJsonDoc, FailsWhicheverAllocationFails)
{
    const std::string text = R"({"member":"value","list":[1.5,"x",{}],"object":{"k":null}})";
    bool failed = true;
    for (unsigned int nth = 1; failed; ++nth)
    {
        SCOPED_TRACE(nth);
        Json::Value doc = tree(R"({"kept":1})");
        plantRefusal();
        errno = 77;
        FailAllocation failure{nth};
        const bool loaded = loadJsonDoc(text.c_str(), doc);
        const int left = errno;
        failed = failure.reached();
        // Where its stream has no memory for a real number, jsoncpp calls the number malformed.
        const std::string rule = lastRule();
        EXPECT_TRUE(failed ? rule == "memory.exhausted" || rule == "json.syntax"
                           : rule == "nothing noted")
            << rule;
        EXPECT_EQ(left, 77);
        EXPECT_EQ(loaded, !failed);
        EXPECT_EQ(json_fastWriter(doc),
                  failed ? R"({"kept":1})"
                         : R"({"list":[1.5,"x",{}],"member":"value","object":{"k":null}})");
    }
}
