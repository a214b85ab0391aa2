// SPDX-License-Identifier: Apache-2.0
#include "fuzz/support.hpp"

#include <json/reader.h>
#include <json/writer.h>

#include <array>
#include <optional>

/** Documents and their text form against jsoncpp, used directly. */
namespace
{

constexpr auto documentRules =
    std::to_array<std::string_view>({"json.syntax", "json.nesting", "json.root"});

/** What jsoncpp reads of at most 256 levels; nothing unless the root is an object. */
std::optional<Json::Value> readByJsoncpp(const std::string& text)
{
    static const Json::CharReaderBuilder builder = [] {
        Json::CharReaderBuilder bounded;
        bounded["stackLimit"] = 256;
        return bounded;
    }();
    const std::unique_ptr<Json::CharReader> reader{builder.newCharReader()};
    Json::Value tree;
    try
    {
        const char* const begin = text.data();
        if (!reader->parse(begin, begin + text.size(), &tree, nullptr))
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

std::string writtenByJsoncpp(const Json::Value& tree)
{
    static const Json::StreamWriterBuilder builder = [] {
        Json::StreamWriterBuilder compact;
        compact["indentation"] = "";
        return compact;
    }();
    return Json::writeString(builder, tree);
}

/** Whether both trees hold values of the same types, read from the same places. */
// NOLINTNEXTLINE(misc-no-recursion): no deeper than the parser reads
bool sameShape(const Json::Value& left, const Json::Value& right)
{
    if (left.type() != right.type() || left.size() != right.size() ||
        left.getOffsetStart() != right.getOffsetStart() ||
        left.getOffsetLimit() != right.getOffsetLimit())
    {
        return false;
    }
    auto other = right.begin();
    for (const Json::Value& child : left)
    {
        if (!sameShape(child, *other++))
        {
            return false;
        }
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text = fuzz::wholeText(data, size);
    const std::optional<Json::Value> expected = readByJsoncpp(text);
    Json::Value tree;
    const bool isDocument =
        fuzz::judged(documentRules, [&] { return loadJsonDoc(text.c_str(), tree); });
    fuzz::require(isDocument == expected.has_value(), "a document is one for jsoncpp as well");
    if (expected)
    {
        fuzz::require(tree == *expected, "jsoncpp reads the same");
        fuzz::require(sameShape(tree, *expected), "in the same places");
        fuzz::require(json_fastWriter(tree) == writtenByJsoncpp(*expected),
                      "jsoncpp writes the same");
    }
    return 0;
}
