// SPDX-License-Identifier: Apache-2.0
#include "crypto/base64.hpp"

#include "crypto/openssl.hpp"

#include <bmcoauth/encoding.h>

#include <climits>
#include <openssl/evp.h>

#include <algorithm>
#include <cstdlib>

namespace bmcoauth::crypto
{

namespace
{

/** The longest text that is decoded, in bytes. */
constexpr std::size_t longestText = 98304;

/** The most bytes that are encoded: EVP_EncodeBlock counts what it writes in an int. */
constexpr std::size_t longestData = (INT_MAX / 4 - 1) * std::size_t{3};

/** What the decoding read, also where the text turns out to be malformed: the exported decoder
 *  hands out the number of bytes in both cases. */
struct Decoding
{
    DecodedBytes bytes;
    bool valid = false;
};

/** How a translated text is decoded. */
struct Plan
{
    std::size_t length = 0;  /**< of the translated text */
    std::size_t decoded = 0; /**< the number of bytes that it must yield */
    bool multiline = false;
};

/** Translates @p text to the standard alphabet and completes its padding in @p copy, which has room
 *  for three bytes more; nothing when the padding that it has is wrong. */
std::optional<Plan> toStandardAlphabet(std::string_view text, char* copy) noexcept
{
    std::size_t padding = 0;
    std::size_t lineFeeds = 0;
    char* end = std::ranges::transform(text, copy, [&](char c) {
                    switch (c)
                    {
                        case '-':
                            return '+';
                        case '_':
                            return '/';
                        case '=':
                            ++padding;
                            return c;
                        case '\n':
                            ++lineFeeds;
                            return c;
                        default:
                            return c;
                    }
                }).out;
    const std::size_t digits = text.size() - lineFeeds;
    const std::size_t rest = digits % 4;
    std::size_t decoded = 0;
    if (rest == 0)
    {
        if (padding > 3)
        {
            return std::nullopt;
        }
        decoded = digits / 4 * 3 - padding;
    }
    else
    {
        if (padding != 0)
        {
            return std::nullopt;
        }
        end = std::fill_n(end, 4 - rest, '=');
        // A single digit left over is less than a byte and is expected to add none. The decoder
        // makes one of it, so the length refuses such a text.
        decoded = (digits - rest) / 4 * 3 + rest - 1;
    }
    return Plan{static_cast<std::size_t>(end - copy), decoded, lineFeeds != 0};
}

std::optional<Decoding> decode(std::string_view text) noexcept
{
    if (text.size() > longestText)
    {
        return std::nullopt;
    }
    const HeapText copy{static_cast<char*>(std::malloc(text.size() + 3))};
    if (!copy)
    {
        return std::nullopt;
    }
    const std::optional<Plan> plan = toStandardAlphabet(text, copy.get());
    if (!plan)
    {
        return std::nullopt;
    }
    Decoding result;
    result.bytes.data.reset(static_cast<unsigned char*>(std::malloc(plan->length + 1)));
    BioPtr filter{BIO_new(BIO_f_base64())};
    BioPtr memory = readingBio({copy.get(), plan->length});
    if (!result.bytes.data || !filter || !memory)
    {
        return std::nullopt;
    }
    if (!plan->multiline)
    {
        BIO_set_flags(filter.get(), BIO_FLAGS_BASE64_NO_NL);
    }
    BIO_push(filter.get(), memory.release());
    result.bytes.size =
        BIO_read(filter.get(), result.bytes.data.get(), static_cast<int>(plan->length));
    result.valid =
        result.bytes.size > 0 && static_cast<std::size_t>(result.bytes.size) == plan->decoded;
    if (result.valid)
    {
        result.bytes.data.get()[result.bytes.size] = 0;
    }
    return result;
}

} // namespace

HeapText encodeBase64(std::string_view bytes) noexcept
{
    if (bytes.size() > longestData)
    {
        return nullptr;
    }
    HeapText text{static_cast<char*>(std::malloc((bytes.size() + 2) / 3 * 4 + 1))};
    if (text)
    {
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.get()),
                        reinterpret_cast<const unsigned char*>(bytes.data()),
                        static_cast<int>(bytes.size()));
    }
    return text;
}

HeapText encodeBase64Url(std::string_view bytes) noexcept
{
    HeapText text = encodeBase64(bytes);
    if (text)
    {
        base64URIencode(text.get());
    }
    return text;
}

std::optional<DecodedBytes> decodeBase64Url(std::string_view text) noexcept
{
    std::optional<Decoding> decoding = decode(text);
    if (!decoding || !decoding->valid)
    {
        return std::nullopt;
    }
    return std::move(decoding->bytes);
}

std::optional<DecodedBytes> decodeEitherBase64(std::string_view text)
{
    const HeapText copy = heapText(text);
    if (!copy)
    {
        return std::nullopt;
    }
    base64URIencode(copy.get());
    return decodeBase64Url(copy.get());
}

} // namespace bmcoauth::crypto

using namespace bmcoauth;

extern "C" int base64encode(const void* data, char** out, int length)
{
    if (data == nullptr || out == nullptr || length < 0)
    {
        return 0;
    }
    const ErrnoKeeper keeper;
    HeapText text =
        crypto::encodeBase64({static_cast<const char*>(data), static_cast<std::size_t>(length)});
    if (!text)
    {
        return 0;
    }
    *out = text.release();
    return 1;
}

extern "C" int base64URIencode(char* text)
{
    if (text == nullptr)
    {
        return 0;
    }
    char* kept = text;
    for (const char* next = text; *next != '\0'; ++next)
    {
        if (*next != '=')
        {
            *kept++ = *next == '/' ? '_' : *next == '+' ? '-' : *next;
        }
    }
    *kept = '\0';
    return 1;
}

extern "C" int base64URIdecode(const char* text, char** out, int* length)
{
    if (text == nullptr || out == nullptr || length == nullptr)
    {
        return 0;
    }
    const ErrnoKeeper keeper;
    const crypto::ErrorMark mark;
    std::optional<crypto::Decoding> decoding = crypto::decode(text);
    if (!decoding)
    {
        return 0;
    }
    // Stored on failure too: callers have always seen how far the decoding came.
    *length = decoding->bytes.size;
    if (!decoding->valid)
    {
        return 0;
    }
    *out = reinterpret_cast<char*>(decoding->bytes.data.release());
    return 1;
}
