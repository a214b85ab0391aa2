// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"

#include <bmcoauth/encoding.h>

#include <climits>
#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <ostream>
#include <random>
#include <string>
#include <string_view>

using support::HeapText;

namespace
{

/** What the length shows as long as nothing was stored in it. */
constexpr int untouched = -77;

struct Decoded
{
    int result = 0;
    std::string rule;
    int length = untouched;
    std::optional<std::string> bytes; /**< nothing when no buffer was stored */

    bool operator==(const Decoded&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Decoded& decoded)
{
    return out << "result " << decoded.result << ", rule " << decoded.rule << ", length "
               << decoded.length << ", bytes "
               << (decoded.bytes ? testing::PrintToString(*decoded.bytes) : "none");
}

Decoded decode(const std::string& text)
{
    Decoded decoded;
    char* bytes = nullptr;
    decoded.rule = support::ruleOf(
        [&] { return decoded.result = base64URIdecode(text.c_str(), &bytes, &decoded.length); });
    const HeapText owner{bytes};
    if (bytes != nullptr)
    {
        decoded.bytes.emplace(bytes, static_cast<std::size_t>(decoded.length));
        EXPECT_EQ(bytes[decoded.length], '\0') << "the bytes are followed by a zero";
    }
    return decoded;
}

constexpr const char* malformed = "base64.malformed";
constexpr const char* tooLong = "base64.length";

/** What a text that is refused before anything is decoded leaves behind. */
Decoded refused(const char* rule = malformed)
{
    return {0, rule, untouched, std::nullopt};
}

Decoded yields(std::string_view bytes)
{
    return {1, "accepted", static_cast<int>(bytes.size()), std::string{bytes}};
}

Decoded failsAfter(int bytes)
{
    return {0, malformed, bytes, std::nullopt};
}

std::optional<std::string> encode(std::string_view bytes)
{
    char* text = nullptr;
    if (base64encode(bytes.data(), &text, static_cast<int>(bytes.size())) != 1)
    {
        EXPECT_EQ(text, nullptr);
        return std::nullopt;
    }
    const HeapText owner{text};
    return std::string{text};
}

std::string toBase64Url(std::string text)
{
    EXPECT_EQ(base64URIencode(text.data()), 1);
    text.resize(std::strlen(text.c_str()));
    return text;
}

std::string sha256(std::string_view bytes)
{
    std::array<unsigned char, 32> digest{};
    EXPECT_EQ(EVP_Digest(bytes.data(), bytes.size(), digest.data(), nullptr, EVP_sha256(), nullptr),
              1);
    std::string hex;
    for (const unsigned char byte : digest)
    {
        constexpr std::string_view digits = "0123456789abcdef";
        hex += digits[byte >> 4U];
        hex += digits[byte & 15U];
    }
    return hex;
}

struct Encoding
{
    const char* bytes;
    const char* text;
    const char* urlText;
};

// RFC 4648, section 10; the last three rows are ours, for the characters that differ.
constexpr std::array encodings = {
    Encoding{"f", "Zg==", "Zg"},
    Encoding{"fo", "Zm8=", "Zm8"},
    Encoding{"foo", "Zm9v", "Zm9v"},
    Encoding{"foob", "Zm9vYg==", "Zm9vYg"},
    Encoding{"fooba", "Zm9vYmE=", "Zm9vYmE"},
    Encoding{"foobar", "Zm9vYmFy", "Zm9vYmFy"},
    Encoding{"\xff", "/w==", "_w"},
    Encoding{"\xfb\xff\xbf", "+/+/", "-_-_"},
    Encoding{"\xfb\xef\xbe\xff\xff\xff", "++++////", "----____"},
};

TEST(Base64Encode, EncodesWithPaddingInTheStandardAlphabet)
{
    for (const Encoding& row : encodings)
    {
        EXPECT_EQ(encode(row.bytes), row.text);
    }
    EXPECT_EQ(encode("abc"), "YWJj");
}

TEST(Base64Encode, GivesAnEmptyTextForNoBytes)
{
    EXPECT_EQ(encode(""), "");
}

TEST(Base64Encode, EncodesZeroBytes)
{
    EXPECT_EQ(encode(std::string_view("\0\0\0\0", 4)), "AAAAAA==");
}

// Made with: for i in $(seq 0 255); do printf "\\x$(printf %02x $i)"; done | openssl base64 -A
TEST(Base64Encode, EncodesEveryByteValueInOneLine)
{
    std::string bytes;
    for (int byte = 0; byte <= 255; ++byte)
    {
        bytes += static_cast<char>(byte);
    }
    EXPECT_EQ(encode(bytes),
              "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4vMDEyMzQ1Njc4"
              "OTo7PD0+P0BBQkNERUZHSElKS0xNTk9QUVJTVFVWV1hZWltcXV5fYGFiY2RlZmdoaWprbG1ub3Bx"
              "cnN0dXZ3eHl6e3x9fn+AgYKDhIWGh4iJiouMjY6PkJGSk5SVlpeYmZqbnJ2en6ChoqOkpaanqKmq"
              "q6ytrq+wsbKztLW2t7i5uru8vb6/wMHCw8TFxsfIycrLzM3Oz9DR0tPU1dbX2Nna29zd3t/g4eLj"
              "5OXm5+jp6uvs7e7v8PHy8/T19vf4+fr7/P3+/w==");
}

TEST(Base64Encode, RefusesNullAndANegativeLength)
{
    char* text = nullptr;
    EXPECT_REFUSED("argument.null", base64encode(nullptr, &text, 3));
    EXPECT_REFUSED("argument.length", base64encode("abc", &text, -1));
    EXPECT_REFUSED("argument.length", base64encode("abc", &text, INT_MIN));
    EXPECT_REFUSED("argument.null", base64encode("abc", nullptr, 3));
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(base64encode("abc", &text, 3), 1);
    const HeapText owner{text};
    EXPECT_STREQ(text, "YWJj");
}

// The length alone decides: a text of that length could not be counted in an int.
TEST(Base64Encode, RefusesALengthWhoseTextIsTooLong)
{
    char* text = nullptr;
    EXPECT_REFUSED("base64.length", base64encode("abc", &text, 1610612731));
    EXPECT_REFUSED("base64.length", base64encode("abc", &text, INT_MAX));
    EXPECT_EQ(text, nullptr);
}

TEST(Base64Encode, OverwritesWhatWasThereOnSuccessAlone)
{
    // Not of the heap: it could not be released.
    char before = 'x';
    char* text = &before;
    EXPECT_REFUSED("argument.null", base64encode(nullptr, &text, 3));
    EXPECT_EQ(text, &before);
    EXPECT_EQ(base64encode("abc", &text, 3), 1);
    ASSERT_NE(text, &before);
    const HeapText owner{text};
    EXPECT_STREQ(text, "YWJj");
}

TEST(Base64Encode, LeavesTheTextAloneWhicheverAllocationFails)
{
    support::withEachAllocationFailing([](auto& failure) {
        char* text = nullptr;
        const int result = base64encode("abcd", &text, 4);
        const HeapText owner{text};
        if (failure.reached())
        {
            EXPECT_EQ(result, 0);
            EXPECT_EQ(support::lastRule(), "memory.exhausted");
            support::plantRefusal();
            EXPECT_EQ(text, nullptr);
        }
        else
        {
            EXPECT_EQ(result, 1);
            EXPECT_STREQ(text, "YWJjZA==");
        }
    });
}

/** The Base64 filter of OpenSSL's I/O layer, which says what the encoding is. */
std::string encodeThroughFilter(std::string_view bytes)
{
    BIO* chain = BIO_push(BIO_new(BIO_f_base64()), BIO_new(BIO_s_mem()));
    BIO_set_flags(chain, BIO_FLAGS_BASE64_NO_NL);
    EXPECT_EQ(BIO_write(chain, bytes.data(), static_cast<int>(bytes.size())),
              static_cast<int>(bytes.size()));
    EXPECT_EQ(BIO_flush(chain), 1);
    char* data = nullptr;
    const long length = BIO_get_mem_data(chain, &data);
    std::string text{data, static_cast<std::size_t>(length)};
    BIO_free_all(chain);
    return text;
}

TEST(Base64Encode, EqualsTheFilterForEveryLength)
{
    std::mt19937 random{20240229}; // NOLINT(cert-msc51-cpp): the same in every run
    std::string bytes;
    for (int length = 1; length <= 4100; ++length)
    {
        bytes += static_cast<char>(random());
        if (length < 1200 || length > 4000)
        {
            ASSERT_EQ(encode(bytes), encodeThroughFilter(bytes)) << length;
        }
    }
}

TEST(Base64UriEncode, ReplacesTheTwoCharactersAndDropsPadding)
{
    for (const Encoding& row : encodings)
    {
        EXPECT_EQ(toBase64Url(row.text), row.urlText);
    }
    EXPECT_EQ(toBase64Url("/w=="), "_w");
    EXPECT_EQ(toBase64Url("+/+/"), "-_-_");
}

TEST(Base64UriEncode, DropsPaddingAnywhere)
{
    EXPECT_EQ(toBase64Url("=a==b="), "ab");
    EXPECT_EQ(toBase64Url("===="), "");
}

TEST(Base64UriEncode, KeepsEveryOtherByte)
{
    std::string text;
    std::string expected;
    for (int byte = 1; byte <= 255; ++byte)
    {
        text += static_cast<char>(byte);
        if (byte != '=')
        {
            expected += static_cast<char>(byte == '+' ? '-' : byte == '/' ? '_' : byte);
        }
    }
    EXPECT_EQ(toBase64Url(text), expected);
}

TEST(Base64UriEncode, LeavesAnEmptyTextEmptyAndRefusesNull)
{
    EXPECT_EQ(toBase64Url(""), "");
    EXPECT_REFUSED("argument.null", base64URIencode(nullptr));
}

TEST(Base64UriDecode, DecodesUnpaddedText)
{
    for (const Encoding& row : encodings)
    {
        EXPECT_EQ(decode(row.urlText), yields(row.bytes)) << row.urlText;
    }
    EXPECT_EQ(decode("YWJj"), yields("abc"));
    EXPECT_EQ(decode("YWJ"), yields("ab"));
}

TEST(Base64UriDecode, DecodesPaddedTextAndTheStandardAlphabet)
{
    for (const Encoding& row : encodings)
    {
        EXPECT_EQ(decode(row.text), yields(row.bytes)) << row.text;
    }
    EXPECT_EQ(decode("+/-_"), yields("\xfb\xff\xbf"));
}

TEST(Base64, NamesTheArgumentAndTheLimitThatItRefuses)
{
    char* text = nullptr;
    int length = untouched;
    EXPECT_REFUSED("argument.null", base64encode("abc", nullptr, 3));
    EXPECT_STREQ(support::lastRefusal().subject, "out");
    EXPECT_REFUSED("argument.length", base64encode("abc", &text, -1));
    EXPECT_STREQ(support::lastRefusal().subject, "length");
    EXPECT_REFUSED(tooLong, base64encode("abc", &text, INT_MAX));
    EXPECT_STREQ(support::lastRefusal().wanted, "at most 1610612730");
    EXPECT_REFUSED("argument.null", base64URIdecode("YWJj", &text, nullptr));
    EXPECT_STREQ(support::lastRefusal().subject, "length");
    EXPECT_REFUSED(tooLong, base64URIdecode(std::string(98305, 'A').c_str(), &text, &length));
    EXPECT_STREQ(support::lastRefusal().wanted, "at most 98304");
}

// Such a text may be a secret.
TEST(Base64UriDecode, DoesNotShowWhatItRefuses)
{
    EXPECT_EQ(decode("c2VjcmV0*"), failsAfter(0));
    EXPECT_STREQ(support::lastRefusal().saw, "");
    EXPECT_STREQ(support::lastRefusal().subject, "");
}

TEST(Base64UriDecode, EndsBinaryOutputWithAZeroThatIsNotCounted)
{
    EXPECT_EQ(decode("AAAAAA"), yields(std::string_view("\0\0\0\0", 4)));
}

TEST(Base64UriDecode, RefusesPaddingThatDoesNotCompleteTheText)
{
    EXPECT_EQ(decode("YQ="), refused());
    EXPECT_EQ(decode("YQ==="), refused());
    EXPECT_EQ(decode("YWJj="), refused());
    EXPECT_EQ(decode("YQ=="), yields("a"));
}

TEST(Base64UriDecode, RefusesMoreThanThreePaddingCharacters)
{
    EXPECT_EQ(decode("===="), refused());
    EXPECT_EQ(decode("YWJjYQ======"), refused());
    EXPECT_EQ(decode("YWJjYQ=="), yields("abca"));
}

// A byte comes of the digit that is left over, and the length tells on it.
TEST(Base64UriDecode, RefusesASingleDigitLeftOver)
{
    EXPECT_EQ(decode("Y"), failsAfter(1));
    EXPECT_EQ(decode("YWJjY"), failsAfter(4));
    EXPECT_EQ(decode("YWJjYWJjY"), failsAfter(7));
}

TEST(Base64UriDecode, RefusesPaddingAloneOrInTheWrongPlace)
{
    EXPECT_EQ(decode("Y===").rule, malformed);
    EXPECT_EQ(decode("=YWJ").rule, malformed);
    EXPECT_EQ(decode("YQ==YQ==").rule, malformed);
}

TEST(Base64UriDecode, RefusesCharactersOfNoAlphabet)
{
    EXPECT_EQ(decode("YWJjYWJj"), yields("abcabc"));
    for (const char* text : {"YWJjY*Jj", "YWJjY.Jj", "YWJjY\x80Jj", "YWJjY\xffJj", "YWJjY,Jj"})
    {
        const Decoded decoded = decode(text);
        EXPECT_EQ(decoded.rule, malformed) << text;
        EXPECT_FALSE(decoded.bytes) << text;
    }
}

TEST(Base64UriDecode, RefusesNullAndEmptyText)
{
    char* bytes = nullptr;
    int length = untouched;
    EXPECT_REFUSED("argument.null", base64URIdecode(nullptr, &bytes, &length));
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(length, untouched);
    EXPECT_REFUSED("argument.null", base64URIdecode("YWJj", nullptr, &length));
    EXPECT_REFUSED("argument.null", base64URIdecode("YWJj", &bytes, nullptr));
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(decode(""), failsAfter(0));
    EXPECT_EQ(decode("\n"), failsAfter(0));
    EXPECT_EQ(decode("\n\n\n\n"), failsAfter(0));
}

TEST(Base64UriDecode, DecodesTextOfTheLargestLengthAndRefusesOneMore)
{
    EXPECT_EQ(decode(std::string(98304, 'A')), yields(std::string(73728, '\0')));
    EXPECT_EQ(decode(std::string(98305, 'A')), refused(tooLong));
    EXPECT_EQ(decode(std::string(98306, 'A')), refused(tooLong));
    EXPECT_EQ(decode(std::string(98308, 'A')), refused(tooLong));
    EXPECT_EQ(decode(std::string(8'000'000, 'A')), refused(tooLong));
    EXPECT_EQ(decode(std::string(98303, 'A')), yields(std::string(73727, '\0')));
}

TEST(Base64UriDecode, CountsLineFeedsInTheLimitButNotInTheLength)
{
    EXPECT_EQ(decode("YW\nJj\n"), yields("abc"));
    EXPECT_EQ(decode("YWJj\nYWJj\n"), yields("abcabc"));
    EXPECT_EQ(decode("YWJj\nYWJj"), yields("abcabc"));
    EXPECT_EQ(decode("YWJj\nYQ==\n"), yields("abca"));
    EXPECT_EQ(decode("YWJj\nYQ"), yields("abca"));
    EXPECT_EQ(decode(std::string(98301, 'A') + "\n\n\n\n"), refused(tooLong));
}

TEST(Base64UriDecode, DecodesLinesOf64Characters)
{
    std::string text;
    for (int line = 0; line < 40; ++line)
    {
        text += std::string(64, 'A') + '\n';
    }
    EXPECT_EQ(decode(text), yields(std::string(40 * 48, '\0')));
}

TEST(Base64UriDecode, StoresNothingButTheLengthOnFailure)
{
    char sentinel = 'x';
    char* bytes = &sentinel;
    int length = untouched;
    EXPECT_REFUSED(malformed, base64URIdecode("YWJjY", &bytes, &length));
    EXPECT_EQ(bytes, &sentinel);
    EXPECT_EQ(length, 4);
}

TEST(Base64UriDecode, LeavesTheBytesAloneWhicheverAllocationFails)
{
    // OpenSSL's first call in a thread allocates what it can do without.
    ASSERT_EQ(decode("YWJj"), yields("abc"));
    support::withEachAllocationFailing([](auto& failure) {
        char* bytes = nullptr;
        int length = untouched;
        const int result = base64URIdecode("YWJjZA", &bytes, &length);
        const HeapText owner{bytes};
        if (failure.reached())
        {
            EXPECT_EQ(result, 0);
            EXPECT_EQ(support::lastRule(), "memory.exhausted");
            support::plantRefusal();
            EXPECT_EQ(bytes, nullptr);
            EXPECT_EQ(length, untouched);
        }
        else
        {
            EXPECT_EQ(result, 1);
            EXPECT_STREQ(bytes, "abcd");
        }
    });
}

// The lengths are those of OpenSSL 3.0's filter. Later versions give others, and accept some of
// these texts.
TEST(Base64UriDecode, AnswersOddTextsAlikeWithEveryVersionOfOpenSsl)
{
    EXPECT_EQ(decode("Y==="), failsAfter(1));
    EXPECT_EQ(decode("N\n"), failsAfter(0));
    EXPECT_EQ(decode("\t1"), failsAfter(0));
    EXPECT_EQ(decode(std::string(1025, 'A')), failsAfter(769));
    EXPECT_EQ(decode(std::string(1024, 'A') + "AAA*"), failsAfter(768));
    EXPECT_EQ(decode("A===    "), yields(std::string_view("\0\0\0", 3)));
    // A line before the Base64.
    EXPECT_EQ(decode("****\nYWJj\n"), failsAfter(3));
    EXPECT_EQ(decode(std::string(2052, '*') + "\nYWJj\n"), failsAfter(3));
    EXPECT_EQ(decode("***\nBCDEFGHIJK LMNOPQRSTUV\nXYZ"), failsAfter(15));
}

/** Decodes as the filter of OpenSSL's I/O layer does. That of version 3.0 says what the decoding of
 *  every text is, malformed ones included. */
Decoded decodeThroughFilter(const std::string& text)
{
    std::string copy;
    std::size_t padding = 0;
    std::size_t lineFeeds = 0;
    for (const char c : text)
    {
        padding += c == '=' ? 1 : 0;
        lineFeeds += c == '\n' ? 1 : 0;
        copy += c == '-' ? '+' : c == '_' ? '/' : c;
    }
    const std::size_t digits = text.size() - lineFeeds;
    std::size_t expected = 0;
    switch (digits % 4)
    {
        case 0:
            expected = digits / 4 * 3 - padding;
            break;
        case 1:
            copy += "===";
            expected = digits / 4 * 3;
            break;
        case 2:
            copy += "==";
            expected = digits / 4 * 3 + 1;
            break;
        default:
            copy += "=";
            expected = digits / 4 * 3 + 2;
            break;
    }
    if (text.size() > 98304 || padding > (digits % 4 == 0 ? 3 : 0))
    {
        return refused(text.size() > 98304 ? tooLong : malformed);
    }
    BIO* chain = BIO_push(BIO_new(BIO_f_base64()),
                          BIO_new_mem_buf(copy.data(), static_cast<int>(copy.size())));
    if (lineFeeds == 0)
    {
        BIO_set_flags(chain, BIO_FLAGS_BASE64_NO_NL);
    }
    std::string bytes(copy.size() + 1, '\0');
    const int length = BIO_read(chain, bytes.data(), static_cast<int>(copy.size()));
    BIO_free_all(chain);
    if (length > 0 && static_cast<std::size_t>(length) == expected)
    {
        return yields({bytes.data(), expected});
    }
    return failsAfter(length);
}

bool filterIsThatOfOpenSsl30()
{
    return OPENSSL_version_major() == 3 && OPENSSL_version_minor() == 0;
}

/** Makes texts from well-formed to mangled, the same ones in every run. */
class TextMaker
{
public:
    std::string next()
    {
        std::string text(below(4) != 0 ? below(90) : around(), '\0');
        constexpr std::string_view alphabet =
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_+/";
        for (char& c : text)
        {
            c = alphabet[below(alphabet.size())];
        }
        if (below(3) == 0)
        {
            text.append(below(5), '=');
        }
        if (below(3) == 0)
        {
            breakIntoLines(text);
        }
        if (below(2) == 0)
        {
            mangle(text);
        }
        return text;
    }

private:
    std::size_t below(std::size_t limit)
    {
        return random() % limit;
    }

    /** Lengths near the ends of the blocks in which the filter works. */
    std::size_t around()
    {
        constexpr std::array<std::size_t, 6> ends = {1024, 2048, 3072, 1498, 4096, 512};
        return ends[below(ends.size())] - 8 + below(16);
    }

    void breakIntoLines(std::string& text)
    {
        constexpr std::array<std::size_t, 7> widths = {1, 4, 64, 65, 76, 500, 1100};
        const std::size_t width = widths[below(widths.size())];
        for (std::size_t at = width; at < text.size(); at += width + 1)
        {
            text.insert(at, 1, '\n');
        }
        if (below(2) == 0)
        {
            text += '\n';
        }
    }

    void mangle(std::string& text)
    {
        constexpr std::string_view odd = "=\n\r \t-*.,\x7f\x80\xff\v";
        for (std::size_t count = 1 + below(3); count != 0; --count)
        {
            const std::size_t at =
                below(3) == 0 ? text.size() - below(1 + text.size() % 9) : below(text.size() + 1);
            const char c = odd[below(odd.size())];
            if (below(2) == 0 || at >= text.size())
            {
                text.insert(std::min(at, text.size()), 1, c);
            }
            else
            {
                text[at] = c;
            }
        }
    }

    std::mt19937 random{19981224}; // NOLINT(cert-msc51-cpp): the same in every run
};

TEST(Base64UriDecode, AnswersEveryTextAsTheFilterDoes)
{
    TextMaker maker;
    int accepted = 0;
    int rejected = 0;
    std::string answers;
    const auto step = static_cast<int>(support::faultStep());
    for (int round = 0; round < 15000; round += step)
    {
        const std::string text = maker.next();
        const Decoded decoded = decode(text);
        if (filterIsThatOfOpenSsl30())
        {
            ASSERT_EQ(decoded, decodeThroughFilter(text)) << testing::PrintToString(text);
        }
        answers += std::to_string(decoded.result) + ' ' + std::to_string(decoded.length) + ' ' +
                   decoded.bytes.value_or("") + '\n';
        ++(decoded.result == 1 ? accepted : rejected);
    }
    if (step == 1)
    {
        // Of the answers of OpenSSL 3.0's filter.
        EXPECT_EQ(sha256(answers),
                  "9b2fa26526f6bf4034687ea794b3808484c2a65deb1ceaf63e5d69de3735bedc");
    }
    // The texts are of both kinds, or the comparison says little.
    EXPECT_GT(accepted, 4000 / step);
    EXPECT_GT(rejected, 4000 / step);
}

TEST(Base64UriDecode, AnswersEveryShortTextAsTheFilterDoes)
{
    if (!filterIsThatOfOpenSsl30())
    {
        GTEST_SKIP() << "the filter of this OpenSSL answers otherwise";
    }
    constexpr std::string_view characters = "Aw_=\n *";
    for (std::size_t number = 0; number < 7 * 7 * 7 * 7 * 7; ++number)
    {
        std::string text;
        std::size_t rest = number;
        do
        {
            text += characters[rest % characters.size()];
            rest /= characters.size();
        } while (rest != 0);
        ASSERT_EQ(decode(text), decodeThroughFilter(text)) << testing::PrintToString(text);
    }
}

TEST(Base64UriDecode, AnswersEveryByteInEveryPlaceAsTheFilterDoes)
{
    if (!filterIsThatOfOpenSsl30())
    {
        GTEST_SKIP() << "the filter of this OpenSSL answers otherwise";
    }
    const std::string digits = "YWJj-_+/";
    for (std::size_t length = 1; length <= digits.size(); ++length)
    {
        for (std::size_t at = 0; at < length; ++at)
        {
            for (int byte = 1; byte <= 255; ++byte)
            {
                std::string text = digits.substr(0, length);
                text[at] = static_cast<char>(byte);
                ASSERT_EQ(decode(text), decodeThroughFilter(text)) << testing::PrintToString(text);
            }
        }
    }
}

} // namespace
