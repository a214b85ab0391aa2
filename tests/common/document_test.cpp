// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/hostile.hpp"
#include "support/machine.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>
#include <json/value.h>

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

using namespace support;

namespace
{

using Texts = std::vector<std::string>;

/** A text that the editors change. */
class Document
{
public:
    explicit Document(const std::string& text) : current{strdup(text.c_str())}
    {
    }
    Document(const Document&) = delete;
    Document& operator=(const Document&) = delete;
    ~Document()
    {
        std::free(current);
    }

    char** operator&() // what the editors take
    {
        return &current;
    }

    [[nodiscard]] std::string text() const
    {
        return current;
    }

    [[nodiscard]] const char* address() const
    {
        return current;
    }

private:
    char* current;
};

Json::Value tree(const std::string& text)
{
    Json::Value root;
    EXPECT_TRUE(loadJsonDoc(text.c_str(), root));
    return root;
}

std::string afterSetChar(const std::string& text, const char* key, const char* value)
{
    Document document{text};
    EXPECT_EQ(set_value_char(&document, key, value), 1);
    return document.text();
}

std::string afterSetArray(const std::string& text, const char* key, char** values)
{
    Document document{text};
    EXPECT_EQ(set_value_chararray(&document, key, values), 1);
    return document.text();
}

std::string afterMerge(const std::string& text, const std::string& other)
{
    Document document{text};
    EXPECT_EQ(merge_doc(&document, other.c_str()), 1);
    Json::Value destination = tree(text);
    Json::Value source = tree(other);
    update(destination, source);
    // The merge on trees is the same.
    EXPECT_EQ(json_fastWriter(destination), document.text());
    EXPECT_EQ(source, tree(other));
    return document.text();
}

/** Every editor on @p text, each with arguments that are fine but for the text. */
struct Editor
{
    const char* name;
    std::function<int(char**)> edit;
};

const std::vector<Editor>& editors()
{
    static TextList values{"x"};
    static const std::vector<Editor> list{
        {"set_value_char",
         [](char** text) {
             return set_value_char(text, "c", "x");
         }},
        {"set_value_char to null",
         [](char** text) {
             return set_value_char(text, "c", nullptr);
         }},
        {"set_value_chararray",
         [](char** text) {
             return set_value_chararray(text, "c", values);
         }},
        {"merge_doc",
         [](char** text) {
             return merge_doc(text, R"({"c":"x","d":{"e":1}})");
         }},
    };
    return list;
}

char untouchedText[] = "untouched";
char* untouchedElements[] = {untouchedText, nullptr};

/** Reads @p text with every getter and checks that each refuses by @p rule and leaves its out
 *  parameter. */
void expectNoGetterReads(const std::string& rule, const char* text, const char* key)
{
    char* character = untouchedText;
    EXPECT_REFUSED(rule, get_value_char(text, key, &character));
    EXPECT_EQ(character, untouchedText);
    char** array = untouchedElements;
    EXPECT_REFUSED(rule, get_value_chararray(text, key, &array));
    EXPECT_EQ(array, untouchedElements);
    EXPECT_REFUSED(rule, get_value_objarray(text, key, &array));
    EXPECT_EQ(array, untouchedElements);
    for (const bool before : {false, true})
    {
        bool flag = before;
        EXPECT_REFUSED(rule, get_value_bool(text, key, &flag));
        EXPECT_EQ(flag, before);
    }
    unsigned int number = 77;
    EXPECT_REFUSED(rule, get_value_uint(text, key, &number));
    EXPECT_EQ(number, 77U);
}

constexpr const char* everyType =
    R"({"array":["x",1,"y"],"bool":true,"number":4294967295,"objects":[{"b":1,"a":2},5],)"
    R"("string":"text"})";

} // namespace

TEST(GetValue, ReadsAMemberOfEachType)
{
    char* text = nullptr;
    EXPECT_EQ(get_value_char(everyType, "string", &text), 1);
    const HeapText ownedText{text};
    EXPECT_STREQ(text, "text");

    char** array = nullptr;
    EXPECT_EQ(get_value_chararray(everyType, "array", &array), 1);
    const StringArray ownedArray{array};
    EXPECT_EQ(texts(array), (Texts{"x", "y"}));

    char** objects = nullptr;
    EXPECT_EQ(get_value_objarray(everyType, "objects", &objects), 1);
    const StringArray ownedObjects{objects};
    EXPECT_EQ(texts(objects), Texts{R"({"a":2,"b":1})"});

    bool flag = false;
    EXPECT_EQ(get_value_bool(everyType, "bool", &flag), 1);
    EXPECT_TRUE(flag);

    unsigned int number = 0;
    EXPECT_EQ(get_value_uint(everyType, "number", &number), 1);
    EXPECT_EQ(number, 4294967295U);
}

TEST(GetValue, GivesNullForAnEmptyArray)
{
    char** array = untouchedElements;
    EXPECT_EQ(get_value_chararray(R"({"a":[]})", "a", &array), 1);
    EXPECT_EQ(array, nullptr);
    array = untouchedElements;
    EXPECT_EQ(get_value_objarray(R"({"a":[1]})", "a", &array), 1);
    EXPECT_EQ(array, nullptr);
}

TEST(GetValue, ReleasesThePreviousText)
{
    char* text = strdup("old");
    EXPECT_REFUSED("json.member-type", get_value_char(R"({"a":5})", "a", &text));
    EXPECT_STREQ(text, "old");
    EXPECT_EQ(get_value_char(R"({"a":"new"})", "a", &text), 1);
    EXPECT_STREQ(text, "new");
    std::free(text);
}

TEST(GetValue, RefusesAMemberThatIsMissingOrNull)
{
    expectNoGetterReads("json.member-missing", R"({"a":"x"})", "b");
    expectNoGetterReads("json.member-missing", R"({"a":null})", "a");
    expectNoGetterReads("json.member-missing", "{}", "");
}

TEST(GetValue, RefusesAMemberOfAnotherType)
{
    expectNoGetterReads("json.member-type", R"({"a":{"k":"v"}})", "a");
    expectNoGetterReads("json.member-type", R"({"a":1.5})", "a");
    expectNoGetterReads("json.member-type", R"({"a":-1})", "a");
    expectNoGetterReads("json.member-type", R"({"a":4294967296})", "a");
    bool flag = true;
    EXPECT_REFUSED("json.member-type", get_value_bool(R"({"a":0})", "a", &flag));
    EXPECT_REFUSED("json.member-type", get_value_bool(R"({"a":"false"})", "a", &flag));
    EXPECT_TRUE(flag);
    unsigned int number = 77;
    EXPECT_REFUSED("json.member-type", get_value_uint(R"({"a":true})", "a", &number));
    EXPECT_REFUSED("json.member-type", get_value_uint(R"({"a":5.0})", "a", &number));
    EXPECT_REFUSED("json.member-type", get_value_uint(R"({"a":"5"})", "a", &number));
    EXPECT_EQ(number, 77U);
    char** array = untouchedElements;
    EXPECT_REFUSED("json.member-type", get_value_chararray(R"({"a":"x"})", "a", &array));
    EXPECT_REFUSED("json.member-type", get_value_objarray(R"({"a":{}})", "a", &array));
    EXPECT_EQ(array, untouchedElements);
}

TEST(GetValue, RefusesWhatIsNoDocument)
{
    expectNoGetterReads("argument.null", nullptr, "a");
    for (const auto& [name, text] : hostileTexts())
    {
        SCOPED_TRACE(name);
        expectNoGetterReads(hostileRule(name), text.c_str(), "a");
    }
}

TEST(GetValue, RefusesNullArguments)
{
    expectNoGetterReads("argument.null", everyType, nullptr);
    EXPECT_REFUSED("argument.null", get_value_char(everyType, "string", nullptr));
    EXPECT_REFUSED("argument.null", get_value_chararray(everyType, "array", nullptr));
    EXPECT_REFUSED("argument.null", get_value_objarray(everyType, "objects", nullptr));
    EXPECT_REFUSED("argument.null", get_value_bool(everyType, "bool", nullptr));
    EXPECT_REFUSED("argument.null", get_value_uint(everyType, "number", nullptr));
}

TEST(GetValue, SaysWhichArgumentIsNull)
{
    char* out = nullptr;
    EXPECT_REFUSED("argument.null", get_value_char(nullptr, nullptr, nullptr));
    EXPECT_STREQ(lastRefusal().subject, "text");
    EXPECT_REFUSED("argument.null", get_value_char("no document", nullptr, &out));
    EXPECT_STREQ(lastRefusal().subject, "key");
    EXPECT_REFUSED("argument.null", get_value_char("no document", "a", nullptr));
    EXPECT_STREQ(lastRefusal().subject, "out");
}

TEST(GetValue, FailsWhicheverAllocationFails)
{
    withEachAllocationFailing([](FailAllocation& failure) {
        char* text = nullptr;
        errno = 77;
        const int result = get_value_char(everyType, "string", &text);
        const int left = errno;
        const bool failed = failure.reached();
        EXPECT_EQ(lastRule(), failed ? "memory.exhausted" : "nothing noted");
        const HeapText owned{text};
        EXPECT_EQ(left, 77);
        EXPECT_EQ(result, failed ? 0 : 1);
        EXPECT_EQ(orNull(text), failed ? "(null)" : "text");
    });
    withEachAllocationFailing([](FailAllocation& failure) {
        char** array = untouchedElements;
        const int result = get_value_objarray(everyType, "objects", &array);
        const bool failed = failure.reached();
        EXPECT_EQ(lastRule(), failed ? "memory.exhausted" : "nothing noted");
        const StringArray owned{failed ? nullptr : array};
        EXPECT_EQ(result, failed ? 0 : 1);
        EXPECT_EQ(failed, array == untouchedElements);
    });
}

TEST(SetValueChar, AddsAMember)
{
    EXPECT_EQ(afterSetChar(R"({"b":1,"a":2})", "c", "x"), R"({"a":2,"b":1,"c":"x"})");
    EXPECT_EQ(afterSetChar("{ }", "", ""), R"({"":""})");
}

TEST(SetValueChar, ReplacesAMemberOfAnyType)
{
    for (const std::string& value : jsonValuesOfEveryType())
    {
        SCOPED_TRACE(value);
        EXPECT_EQ(afterSetChar("{\"a\":" + value + ",\"b\":1}", "a", "x"), R"({"a":"x","b":1})");
    }
}

TEST(SetValueChar, RemovesAMember)
{
    EXPECT_EQ(afterSetChar(R"({"a":1,"b":2})", "a", nullptr), R"({"b":2})");
    EXPECT_EQ(afterSetChar(R"({"a":{"x":[1]}})", "a", nullptr), "{}");
}

TEST(SetValueChar, RewritesADocumentWithoutTheMemberToRemove)
{
    EXPECT_EQ(afterSetChar("{ \"b\" : 2,\n \"a\" : 1 }", "c", nullptr), R"({"a":1,"b":2})");
}

TEST(SetValueChar, EscapesTheValue)
{
    EXPECT_EQ(afterSetChar("{}", "a\"", "x\"],\"admin\":[\"\n\xFF"),
              R"({"a\"":"x\"],\"admin\":[\"\n\ufffd"})");
}

TEST(SetValueChar, TakesTheTextItself)
{
    char* text = strdup(R"({"a":1})");
    EXPECT_EQ(set_value_char(&text, "b", text), 1);
    EXPECT_STREQ(text, R"({"a":1,"b":"{\"a\":1}"})");
    std::free(text);
}

TEST(SetValueChar, KeepsTheOtherMembersAndTheirComments)
{
    EXPECT_EQ(
        afterSetChar("{/* why */\"a\":0.1,\"b\":18446744073709551615,\"c\":null}", "d", "x"),
        "{/* why */\"a\":0.10000000000000001,\"b\":18446744073709551615,\"c\":null,\"d\":\"x\"}");
}

TEST(SetValueCharArray, SetsAnArray)
{
    TextList two{"x", ""};
    EXPECT_EQ(afterSetArray(R"({"b":1})", "a", two), R"({"a":["x",""],"b":1})");
    EXPECT_EQ(afterSetArray(R"({"a":{"k":1}})", "a", two), R"({"a":["x",""]})");
}

TEST(SetValueCharArray, SetsTheEmptyArrayForNoTexts)
{
    EXPECT_EQ(afterSetArray(R"({"a":["x"]})", "a", nullptr), R"({"a":[]})");
    EXPECT_EQ(afterSetArray(R"({"b":1})", "a", nullptr), R"({"a":[],"b":1})");
    TextList none{};
    EXPECT_EQ(afterSetArray(R"({"a":"x"})", "a", none), R"({"a":[]})");
    // The comment on the old member goes with it.
    EXPECT_EQ(afterSetArray("{/* old */\"a\":[\"x\"]}", "a", nullptr), R"({"a":[]})");
}

TEST(MergeDoc, MergesObjectsIntoObjectsThatAreThere)
{
    EXPECT_EQ(afterMerge(R"({"a":{"b":1},"c":[1]})", R"({"a":{"d":2},"c":[2],"e":{"f":3}})"),
              R"({"a":{"b":1,"d":2},"c":[2],"e":null})");
    EXPECT_EQ(afterMerge(R"({"a":{"b":{"c":1,"d":2}}})", R"({"a":{"b":{"c":3,"e":4}}})"),
              R"({"a":{"b":{"c":3,"d":2,"e":4}}})");
}

TEST(MergeDoc, LeavesAMemberThatIsNoObjectWhereTheOtherHasOne)
{
    EXPECT_EQ(afterMerge(R"({"a":"s"})", R"({"a":{"x":1}})"), R"({"a":"s"})");
    EXPECT_EQ(afterMerge(R"({"a":[1],"b":null})", R"({"a":{"x":1},"b":{"x":1}})"),
              R"({"a":[1],"b":null})");
    EXPECT_EQ(afterMerge(R"({"a":{"b":1}})", R"({"a":{"c":{"d":1},"b":{"d":1}}})"),
              R"({"a":{"b":1,"c":null}})");
}

TEST(MergeDoc, ReplacesByAnythingElse)
{
    for (const char* value : {"null", "true", "5", "1.5", "\"x\"", "[]", "[{}]"})
    {
        SCOPED_TRACE(value);
        const std::string other = "{\"a\":" + std::string{value} + "}";
        EXPECT_EQ(afterMerge(R"({"a":{"b":1}})", other), other);
        EXPECT_EQ(afterMerge(R"({"a":[1,2]})", other), other);
        EXPECT_EQ(afterMerge("{}", other), other);
    }
}

TEST(MergeDoc, RewritesWhenThereIsNothingToMerge)
{
    EXPECT_EQ(afterMerge("{ \"b\":1, \"a\":{} }", "{}"), R"({"a":{},"b":1})");
    EXPECT_EQ(afterMerge("{}", R"({"a":{}})"), R"({"a":null})");
}

TEST(MergeDoc, KeepsNamesWithAZeroByteApart)
{
    EXPECT_EQ(afterMerge(R"({"a":1})", R"({"a\u0000b":2})"), R"({"a":1,"a\u0000b":2})");
}

TEST(MergeDoc, RefusesASecondTextThatIsNoDocument)
{
    Document document{R"({ "a" : 1 })"};
    EXPECT_REFUSED("argument.null", merge_doc(&document, nullptr));
    EXPECT_EQ(document.text(), R"({ "a" : 1 })");
    for (const auto& [name, text] : hostileTexts())
    {
        SCOPED_TRACE(name);
        EXPECT_REFUSED(hostileRule(name), merge_doc(&document, text.c_str()));
        EXPECT_EQ(document.text(), R"({ "a" : 1 })");
    }
}

TEST(Editors, TakeAnOddObject)
{
    for (const auto& [name, edit] : editors())
    {
        for (const auto& [kind, text] : oddObjects())
        {
            SCOPED_TRACE(std::string{name} + ", " + kind);
            Document document{text};
            EXPECT_EQ(edit(&document), 1);
        }
    }
}

TEST(Editors, RefuseWhatIsNoDocumentAndLeaveIt)
{
    for (const auto& [name, edit] : editors())
    {
        SCOPED_TRACE(name);
        EXPECT_REFUSED("argument.null", edit(nullptr));
        char* nothing = nullptr;
        EXPECT_REFUSED("argument.null", edit(&nothing));
        EXPECT_EQ(nothing, nullptr);
        for (const auto& [kind, text] : hostileTexts())
        {
            SCOPED_TRACE(kind);
            Document document{text};
            const char* const before = document.address();
            EXPECT_REFUSED(hostileRule(kind), edit(&document));
            EXPECT_EQ(document.address(), before);
            EXPECT_EQ(document.text(), text);
        }
    }
}

TEST(Editors, RefuseANullKey)
{
    Document document{R"({ "a" : 1 })"};
    TextList values{"x"};
    EXPECT_REFUSED("argument.null", set_value_char(&document, nullptr, "x"));
    EXPECT_REFUSED("argument.null", set_value_char(&document, nullptr, nullptr));
    EXPECT_REFUSED("argument.null", set_value_chararray(&document, nullptr, values));
    EXPECT_EQ(document.text(), R"({ "a" : 1 })");
}

// Exhausted memory is a failure that leaves the text, until there is only the new text left to
// allocate: then it ends the process. A child tells the two apart.
TEST(Editors, LeaveTheTextOrEndTheProcessWhicheverAllocationFails)
{
    constexpr int succeeded = 1;
    constexpr int refused = 2;
    constexpr int wrong = 3;
    constexpr int ended = 255;
    const std::string before =
        R"({ "c" : ["y"], "d" : {"e":0}, "long" : ")" + std::string(2000, 'x') + "\"}";
    for (const Editor& editor : editors())
    {
        int status = refused;
        unsigned int refusals = 0;
        unsigned int endings = 0;
        for (unsigned int nth = 1; status != succeeded; ++nth)
        {
            SCOPED_TRACE(std::string{editor.name} + ", allocation " + std::to_string(nth));
            status = exitStatusOf([&] {
                Document document{before};
                FailAllocation failure{nth};
                const int result = editor.edit(&document);
                if (!failure.reached())
                {
                    _exit(result == 1 ? succeeded : wrong);
                }
                _exit(result == 0 && document.text() == before ? refused : wrong);
            });
            ASSERT_TRUE(status == succeeded || status == refused || status == ended) << status;
            refusals += status == refused ? 1 : 0;
            endings += status == ended ? 1 : 0;
        }
        EXPECT_GT(refusals, 0U) << editor.name;
        EXPECT_EQ(endings, 1U) << editor.name;
    }
}

TEST(ReplaceDoc, StoresTheCompactText)
{
    Document document{"anything"};
    Json::Value root = tree(R"({"b":[1], "a":"x"})");
    EXPECT_EQ(replaceDoc(&document, root), 1);
    EXPECT_EQ(document.text(), R"({"a":"x","b":[1]})");
}

TEST(ReplaceDoc, TakesANullTextAndAnyTree)
{
    char* text = nullptr;
    EXPECT_EQ(replaceDoc(&text, Json::Value{}), 1);
    EXPECT_STREQ(text, "null");
    EXPECT_EQ(replaceDoc(&text, Json::Value{"x"}), 1);
    EXPECT_STREQ(text, "\"x\"");
    std::free(text);
}

TEST(ReplaceDoc, RefusesANullAddress)
{
    EXPECT_REFUSED("argument.null", replaceDoc(nullptr, Json::Value{Json::objectValue}));
}

TEST(ReplaceDoc, EndsTheProcessWhenThereIsNoMemoryForTheText)
{
    const Json::Value root = tree(R"({"a":1})");
    const int status = exitStatusOf([&] {
        char* text = nullptr;
        // Whatever the writer needs is there; the copy of its text comes last.
        for (unsigned int nth = 1;; ++nth)
        {
            FailAllocation failure{nth};
            (void)replaceDoc(&text, root);
            if (!failure.reached())
            {
                _exit(0);
            }
        }
    });
    EXPECT_EQ(status, 255);
}

TEST(Update, DoesNothingUnlessBothAreObjects)
{
    const char* const others[] = {"null", "[1]", "5", "true", "\"x\""};
    for (const char* other : others)
    {
        SCOPED_TRACE(other);
        const Json::Value odd = tree("{\"v\":" + std::string{other} + "}")["v"];
        Json::Value object = tree(R"({"a":1})");
        Json::Value source = odd;
        update(object, source);
        EXPECT_EQ(json_fastWriter(object), R"({"a":1})");
        EXPECT_EQ(source, odd);
        Json::Value destination = odd;
        update(destination, object);
        EXPECT_EQ(destination, odd);
        EXPECT_EQ(json_fastWriter(object), R"({"a":1})");
    }
}

TEST(Update, TakesADocumentAndItself)
{
    Json::Value document = tree(R"({"a":{"b":[1]},"c":"x"})");
    update(document, document);
    EXPECT_EQ(json_fastWriter(document), R"({"a":{"b":[1]},"c":"x"})");
}

TEST(Update, LetsNoErrorOutWhicheverAllocationFails)
{
    bool failed = true;
    for (unsigned int nth = 1; failed; ++nth)
    {
        SCOPED_TRACE(nth);
        Json::Value destination = tree(R"({"a":{"b":1}})");
        Json::Value source = tree(R"({"a":{"b":"text","d":[1]},"e":{"f":1},"g":"x"})");
        bool threw = false;
        FailAllocation failure{nth};
        try
        {
            update(destination, source);
        }
        catch (...)
        {
            threw = true;
        }
        failed = failure.reached();
        EXPECT_FALSE(threw);
        EXPECT_TRUE(failed || json_fastWriter(destination) ==
                                  R"({"a":{"b":"text","d":[1]},"e":null,"g":"x"})");
    }
}
