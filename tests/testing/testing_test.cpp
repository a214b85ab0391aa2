// SPDX-License-Identifier: Apache-2.0
//
// The double that services are tested with. Unlike the other programs this one runs on the machine as
// it is: nothing of the operating system is replaced.
#include "support/certificates.hpp"
#include "support/machine.hpp"
#include "support/refusals.hpp"

#include <bmcoauth.hpp>
#include <bmcoauth/testing.h>

#include <climits>
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <string>
#include <thread>
#include <utility>

using namespace bmcoauth;
using support::Identity;

namespace
{

constexpr std::int64_t issuedAt = 1700000000;

/** A test that leaves the next one the machine as it is. */
struct Double : testing::Test
{
    Double() = default;
    Double(const Double&) = delete;
    Double& operator=(const Double&) = delete;
    ~Double() override
    {
        bmcoauth_testing_reset();
    }
};

// ------------------------------------------------------------------ the clock

using TestingClock = Double;

TokenResponse issued(const PrivateKey& key)
{
    return issueTokens({.state = "s", .subject = "admin", .lifetimeSeconds = 600}, key).value();
}

/** What a claim of a valid token says. */
template <typename Claim>
std::string claimOf(const TokenResponse& response, const PrivateKey& key, Claim claim)
{
    const Verdict verdict = validateToken(response.accessToken().value(), key);
    return verdict.verified() == nullptr
               ? std::string{verdict.refusal()->describe().c_str()}
               : std::string{(verdict.verified()->claims().*claim)().value()};
}

TEST_F(TestingClock, IsWhatTokensAreIssuedAndJudgedBy)
{
    const PrivateKey key = KeyPair::generate().value().privateKey;
    bmcoauth_testing_set_clock(issuedAt);
    const TokenResponse response = issued(key);
    const std::string_view token = response.accessToken().value();
    EXPECT_EQ(claimOf(response, key, &Claims::expiresAt), "1700000600");
    bmcoauth_testing_set_clock(issuedAt + 599);
    EXPECT_EQ(validateToken(token, key).judgement(), Judgement::valid);
    bmcoauth_testing_set_clock(issuedAt + 600);
    EXPECT_REFUSED("token.expired", validateToken(token, key));
    bmcoauth_testing_set_clock(issuedAt - 1);
    EXPECT_REFUSED("token.not-yet-valid", validateToken(token, key));
}

TEST_F(TestingClock, IsSetAsFarAsTheMachineCounts)
{
    EXPECT_EQ(bmcoauth_testing_set_clock(2147483647), 1);
    EXPECT_EQ(bmcoauth_testing_set_clock(2147483648), sizeof(std::time_t) > 4 ? 1 : 0);
}

TEST_F(TestingClock, StandsStillUntilItIsSetAgain)
{
    const PrivateKey key = KeyPair::generate().value().privateKey;
    bmcoauth_testing_set_clock(issuedAt);
    for (int i = 0; i < 2; ++i)
    {
        const TokenResponse response = issued(key);
        EXPECT_EQ(claimOf(response, key, &Claims::issuedAt), "1700000000");
    }
}

TEST_F(TestingClock, IsTheMachinesUnlessSet)
{
    const PrivateKey key = KeyPair::generate().value().privateKey;
    bmcoauth_testing_set_clock(issuedAt);
    bmcoauth_testing_reset();
    const std::time_t before = std::time(nullptr);
    const TokenResponse response = issued(key);
    const std::time_t after = std::time(nullptr);
    const std::string seen = claimOf(response, key, &Claims::issuedAt);
    EXPECT_GE(seen, std::to_string(before));
    EXPECT_LE(seen, std::to_string(after));
}

TEST_F(TestingClock, IsSetWhileOtherThreadsWork)
{
    const PrivateKey key = KeyPair::generate().value().privateKey;
    bmcoauth_testing_set_clock(issuedAt);
    const TokenResponse response = issued(key);
    std::thread setter{[] {
        for (int i = 0; i < 500; ++i)
        {
            bmcoauth_testing_set_clock(issuedAt + i);
        }
    }};
    for (int i = 0; i < 20; ++i)
    {
        EXPECT_EQ(validateToken(*response.accessToken(), key).judgement(), Judgement::valid);
    }
    setter.join();
}

// ----------------------------------------------------------- the random device

using TestingRandom = Double;

/** Gives 0, 1, 2, ... and goes on where it stopped. `context` is the next byte. */
int countUp(void* context, unsigned char* bytes, std::size_t count)
{
    auto& next = *static_cast<unsigned char*>(context);
    for (std::size_t i = 0; i < count; ++i)
    {
        bytes[i] = next++;
    }
    return 1;
}

int fail(void* /*context*/, unsigned char* /*bytes*/, std::size_t /*count*/)
{
    return 0;
}

TEST_F(TestingRandom, GivesTheBytesOfTheTest)
{
    unsigned char next = 0;
    bmcoauth_testing_set_random(countUp, &next);
    std::array<char, 19> text{};
    ASSERT_EQ(issueRandomBytesInHex(text.data(), 8), 1);
    EXPECT_STREQ(text.data(), "0x0001020304050607");
    ASSERT_EQ(issueRandomBytesInHex(text.data(), 2), 1);
    EXPECT_STREQ(text.data(), "0x0809");
}

TEST_F(TestingRandom, MakesTheSameTokenIdOfTheSameBytes)
{
    const PrivateKey key = KeyPair::generate().value().privateKey;
    for (int i = 0; i < 2; ++i)
    {
        unsigned char next = 0;
        bmcoauth_testing_set_random(countUp, &next);
        const TokenResponse response = issued(key);
        // The bytes 0 to 15.
        EXPECT_EQ(claimOf(response, key, &Claims::id), "AAECAwQFBgcICQoLDA0ODw==");
    }
}

TEST_F(TestingRandom, FailsAsTheDeviceDoes)
{
    std::array<char, 19> text{};
    bmcoauth_testing_set_random(fail, nullptr);
    EXPECT_REFUSED("random.device", issueRandomBytesInHex(text.data(), 8));
    const bmcoauth_refusal refusal = support::lastRefusal();
    EXPECT_STREQ(refusal.subject, "/dev/urandom");
    EXPECT_STREQ(refusal.saw, "Input/output error");
}

TEST_F(TestingRandom, IsTheMachinesUnlessSet)
{
    unsigned char next = 0;
    std::array<char, 35> first{};
    std::array<char, 35> second{};
    bmcoauth_testing_set_random(countUp, &next);
    bmcoauth_testing_set_random(nullptr, nullptr);
    ASSERT_EQ(issueRandomBytesInHex(first.data(), 16), 1);
    bmcoauth_testing_set_random(countUp, &next);
    bmcoauth_testing_reset();
    ASSERT_EQ(issueRandomBytesInHex(second.data(), 16), 1);
    EXPECT_STRNE(first.data(), second.data());
    EXPECT_EQ(next, 0);
}

// ---------------------------------------------------------- roots and the marker

/** A directory with both factory roots. */
struct TestingRoots : Double
{
    TestingRoots()
    {
        support::writeFile(directory / "FactorycertProdRoot.pem", production.pem());
        support::writeFile(directory / "FactorycertDevRoot.pem", development.pem());
    }

    Identity production = Identity::root("production root");
    Identity development = Identity::root("development root");
    support::TemporaryDirectory directory;
};

CertificateKey deviceOf(const Identity& authority)
{
    return CertificateKey::fromPem(authority.issue({}).pem()).value();
}

TEST_F(TestingRoots, AreThoseOfTheDirectory)
{
    const CertificateKey device = deviceOf(production);
    const CertificateKey stranger = deviceOf(Identity::root("production root"));
    ASSERT_EQ(bmcoauth_testing_set_roots((directory / "").c_str()), 1);
    EXPECT_TRUE(device.verifyChain());
    EXPECT_REFUSED("chain.untrusted", stranger.verifyChain());
}

TEST_F(TestingRoots, AreAllMissingWhereOneIs)
{
    const CertificateKey device = deviceOf(production);
    std::filesystem::remove(directory / "FactorycertDevRoot.pem");
    ASSERT_EQ(bmcoauth_testing_set_roots((directory / "").c_str()), 1);
    EXPECT_REFUSED("chain.root-missing", device.verifyChain());
}

TEST_F(TestingRoots, AreTheMachinesUnlessSet)
{
    // No machine trusts this root, whether it has roots or not.
    const CertificateKey device = deviceOf(production);
    for (const auto& unset : {+[] { bmcoauth_testing_reset(); },
                              +[] {
                                  EXPECT_EQ(bmcoauth_testing_set_roots(nullptr), 1);
                              }})
    {
        ASSERT_EQ(bmcoauth_testing_set_roots((directory / "").c_str()), 1);
        ASSERT_TRUE(device.verifyChain());
        unset();
        EXPECT_FALSE(device.verifyChain());
        if (!std::filesystem::exists("/etc/default/certs/FactorycertProdRoot.pem"))
        {
            // Of a long path the end is kept.
            EXPECT_STREQ(support::lastRefusal().subject, "...s/FactorycertProdRoot.pem");
        }
    }
}

TEST_F(TestingRoots, AreCopied)
{
    const CertificateKey device = deviceOf(production);
    std::string path = directory / "";
    ASSERT_EQ(bmcoauth_testing_set_roots(path.c_str()), 1);
    path.assign(path.size(), 'x');
    EXPECT_TRUE(device.verifyChain());
}

TEST_F(TestingRoots, StayWhereAPathIsRefused)
{
    const CertificateKey device = deviceOf(production);
    ASSERT_EQ(bmcoauth_testing_set_roots((directory / "").c_str()), 1);
    // With "/FactorycertProdRoot.pem" and the zero byte the first one fills PATH_MAX.
    const std::size_t longest = PATH_MAX - 25;
    EXPECT_EQ(bmcoauth_testing_set_roots(std::string(longest + 1, '/').c_str()), 0);
    EXPECT_EQ(bmcoauth_testing_set_roots(""), 0);
    EXPECT_TRUE(device.verifyChain());
    EXPECT_EQ(bmcoauth_testing_set_roots(std::string(longest, '/').c_str()), 1);
    EXPECT_REFUSED("chain.root-missing", device.verifyChain());
}

TEST_F(TestingRoots, IncludeTheDevelopmentRootOnAMarkedDevice)
{
    const CertificateKey device = deviceOf(development);
    ASSERT_EQ(bmcoauth_testing_set_roots((directory / "").c_str()), 1);
    bmcoauth_testing_set_marker(0);
    EXPECT_REFUSED("chain.untrusted", device.verifyChain());
    bmcoauth_testing_set_marker(1);
    EXPECT_TRUE(device.verifyChain());
}

using TestingMarker = Double;

TEST_F(TestingMarker, IsAsTheTestSays)
{
    const int machine = isDeviceVorn();
    EXPECT_EQ(machine, std::filesystem::exists("/etc/vorn_fw") ? 1 : 0);
    bmcoauth_testing_set_marker(1);
    EXPECT_EQ(isDeviceVorn(), 1);
    bmcoauth_testing_set_marker(0);
    EXPECT_EQ(isDeviceVorn(), 0);
    bmcoauth_testing_set_marker(1 - machine);
    bmcoauth_testing_reset();
    EXPECT_EQ(isDeviceVorn(), machine);
}

// -------------------------------------------------------------- the library

/** The name of the file that holds a function. */
template <typename Function>
std::string homeOf(Function* function)
{
    Dl_info found{};
    EXPECT_NE(dladdr(reinterpret_cast<void*>(function), &found), 0);
    return std::filesystem::canonical(found.dli_fname).filename();
}

TEST(TestingLibrary, HoldsAllThatTheProgramCalls)
{
    EXPECT_EQ(homeOf(&validateJWT), "libbmcoauth-testing.so.1.0.0");
    EXPECT_EQ(homeOf(&bmcoauth_last_refusal), "libbmcoauth-testing.so.1.0.0");
}

} // namespace
