// SPDX-License-Identifier: Apache-2.0
#include "crypto/pem.hpp"

#include "crypto/base64.hpp"

#include <openssl/pem.h>

#include <initializer_list>
#include <optional>

namespace bmcoauth::internal::crypto
{

namespace
{

/** The length of every line but the last (RFC 7468, section 2). */
constexpr std::size_t lineLength = 64;

/** Passes over the @p parts in turn; false when something else is next. */
bool take(std::string_view& text, std::initializer_list<std::string_view> parts) noexcept
{
    for (const std::string_view part : parts)
    {
        if (!text.starts_with(part))
        {
            return false;
        }
        text.remove_prefix(part.size());
    }
    return true;
}

/** The lines between the marks, where @p pem begins with a block named @p name and its marks are as
 *  they are always written; nothing where it takes a closer look. */
std::optional<std::string_view> usualBody(std::string_view pem, std::string_view name) noexcept
{
    if (!take(pem, {"-----BEGIN ", name, "-----\n"}))
    {
        return std::nullopt;
    }
    const std::string_view body = pem.substr(0, pem.find('-'));
    pem.remove_prefix(body.size());
    if (!take(pem, {"-----END ", name, "-----"}) || !(pem.empty() || pem.front() == '\n') ||
        !body.ends_with('\n') || body.find('_') != std::string_view::npos)
    {
        return std::nullopt;
    }
    return body;
}

/** Decodes full lines and a last one that may be shorter to @p bytes, which has room for all, and
 *  gives their number; nothing for any other @p body. */
std::optional<std::size_t> decodeLines(std::string_view body, unsigned char* bytes) noexcept
{
    unsigned char* out = bytes;
    for (; body.size() > lineLength + 1; body.remove_prefix(lineLength + 1))
    {
        if (body[lineLength] != '\n' || !decodeDigits(body.substr(0, lineLength), out))
        {
            return std::nullopt;
        }
        out += decodedLength(lineLength);
    }
    body.remove_suffix(1);
    const std::string_view digits = withoutPadding(body);
    if (body.size() % 4 != 0 || !decodeDigits(digits, out))
    {
        return std::nullopt;
    }
    out += decodedLength(digits.size());
    return static_cast<std::size_t>(out - bytes);
}

} // namespace

std::optional<std::size_t> decodeUsualPem(std::string_view pem, std::string_view name,
                                          std::span<unsigned char> out) noexcept
{
    const std::optional<std::string_view> body = usualBody(pem, name);
    return body && decodedLength(body->size()) <= out.size() ? decodeLines(*body, out.data())
                                                             : std::nullopt;
}

DerBytes readPem(std::string_view pem, const char* name) noexcept
{
    DerBytes der;
    if (const std::optional<std::string_view> body = usualBody(pem, name))
    {
        der.data.reset(static_cast<unsigned char*>(OPENSSL_malloc(decodedLength(body->size()))));
        const std::optional<std::size_t> length =
            der ? decodeLines(*body, der.data.get()) : std::optional<std::size_t>{0};
        if (length)
        {
            der.length = static_cast<long>(*length);
            return der;
        }
    }
    const BioPtr text = readingBio(pem);
    unsigned char* data = nullptr;
    if (!text || PEM_bytes_read_bio(&data, &der.length, nullptr, name, text.get(), refusePassPhrase,
                                    nullptr) != 1)
    {
        return {};
    }
    der.data.reset(data);
    return der;
}

HeapText pemText(std::string_view name, std::string_view body, std::string_view after) noexcept
{
    constexpr std::size_t marks = 32;
    HeapText pem = zeroedBlock<char>(body.size() + body.size() / lineLength + 2 * name.size() +
                                     marks + after.size() + 1);
    char* end = pem.get();
    const auto append = [&end](std::initializer_list<std::string_view> parts) {
        for (const std::string_view part : parts)
        {
            end += part.copy(end, part.size());
        }
    };
    if (pem)
    {
        append({"-----BEGIN ", name, "-----\n"});
        for (; body.size() > lineLength; body.remove_prefix(lineLength))
        {
            append({body.substr(0, lineLength), "\n"});
        }
        append({body, "\n-----END ", name, "-----", after});
    }
    return pem;
}

} // namespace bmcoauth::internal::crypto
