// SPDX-License-Identifier: Apache-2.0
#pragma once

/* JSON documents as text, over <bmcoauth/document.h>. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/owners.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/document.h>
#include <bmcoauth/jwk.h>

#include <string_view>
#include <utility>

namespace bmcoauth
{
inline namespace v1
{

/** Document owns a JSON object as text, in the library's compact form, and reads and changes its
 *  members one by one (<bmcoauth/document.h>). Each call parses the text anew. */
class Document
{
public:
    /** Refused if `text` is not a JSON object. */
    [[nodiscard]] static Expected<Document> parse(std::string_view text)
    {
        Expected<Text> copied = Text::copy(text);
        if (!copied)
        {
            return copied.error();
        }
        Document document{std::move(*copied)};
        // The other document changes nothing; that this one parses is what is asked.
        if (const Expected<void> parsed = document.merge("{}"); !parsed)
        {
            return parsed.error();
        }
        return document;
    }

    /** The document, as long as it is not changed. */
    [[nodiscard]] std::string_view view() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return text.view();
    }
    [[nodiscard]] std::string_view view() const&& = delete;

    /** The string `key`, cut at the first zero byte that it holds. */
    [[nodiscard]] Expected<Text> string(std::string_view key) const
    {
        return read<Text>(::get_value_char, key);
    }
    /** The strings of the array `key`. */
    [[nodiscard]] Expected<Texts> strings(std::string_view key) const
    {
        return read<Texts>(::get_value_chararray, key);
    }
    /** The objects of the array `key`, each as text. */
    [[nodiscard]] Expected<Texts> objects(std::string_view key) const
    {
        return read<Texts>(::get_value_objarray, key);
    }
    /** The Boolean `key`. */
    [[nodiscard]] Expected<bool> boolean(std::string_view key) const
    {
        return read<bool>(::get_value_bool, key);
    }
    /** The integer `key`, up to 4294967295. */
    [[nodiscard]] Expected<unsigned int> number(std::string_view key) const
    {
        return read<unsigned int>(::get_value_uint, key);
    }

    /** Sets the member `key` to the string `value`, whatever it was before: set_value_char. A
     *  change that fails leaves the document as it was. */
    Expected<void> setString(std::string_view key, std::string_view value)
    {
        detail::Arguments in;
        const char* const name = in.text("key", key);
        const char* const valueText = in.text("value", value);
        return change(in, [&](char** raw) { return ::set_value_char(raw, name, valueText); });
    }
    /** Sets the member `key` to an array of these strings: set_value_chararray. */
    Expected<void> setStrings(std::string_view key, TextSpan values)
    {
        detail::Arguments in;
        const char* const name = in.text("key", key);
        char** const array = in.texts("values", values);
        return change(
            in, [&](char** document) { return ::set_value_chararray(document, name, array); });
    }
    /** Takes the member `key` out, if it is there. */
    Expected<void> remove(std::string_view key)
    {
        detail::Arguments in;
        const char* const name = in.text("key", key);
        return change(in, [&](char** raw) { return ::set_value_char(raw, name, nullptr); });
    }
    /** Merges the members of the JSON object `other` into this one: merge_doc. */
    Expected<void> merge(std::string_view other)
    {
        detail::Arguments in;
        const char* const otherText = in.text("other", other);
        return change(in, [&](char** raw) { return ::merge_doc(raw, otherText); });
    }
    /** Where this is an EC or RSA JSON Web Key, adds its public key in PEM form, by which delegated
     *  tokens are verified: appendPublicKey. */
    Expected<void> addPublicKey()
    {
        detail::Arguments none;
        return change(none, [](char** raw) { return ::appendPublicKey(raw); });
    }

private:
    explicit Document(Text owned) noexcept : text{std::move(owned)}
    {
    }

    template <typename Owner, typename Raw>
    [[nodiscard]] Expected<Owner> read(int (*reader)(const char*, const char*, Raw*),
                                       std::string_view key) const
    {
        detail::Arguments in;
        const char* const name = in.text("key", key);
        if (in.failed())
        {
            return in.failure();
        }
        Raw value{};
        if (reader(text.c_str(), name, &value) != 1)
        {
            return Error::last();
        }
        return Owner{value};
    }

    template <typename Call>
    [[nodiscard]] Expected<void> change(const detail::Arguments& in, const Call& call)
    {
        if (in.failed())
        {
            return in.failure();
        }
        char* raw = text.release();
        const int result = call(&raw);
        text = Text{raw};
        return detail::doneOrRefused(result);
    }

    Text text;
};

} // namespace v1
} // namespace bmcoauth
