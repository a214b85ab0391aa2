// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"
#include "support/vectors.hpp"

#include <bmcoauth/ecies.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <string_view>

using support::fromHex;

namespace
{

using Buffer = std::unique_ptr<void, support::Releaser<support::releaseHeap>>;

constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();

// FIPS 180-4 examples: SHA-256 of "abc" and of the empty text.
constexpr std::string_view digestOfAbc =
    "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
constexpr std::string_view digestOfNothing =
    "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

TEST(EciesKeyDerivation, IsTheSha256OfTheInput)
{
    std::string room(32, 'x');
    std::size_t length = room.size();
    EXPECT_EQ(ecies_key_derivation("abc", 3, room.data(), &length), room.data());
    EXPECT_EQ(room, fromHex(digestOfAbc));
    EXPECT_EQ(length, 32U);
}

TEST(EciesKeyDerivation, DigestsNothing)
{
    std::string room(32, 'x');
    std::size_t length = room.size();
    EXPECT_EQ(ecies_key_derivation(nullptr, 0, room.data(), &length), room.data());
    EXPECT_EQ(room, fromHex(digestOfNothing));
}

TEST(EciesKeyDerivation, Uses32BytesOfMoreRoom)
{
    std::string room(40, 'x');
    std::size_t length = room.size();
    EXPECT_EQ(ecies_key_derivation("abc", 3, room.data(), &length), room.data());
    EXPECT_EQ(room, fromHex(digestOfAbc) + "xxxxxxxx");
    EXPECT_EQ(length, 32U);
}

TEST(EciesKeyDerivation, RefusesLessRoom)
{
    std::string room(32, 'x');
    for (const std::size_t capacity : {0U, 1U, 31U})
    {
        std::size_t length = capacity;
        EXPECT_REFUSED("argument.length", ecies_key_derivation("abc", 3, room.data(), &length));
        EXPECT_EQ(length, capacity);
    }
    EXPECT_EQ(room, std::string(32, 'x'));
}

TEST(EciesKeyDerivation, RefusesNull)
{
    std::string room(32, 'x');
    std::size_t length = room.size();
    EXPECT_REFUSED("argument.null", ecies_key_derivation(nullptr, 3, room.data(), &length));
    EXPECT_REFUSED("argument.null", ecies_key_derivation("abc", 3, nullptr, &length));
    EXPECT_REFUSED("argument.null", ecies_key_derivation("abc", 3, room.data(), nullptr));
    EXPECT_EQ(room, std::string(32, 'x'));
    EXPECT_EQ(length, 32U);
}

// OpenSSL ignores what its callback returns and takes as many bytes as it says. It also comes
// through the failure of some of its own allocations.
TEST(EciesKeyDerivation, SaysThatItWroteNothingWhenMemoryRunsOut)
{
    // What OpenSSL sets up once for the process does not recover from a failure.
    std::array<char, 32> first{};
    std::size_t firstLength = first.size();
    ASSERT_NE(ecies_key_derivation("abc", 3, first.data(), &firstLength), nullptr);
    int failures = 0;
    support::withEachAllocationFailing([&](auto& failure) {
        std::array<char, 32> room{};
        std::size_t length = room.size();
        const void* result = ecies_key_derivation("abc", 3, room.data(), &length);
        static_cast<void>(failure.reached());
        if (result == nullptr)
        {
            EXPECT_EQ(length, 0U);
            ++failures;
        }
        else
        {
            EXPECT_EQ(length, 32U);
            EXPECT_EQ((std::string{room.begin(), room.end()}), fromHex(digestOfAbc));
        }
    });
    EXPECT_GT(failures, 0);
}

TEST(SecureAlloc, LaysTheAreasOutBehindTheirLengths)
{
    const Buffer buffer{secure_alloc(33, 32, 20, 48)};
    ASSERT_NE(buffer, nullptr);
    std::array<std::uint64_t, 4> header{};
    std::memcpy(header.data(), buffer.get(), sizeof header);
    EXPECT_EQ(header, (std::array<std::uint64_t, 4>{33, 32, 20, 48}));
    EXPECT_EQ(secure_mac_length(buffer.get()), 32U);
    EXPECT_EQ(secure_body_length(buffer.get()), 48U);
    const auto* start = static_cast<unsigned char*>(buffer.get());
    EXPECT_EQ(secure_mac_data(buffer.get()) - start, 32 + 33);
    EXPECT_EQ(secure_body_data(buffer.get()) - start, 32 + 33 + 32);
    // Every byte is there to be written.
    std::memset(buffer.get(), 0, 32 + 33 + 32 + 48);
}

TEST(SecureAlloc, IsZeroed)
{
    const Buffer buffer{secure_alloc(33, 32, 20, 48)};
    ASSERT_NE(buffer, nullptr);
    const std::string areas{static_cast<const char*>(buffer.get()) + 32, 33 + 32 + 48};
    EXPECT_EQ(areas, std::string(33 + 32 + 48, '\0'));
}

TEST(SecureAlloc, TakesAreasWithoutLength)
{
    const Buffer buffer{secure_alloc(0, 0, 0, 0)};
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(secure_mac_length(buffer.get()), 0U);
    EXPECT_EQ(secure_body_length(buffer.get()), 0U);
    EXPECT_EQ(secure_mac_data(buffer.get()) - static_cast<unsigned char*>(buffer.get()), 32);
    EXPECT_EQ(secure_body_data(buffer.get()) - static_cast<unsigned char*>(buffer.get()), 32);
}

TEST(SecureAlloc, DoesNotMakeRoomForThePlaintext)
{
    const Buffer buffer{secure_alloc(1, 1, largest, 1)};
    EXPECT_NE(buffer, nullptr);
}

TEST(SecureAlloc, RefusesLengthsWhoseSumDoesNotFit)
{
    EXPECT_REFUSED("memory.exhausted", secure_alloc(largest, 0, 0, 0));
    EXPECT_REFUSED("memory.exhausted", secure_alloc(0, largest, 0, 0));
    EXPECT_REFUSED("memory.exhausted", secure_alloc(0, 0, 0, largest));
    EXPECT_REFUSED("memory.exhausted", secure_alloc(largest - 31, 0, 0, 0));
    EXPECT_REFUSED("memory.exhausted", secure_alloc(0, largest - 31, 0, 0));
    EXPECT_REFUSED("memory.exhausted", secure_alloc(33, 32, 20, largest - 32 - 33 - 32 + 1));
    EXPECT_REFUSED("memory.exhausted", secure_alloc(largest / 2 + 1, largest / 2 + 1, 0, 0));
}

TEST(SecureAlloc, GivesNullWhenMemoryRunsOut)
{
    support::plantRefusal();
    support::FailAllocation failure{1};
    const Buffer buffer{secure_alloc(33, 32, 20, 48)};
    EXPECT_TRUE(failure.reached());
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(support::lastRule(), "memory.exhausted");
}

std::string binaryOf(const char* hex)
{
    std::string bytes(16, 'x');
    EXPECT_EQ(convertHextoBinary(hex, reinterpret_cast<unsigned char*>(bytes.data())), 1);
    return bytes;
}

TEST(ConvertHextoBinary, ReadsDigitsInEitherCase)
{
    EXPECT_EQ(
        binaryOf("0123456789abcdefABCDEF00ff7f80Aa"),
        std::string_view("\x01\x23\x45\x67\x89\xab\xcd\xef\xab\xcd\xef\x00\xff\x7f\x80\xaa", 16));
}

TEST(ConvertHextoBinary, LooksAtNoMoreThan32Digits)
{
    EXPECT_EQ(
        binaryOf("00112233445566778899AABBCCDDEEFF11"),
        std::string_view("\x00\x11\x22\x33\x44\x55\x66\x77\x88\x99\xaa\xbb\xcc\xdd\xee\xff", 16));
    const std::array<char, 32> unterminated = {
        'A', 'B', 'A', 'B', 'A', 'B', 'A', 'B', 'A', 'B', 'A', 'B', 'A', 'B', 'A', 'B',
        'A', 'B', 'A', 'B', 'A', 'B', 'A', 'B', 'A', 'B', 'A', 'B', 'A', 'B', 'A', 'B'};
    EXPECT_EQ(binaryOf(unterminated.data()), std::string(16, '\xab'));
}

TEST(ConvertHextoBinary, ReadsEachPairAsFarAsItGoes)
{
    EXPECT_EQ(
        binaryOf("G11GGG 1+10x-1f F \xff\xff"
                 "1234567890AB"),
        std::string_view("\x00\x01\x00\x01\x01\x00\xff\x0f\x0f\x00\x12\x34\x56\x78\x90\xab", 16));
}

TEST(ConvertHextoBinary, RefusesLessThan32Characters)
{
    std::string bytes(16, 'x');
    auto* out = reinterpret_cast<unsigned char*>(bytes.data());
    EXPECT_REFUSED("argument.length", convertHextoBinary("00112233445566778899AABBCCDDEEF", out));
    EXPECT_REFUSED("argument.length", convertHextoBinary("", out));
    EXPECT_REFUSED("argument.null", convertHextoBinary(nullptr, out));
    EXPECT_EQ(bytes, std::string(16, 'x'));
    EXPECT_REFUSED("argument.null",
                   convertHextoBinary("00112233445566778899AABBCCDDEEFF", nullptr));
}

} // namespace
