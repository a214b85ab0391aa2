// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/refusals.hpp"

#include <bmcoauth/service/store.hpp>

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

using namespace std::chrono_literals;
using std::chrono::sys_seconds;

namespace bmcoauth
{

namespace
{

SecretDigest digestOf(std::string_view text)
{
    return SecretDigest::of(text);
}

// ----------------------------------------------------------------------------------------- digests --

TEST(SecretDigest, IsThatOfFips180)
{
    // FIPS 180-2, appendix B.1: SHA-256 of "abc".
    constexpr std::array<unsigned char, 32> expected{
        0xba, 0x78, 0x16, 0xbf, 0x8f, 0x01, 0xcf, 0xea, 0x41, 0x41, 0x40,
        0xde, 0x5d, 0xae, 0x22, 0x23, 0xb0, 0x03, 0x61, 0xa3, 0x96, 0x17,
        0x7a, 0x9c, 0xb4, 0x10, 0xff, 0x61, 0xf2, 0x00, 0x15, 0xad};
    EXPECT_EQ(digestOf("abc").bytes(), expected);
    EXPECT_EQ(digestOf("abc"), SecretDigest{expected});
    EXPECT_FALSE(digestOf("abc") == digestOf("abd"));
    EXPECT_FALSE(digestOf("") == SecretDigest{});
}

// ----------------------------------------------------------------------------------------- refresh --

/** Rotated at 1000 s, good until 2000 s, ends at 3000 s; the token before was "old". */
ClientRecord rotatedClient()
{
    ClientRecord client;
    client.endsAt = sys_seconds{3000s};
    client.expiresAt = sys_seconds{2000s};
    client.refresh = RefreshFamily{.current = digestOf("current"),
                                   .previous = digestOf("old"),
                                   .rotatedAt = sys_seconds{1000s}};
    return client;
}

TEST(DecideRefresh, FollowsThisTable)
{
    struct Row
    {
        const char* token;
        std::chrono::seconds now;
        std::uint32_t replays;
        const char* outcome;
    };
    constexpr auto rows = std::to_array<Row>({
        // The token that is good now.
        {"current", 1000s, 0, "rotate"},
        {"current", 1999s, 0, "rotate"},
        {"current", 1000s, 9, "rotate"},
        {"current", 2000s, 0, "client.refresh-expired"},
        {"current", 2999s, 0, "client.refresh-expired"},
        {"current", 3000s, 0, "client.family-expired"},
        // The clock was set back.
        {"current", 10s, 0, "rotate"},
        // The one before it: 30 seconds, and twice.
        {"old", 1000s, 0, "replay"},
        {"old", 1029s, 1, "replay"},
        {"old", 1029s, 2, "client.refresh-reused"},
        {"old", 1030s, 0, "client.refresh-reused"},
        {"old", 971s, 0, "replay"},
        {"old", 970s, 0, "client.refresh-reused"},
        {"old", 2000s, 0, "client.refresh-expired"},
        {"old", 3000s, 0, "client.family-expired"},
        // Any other of the family.
        {"older", 1000s, 0, "client.refresh-reused"},
        {"older", 2000s, 0, "client.refresh-expired"},
        {"older", 3000s, 0, "client.family-expired"},
    });
    for (const Row& row : rows)
    {
        ClientRecord client = rotatedClient();
        client.refresh->replays = row.replays;
        const Expected<bool> rotates = decideRefresh(
            client, digestOf(row.token), {.length = 30s, .times = 2}, sys_seconds{row.now});
        const std::string_view accepted = rotates.value_or(false) ? "rotate" : "replay";
        EXPECT_EQ(rotates ? accepted : rotates.error().name(), row.outcome)
            << row.token << " at " << row.now.count() << " after " << row.replays << " replays";
    }
}

TEST(DecideRefresh, IsOverForAClientThatHasNeverProvenItself)
{
    ClientRecord client = rotatedClient();
    client.refresh.reset();
    EXPECT_REFUSED("client.family-expired",
                   decideRefresh(client, digestOf("current"), {}, sys_seconds{1000s}));
}

TEST(DecideRefresh, TakesNoTokenForThePreviousOneWhereThereIsNone)
{
    ClientRecord client = rotatedClient();
    client.refresh->previous = {};
    EXPECT_REFUSED("client.refresh-reused",
                   decideRefresh(client, digestOf(""), {}, sys_seconds{1000s}));
}

// -------------------------------------------------------------------------------------- the tokens --

TEST(RefreshToken, IsReplacedByTheSameOneEachTime)
{
    // HMAC-SHA-256 of "salt" by the whole token, from Python's hmac module.
    const Text next = detail::nextRefreshToken("family.secret", "salt").value();
    EXPECT_EQ(next.view(), "family.9tVktpq-tgTVMQ7eRnrWbEpAF5nW5zE839Bj1n1K8Q4");
    const auto nextOf = [](std::string_view token, std::string_view salt) {
        const Text text = detail::nextRefreshToken(token, salt).value();
        return std::string{text.view()};
    };
    EXPECT_EQ(nextOf("family.secret", "salt"), next.view());
    EXPECT_NE(nextOf("family.secret", "salz"), next.view());
    EXPECT_NE(nextOf("family.other", "salt"), next.view());
    EXPECT_EQ(detail::familyPart(next), "family");
    EXPECT_EQ(detail::familyPart("no dot"), "no dot");
    EXPECT_EQ(detail::familyPart(""), "");
}

TEST(RefreshToken, BeginsWithTwoRandomTexts)
{
    const Text one = detail::firstRefreshToken().value();
    const Text other = detail::firstRefreshToken().value();
    // 16 bytes in Base64, a dot, and 16 bytes more.
    EXPECT_EQ(one.view().size(), 49U);
    EXPECT_EQ(detail::familyPart(one).size(), 24U);
    EXPECT_NE(detail::familyPart(one), detail::familyPart(other));
    EXPECT_NE(one.view().substr(24), other.view().substr(24));
}

TEST(RefreshToken, IsNotMadeWithoutARandomDevice)
{
    support::FakeRandom random;
    random.failOpening(EACCES);
    EXPECT_REFUSED("random.device", detail::firstRefreshToken());
}

// ---------------------------------------------------------------------------------------- failures --

TEST(CountAttempt, AllowsABurstAndThenOneEachInterval)
{
    constexpr FailureRate rate{.burst = 3, .interval = 10s};
    sys_seconds busy{};
    const auto count = [&](std::chrono::seconds now) {
        const CountedAttempt attempt = countAttempt(busy, rate, sys_seconds{now});
        busy = attempt.busyUntil;
        return attempt.allowed;
    };
    EXPECT_TRUE(count(1000s));
    EXPECT_TRUE(count(1000s));
    EXPECT_TRUE(count(1000s));
    EXPECT_FALSE(count(1000s));
    EXPECT_FALSE(count(1009s));
    EXPECT_TRUE(count(1010s));
    EXPECT_FALSE(count(1019s));
    EXPECT_TRUE(count(1020s));
    // All of the burst is back after as many intervals.
    EXPECT_TRUE(count(1060s));
    EXPECT_TRUE(count(1060s));
    EXPECT_TRUE(count(1060s));
    EXPECT_FALSE(count(1060s));
}

TEST(CountAttempt, LocksNobodyForeverWhereTheClockWasAhead)
{
    constexpr FailureRate rate{.burst = 3, .interval = 10s};
    const sys_seconds year2100{4102444800s};
    const CountedAttempt first = countAttempt(year2100, rate, sys_seconds{1000s});
    EXPECT_FALSE(first.allowed);
    EXPECT_EQ(first.busyUntil, sys_seconds{1030s});
    EXPECT_FALSE(countAttempt(first.busyUntil, rate, sys_seconds{1009s}).allowed);
    EXPECT_TRUE(countAttempt(first.busyUntil, rate, sys_seconds{1010s}).allowed);
}

} // namespace

} // namespace bmcoauth
