// SPDX-License-Identifier: Apache-2.0
#include "support/hostile.hpp"

#include "support/fake_device.hpp"

#include <algorithm>
#include <array>
#include <cstddef>

namespace support
{

namespace
{

std::string repeated(std::string_view piece, std::size_t count)
{
    std::string text;
    text.reserve(piece.size() * count);
    for (std::size_t index = 0; index < count; ++index)
    {
        text += piece;
    }
    return text;
}

/** The length of the largest texts, which slow runs shorten: in memcheck, texts of mebibytes take most
 *  of the time, and an error that depends on the length shows in 28 KiB too. */
std::size_t mebibyte()
{
    return std::size_t{1024} * 1024 / std::min(faultStep(), 37U);
}

/** Every byte but NUL, in an order that means nothing. */
std::string garbage()
{
    std::string text;
    for (unsigned int index = 1; index < 256; ++index)
    {
        text += static_cast<char>(index * 167U % 256U);
    }
    return text;
}

} // namespace

const std::vector<HostileText>& hostileTexts()
{
    static const std::vector<HostileText> list{
        {"empty", ""},
        {"blanks", " \t\r\n"},
        {"only a comment", "// nothing here"},
        {"comment without end", "/* "},
        {"byte order mark alone", "\xEF\xBB\xBF"},
        {"null", "null"},
        {"Boolean", "true"},
        {"number", "42"},
        {"string", "\"text\""},
        {"array", "[1,2]"},
        {"array of objects", "[{}]"},
        {"object cut off after its brace", "{"},
        {"object cut off in a name", "{\"na"},
        {"object cut off after a name", "{\"name\""},
        {"object cut off after a colon", "{\"name\":"},
        {"object cut off in a value", "{\"name\":\"va"},
        {"object cut off after a value", "{\"name\":\"value\""},
        {"object cut off after a comma", "{\"name\":\"value\","},
        {"object cut off in an escape", "{\"name\":\"\\u00"},
        {"wrong bracket", "{\"name\":[1}"},
        {"unknown escape", "{\"name\":\"\\q\"}"},
        {"half a surrogate pair", "{\"name\":\"\\ud800\"}"},
        {"name without quotes", "{name:1}"},
        {"names in single quotes", "{'name':1}"},
        {"number as a name", "{1:1}"},
        {"word that is no value", "{\"name\":nothing}"},
        {"number that is none", "{\"name\":1e}"},
        {"words", "not JSON at all"},
        {"bytes that are no UTF-8", "\xFF\xFE\x80\xC0\xAF\xED\xA0\x80"},
        {"every byte but NUL", garbage()},
        {"member nested one level too deep", nestedMember("a", 256)},
        {"arrays nested 5000 deep", repeated("[", 5000) + repeated("]", 5000)},
        {"arrays nested 100000 deep, never closed", repeated("[", 100000)},
        {"objects nested 5000 deep", repeated("{\"a\":", 5000) + "1" + repeated("}", 5000)},
        {"objects nested 100000 deep, never closed", repeated("{\"a\":", 100000)},
        {"member with arrays nested 5000 deep", nestedMember("a", 5000)},
        {"string of 4 MiB without end", "{\"name\":\"" + std::string(4 * mebibyte(), 'x')},
        {"letters, 4 MiB", std::string(4 * mebibyte(), 'A')},
        {"braces, 1 MiB", repeated("}", mebibyte())},
        {"array of a million bytes", "[" + repeated("0,", mebibyte() / 2) + "0]"},
    };
    return list;
}

std::string hostileRule(std::string_view name)
{
    constexpr std::array otherRoots = {"null",
                                       "Boolean",
                                       "number",
                                       "string",
                                       "array",
                                       "array of objects",
                                       "array of a million bytes"};
    if (std::ranges::find(otherRoots, name) != otherRoots.end())
    {
        return "json.root";
    }
    return name.find("nested") == std::string_view::npos ? "json.syntax" : "json.nesting";
}

const std::vector<HostileText>& oddObjects()
{
    static const std::vector<HostileText> list{
        {"no member", "{}"},
        {"member without a name", "{\"\":\"value\"}"},
        {"NUL in a name and in a value", R"({"na\u0000me":"val\u0000ue"})"},
        {"name written twice", R"({"name":1,"name":{"name":[]}})"},
        {"bytes that are no UTF-8", "{\"\xFF\":\"\xC0\xAF\xED\xA0\x80\"}"},
        {"wrong second half of a surrogate pair", R"({"name":"\ud800\u0041"})"},
        {"number beyond every type", "{\"name\":" + std::string(300, '9') + "}"},
        {"trailing data", R"({"name":"value"}]]})"},
        {"comments", R"(/* before */{/* within */"name":/* and */1}// after)"},
        {"members of every type",
         R"({"a":null,"b":true,"c":-1,"d":1.5,"e":"","f":[],"g":{},"h":[null,1,"x",[],{}]})"},
        {"array of 100000 empty arrays", "{\"name\":[" + repeated("[],", 100000) + "[]]}"},
        {"string of 4 MiB", "{\"name\":\"" + std::string(4 * mebibyte(), 'x') + "\"}"},
        {"name of 1 MiB", "{\"" + std::string(mebibyte(), 'x') + "\":\"value\"}"},
        {"nested as deep as parsers go", nestedMember("name", 255)},
    };
    return list;
}

std::string nestedMember(std::string_view name, int depth)
{
    const auto count = static_cast<std::size_t>(depth);
    return "{\"" + std::string{name} + "\":" + std::string(count, '[') + std::string(count, ']') +
           "}";
}

std::string nextMember(std::string_view name, std::string_view value)
{
    std::string text = ",\"";
    text.append(name).append("\":").append(value);
    return text;
}

const std::vector<std::string>& jsonValuesOfEveryType()
{
    static const std::vector<std::string> list{"null",       "true",    "false", "0",        "-1",
                                               "4294967296", "1.5",     "\"\"",  "\"x\"",    "[]",
                                               "[1]",        "[\"x\"]", "{}",    "{\"a\":1}"};
    return list;
}

} // namespace support
