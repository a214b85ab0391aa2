// SPDX-License-Identifier: Apache-2.0
#include "fuzz/support.hpp"

#include <array>

/** A JSON Web Key that a document or a caller brings. */
namespace
{

constexpr auto readingRules =
    std::to_array<std::string_view>({"json.syntax", "json.nesting", "json.root", "jwk.empty"});
constexpr auto importRules = std::to_array<std::string_view>(
    {"json.syntax", "json.nesting", "json.root", "jwk.kind", "jwk.number", "jwk.point", "jwk.empty",
     "base64.malformed", "base64.length"});

support::HeapText member(const char* text, const char* name)
{
    char* value = nullptr;
    get_value_char(text, name, &value);
    return support::HeapText{value};
}

/** The pairs of a record are the members of its text. */
void requireSameMembers(const char* text)
{
    jwk* record = fuzz::judged(readingRules, [&] { return oauth2_parse_jwk(text); });
    for (const jwk* pair = record; pair != nullptr && pair->key != nullptr; ++pair)
    {
        const char* value = jwk_key_value(record, pair->key);
        // Names that differ only behind a zero byte are one name in a record.
        if (value == pair->value && value != nullptr &&
            std::string_view{text}.find("\\u0000") == std::string_view::npos)
        {
            fuzz::require(fuzz::same(value, member(text, pair->key).get()), "a pair is a member");
        }
    }
    free_jwk(&record);
    fuzz::require(record == nullptr, "a released key is null");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string original = fuzz::wholeText(data, size);
    requireSameMembers(original.c_str());

    char* text = support::heapText(original).release();
    const char* const before = text;
    const int completed = fuzz::judged(importRules, [&] { return appendPublicKey(&text); });
    support::HeapText owner{text};
    if (completed == 0)
    {
        fuzz::require(text == before && original == text, "a key that is refused is unchanged");
        return 0;
    }
    const std::string once = text;
    // A comment that runs on hides what follows it.
    if (original.find('/') != std::string::npos || !fuzz::writable(original))
    {
        return 0;
    }
    const support::HeapText pem = member(text, "kest_decoded_key");
    fuzz::require(pem != nullptr && pem.get()[0] == '-', "a completed key holds PEM text");
    requireSameMembers(text);
    text = owner.release();
    const int again = appendPublicKey(&text);
    owner.reset(text);
    fuzz::require(again == 1 && once == text, "to complete a key twice changes nothing more");
    return 0;
}
