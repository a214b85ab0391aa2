// SPDX-License-Identifier: Apache-2.0
#include "fuzz/support.hpp"

#include <openssl/bio.h>
#include <openssl/evp.h>

#include <algorithm>
#include <array>

/** Base64url against OpenSSL's filter, used directly. */
namespace
{

constexpr auto decodingRules =
    std::to_array<std::string_view>({"base64.malformed", "base64.length"});

/** What the filter makes of @p text once it is in its alphabet. */
std::string filtered(std::string text)
{
    std::ranges::replace(text, '-', '+');
    std::ranges::replace(text, '_', '/');
    const auto lineFeeds = std::ranges::count(text, '\n');
    const std::size_t digits = text.size() - static_cast<std::size_t>(lineFeeds);
    text.append((4 - digits % 4) % 4, '=');

    using Bio = std::unique_ptr<BIO, support::Releaser<BIO_free_all>>;
    const Bio chain{BIO_push(BIO_new(BIO_f_base64()),
                             BIO_new_mem_buf(text.data(), static_cast<int>(text.size())))};
    if (lineFeeds == 0)
    {
        BIO_set_flags(chain.get(), BIO_FLAGS_BASE64_NO_NL);
    }
    std::string bytes(text.size(), '\0');
    const int length = BIO_read(chain.get(), bytes.data(), static_cast<int>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(std::max(length, 0)));
    return bytes;
}

/** Whether @p text is Base64url as it should be: digits alone, of a length that there is. */
bool plain(const std::string& text)
{
    constexpr std::string_view digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    return !text.empty() && text.size() % 4 != 1 &&
           text.find_first_not_of(digits) == std::string::npos;
}

/** What the library makes of @p bytes. */
std::string encodedByLibrary(std::string_view bytes)
{
    char* text = nullptr;
    fuzz::require(base64encode(bytes.data(), &text, static_cast<int>(bytes.size())) == 1,
                  "bytes can be encoded");
    const support::HeapText owner{text};
    base64URIencode(text);
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text = fuzz::wholeText(data, size);
    char* out = nullptr;
    int length = 0;
    if (fuzz::judged(decodingRules, [&] { return base64URIdecode(text.c_str(), &out, &length); }) ==
        1)
    {
        const support::HeapText owner{out};
        fuzz::require(length > 0, "no text decodes to nothing");
        const std::string bytes{out, static_cast<std::size_t>(length)};
        fuzz::require(out[length] == '\0', "a zero byte follows");
        fuzz::require(bytes == filtered(text), "OpenSSL decodes it to the same bytes");
    }
    else
    {
        fuzz::require(out == nullptr, "a refusal hands out nothing");
        fuzz::require(!plain(text), "well-formed text decodes");
    }

    // Every input is also bytes to be encoded.
    const std::string bytes{reinterpret_cast<const char*>(data), size};
    const std::string encoded = encodedByLibrary(bytes);
    fuzz::require(size == 0 || plain(encoded), "what is encoded is well formed");
    if (size > 0 && base64URIdecode(encoded.c_str(), &out, &length) == 1)
    {
        const support::HeapText owner{out};
        fuzz::require(std::string(out, static_cast<std::size_t>(length)) == bytes,
                      "what is encoded decodes to the same bytes");
    }
    else
    {
        fuzz::require(size == 0, "what is encoded decodes");
    }
    return 0;
}
