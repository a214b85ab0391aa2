// SPDX-License-Identifier: Apache-2.0
#include "service/keys.hpp"
#include "support/fake_device.hpp"
#include "support/refusals.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace bmcoauth
{

namespace
{

using namespace std::chrono_literals;
using tokens::Members;

/** `members` with those of `other` instead; without those that are empty there. */
std::string changed(Members members, const Members& other)
{
    for (const auto& [name, text] : other)
    {
        members[name] = text;
    }
    std::erase_if(members, [](const auto& member) { return member.second.empty(); });
    return tokens::json(members);
}

/** A token as software of others makes it: ECDSA signatures are two numbers side by side. */
std::string es256(const Members& header, const Members& payload,
                  const issuer::Key& key = issuer::p256Key())
{
    const std::string input = issuer::signingInput(
        changed({{"typ", "\"JWT\""}, {"alg", "\"ES256\""}, {"kid", "\"one\""}}, header),
        changed({{"sub", "\"alice\""},
                 {"iss", "\"corp\""},
                 {"aud", R"(["console","other"])"},
                 {"jti", "\"1\""},
                 {"iat", "1000000"},
                 {"exp", "1000600"},
                 {"scope", "\"ravok_login ravok_clearlogs\""},
                 {"ravok_roles", R"(["operator"])"}},
                payload));
    return issuer::token(input, issuer::sideBySide(key.sign(input, "SHA256"), 32));
}

std::string rs256(const Members& header)
{
    const std::string input = issuer::signingInput(
        changed({{"typ", "\"JWT\""}, {"alg", "\"RS256\""}, {"kid", "\"rsa\""}}, header),
        R"({"sub":"bob","iss":"corp","aud":"console","exp":1000600})");
    return issuer::token(input, issuer::rsaKey().sign(input, "SHA256"));
}

struct Delegated : ::testing::Test
{
    TestClock clock;
    TrustedIssuer corp{.name = "corp",
                       .jwks = jwks(ecJwk(issuer::p256Key(), {{"kid", "\"one\""}}) + "," +
                                    rsaJwk(issuer::rsaKey(), {{"kid", "\"rsa\""}})),
                       .algorithms = {"ES256", "RS256"},
                       .audience = "console",
                       .longestLifetime = 1h,
                       .type = "JWT",
                       .roles = {{"operator", Privilege::configure}}};

    [[nodiscard]] Expected<DelegatedValidator>
    tryWith(const std::vector<TrustedIssuer>& issuers) const
    {
        return DelegatedValidator::of(issuers, {.revoked = ignored}, clock);
    }
    [[nodiscard]] DelegatedValidator validator() const
    {
        return tryWith({corp}).value();
    }
    [[nodiscard]] std::string ruleOf(const std::string& token) const
    {
        return support::ruleBehind(validator().validate(token));
    }
    [[nodiscard]] std::string ruleWith(const std::string& keys) const
    {
        TrustedIssuer issuer = corp;
        issuer.jwks = jwks(keys);
        return support::ruleBehind(tryWith({issuer}));
    }
};

TEST_F(Delegated, GrantWhatTheRulesMakeOfThem)
{
    const ValidToken valid = validator().validate(es256({}, {})).value();
    EXPECT_EQ(valid.claims().subject(), "alice");
    EXPECT_EQ(valid.privileges().bits(), 0x00bU);
    EXPECT_EQ(valid.expiresAt().time_since_epoch(), 1000600s);
    corp.mostPrivileges = Privilege::login | Privilege::configure;
    EXPECT_EQ(validator().validate(es256({}, {})).value().privileges().bits(), 0x003U);

    corp.mostPrivileges = Privileges::all();
    const std::string codes = es256(
        {}, {{"scope", ""}, {"ravok_roles", ""}, {"xidp", R"({"ours":["VM"],"theirs":["TA"]})"}});
    EXPECT_EQ(validator().validate(codes).value().privileges().bits(), 0U);
    corp.providers = {"ours"};
    EXPECT_EQ(validator().validate(codes).value().privileges(), Privilege::accessVirtualMedia);
}

TEST_F(Delegated, AreRememberedOnceTheyAreValid)
{
    const DelegatedValidator judge = validator();
    const std::string text = es256({}, {});
    ASSERT_TRUE(judge.validate(text));
    std::optional<Expected<ValidToken>> again;
    support::FailAllocation failure{1};
    again.emplace(judge.validate(text));
    const bool tookMemory = failure.reached();
    EXPECT_FALSE(tookMemory);
    EXPECT_TRUE(*again);
    clock.set(1000600);
    EXPECT_REFUSED("token.expired", judge.validate(text));
}

TEST_F(Delegated, AreVerifiedByTheKeyThatTheyName)
{
    EXPECT_EQ(ruleOf(rs256({})), "accepted");
    EXPECT_EQ(ruleOf(es256({{"kid", "\"rsa\""}}, {})), "policy.algorithm");
    EXPECT_EQ(ruleOf(rs256({{"kid", "\"one\""}})), "policy.algorithm");
    EXPECT_EQ(ruleOf(rs256({{"alg", "\"PS256\""}})), "policy.algorithm");
    EXPECT_EQ(ruleOf(rs256({{"alg", "\"RSA256\""}})), "policy.algorithm");
    EXPECT_EQ(ruleOf(rs256({{"alg", "\"HS256\""}})), "policy.algorithm");
    EXPECT_EQ(ruleOf(es256({{"kid", ""}}, {})), "policy.key-unknown");
    EXPECT_EQ(ruleOf(es256({{"kid", "\"two\""}}, {})), "policy.key-unknown");
    EXPECT_EQ(ruleOf(es256({}, {}, issuer::otherP256Key())), "token.signature");
}

TEST_F(Delegated, NeedNoKeyIdWhereThereIsOneKey)
{
    corp.jwks = jwks(ecJwk(issuer::p256Key(), {{"kid", "\"one\""}}));
    EXPECT_EQ(ruleOf(es256({{"kid", ""}}, {})), "accepted");
    EXPECT_EQ(ruleOf(es256({{"kid", "\"two\""}}, {})), "policy.key-unknown");
    corp.jwks = jwks(ecJwk(issuer::p256Key()));
    EXPECT_EQ(ruleOf(es256({{"kid", "\"two\""}}, {})), "accepted");
}

TEST_F(Delegated, AreJudgedByTheIssuerThatTheyName)
{
    TrustedIssuer other = corp;
    other.name = "other";
    other.jwks = jwks(ecJwk(issuer::otherP256Key(), {{"kid", "\"one\""}}));
    other.roles.clear();
    const DelegatedValidator judge = tryWith({corp, other}).value();
    EXPECT_TRUE(judge.validate(es256({}, {})));
    const std::string text = es256({}, {{"iss", "\"other\""}}, issuer::otherP256Key());
    EXPECT_EQ(judge.validate(text).value().privileges().bits(), 0x009U);
    // One's key for another's name.
    EXPECT_REFUSED("token.signature", judge.validate(es256({}, {{"iss", "\"other\""}})));
    EXPECT_REFUSED("token.signature", judge.validate(es256({}, {}, issuer::otherP256Key())));
    for (const char* name : {"\"Corp\"", "\"\"", "", "7", "[\"corp\"]"})
    {
        EXPECT_REFUSED("policy.issuer", judge.validate(es256({}, {{"iss", name}}))) << name;
    }
}

TEST_F(Delegated, AreForThisAudience)
{
    EXPECT_EQ(ruleOf(es256({}, {{"aud", "\"console\""}})), "accepted");
    for (const char* audience : {"", "\"consoles\"", "[]", "{\"console\":1}", R"(["Console"])"})
    {
        EXPECT_EQ(ruleOf(es256({}, {{"aud", audience}})), "policy.audience") << audience;
    }
    corp.audience = ignored;
    EXPECT_EQ(ruleOf(es256({}, {{"aud", ""}})), "accepted");
}

TEST_F(Delegated, AreInTheirTimeGiveOrTakeTheSkew)
{
    corp.skew = 30s;
    const DelegatedValidator judge = validator();
    const std::string text = es256({}, {{"nbf", "1000100"}});
    for (const auto& [now, rule] :
         {std::pair{1000069, "token.not-yet-valid"}, std::pair{1000070, "accepted"},
          std::pair{1000629, "accepted"}, std::pair{1000630, "token.expired"}})
    {
        clock.set(now);
        EXPECT_REFUSED(rule, judge.validate(text)) << now;
    }
    clock.set(1000000);
    EXPECT_EQ(ruleOf(es256({}, {{"iat", "1000031"}})), "token.not-yet-valid");
    EXPECT_EQ(ruleOf(es256({}, {{"exp", ""}})), "token.member");
    EXPECT_EQ(ruleOf(es256({}, {{"nbf", "9999999999"}})), "token.member");
}

TEST_F(Delegated, LiveNoLongerThanAllowed)
{
    EXPECT_EQ(ruleOf(es256({}, {{"exp", "1003600"}})), "accepted");
    EXPECT_EQ(ruleOf(es256({}, {{"exp", "1003601"}})), "policy.lifetime");
    EXPECT_EQ(ruleOf(es256({}, {{"exp", "1003601"}, {"iat", ""}})), "policy.lifetime");
    corp.longestLifetime = ignored;
    EXPECT_EQ(ruleOf(es256({}, {{"exp", "4294967295"}})), "accepted");
}

TEST_F(Delegated, AreStrict)
{
    EXPECT_EQ(ruleOf(es256({{"typ", "\"logout+jwt\""}}, {})), "policy.type");
    EXPECT_EQ(ruleOf(es256({{"crit", R"(["exp"])"}}, {})), "policy.critical");
    EXPECT_EQ(ruleOf(es256({}, {{"sub", R"("a\u0000b")"}})), "argument.zero-byte");
    EXPECT_EQ(ruleOf(es256({}, {{"sub", "\"\xff\""}})), "policy.encoding");
    EXPECT_EQ(ruleOf(es256({}, {{"sub", R"("\udc00")"}})), "policy.encoding");
    EXPECT_EQ(ruleOf(es256({}, {}) + "="), "policy.encoding");
    corp.type = ignored;
    EXPECT_EQ(ruleOf(es256({{"typ", ""}}, {})), "accepted");
}

TEST_F(Delegated, GrantNoRightsOfTheirOwn)
{
    const std::string text = es256({}, {{"scope", R"({"USER_PRIV":["511"]})"}});
    EXPECT_EQ(ruleOf(text), "policy.scopes");
    corp.allowIssuerScopes = true;
    EXPECT_EQ(validator().validate(text).value().privileges(), Privileges::all());
    corp.mostPrivileges = Privilege::login;
    EXPECT_EQ(validator().validate(text).value().privileges(), Privilege::login);
}

TEST_F(Delegated, CanBeRevoked)
{
    const DelegatedValidator judge = DelegatedValidator::of({corp},
                                                            {.revoked =
                                                                 [](const Claims& claims) {
                                                                     return claims.id() == "2";
                                                                 }},
                                                            clock)
                                         .value();
    EXPECT_REFUSED("accepted", judge.validate(es256({}, {})));
    EXPECT_REFUSED("policy.revoked", judge.validate(es256({}, {{"jti", "\"2\""}})));
    EXPECT_REFUSED("token.member", judge.validate(es256({}, {{"jti", ""}})));
}

TEST_F(Delegated, AreVerifiedByKeysThatAreMeantForThat)
{
    const std::string good = ecJwk(issuer::p256Key(), {{"kid", "\"one\""}});
    EXPECT_EQ(ruleWith(good), "accepted");
    // What is not for signatures, or of an unknown sort, is left out.
    EXPECT_EQ(ruleWith(good + R"(,{"kty":"OKP","crv":"Ed25519","x":"AA"},{"kty":"oct","k":"AA"},)" +
                       rsaJwk(issuer::rsaKey(), {{"use", "\"enc\""}})),
              "accepted");
    EXPECT_EQ(ruleWith(good + "," + rsaJwk(issuer::rsaKey())), "policy.key-id");
    EXPECT_EQ(ruleWith(rsaJwk(issuer::rsaKey(), {{"alg", "\"PS256\""}})), "policy.key-unusable");
    EXPECT_EQ(ruleWith(""), "policy.key-unusable");
    EXPECT_EQ(ruleWith(rsaJwk(issuer::Key::rsa(1024))), "policy.key-weak");
    EXPECT_EQ(ruleWith(R"({"kty":"RSA","n":"AAAA","e":"AQAB"})"), "policy.key-weak");
    EXPECT_EQ(ruleWith("1"), "policy.key-unusable");
}

TEST_F(Delegated, HaveIssuersThatMakeSense)
{
    const auto with = [this](const auto& change) {
        TrustedIssuer issuer = corp;
        change(issuer);
        return support::ruleBehind(tryWith({issuer}));
    };
    EXPECT_EQ(with([](TrustedIssuer& one) { one.name = ""; }), "argument.empty");
    EXPECT_EQ(with([](TrustedIssuer& one) { one.audience = ""; }), "argument.empty");
    EXPECT_EQ(with([](TrustedIssuer& one) { one.type = ""; }), "argument.empty");
    EXPECT_EQ(with([](TrustedIssuer& one) { one.algorithms = {"HS256"}; }), "argument.range");
    EXPECT_EQ(with([](TrustedIssuer& one) { one.algorithms = {}; }), "policy.key-unusable");
    EXPECT_EQ(with([](TrustedIssuer& one) { one.skew = 601s; }), "argument.range");
    EXPECT_EQ(with([](TrustedIssuer& one) { one.skew = -1s; }), "argument.range");
    EXPECT_EQ(with([](TrustedIssuer& one) { one.longestLifetime = 0s; }), "argument.range");
    EXPECT_REFUSED("argument.conflict", tryWith({corp, corp}));
    EXPECT_REFUSED("argument.empty", tryWith({}));
    EXPECT_REFUSED("argument.empty", DelegatedValidator::of({corp}, {.revoked = ignored}, nullptr));
}

} // namespace

} // namespace bmcoauth
