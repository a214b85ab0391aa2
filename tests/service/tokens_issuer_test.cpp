// SPDX-License-Identifier: Apache-2.0
#include "service/keys.hpp"
#include "support/machine.hpp"
#include "support/refusals.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <utility>

namespace bmcoauth
{

namespace
{

using namespace std::chrono_literals;

struct Issuing : ::testing::Test
{
    TestClock clock;
    TestSigner signer;
    SigningKeys keys = SigningKeys::of(signer).value();

    [[nodiscard]] TokenIssuer issuer(TokenIssuerRules rules = {.issuer = "controller",
                                                               .audience = "console"}) const
    {
        return TokenIssuer::of(keys, std::move(rules), clock).value();
    }
    [[nodiscard]] TokenValidator validator() const
    {
        return TokenValidator::of(keys.verificationKeys(),
                                  {.issuer = "controller",
                                   .audience = "console",
                                   .longestLifetime = 1h,
                                   .revoked = ignored},
                                  clock)
            .value();
    }
};

TEST_F(Issuing, SaysWhatTheRulesSay)
{
    const IssuedToken issued =
        issuer().issue("admin", Privilege::login | Privilege::clearLogs, 5min).value();
    EXPECT_EQ(issued.expiresAt.time_since_epoch(), 1000300s);
    EXPECT_EQ(issued.id.size(), 24U);

    const UnverifiedToken read = readUnverified(issued.token).value();
    const UnverifiedClaims claims = read.unverifiedClaims().value();
    EXPECT_EQ(read.unverifiedHeader().type(), "JWT");
    EXPECT_EQ(read.unverifiedHeader().algorithm(), "ES256");
    EXPECT_NE(keys.jwks().find(R"("kid":")" + std::string{*read.unverifiedHeader().keyId()}),
              std::string::npos);
    EXPECT_EQ(claims.subject(), "admin");
    EXPECT_EQ(claims.issuer(), "controller");
    EXPECT_EQ(claims.id(), issued.id);
    EXPECT_EQ(claims.issuedAt(), "1000000");
    EXPECT_EQ(claims.notBefore(), "1000000");
    EXPECT_EQ(claims.expiresAt(), "1000300");
    EXPECT_EQ(claims.scopeValue("aud"), "console");
    EXPECT_EQ(claims.scopeValue("USER_PRIV"), "9");
}

TEST_F(Issuing, GivesTokensThatAValidatorTakes)
{
    const IssuedToken issued = issuer().issue("admin", Privilege::clearLogs).value();
    EXPECT_EQ(issued.expiresAt.time_since_epoch(), 1000600s);
    const ValidToken valid = validator().validate(issued.token).value();
    EXPECT_EQ(valid.claims().subject(), "admin");
    EXPECT_EQ(valid.privileges(), Privilege::clearLogs);
    EXPECT_EQ(valid.expiresAt(), issued.expiresAt);
    EXPECT_NE(issuer().issue("admin", Privileges{}).value().id, issued.id);
}

TEST_F(Issuing, WorksWithTheKeyOfAFileAndWhenThatRotates)
{
    const support::TemporaryDirectory directory;
    keys = SigningKeys::loadOrCreate(directory / "key.pem").value();
    const TokenIssuer made = issuer();
    const TokenValidator judge = validator();
    const IssuedToken before = made.issue("admin", Privileges::all()).value();
    EXPECT_TRUE(judge.validate(before.token));
    ASSERT_TRUE(keys.rotate());
    const IssuedToken after = made.issue("admin", Privileges::all()).value();
    EXPECT_TRUE(judge.validate(before.token));
    EXPECT_TRUE(judge.validate(after.token));
    // Withdrawn, the keys take with them what was seen.
    ASSERT_TRUE(keys.rotate(0));
    EXPECT_REFUSED("policy.key-unknown", judge.validate(before.token));
    EXPECT_REFUSED("policy.key-unknown", judge.validate(after.token));
}

TEST_F(Issuing, RefusesWhatCouldNotBeVerified)
{
    const TokenIssuer made = issuer();
    const auto issue = [&made](std::string_view subject, Privileges privileges,
                               std::chrono::seconds lifetime) {
        return made.issue(subject, privileges, lifetime);
    };
    EXPECT_REFUSED("argument.empty", issue("", Privileges{}, 1s));
    EXPECT_REFUSED("argument.zero-byte", issue({"a\0b", 3}, Privileges{}, 1s));
    EXPECT_REFUSED("policy.encoding", issue("\xff", Privileges{}, 1s));
    EXPECT_REFUSED("argument.range", issue("a", Privileges{0x200}, 1s));
    EXPECT_REFUSED("policy.lifetime", issue("a", Privileges{}, 0s));
    EXPECT_REFUSED("policy.lifetime", issue("a", Privileges{}, -1s));
    EXPECT_REFUSED("policy.lifetime", issue("a", Privileges{}, 3601s));
    EXPECT_TRUE(issue("a", Privileges{}, 3600s));
    EXPECT_REFUSED("argument.length", issue(std::string(12000, 'a'), Privileges{}, 1s));
    const IssuedToken longest = issue(std::string(10000, 'a'), Privileges{}, 1s).value();
    EXPECT_TRUE(validator().validate(longest.token));
    clock.set(0);
    EXPECT_REFUSED("clock.unreadable", issue("a", Privileges{}, 1s));
}

TEST_F(Issuing, GivesAValidatorByItsRules)
{
    const TokenIssuer typed = issuer({.issuer = "controller",
                                      .audience = "console",
                                      .lifetime = 2h,
                                      .longestLifetime = 3h,
                                      .type = "at+jwt"});
    const TokenValidator own = typed.validator(ignored).value();
    const IssuedToken token = typed.issue("admin", Privilege::login, 3h).value();
    EXPECT_TRUE(own.validate(token.token));
    const auto ruleFor = [&own](const TokenIssuer& other) {
        const IssuedToken others = other.issue("admin", {}, 1s).value();
        return support::ruleBehind(own.validate(others.token));
    };
    EXPECT_EQ(ruleFor(issuer()), "policy.type");
    EXPECT_EQ(ruleFor(issuer({.issuer = "other", .audience = "console", .type = "at+jwt"})),
              "policy.issuer");
    EXPECT_EQ(ruleFor(issuer({.issuer = "controller", .audience = "other", .type = "at+jwt"})),
              "policy.audience");
    const auto longer = issuer(
        {.issuer = "controller", .audience = "console", .longestLifetime = 4h, .type = "at+jwt"});
    const IssuedToken tooLong = longer.issue("admin", {}, 4h).value();
    EXPECT_REFUSED("policy.lifetime", own.validate(tooLong.token));

    const auto revoked = [&token](const Claims& claims) {
        return claims.id() == token.id;
    };
    EXPECT_REFUSED("policy.revoked", typed.validator(revoked).value().validate(token.token));
    clock.set(1010800);
    EXPECT_REFUSED("token.expired", own.validate(token.token));
}

TEST_F(Issuing, RefusesRulesWithoutSense)
{
    const auto of = [this](TokenIssuerRules rules) {
        return TokenIssuer::of(keys, std::move(rules), clock);
    };
    EXPECT_REFUSED("argument.empty", of({.issuer = "", .audience = ignored}));
    EXPECT_REFUSED("argument.empty", of({.issuer = "a", .audience = ""}));
    EXPECT_REFUSED("argument.empty", of({.issuer = "a", .audience = ignored, .type = ""}));
    EXPECT_REFUSED("argument.range", of({.issuer = "a", .audience = ignored, .lifetime = 0s}));
    EXPECT_REFUSED("argument.range", of({.issuer = "a", .audience = ignored, .lifetime = 2h}));
    EXPECT_REFUSED("argument.range",
                   of({.issuer = "a", .audience = ignored, .longestLifetime = 9000h}));
    EXPECT_REFUSED("argument.empty",
                   TokenIssuer::of(keys, {.issuer = "a", .audience = ignored}, nullptr));
}

TEST_F(Issuing, GivesNothingThatASignerHasSpoiled)
{
    signer.spoils = true;
    keys = SigningKeys::of(signer).value();
    EXPECT_REFUSED("token.signature", issuer().issue("admin", Privileges{}));
    signer.fails = true;
    keys = SigningKeys::of(signer).value();
    EXPECT_REFUSED("random.device", issuer().issue("admin", Privileges{}));
}

} // namespace

} // namespace bmcoauth
