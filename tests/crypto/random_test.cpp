// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/machine.hpp"
#include "support/owners.hpp"

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

std::string hexNumber(int count)
{
    std::array<char, 40> text{};
    std::ranges::copy(std::string_view{untouched}, text.begin());
    const int result = issueRandomBytesInHex(text.data(), count);
    EXPECT_EQ(result == 0, std::string_view{untouched} == text.data());
    return text.data();
}

/** The token of @p count bytes; "(null)" when none is issued. */
std::string token(unsigned int count)
{
    char* text = nullptr;
    issueRandomToken(&text, count);
    const HeapText owner{text};
    return support::orNull(text);
}

/** A new IV; "(null)" when there is none. */
std::string newIv()
{
    char* text = nullptr;
    const int result = generateRandomIV(&text);
    const HeapText owner{text};
    EXPECT_EQ(result, text != nullptr ? 1 : 0);
    return support::orNull(text);
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
    EXPECT_EQ(hexNumber(0), untouched);
}

TEST(IssueRandomBytesInHex, RefusesMoreThan16BytesWithoutOpeningTheDevice)
{
    const FakeRandom device{deviceBytes};
    EXPECT_EQ(hexNumber(17), untouched);
    EXPECT_EQ(hexNumber(INT_MAX), untouched);
    EXPECT_EQ(device.opens(), 0U);
}

TEST(IssueRandomBytesInHex, RefusesANullBuffer)
{
    EXPECT_EQ(issueRandomBytesInHex(nullptr, 4), 0);
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
    withEachDeviceFailure([] { EXPECT_EQ(hexNumber(16), untouched); });
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
    EXPECT_EQ(token(0), "(null)");
}

TEST(IssueRandomToken, StoresNothingForACountThatCannotBeHonoured)
{
    const FakeRandom device;
    EXPECT_EQ(token(4294967295U), "(null)");
    EXPECT_EQ(token(2147483648U), "(null)");
    EXPECT_EQ(device.reads(), 0U);
    issueRandomToken(nullptr, 4);
}

TEST(IssueRandomToken, StoresNothingWhenTheDeviceFails)
{
    withEachDeviceFailure([] { EXPECT_EQ(token(32), "(null)"); });
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
    withEachDeviceFailure([] { EXPECT_EQ(newIv(), "(null)"); });
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
    EXPECT_EQ(generateRandomIV(&text), 0);
    EXPECT_EQ(text, &before);
    EXPECT_EQ(generateRandomIV(&text), 1);
    ASSERT_NE(text, &before);
    const HeapText owner{text};
    EXPECT_STREQ(text, "0123456789ABCDEFFF7F80100FF0AA55");
}

TEST(GenerateRandomIv, RefusesANullAddress)
{
    EXPECT_EQ(generateRandomIV(nullptr), 0);
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
    std::array<char, 40> text{};
    EXPECT_EQ(issueRandomBytesInHex(text.data(), 8), 0);
    EXPECT_EQ(errno, EDOM);
    static_cast<void>(newIv());
    EXPECT_EQ(errno, EDOM);
}

} // namespace
