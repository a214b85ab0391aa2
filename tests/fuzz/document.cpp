// SPDX-License-Identifier: Apache-2.0
#include "fuzz/support.hpp"

#include <array>

/** One member of a document is read and changed. */
namespace
{

constexpr auto documentRules =
    std::to_array<std::string_view>({"json.syntax", "json.nesting", "json.root"});
constexpr auto memberRules = std::to_array<std::string_view>(
    {"json.syntax", "json.nesting", "json.root", "json.member-missing", "json.member-type"});

/** A document under change, and what it was before. */
class Document
{
public:
    explicit Document(const std::string& text)
        : before{text}, text{strdup(text.c_str())}, address{this->text}
    {
    }
    Document(const Document&) = delete;
    Document& operator=(const Document&) = delete;
    ~Document()
    {
        std::free(text);
    }

    /** Runs @p edit; whether it succeeded. What failed left the text as it was. */
    template <typename Edit>
    bool change(const Edit& edit)
    {
        const int result = fuzz::judged(documentRules, [&] { return edit(&text); });
        fuzz::require(result == 1 || (text == address && before == text),
                      "the text of a failed edit is unchanged");
        return result == 1;
    }

    [[nodiscard]] const char* get() const
    {
        return text;
    }

private:
    std::string before;
    char* text;
    const char* address;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input{data, size};
    const std::string text = fuzz::nextText(input);
    const std::string key = fuzz::nextText(input);
    const std::string value = fuzz::nextText(input);
    const std::string other = fuzz::nextText(input);
    // A comment that runs on hides what follows it.
    const bool comments = (text + other).find('/') != std::string::npos;

    Document changed{text};
    const bool isDocument =
        changed.change([&](char** t) { return set_value_char(t, key.c_str(), value.c_str()); });
    if (isDocument && !comments && fuzz::writable(key + value))
    {
        char* read = nullptr;
        fuzz::require(get_value_char(changed.get(), key.c_str(), &read) == 1,
                      "what is set is there");
        const support::HeapText owner{read};
        fuzz::require(value == read, "what is set is read");
    }

    Document listed{text};
    support::TextList values{value, key, value};
    fuzz::require(listed.change([&](char** t) {
        return set_value_chararray(t, key.c_str(), values);
    }) == isDocument,
                  "a document is one for every edit");
    if (isDocument && !comments && fuzz::writable(key + value))
    {
        char** read = nullptr;
        fuzz::require(get_value_chararray(listed.get(), key.c_str(), &read) == 1,
                      "an array that is set is there");
        const support::StringArray owner{read};
        fuzz::require(support::texts(read) == support::texts(values), "and the same");
    }

    Document merged{text};
    const bool both = merged.change([&](char** t) { return merge_doc(t, other.c_str()); });
    fuzz::require(isDocument || !both, "what is merged is a document");
    if (both && !comments && fuzz::writable(text + other))
    {
        Document twice{merged.get()};
        fuzz::require(twice.change([&](char** t) { return merge_doc(t, other.c_str()); }),
                      "what is merged is a document again");
        fuzz::require(fuzz::same(merged.get(), twice.get()), "merging twice changes nothing more");
    }

    bool flag = false;
    unsigned int number = 0;
    fuzz::judged(memberRules, [&] { return get_value_bool(text.c_str(), key.c_str(), &flag); });
    fuzz::judged(memberRules, [&] { return get_value_uint(text.c_str(), key.c_str(), &number); });
    char** objects = nullptr;
    if (fuzz::judged(memberRules,
                     [&] { return get_value_objarray(text.c_str(), key.c_str(), &objects); }) == 1)
    {
        const support::StringArray owner{objects};
        fuzz::require(isDocument, "only a document has members");
    }
    return 0;
}
