// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/owners.hpp"

#include <bmcoauth/document.h>
#include <bmcoauth/json.h>

#include <climits>
#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>

#include <array>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>

// Most documents are read and written without jsoncpp, but jsoncpp still decides what is right:
// here both answer the same questions.

using support::HeapText;

namespace
{

/** What jsoncpp reads with its default settings; nothing unless the root is an object. */
std::optional<Json::Value> readByJsoncpp(const std::string& text)
{
    const std::unique_ptr<Json::CharReader> reader{Json::CharReaderBuilder{}.newCharReader()};
    Json::Value tree;
    try
    {
        if (!reader->parse(text.data(), text.data() + text.size(), &tree, nullptr))
        {
            return std::nullopt;
        }
    }
    catch (const Json::Exception&)
    {
        return std::nullopt;
    }
    return tree.isObject() ? std::optional{tree} : std::nullopt;
}

std::optional<Json::Value> read(const std::string& text)
{
    Json::Value tree;
    return loadJsonDoc(text.c_str(), tree) ? std::optional{tree} : std::nullopt;
}

std::string writtenByJsoncpp(const Json::Value& tree)
{
    Json::StreamWriterBuilder compact;
    compact["indentation"] = "";
    return Json::writeString(compact, tree);
}

/** The types of the values of @p tree and where they were in the text, which comparing trees and
 *  writing them do not show. */
// NOLINTNEXTLINE(misc-no-recursion): no deeper than the parser reads
std::string shape(const Json::Value& tree)
{
    std::string text = std::to_string(tree.type()) + '@' + std::to_string(tree.getOffsetStart()) +
                       '-' + std::to_string(tree.getOffsetLimit()) + ' ';
    for (const Json::Value& child : tree)
    {
        text += shape(child);
    }
    return text;
}

/** Whether the editing functions, which read documents as what may hold secrets, make the same of
 *  @p text. */
void expectSameDocument(const std::string& text, const std::optional<Json::Value>& expected)
{
    HeapText owner = support::heapText(text);
    char* document = owner.release();
    EXPECT_EQ(merge_doc(&document, "{}"), expected ? 1 : 0);
    owner.reset(document);
    EXPECT_EQ(document, expected ? writtenByJsoncpp(*expected) : text);
}

/** Reads and writes @p text both ways; whether it was read. */
bool sameAsJsoncpp(const std::string& text)
{
    SCOPED_TRACE(testing::PrintToString(text));
    const std::optional<Json::Value> expected = readByJsoncpp(text);
    const std::optional<Json::Value> tree = read(text);
    EXPECT_EQ(tree.has_value(), expected.has_value());
    expectSameDocument(text, expected);
    if (!tree || !expected)
    {
        return false;
    }
    EXPECT_EQ(shape(*tree), shape(*expected));
    EXPECT_TRUE(*tree == *expected);
    EXPECT_EQ(json_fastWriter(*tree), writtenByJsoncpp(*expected));
    return true;
}

/** Makes documents out of what documents consist of, the same ones in every run. */
class DocumentMaker
{
public:
    /** A document that parses, for all that is odd in it. */
    std::string next()
    {
        room = 12;
        return odd(" ") + object() + odd("\n");
    }

    /** The same with a few characters changed. */
    std::string nextMangled()
    {
        constexpr std::string_view characters = "{}[]\",:\\/ \nutf0-1.eE+n\x01\x7f\x80\xef*'";
        std::string text = next();
        for (std::size_t count = 1 + below(3); count != 0; --count)
        {
            const std::size_t at = below(text.size());
            switch (below(3))
            {
                case 0:
                    text.erase(at, 1);
                    text += ' ';
                    break;
                case 1:
                    text.insert(at, 1, characters[below(characters.size())]);
                    break;
                default:
                    text[at] = characters[below(characters.size())];
            }
        }
        return text;
    }

private:
    std::size_t below(std::size_t limit)
    {
        return random() % limit;
    }

    template <std::size_t count>
    std::string oneOf(const std::array<const char*, count>& choices)
    {
        return choices[below(count)];
    }

    /** Mostly nothing, at times @p usual, seldom what only jsoncpp reads. */
    std::string odd(const char* usual)
    {
        const std::size_t chance = below(120);
        return chance == 0 ? "/* why */" : chance == 1 ? "// why\n" : chance < 20 ? usual : "";
    }

    std::string string()
    {
        std::string text{'"'};
        for (std::size_t pieces = below(4); pieces != 0; --pieces)
        {
            text += below(40) == 0
                        ? oneOf(std::array{"\\u0041", "\\u20ac", "\\ud83d\\ude00", "\xc3\xa4",
                                           "\xff", "\t", "\x7f"})
                        : oneOf(std::array{"a", "scope", "sub", "Z z", "\\\"", "\\\\", "\\/", "\\n",
                                           "\\b\\f\\r\\t", "-----BEGIN", "{[:,]}", "'"});
        }
        return text + '"';
    }

    std::string number()
    {
        return below(20) == 0
                   ? oneOf(std::array{"-1", "-0", "0123", "1.5", "1e3", "1E-2",
                                      "9223372036854775807", "9223372036854775808",
                                      "18446744073709551616", "1000000000000000000"})
                   : oneOf(std::array{"0", "7", "10", "4000000000", "999999999999999999"});
    }

    // NOLINTNEXTLINE(misc-no-recursion): `room` bounds it
    std::string value()
    {
        const std::size_t chance = room == 0 ? 3 + below(3) : below(6);
        room -= room == 0 ? 0 : 1;
        switch (chance)
        {
            case 0:
                return object();
            case 1:
                return array();
            case 2:
                return oneOf(std::array{"true", "false", "null"});
            case 3:
                return number();
            default:
                return string();
        }
    }

    // NOLINTNEXTLINE(misc-no-recursion): `room` bounds it
    std::string object()
    {
        std::string text{'{'};
        for (std::size_t members = below(5); members != 0; --members)
        {
            text += odd(" ") + string() + odd("\t") + ':' + odd(" ") + value() + odd("\r\n");
            text += members == 1 ? (below(60) == 0 ? "," : "") : ",";
        }
        return text + odd(" ") + '}';
    }

    // NOLINTNEXTLINE(misc-no-recursion): `room` bounds it
    std::string array()
    {
        std::string text{'['};
        for (std::size_t elements = below(4); elements != 0; --elements)
        {
            text += odd("  ") + value() + odd(" ") + (elements == 1 ? "" : ",");
        }
        return text + odd(" ") + ']';
    }

    std::size_t room = 0;
    std::mt19937 random{20080229}; // NOLINT(cert-msc51-cpp): the same in every run
};

TEST(LoadJsonDoc, ReadsMadeUpDocumentsAsJsoncppDoes)
{
    DocumentMaker maker;
    for (int round = 0; round < 4000; ++round)
    {
        sameAsJsoncpp(maker.next());
        ASSERT_FALSE(HasFailure());
    }
}

TEST(LoadJsonDoc, ReadsMangledDocumentsAsJsoncppDoes)
{
    DocumentMaker maker;
    int accepted = 0;
    int rejected = 0;
    for (int round = 0; round < 8000; ++round)
    {
        ++(sameAsJsoncpp(maker.nextMangled()) ? accepted : rejected);
        ASSERT_FALSE(HasFailure());
    }
    // The texts are of both kinds, or the comparison says little.
    EXPECT_GT(accepted, 1000);
    EXPECT_GT(rejected, 1000);
}

TEST(LoadJsonDoc, ReadsEveryByteInEveryPlaceAsJsoncppDoes)
{
    const std::string document =
        R"( {"a\n":[1,"b"],"c":{"d":null,"e":true},"f":10,"g":"hijklmnop"} )";
    ASSERT_TRUE(sameAsJsoncpp(document));
    for (std::size_t at = 0; at < document.size(); ++at)
    {
        for (int byte = 1; byte <= 255; ++byte)
        {
            std::string text = document;
            text[at] = static_cast<char>(byte);
            sameAsJsoncpp(text);
            ASSERT_FALSE(HasFailure());
        }
        sameAsJsoncpp(document.substr(0, at));
        ASSERT_FALSE(HasFailure());
    }
}

TEST(LoadJsonDoc, ReadsWhatIsRareAsJsoncppDoes)
{
    for (const char* text : {"{}",
                             "{ }",
                             "{\"a\":[]}",
                             "{\"a\":[ ]}",
                             "{\"a\":{}}",
                             "{\"\":0}",
                             "{\"a\":1,}",
                             "{\"\":1,}",
                             "{\"a\":[1,]}",
                             "{\"a\":[,]}",
                             "{,}",
                             "{\"a\":1,\"a\":{\"b\":2}}",
                             "{\"a\":{\"b\":2,\"c\":3},\"a\":[]}",
                             "{\"b\":1,\"a\":2}",
                             "{\"a\\n\":\"b\\n\"}",
                             "{\"a\\u0000b\":\"c\\u0000d\"}",
                             "{\"a\":1} {",
                             "{\"a\":1}x",
                             "{\"a\":1}}",
                             "{\"a\" 1}",
                             "{\"a\":tru}",
                             "{\"a\":truex}",
                             "{\"a\":nul}",
                             "{\"a\":falze}",
                             "{a:1}",
                             "{'a':1}",
                             "{\"a\":--1}",
                             "{\"a\":}",
                             "{\"a\":\"",
                             "{\"a\":\"\\",
                             "{\"a\":\"\\\"",
                             "{\"a\":\"\\x\"}",
                             "{\"a\":00}",
                             "{\"a\":-}",
                             "{\"a\":1 2}",
                             "\xef\xbb\xbf{\"a\":1}",
                             "/**/{\"a\":1}",
                             "// c\n{\"a\":1}",
                             "{\"a\":1}// c",
                             "{\"a\":1/**/}",
                             "\v{}",
                             "[{}]",
                             "\"{}\"",
                             "1",
                             "-",
                             "-----BEGIN PUBLIC KEY-----\n",
                             "",
                             " ",
                             "\n\t\r ",
                             "{\"a\":NaN}",
                             "{\"a\":Infinity}"})
    {
        sameAsJsoncpp(text);
    }
}

TEST(LoadJsonDoc, ReadsEscapedCodePointsAsJsoncppDoes)
{
    for (const char* escaped :
         {"\\u0041", "\\u00e4", "\\u20AC", "\\uffff", "\\u0000", "\\ud83d\\ude00", "\\ud83d",
          "\\ude00", "\\ud83d\\u0041", "\\ud83dx", "\\ud83d\\n", "\\ud83d\\ud83d\\ude00", "\\u12",
          "\\u12g4", "\\u-123", "\\u 123", "\\U0041", "\\u", "\\"})
    {
        const std::string member = std::string{R"("a":"x)"} + escaped + R"(y")";
        sameAsJsoncpp("{" + member + "}");
        // The comment and the real number lead around the fast way.
        sameAsJsoncpp("{/* why */" + member + ",\"b\":1.5}");
    }
}

TEST(LoadJsonDoc, TakesNothingInACommentForAString)
{
    for (const char* comment : {"/* \" */", "// \"\n", "/*/ \" */", "/***/", "/* * / \" */", "//\r",
                                "/* \\\" */", "/*", "/", "/ /", "/*/"})
    {
        const std::string odd = comment;
        sameAsJsoncpp(odd + R"({"a":"b"})");
        sameAsJsoncpp("{" + odd + R"("a":"b"})");
        sameAsJsoncpp(R"({"a")" + odd + R"(:"b"})");
        sameAsJsoncpp(R"({"a":)" + odd + R"("b"})");
        sameAsJsoncpp(R"({"a":"b")" + odd + R"(,"c":["d",)" + odd + R"("e"]})");
        sameAsJsoncpp(R"({"a":"b"})" + odd);
        sameAsJsoncpp(R"({"a":"b)" + odd + R"("})");
    }
}

TEST(LoadJsonDoc, NestsAsDeeplyAsJsoncppDoes)
{
    for (const int levels : {1, 30, 31, 32, 33, 34, 100, 240})
    {
        const std::string open(static_cast<std::size_t>(levels), '[');
        const std::string close(static_cast<std::size_t>(levels), ']');
        EXPECT_TRUE(sameAsJsoncpp("{\"a\":" + open + close + "}")) << levels;
        std::string objects = "0";
        for (int level = 0; level < levels; ++level)
        {
            objects.insert(0, "{\"a\":").append("}");
        }
        EXPECT_TRUE(sameAsJsoncpp(objects)) << levels;
    }
}

TEST(LoadJsonDoc, LeavesTheTreeAloneWhicheverAllocationFails)
{
    const char* const text = R"({"a\n":["bcdefghijklmnopqrstuvwxyz\n",{"c":1}]})";
    Json::Value warm;
    ASSERT_TRUE(loadJsonDoc(text, warm));
    support::withEachAllocationFailing([&](auto& failure) {
        Json::Value tree{7};
        const bool read = loadJsonDoc(text, tree);
        EXPECT_EQ(read, !failure.reached());
        EXPECT_EQ(tree == Json::Value{7}, failure.reached());
    });
}

TEST(JsonFastWriter, WritesWhatOnlyAProgramMakesAsJsoncppDoes)
{
    Json::Value sparse{Json::arrayValue};
    sparse[3] = "three";
    sparse[1] = Json::objectValue;
    Json::Value commented{Json::objectValue};
    commented["a"] = 1;
    commented["a"].setComment(std::string{"// why"}, Json::commentAfterOnSameLine);
    Json::Value before{"text"};
    before.setComment(std::string{"/* why */"}, Json::commentBefore);
    Json::Value after{Json::arrayValue};
    after.append(1).setComment(std::string{"// why"}, Json::commentAfter);
    Json::Value named{Json::objectValue};
    named[std::string{"a\0b", 3}] = std::string{"c\0d", 3};
    named[Json::StaticString{"static"}] = Json::StaticString{"text"};
    named["\xc3\xa4"] = "ascii";
    Json::Value real{Json::objectValue};
    real["a"] = 0.5;
    for (const Json::Value& tree : {Json::Value{},
                                    Json::Value{true},
                                    Json::Value{false},
                                    Json::Value{INT_MIN},
                                    Json::Value{-1},
                                    Json::Value{UINT_MAX},
                                    Json::Value{std::numeric_limits<Json::Int64>::min()},
                                    Json::Value{std::numeric_limits<Json::Int64>::max()},
                                    Json::Value{std::numeric_limits<Json::UInt64>::max()},
                                    Json::Value{1.0},
                                    Json::Value{-1.5e300},
                                    Json::Value{""},
                                    Json::Value{Json::arrayValue},
                                    Json::Value{Json::objectValue},
                                    Json::Value{Json::stringValue},
                                    sparse,
                                    commented,
                                    before,
                                    after,
                                    named,
                                    real})
    {
        EXPECT_EQ(json_fastWriter(tree), writtenByJsoncpp(tree));
    }
}

TEST(JsonFastWriter, WritesEveryByteAsJsoncppDoes)
{
    for (int byte = 0; byte <= 255; ++byte)
    {
        const std::string text = std::string{"a"} + static_cast<char>(byte) + "b";
        Json::Value tree{Json::objectValue};
        tree[text] = text;
        EXPECT_EQ(json_fastWriter(tree), writtenByJsoncpp(tree)) << byte;
    }
}

// Texts are looked at a word at a time, whose last bytes are looked at alone.
TEST(JsonFastWriter, WritesEveryByteInEveryPlaceOfAWordAsJsoncppDoes)
{
    const std::string letters(19, 'a');
    for (std::size_t at = 0; at < letters.size(); ++at)
    {
        for (int byte = 0; byte <= 255; ++byte)
        {
            std::string text = letters;
            text[at] = static_cast<char>(byte);
            const Json::Value tree{text};
            ASSERT_EQ(json_fastWriter(tree), writtenByJsoncpp(tree)) << at << ' ' << byte;
        }
    }
}

TEST(JsonFastWriter, AllocatesTheTextAndTheResult)
{
    Json::Value tree{Json::objectValue};
    tree["text"] = std::string(400, 'a');
    const std::string expected = writtenByJsoncpp(tree);
    unsigned int allocations = 0;
    support::withEachAllocationFailing([&](auto& failure) {
        const std::string text = json_fastWriter(tree);
        allocations += failure.reached() ? 1U : 0U;
        EXPECT_EQ(text, failure.reached() ? "" : expected);
    });
    EXPECT_EQ(allocations, 2U);
}

TEST(JsonFastWriter, WritesEverySequenceOfBytesAsJsoncppDoes)
{
    std::mt19937 random{20080229}; // NOLINT(cert-msc51-cpp): the same in every run
    // The bytes at which UTF-8 changes what follows, and some that follow.
    constexpr std::string_view bytes{"A\0\"\x7f\x80\xbf\xc0\xc3\xdf\xe0\xed\xa0\xef\xf0\x9f\xf4\xf5"
                                     "\xf7\xf8\xff",
                                     20};
    for (int round = 0; round < 20000; ++round)
    {
        std::string text;
        for (std::size_t length = random() % 8; length != 0; --length)
        {
            text += bytes[random() % bytes.size()];
        }
        const Json::Value tree{text};
        ASSERT_EQ(json_fastWriter(tree), writtenByJsoncpp(tree)) << testing::PrintToString(text);
    }
}

} // namespace
