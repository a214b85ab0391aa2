// SPDX-License-Identifier: Apache-2.0
#include "crypto/base64.hpp"

#include "common/guard.hpp"
#include "common/refusal.hpp"
#include "common/secret.hpp"
#include "crypto/lenient_base64.hpp"

#include <bmcoauth/encoding.h>

#include <climits>
#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <span>

namespace bmcoauth::internal::crypto
{

namespace
{

/** The longest text that is decoded, in bytes. */
constexpr std::size_t longestText = 98304;

/** The most bytes that are encoded: EVP_EncodeBlock counts what it writes in an int. */
constexpr std::size_t longestData = (INT_MAX / 4 - 1) * std::size_t{3};

/** A mark that no digit has. */
constexpr unsigned int noDigit = 0x80;

/** What each byte stands for as a digit of either alphabet. */
constexpr std::array<unsigned char, 256> digitValues = [] {
    std::array<unsigned char, 256> values{};
    values.fill(noDigit);
    constexpr std::string_view digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    unsigned char value = 0;
    for (const char digit : digits)
    {
        values[static_cast<unsigned char>(digit)] = value++;
    }
    values['+'] = values['-'] = 62;
    values['/'] = values['_'] = 63;
    return values;
}();

/** What the decoding read, also where the text turns out to be malformed: the exported decoder
 *  hands out the number of bytes in both cases. */
struct Decoding
{
    DecodedBytes bytes;
    bool valid = false;
};

/** How a text is decoded. */
struct Plan
{
    std::size_t length = 0;  /**< of the text with its padding */
    std::size_t decoded = 0; /**< the number of bytes that it must yield */
};

/** Completes the padding of @p text, at the beginning of @p room, and tells how to decode it; nothing
 *  when the padding that it has is wrong. */
std::optional<Plan> completePadding(std::string_view text, std::span<char> room) noexcept
{
    const auto padding = static_cast<std::size_t>(std::ranges::count(text, '='));
    const auto lineFeeds = static_cast<std::size_t>(std::ranges::count(text, '\n'));
    const std::size_t digits = text.size() - lineFeeds;
    const std::size_t rest = digits % 4;
    if (padding > (rest == 0 ? 3U : 0U))
    {
        return refuse(BMCOAUTH_RULE_BASE64_MALFORMED);
    }
    if (rest == 0)
    {
        return Plan{text.size(), digits / 4 * 3 - padding};
    }
    const std::size_t missing = 4 - rest;
    std::ranges::fill(room.subspan(text.size(), missing), '=');
    // A single digit at the end is less than a byte and should add none. The decoder makes one byte
    // of it, so the length refuses such a text.
    return Plan{text.size() + missing, digits / 4 * 3 + rest - 1};
}

/** Decodes any text into @p result, whose block has room for four bytes more than the text. False
 *  where nothing is decoded. */
bool decodeOdd(std::string_view text, Decoding& result) noexcept
{
    const std::size_t room = text.size() + 3;
    const SecretBlock copy = secretBlock(room);
    if (!copy)
    {
        return false;
    }
    auto* const padded = reinterpret_cast<char*>(copy.get());
    std::ranges::copy(text, padded);
    const std::optional<Plan> plan = completePadding(text, {padded, room});
    if (!plan)
    {
        return false;
    }
    const std::size_t decoded = decodeLeniently({padded, plan->length}, result.bytes.data.get());
    result.bytes.size = static_cast<int>(decoded);
    result.valid = decoded > 0 && decoded == plan->decoded;
    if (!result.valid)
    {
        refuse(BMCOAUTH_RULE_BASE64_MALFORMED);
    }
    return true;
}

std::optional<Decoding> decode(std::string_view text) noexcept
{
    if (text.size() > longestText)
    {
        return refuse(BMCOAUTH_RULE_BASE64_LENGTH).wanted("at most", longestText);
    }
    Decoding result;
    const std::size_t room = text.size() + 4;
    result.bytes.data = {static_cast<unsigned char*>(std::malloc(room)), WipingRelease{room}};
    if (!result.bytes.data)
    {
        return refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED);
    }
    const std::string_view digits = withoutPadding(text);
    // Needs no copy of the text, and takes nearly every one.
    if (decodeDigits(digits, result.bytes.data.get()))
    {
        result.bytes.size = static_cast<int>(decodedLength(digits.size()));
        result.valid = true;
    }
    else if (!decodeOdd(text, result))
    {
        return std::nullopt;
    }
    if (result.valid)
    {
        result.bytes.data.get()[result.bytes.size] = 0;
    }
    return result;
}

} // namespace

std::string_view withoutPadding(std::string_view text) noexcept
{
    if (text.size() % 4 == 0 && text.ends_with('='))
    {
        text.remove_suffix(text.ends_with("==") ? 2 : 1);
    }
    return text;
}

bool decodeDigits(std::string_view text, unsigned char* out) noexcept
{
    const std::size_t rest = text.size() % 4;
    if (text.empty() || rest == 1)
    {
        return false;
    }
    unsigned int seen = 0;
    const auto valueOf = [&seen](char digit) {
        const unsigned int value = digitValues[static_cast<unsigned char>(digit)];
        seen |= value;
        return value;
    };
    const auto store = [&out](unsigned int bits) {
        *out++ = static_cast<unsigned char>(bits);
    };
    const char* next = text.data();
    for (const char* const end = next + (text.size() - rest); next != end; next += 4)
    {
        const unsigned int bits = valueOf(next[0]) << 18U | valueOf(next[1]) << 12U |
                                  valueOf(next[2]) << 6U | valueOf(next[3]);
        store(bits >> 16U);
        store(bits >> 8U);
        store(bits);
    }
    if (rest != 0)
    {
        const unsigned int bits =
            valueOf(next[0]) << 12U | valueOf(next[1]) << 6U | (rest == 3 ? valueOf(next[2]) : 0U);
        store(bits >> 10U);
        if (rest == 3)
        {
            store(bits >> 2U);
        }
    }
    return (seen & noDigit) == 0;
}

HeapText encodeBase64(std::string_view bytes) noexcept
{
    if (bytes.size() > longestData)
    {
        return refuse(BMCOAUTH_RULE_BASE64_LENGTH).wanted("at most", longestData);
    }
    HeapText text{static_cast<char*>(std::malloc((bytes.size() + 2) / 3 * 4 + 1))};
    if (!text)
    {
        return refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED);
    }
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.get()), bytesOf(bytes).data(),
                    static_cast<int>(bytes.size()));
    return text;
}

void toUrlAlphabet(char* text) noexcept
{
    char* kept = text;
    for (const char* next = text; *next != '\0'; ++next)
    {
        if (*next != '=')
        {
            *kept++ = *next == '/' ? '_' : *next == '+' ? '-' : *next;
        }
    }
    *kept = '\0';
}

HeapText encodeBase64Url(std::string_view bytes) noexcept
{
    HeapText text = encodeBase64(bytes);
    if (text)
    {
        toUrlAlphabet(text.get());
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
    // The text may be a secret.
    const SecretText copy = secretText(heapText(text));
    if (!copy)
    {
        return std::nullopt;
    }
    toUrlAlphabet(copy.get());
    return decodeBase64Url(copy.get());
}

} // namespace bmcoauth::internal::crypto

using namespace bmcoauth::internal;

extern "C" int base64encode(const void* data, char** out, int length)
{
    if (refusesNull("data out", data, out))
    {
        return refused();
    }
    if (length < 0)
    {
        return refuseCall(BMCOAUTH_RULE_ARGUMENT_LENGTH, "length");
    }
    return guardedMemory([=] {
        HeapText text = crypto::encodeBase64(
            {static_cast<const char*>(data), static_cast<std::size_t>(length)});
        if (!text)
        {
            return 0;
        }
        *out = text.release();
        return 1;
    });
}

extern "C" int base64URIencode(char* text)
{
    if (refusesNull("text", text))
    {
        return refused();
    }
    crypto::toUrlAlphabet(text);
    return 1;
}

extern "C" int base64URIdecode(const char* text, char** out, int* length)
{
    if (refusesNull("text out length", text, out, length))
    {
        return refused();
    }
    return guardedMemory([=] {
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
    });
}
