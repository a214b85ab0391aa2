// SPDX-License-Identifier: Apache-2.0
#include "service/keys.hpp"
#include "support/refusals.hpp"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <string>
#include <utility>

namespace bmcoauth
{

namespace
{

using namespace std::chrono_literals;
using tokens::Members;

/** Tokens that are put together by hand: a good one, and others that differ in one thing. */
struct Validating : ::testing::Test
{
    TestClock clock;
    VerificationKeys keys =
        VerificationKeys::of(jwks(ecJwk(issuer::p256Key(), {{"kid", "\"one\""}}) + "," +
                                  ecJwk(issuer::otherP256Key(), {{"kid", "\"two\""}})))
            .value();
    TokenRules rules{.issuer = "controller",
                     .audience = "console",
                     .longestLifetime = 10min,
                     .revoked = ignored};

    static std::string header(const Members& other = {})
    {
        return tokens::json(
            changed({{"typ", "\"JWT\""}, {"alg", "\"ES256\""}, {"kid", "\"one\""}}, other));
    }
    static std::string payload(const Members& other = {})
    {
        return tokens::json(changed({{"sub", "\"admin\""},
                                     {"iss", "\"controller\""},
                                     {"jti", "\"1\""},
                                     {"iat", "\"1000000\""},
                                     {"nbf", "\"1000000\""},
                                     {"exp", "\"1000600\""},
                                     {"scope", R"({"aud":["console"],"USER_PRIV":["9"]})"}},
                                    other));
    }
    static std::string token(const std::string& header, const std::string& payload,
                             const issuer::Key& key = issuer::p256Key())
    {
        const std::string input = issuer::signingInput(header, payload);
        return issuer::token(input, key.sign(input, "SHA256"));
    }
    /** The rule that refuses a token of these parts. */
    [[nodiscard]] std::string rule(const std::string& header, const std::string& payload) const
    {
        return support::ruleBehind(validator().validate(token(header, payload)));
    }
    [[nodiscard]] std::string ruleOfHeader(const Members& other) const
    {
        return rule(header(other), payload());
    }
    [[nodiscard]] std::string ruleOfPayload(const Members& other) const
    {
        return rule(header(), payload(other));
    }
    [[nodiscard]] TokenValidator validator() const
    {
        return TokenValidator::of(keys, rules, clock).value();
    }

private:
    /** `members` with those of `other` instead; without those that are empty there. */
    static Members changed(Members members, const Members& other)
    {
        for (const auto& [name, text] : other)
        {
            members[name] = text;
        }
        std::erase_if(members, [](const auto& member) { return member.second.empty(); });
        return members;
    }
};

TEST_F(Validating, TakesATokenThatIsAsExpected)
{
    const ValidToken valid = validator().validate(token(header(), payload())).value();
    EXPECT_EQ(valid.claims().subject(), "admin");
    EXPECT_EQ(valid.privileges(), Privilege::login | Privilege::clearLogs);
    EXPECT_EQ(valid.expiresAt().time_since_epoch(), 1000600s);
}

TEST_F(Validating, IsMovedFromUnharmed)
{
    ValidToken valid = validator().validate(token(header(), payload())).value();
    // NOLINTNEXTLINE(performance-move-const-arg): it copies, and must.
    const ValidToken moved = std::move(valid);
    // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move): that is the question.
    EXPECT_EQ(valid.claims().subject(), moved.claims().subject());
}

TEST_F(Validating, ChoosesTheKeyByItsId)
{
    EXPECT_EQ(ruleOfHeader({{"kid", "\"two\""}}), "token.signature");
    EXPECT_EQ(ruleOfHeader({{"kid", "\"three\""}}), "policy.key-unknown");
    EXPECT_EQ(ruleOfHeader({{"kid", ""}}), "policy.key-unknown");
    EXPECT_REFUSED("accepted", validator().validate(token(header({{"kid", "\"two\""}}), payload(),
                                                          issuer::otherP256Key())));
}

TEST_F(Validating, WantsTypeAndAlgorithmExactly)
{
    EXPECT_EQ(ruleOfHeader({{"typ", "\"jwt\""}}), "policy.type");
    EXPECT_EQ(ruleOfHeader({{"typ", ""}}), "policy.type");
    EXPECT_EQ(ruleOfHeader({{"typ", "\"at+jwt\""}}), "policy.type");
    for (const char* name : {"\"ES384\"", "\"es256\"", "\"EdDSA\"", "\"none\"", "\"HS256\""})
    {
        EXPECT_EQ(ruleOfHeader({{"alg", name}}), "policy.algorithm") << name;
    }
    rules.type = "at+jwt";
    EXPECT_EQ(ruleOfHeader({{"typ", "\"at+jwt\""}}), "accepted");
}

TEST_F(Validating, WantsNothingCritical)
{
    EXPECT_EQ(ruleOfHeader({{"crit", R"(["b64"])"}, {"b64", "false"}}), "policy.critical");
    EXPECT_EQ(ruleOfHeader({{"crit", "null"}}), "policy.critical");
    EXPECT_EQ(ruleOfHeader({{"crit", "[]"}}), "policy.critical");
}

TEST_F(Validating, WantsIssuerAndAudienceExactly)
{
    EXPECT_EQ(ruleOfPayload({{"iss", "\"Controller\""}}), "policy.issuer");
    EXPECT_EQ(ruleOfPayload({{"iss", ""}}), "policy.issuer");
    for (const char* scope :
         {"", R"({"aud":["consol"]})", R"({"aud":[]})", R"({"AUD":["console"]})", "\"console\""})
    {
        EXPECT_EQ(ruleOfPayload({{"scope", scope}}), "policy.audience") << scope;
    }
    // The claim itself is not where the service's own tokens say it.
    EXPECT_EQ(ruleOfPayload({{"aud", "\"console\""}, {"scope", ""}}), "policy.audience");
}

TEST_F(Validating, IgnoresWhatItIsToldToIgnore)
{
    rules.issuer = ignored;
    rules.audience = ignored;
    rules.longestLifetime = ignored;
    EXPECT_EQ(ruleOfPayload({{"iss", "\"else\""}, {"scope", ""}, {"exp", "\"9000000\""}}),
              "accepted");
}

TEST_F(Validating, WantsEveryClaimThatItIssues)
{
    for (const char* name : {"sub", "jti", "iat", "nbf", "exp"})
    {
        EXPECT_EQ(ruleOfPayload({{name, ""}}), "token.member") << name;
    }
}

TEST_F(Validating, LooksAtTheClock)
{
    const TokenValidator validator = this->validator();
    const std::string text = token(header(), payload());
    for (const auto& [now, rule] :
         {std::pair{999999, "token.not-yet-valid"}, std::pair{1000000, "accepted"},
          std::pair{1000599, "accepted"}, std::pair{1000600, "token.expired"},
          std::pair{999999, "token.not-yet-valid"}})
    {
        clock.set(now);
        EXPECT_REFUSED(rule, validator.validate(text)) << now;
    }
    clock.set(1000000);
    EXPECT_EQ(ruleOfPayload({{"nbf", "\"1000001\""}}), "token.not-yet-valid");
    EXPECT_EQ(ruleOfPayload({{"iat", "\"1000001\""}}), "token.not-yet-valid");
}

TEST_F(Validating, WantsTimesInPlainDecimal)
{
    for (const char* time : {"0x1000000", "01000600", "+1000600", "-5", "1000600 ", " 1000600", "",
                             "1000600.5", "253402300800", "99999999999999999999"})
    {
        EXPECT_EQ(ruleOfPayload({{"exp", "\"" + std::string{time} + "\""}}), "token.member")
            << time;
    }
    for (const char* time : {"9999999999", "1000000.5", "{}", "[]", "true"})
    {
        EXPECT_EQ(ruleOfPayload({{"nbf", time}}), "token.member") << time;
        EXPECT_EQ(ruleOfPayload({{"iat", time}}), "token.member") << time;
    }
}

TEST_F(Validating, LimitsHowLongATokenLives)
{
    EXPECT_EQ(ruleOfPayload({{"exp", "\"1000601\""}}), "policy.lifetime");
    EXPECT_EQ(ruleOfPayload({{"exp", "\"253402300799\""}}), "policy.lifetime");
    EXPECT_EQ(ruleOfPayload({{"iat", "\"999999\""}}), "policy.lifetime");
}

TEST_F(Validating, WantsUtf8WithoutZeroBytes)
{
    EXPECT_EQ(ruleOfPayload({{"sub", "\"\xc3\xa4\xe2\x82\xac\xf0\x9f\x94\x91\""}}), "accepted");
    for (const char* bytes :
         {"\xff", "\xc0\xaf", "\xe0\x9f\xbf", "\xed\xa0\x80", "\xf0\x8f\xbf\xbf",
          "\xf4\x90\x80\x80", "\xe2\x82", "\x80", "\xc3\x28", "\xf8\x88\x80\x80"})
    {
        EXPECT_EQ(ruleOfPayload({{"sub", '"' + std::string{bytes} + '"'}}), "policy.encoding");
        EXPECT_EQ(ruleOfHeader({{"x", '"' + std::string{bytes} + '"'}}), "policy.encoding");
    }
    // Half of a pair: the JSON text is UTF-8, the claim is not.
    EXPECT_EQ(ruleOfPayload({{"sub", R"("\udc00")"}}), "policy.encoding");
    EXPECT_EQ(ruleOfPayload({{"jti", R"("\udc00")"}}), "policy.encoding");
    EXPECT_EQ(ruleOfPayload({{"sub", R"("admin\u0000.example")"}}), "argument.zero-byte");
    EXPECT_EQ(ruleOfHeader({{"x", R"("\u0000")"}}), "argument.zero-byte");
}

TEST_F(Validating, WantsThreePartsOfPlainBase64Url)
{
    const TokenValidator validator = this->validator();
    const std::string good = token(header(), payload());
    EXPECT_REFUSED("accepted", validator.validate(good));
    EXPECT_REFUSED("policy.encoding", validator.validate(good + "="));
    EXPECT_REFUSED("policy.encoding", validator.validate(good + "\n"));
    EXPECT_REFUSED("policy.encoding", validator.validate(" " + good));
    EXPECT_REFUSED("token.parts", validator.validate(good + ".x"));
    EXPECT_REFUSED("token.parts", validator.validate(good.substr(0, good.rfind('.'))));
    EXPECT_REFUSED("token.parts", validator.validate(""));
    EXPECT_REFUSED("base64.malformed", validator.validate(".."));
    EXPECT_REFUSED("argument.length", validator.validate(std::string(16385, 'a')));
    EXPECT_REFUSED("token.parts", validator.validate(std::string(16384, 'a')));
    std::string altered = good;
    char& middle = altered[altered.rfind('.') + 20];
    middle = middle == 'A' ? 'B' : 'A';
    EXPECT_REFUSED("token.signature", validator.validate(altered));
}

TEST_F(Validating, AsksWhetherTheTokenIsRevoked)
{
    std::string asked;
    Expected<bool> revoked = false;
    rules.revoked = [&](const Claims& claims) {
        asked = std::string{*claims.id()} + " of " + std::string{*claims.subject()};
        return revoked;
    };
    const TokenValidator validator = this->validator();
    const std::string text = token(header(), payload({{"jti", "\"number 7\""}}));
    EXPECT_REFUSED("accepted", validator.validate(text));
    EXPECT_EQ(asked, "number 7 of admin");
    revoked = true;
    EXPECT_REFUSED("policy.revoked", validator.validate(text));
    revoked = Error{BMCOAUTH_RULE_FILE_UNREADABLE};
    EXPECT_REFUSED("file.unreadable", validator.validate(text));
    revoked = false;
    EXPECT_REFUSED("accepted", validator.validate(text));
}

TEST_F(Validating, RefusesRulesWithoutSense)
{
    const auto with = [this](const auto& change) {
        TokenRules changed = rules;
        change(changed);
        return support::ruleBehind(TokenValidator::of(keys, changed, clock));
    };
    EXPECT_EQ(with([](TokenRules& one) { one.issuer = ""; }), "argument.empty");
    EXPECT_EQ(with([](TokenRules& one) { one.audience = ""; }), "argument.empty");
    EXPECT_EQ(with([](TokenRules& one) { one.type = ""; }), "argument.empty");
    EXPECT_EQ(with([](TokenRules& one) { one.revoked = RevocationCheck{}; }), "argument.empty");
    EXPECT_EQ(with([](TokenRules& one) { one.longestLifetime = 0s; }), "argument.range");
    EXPECT_EQ(with([](TokenRules& one) { one.cacheSize = 65537; }), "argument.range");
    EXPECT_REFUSED("argument.empty", TokenValidator::of(keys, rules, nullptr));
}

} // namespace

} // namespace bmcoauth
