// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/machine.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"

#include <bmcoauth/ecies.h>
#include <bmcoauth/encoding.h>

#include <climits>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <set>
#include <string>
#include <string_view>

using support::FakeRandom;
using support::HeapText;

namespace
{

constexpr std::string_view hexDigits = "0123456789abcdef";
constexpr std::string_view upperHexDigits = "0123456789ABCDEF";
constexpr std::string_view base64Digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/** Every digit of "01 23 45 67 89 ab cd ef", and the bytes at both ends. */
constexpr std::string_view deviceBytes = "\x01\x23\x45\x67\x89\xab\xcd\xef"
                                         "\xff\x7f\x80\x10\x0f\xf0\xaa\x55";

constexpr const char* untouched = "untouched";

/** The rules by which the device and a count are refused. */
constexpr const char* noDevice = "random.device";
constexpr const char* tooMany = "argument.length";

/** The number of @p count bytes; the rule when none is written. */
std::string hexNumber(int count)
{
    std::array<char, 40> text{};
    std::ranges::copy(std::string_view{untouched}, text.begin());
    const std::string rule =
        support::ruleOf([&] { return issueRandomBytesInHex(text.data(), count); });
    EXPECT_EQ(rule != "accepted", std::string_view{untouched} == text.data());
    return rule == "accepted" ? text.data() : rule;
}

/** The token of @p count bytes; the rule when none is issued. */
std::string token(unsigned int count)
{
    char* text = nullptr;
    const std::string rule = support::ruleOf([&] {
        issueRandomToken(&text, count);
        return text;
    });
    const HeapText owner{text};
    return text != nullptr ? text : rule;
}

/** A new IV; the rule when there is none. */
std::string newIv()
{
    char* text = nullptr;
    const std::string rule = support::ruleOf([&] { return generateRandomIV(&text); });
    const HeapText owner{text};
    EXPECT_EQ(rule == "accepted", text != nullptr);
    return text != nullptr ? text : rule;
}

bool consistsOf(std::string_view text, std::string_view characters)
{
    return text.find_first_not_of(characters) == std::string_view::npos;
}

/** Every way in which the device can fail to give the bytes that were asked for. */
template <typename Body>
void withEachDeviceFailure(const Body& body)
{
    for (const int error : {ENOENT, EACCES, EMFILE})
    {
        SCOPED_TRACE("opening fails");
        FakeRandom device{deviceBytes};
        device.failOpening(error);
        body();
        EXPECT_EQ(device.opens(), 1U);
        EXPECT_EQ(device.reads(), 0U);
    }
    for (const int error : {EIO, EINTR, EAGAIN})
    {
        SCOPED_TRACE("reading fails");
        FakeRandom device{deviceBytes};
        device.failReading(error, {0, 1});
        body();
        EXPECT_EQ(device.reads(), 1U) << "a failed read is not tried again";
    }
    for (const std::size_t missing : {1U, 8U})
    {
        SCOPED_TRACE("reading is cut short");
        FakeRandom device{deviceBytes};
        device.shortenReading(missing, {0, 1});
        body();
        EXPECT_EQ(device.reads(), 1U) << "a short read is not completed";
    }
}

TEST(IssueRandomBytesInHex, WritesTheBytesInTheirOrder)
{
    const FakeRandom device{deviceBytes};
    EXPECT_EQ(hexNumber(16), "0x0123456789abcdefff7f80100ff0aa55");
    EXPECT_EQ(device.opens(), 1U);
    EXPECT_EQ(device.reads(), 1U);
    EXPECT_EQ(device.bytesAskedFor(), 16U);
}

TEST(IssueRandomBytesInHex, WritesAsManyBytesAsAskedFor)
{
    for (int count = 1; count <= 16; ++count)
    {
        const FakeRandom device{deviceBytes};
        EXPECT_EQ(hexNumber(count), std::string{"0x0123456789abcdefff7f80100ff0aa55"}.substr(
                                        0, 2 + 2 * static_cast<std::size_t>(count)));
    }
}

TEST(IssueRandomBytesInHex, WritesThePrefixAloneForNoBytes)
{
    EXPECT_EQ(hexNumber(0), "0x");
}

// A number of no bytes is drawn as every other one is.
TEST(IssueRandomBytesInHex, NeedsTheDeviceForNoBytesToo)
{
    FakeRandom device;
    EXPECT_EQ(hexNumber(0), "0x");
    EXPECT_EQ(device.opens(), 1U);
    device.failOpening(ENOENT);
    EXPECT_EQ(hexNumber(0), noDevice);
}

TEST(IssueRandomBytesInHex, RefusesMoreThan16BytesWithoutOpeningTheDevice)
{
    const FakeRandom device{deviceBytes};
    EXPECT_EQ(hexNumber(17), tooMany);
    EXPECT_EQ(hexNumber(INT_MAX), tooMany);
    EXPECT_EQ(device.opens(), 0U);
}

TEST(IssueRandomBytesInHex, RefusesANullBuffer)
{
    EXPECT_REFUSED("argument.null", issueRandomBytesInHex(nullptr, 4));
}

TEST(IssueRandomBytesInHex, EndsTheProcessForANegativeCount)
{
    for (const int count : {-1, -16, INT_MIN})
    {
        EXPECT_EQ(support::exitStatusOf([&] {
                      std::array<char, 40> text{};
                      issueRandomBytesInHex(text.data(), count);
                  }),
                  -SIGABRT);
    }
}

TEST(IssueRandomBytesInHex, WritesNothingWhenTheDeviceFails)
{
    withEachDeviceFailure([] { EXPECT_EQ(hexNumber(16), noDevice); });
}

TEST(IssueRandomBytesInHex, GivesOtherDigitsEachTime)
{
    std::set<std::string> numbers;
    for (int round = 0; round < 200; ++round)
    {
        const std::string number = hexNumber(16);
        EXPECT_EQ(number.size(), 34U);
        EXPECT_TRUE(number.starts_with("0x"));
        EXPECT_TRUE(consistsOf(number.substr(2), hexDigits)) << number;
        numbers.insert(number);
    }
    EXPECT_EQ(numbers.size(), 200U);
}

TEST(IssueRandomToken, IsTheBase64OfTheBytes)
{
    const FakeRandom device{deviceBytes};
    EXPECT_EQ(token(16), "ASNFZ4mrze//f4AQD/CqVQ==");
    EXPECT_EQ(device.opens(), 1U);
    EXPECT_EQ(device.reads(), 1U);
    EXPECT_EQ(device.bytesAskedFor(), 16U);
}

TEST(IssueRandomToken, Has44CharactersFor32Bytes)
{
    const std::string text = token(32);
    EXPECT_EQ(text.size(), 44U);
    EXPECT_TRUE(text.ends_with("=") && !text.ends_with("==")) << text;
}

TEST(IssueRandomToken, IsOneLineOfThePromisedLength)
{
    for (unsigned int count = 0; count <= 200; ++count)
    {
        const std::string text = token(count);
        EXPECT_EQ(text.size(), (count + 2) / 3 * 4);
        const std::string_view digits = std::string_view{text}.substr(0, text.find('='));
        EXPECT_TRUE(consistsOf(digits, base64Digits)) << text;
        EXPECT_EQ(text.size() - digits.size(), (3 - count % 3) % 3);
    }
}

TEST(IssueRandomToken, IsEmptyForNoBytes)
{
    EXPECT_EQ(token(0), "");
}

TEST(IssueRandomToken, NeedsTheDeviceForNoBytesToo)
{
    FakeRandom device;
    EXPECT_EQ(token(0), "");
    device.failOpening(ENOENT);
    EXPECT_EQ(token(0), noDevice);
}

TEST(IssueRandomToken, StoresNothingForACountThatCannotBeHonoured)
{
    const FakeRandom device;
    EXPECT_EQ(token(4294967295U), "base64.length");
    EXPECT_EQ(token(2147483648U), "base64.length");
    EXPECT_EQ(device.reads(), 0U);
    EXPECT_REFUSED("argument.null", (issueRandomToken(nullptr, 4), false));
}

TEST(IssueRandomToken, StoresNothingWhenTheDeviceFails)
{
    withEachDeviceFailure([] { EXPECT_EQ(token(32), noDevice); });
}

TEST(IssueRandomToken, OverwritesWhatWasThereOnSuccessAlone)
{
    FakeRandom device{deviceBytes};
    // Not of the heap: it could not be released.
    char before = 'x';
    char* text = &before;
    device.failReading(EIO, {0, 1});
    issueRandomToken(&text, 3);
    EXPECT_EQ(text, &before);
    issueRandomToken(&text, 3);
    ASSERT_NE(text, &before);
    const HeapText owner{text};
    EXPECT_STREQ(text, "ASNF");
}

TEST(IssueRandomToken, StoresNothingWhicheverAllocationFails)
{
    support::withEachAllocationFailing([](auto& failure) {
        char* text = nullptr;
        issueRandomToken(&text, 12);
        const HeapText owner{text};
        EXPECT_EQ(text == nullptr, failure.reached());
    });
}

TEST(IssueRandomToken, DiffersEachTime)
{
    std::set<std::string> tokens;
    std::set<char> characters;
    for (int round = 0; round < 200; ++round)
    {
        const std::string text = token(30);
        characters.insert(text.begin(), text.end());
        tokens.insert(text);
    }
    EXPECT_EQ(tokens.size(), 200U);
    EXPECT_EQ(characters.size(), 64U) << "8000 random characters miss none of the alphabet";
}

TEST(GenerateRandomIv, WritesTheBytesInUpperCase)
{
    const FakeRandom device{deviceBytes};
    EXPECT_EQ(newIv(), "0123456789ABCDEFFF7F80100FF0AA55");
    EXPECT_EQ(device.opens(), 1U);
    EXPECT_EQ(device.reads(), 1U);
    EXPECT_EQ(device.bytesAskedFor(), 16U);
}

TEST(GenerateRandomIv, StoresNothingWhenTheDeviceFails)
{
    withEachDeviceFailure([] { EXPECT_EQ(newIv(), noDevice); });
}

TEST(GenerateRandomIv, StoresNothingWhicheverAllocationFails)
{
    support::withEachAllocationFailing([](auto& failure) {
        char* text = nullptr;
        const int result = generateRandomIV(&text);
        const HeapText owner{text};
        const bool failed = failure.reached();
        EXPECT_EQ(result, failed ? 0 : 1);
        EXPECT_EQ(text == nullptr, failed);
    });
}

TEST(GenerateRandomIv, OverwritesWhatWasThereOnSuccessAlone)
{
    FakeRandom device{deviceBytes};
    char before = 'x';
    char* text = &before;
    device.failReading(EIO, {0, 1});
    EXPECT_REFUSED(noDevice, generateRandomIV(&text));
    EXPECT_EQ(text, &before);
    EXPECT_EQ(generateRandomIV(&text), 1);
    ASSERT_NE(text, &before);
    const HeapText owner{text};
    EXPECT_STREQ(text, "0123456789ABCDEFFF7F80100FF0AA55");
}

TEST(GenerateRandomIv, RefusesANullAddress)
{
    EXPECT_REFUSED("argument.null", generateRandomIV(nullptr));
}

TEST(GenerateRandomIv, DiffersEachTime)
{
    std::set<std::string> ivs;
    for (int round = 0; round < 200; ++round)
    {
        const std::string iv = newIv();
        EXPECT_EQ(iv.size(), 32U);
        EXPECT_TRUE(consistsOf(iv, upperHexDigits)) << iv;
        ivs.insert(iv);
    }
    EXPECT_EQ(ivs.size(), 200U);
}

TEST(RandomDevice, IsNamedWithWhatItGave)
{
    const auto saw = [] {
        EXPECT_EQ(hexNumber(8), noDevice);
        EXPECT_STREQ(support::lastRefusal().subject, "/dev/urandom");
        return std::string{support::lastRefusal().saw};
    };
    FakeRandom source;
    source.failOpening(EACCES, {0, 1});
    EXPECT_EQ(saw(), "Permission denied");
    source.failReading(EIO, {0, 1});
    EXPECT_EQ(saw(), "Input/output error");
    source.shortenReading(1);
    EXPECT_EQ(saw(), "a short read");
}

TEST(RandomDevice, IsClosedAgain)
{
    const std::size_t before = support::openDescriptors();
    for (int round = 0; round < 10; ++round)
    {
        static_cast<void>(hexNumber(8));
        static_cast<void>(token(8));
        static_cast<void>(newIv());
    }
    EXPECT_EQ(support::openDescriptors(), before);
}

TEST(RandomDevice, IsOpenedCloseOnExecAndForReading)
{
    const support::FakeFiles files;
    static_cast<void>(token(8));
    ASSERT_EQ(files.openings().size(), 1U);
    EXPECT_EQ(files.openings()[0].path, "/dev/urandom");
    EXPECT_TRUE(files.openings()[0].closeOnExec);
    EXPECT_FALSE(files.openings()[0].forWriting);
}

TEST(RandomDevice, LeavesErrnoAsItWas)
{
    FakeRandom device;
    device.failOpening(ENOENT);
    errno = EDOM;
    static_cast<void>(token(8));
    EXPECT_EQ(errno, EDOM);
    EXPECT_EQ(hexNumber(8), noDevice);
    EXPECT_EQ(errno, EDOM);
    static_cast<void>(newIv());
    EXPECT_EQ(errno, EDOM);
}

} // namespace
