// SPDX-License-Identifier: Apache-2.0
#include "service/keys.hpp"
#include "support/fake_device.hpp"
#include "support/refusals.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace bmcoauth
{

namespace
{

using namespace std::chrono_literals;

struct Seen : ::testing::Test
{
    TestClock clock;
    SigningKeys signing = SigningKeys::of(TestSigner{}).value();
    TokenIssuer issuer =
        TokenIssuer::of(signing, {.issuer = "controller", .audience = "console"}, clock).value();
    std::atomic<bool> revoked = false;

    [[nodiscard]] TokenValidator validator(std::size_t cacheSize = 128)
    {
        return TokenValidator::of(signing.verificationKeys(),
                                  {.issuer = "controller",
                                   .audience = "console",
                                   .longestLifetime = 1h,
                                   .revoked = [this](const Claims&) { return revoked.load(); },
                                   .cacheSize = cacheSize},
                                  clock)
            .value();
    }
    [[nodiscard]] std::string token(const std::string& subject = "admin") const
    {
        const IssuedToken issued = issuer.issue(subject, Privilege::login).value();
        return std::string{issued.token.view()};
    }
};

/** Whether `validator` says of `token` what it says without taking memory, without which nothing
 *  verifies a signature. */
bool isRemembered(const TokenValidator& validator, const std::string& token)
{
    std::optional<Expected<ValidToken>> valid;
    support::FailAllocation failure{1};
    valid.emplace(validator.validate(token));
    return !failure.reached();
}

TEST_F(Seen, TakesNoMemoryAgain)
{
    const TokenValidator judge = validator();
    const std::string text = token();
    ASSERT_TRUE(judge.validate(text));
    EXPECT_TRUE(isRemembered(judge, text));
    const ValidToken valid = judge.validate(text).value();
    EXPECT_EQ(valid.claims().subject(), "admin");
    EXPECT_EQ(valid.privileges(), Privilege::login);
}

TEST_F(Seen, IsKeptOnlyIfAsked)
{
    const TokenValidator judge = validator(0);
    const std::string text = token();
    ASSERT_TRUE(judge.validate(text));
    EXPECT_FALSE(isRemembered(judge, text));
    EXPECT_TRUE(judge.validate(text));
}

TEST_F(Seen, ExpiresAllTheSame)
{
    const TokenValidator judge = validator();
    const std::string text = token();
    ASSERT_TRUE(judge.validate(text));
    clock.set(1000599);
    EXPECT_REFUSED("accepted", judge.validate(text));
    clock.set(1000600);
    EXPECT_REFUSED("token.expired", judge.validate(text));
    // A clock that is set back counts as well.
    clock.set(999999);
    EXPECT_REFUSED("token.not-yet-valid", judge.validate(text));
}

TEST_F(Seen, IsRevokedAllTheSame)
{
    const TokenValidator judge = validator();
    const std::string text = token();
    ASSERT_TRUE(judge.validate(text));
    revoked = true;
    EXPECT_REFUSED("policy.revoked", judge.validate(text));
}

TEST_F(Seen, GoesWithTheKeys)
{
    const TokenValidator judge = validator();
    const std::string text = token();
    ASSERT_TRUE(judge.validate(text));
    ASSERT_TRUE(signing.verificationKeys().replace(
        SigningKeys::of(TestSigner{}, signing.jwks()).value().jwks()));
    // Its key is still there; but that is for the validation to find out.
    EXPECT_FALSE(isRemembered(judge, text));
    ASSERT_TRUE(judge.validate(text));
    ASSERT_TRUE(signing.verificationKeys().replace(SigningKeys::of(TestSigner{}).value().jwks()));
    EXPECT_REFUSED("policy.key-unknown", judge.validate(text));
}

TEST_F(Seen, IsNotWhatAnotherValidatorHasSeen)
{
    const TokenValidator judge = validator();
    const std::string text = token();
    ASSERT_TRUE(judge.validate(text));
    const TokenValidator strict = TokenValidator::of(signing.verificationKeys(),
                                                     {.issuer = "controller",
                                                      .audience = "other",
                                                      .longestLifetime = ignored,
                                                      .revoked = ignored},
                                                     clock)
                                      .value();
    EXPECT_REFUSED("policy.audience", strict.validate(text));
}

TEST_F(Seen, IsNeverWhatWasRefused)
{
    const TokenValidator judge = validator();
    std::string forged = token();
    char& middle = forged[forged.rfind('.') + 20];
    middle = middle == 'A' ? 'B' : 'A';
    EXPECT_REFUSED("token.signature", judge.validate(forged));
    EXPECT_FALSE(isRemembered(judge, forged));
    EXPECT_REFUSED("token.signature", judge.validate(forged));

    // Revoked, it is not remembered either, nor refused when it no longer is.
    revoked = true;
    const std::string text = token();
    EXPECT_REFUSED("policy.revoked", judge.validate(text));
    EXPECT_FALSE(isRemembered(judge, text));
    revoked = false;
    EXPECT_TRUE(judge.validate(text));
}

TEST_F(Seen, ComparesTheWholeText)
{
    const TokenValidator judge = validator();
    const std::string text = token();
    ASSERT_TRUE(judge.validate(text));
    EXPECT_FALSE(judge.validate(text.substr(0, text.size() - 1)));
    EXPECT_FALSE(judge.validate(text + "A"));
    EXPECT_FALSE(judge.validate("A" + text));
}

TEST_F(Seen, IsNoLongerThan4Kilobytes)
{
    const TokenValidator judge = validator();
    const std::string shorter = token(std::string(2700, 'a'));
    const std::string longer = token(std::string(2800, 'a'));
    ASSERT_LE(shorter.size(), 4096U);
    ASSERT_GT(longer.size(), 4096U);
    ASSERT_TRUE(judge.validate(shorter));
    ASSERT_TRUE(judge.validate(longer));
    EXPECT_TRUE(isRemembered(judge, shorter));
    EXPECT_FALSE(isRemembered(judge, longer));
}

TEST_F(Seen, IsBounded)
{
    // One set of four.
    const TokenValidator judge = validator(4);
    std::vector<std::string> texts;
    for (int i = 0; i < 6; ++i)
    {
        texts.push_back(token());
        ASSERT_TRUE(judge.validate(texts.back()));
    }
    // The last one first: to ask about one that is gone puts it in the place of another.
    EXPECT_TRUE(isRemembered(judge, texts.at(5)));
    EXPECT_TRUE(isRemembered(judge, texts.at(2)));
    EXPECT_FALSE(isRemembered(judge, texts.at(1)));
    EXPECT_FALSE(isRemembered(judge, texts.at(0)));
}

TEST_F(Seen, OutlivesItsPlace)
{
    const TokenValidator judge = validator(1);
    const ValidToken first = judge.validate(token("first")).value();
    for (int i = 0; i < 8; ++i)
    {
        ASSERT_TRUE(judge.validate(token()));
    }
    EXPECT_EQ(first.claims().subject(), "first");
}

TEST_F(Seen, IsSharedBetweenThreads)
{
    const TokenValidator judge = validator(8);
    const std::vector<std::string> texts{token("a"), token("b"), token("c")};
    std::atomic<bool> failed = false;
    std::vector<std::thread> threads;
    threads.reserve(3);
    for (int i = 0; i < 3; ++i)
    {
        threads.emplace_back([&] {
            for (std::size_t j = 0; j < 60; ++j)
            {
                const Expected<ValidToken> valid = judge.validate(texts.at(j % texts.size()));
                failed = failed || !valid || valid->claims().issuer() != "controller";
            }
        });
    }
    for (int i = 0; i < 10; ++i)
    {
        EXPECT_TRUE(signing.verificationKeys().replace(signing.jwks()));
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_FALSE(failed);
}

} // namespace

} // namespace bmcoauth
