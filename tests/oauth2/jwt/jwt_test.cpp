// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/hostile.hpp"
#include "support/machine.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"
#include "support/tokens.hpp"

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <map>
#include <utility>

using namespace support;
using tokens::base64Url;
using tokens::fromBase64Url;
using tokens::handmade;
using tokens::json;
using tokens::otherKey;
using tokens::partsOf;
using tokens::plainClaims;
using tokens::plainHeader;
using tokens::serviceKey;
using tokens::with;

namespace
{

constexpr std::time_t now = 1700000000;

/** What a child process reports: a failed allocation, and the outcome that it must have. */
constexpr int asPromised = 10;
/** The exit status of the fail-fast allocation. */
constexpr int endedAtOnce = 255;

/** The records of a token, over texts of the test: nothing in them is released. */
struct Records
{
    std::string typ = "JWT";
    std::string alg = "ES256";
    std::string sub = "user";
    std::string iss = "issuer";
    std::string jti = "id-1";
    std::string iat = "1700000000";
    std::string nbf = "1700000001";
    std::string exp = "1700003600";
    JWTHeader header{typ.data(), alg.data(), nullptr};
    JWTPayload payload{jti.data(), sub.data(), iss.data(), iat.data(), exp.data(),
                       nbf.data(), nullptr,    nullptr,    nullptr,    nullptr,
                       nullptr,    nullptr,    0};

    Records() = default;
    Records(const Records&) = delete;
    Records& operator=(const Records&) = delete;
    ~Records() = default;

    [[nodiscard]] std::string token()
    {
        const HeapText text{
            generateJWT(&header, &payload, serviceKey().data(), serviceKey().length())};
        return orNull(text.get());
    }

    /** The rule by which no token is made, and the text that it concerns. */
    [[nodiscard]] std::string refusal()
    {
        const std::string rule = ruleOf([this] {
            return HeapText{
                generateJWT(&header, &payload, serviceKey().data(), serviceKey().length())};
        });
        return rule + " " + lastRefusal().subject;
    }

    /** The text of one part of the token, decoded. */
    [[nodiscard]] std::string part(std::size_t index)
    {
        return fromBase64Url(partsOf(token()).at(index));
    }

    /** The payload of the token with these scope entries. */
    [[nodiscard]] std::string payloadWithScopes(std::vector<JWTscopes> scopes)
    {
        payload.scopes = scopes.data();
        payload.scopes_count = static_cast<int>(scopes.size());
        std::string text = part(1);
        payload.scopes = nullptr;
        payload.scopes_count = 0;
        return text;
    }
};

char* text(const char* literal)
{
    return const_cast<char*>(literal); // NOLINT(cppcoreguidelines-pro-type-const-cast): only read
}

/** What validateJWT gives. */
struct Validation
{
    int result = -1;
    /** The rule that refused it; "accepted" if none did. */
    std::string rule;
    tokens::Header header;
    tokens::Payload payload;
};

/** What @p check makes of its two records. */
template <typename Check>
Validation validation(const Check& check)
{
    Validation made;
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    made.rule = ruleOf([&] { return made.result = check(&header, &payload); });
    made.header.reset(header);
    made.payload.reset(payload);
    EXPECT_EQ(made.result, made.rule == "accepted"           ? 1
                           : made.rule == "token.expired"    ? 2
                           : made.rule == "clock.unreadable" ? 3
                                                             : 0);
    return made;
}

Validation validate(const std::string& token, const tokens::PrivateKey& key = serviceKey())
{
    return validation([&](JWTHeader** header, JWTPayload** payload) {
        return validateJWT(token.c_str(), key.data(), key.length(), header, payload);
    });
}

std::string without(const std::string& name)
{
    tokens::Members claims = plainClaims();
    claims.erase(name);
    return json(claims);
}

Validation validateClaims(const std::string& payload)
{
    return validate(handmade(plainHeader, payload));
}

Validation validateHeader(const std::string& header)
{
    return validate(handmade(header, json(plainClaims())));
}

/** The rule behind a result that the times of a token decide. */
const char* timeRule(int result)
{
    return result == 1 ? "accepted" : result == 2 ? "token.expired" : "token.not-yet-valid";
}

/** @p token with another digit at @p position. */
std::string altered(std::string token, std::size_t position)
{
    token.at(position) = token.at(position) == 'A' ? 'B' : 'A';
    return token;
}

} // namespace

TEST(GenerateJwt, WritesTheHeaderInCompactForm)
{
    Records records;
    EXPECT_EQ(records.part(0), R"({"alg":"ES256","typ":"JWT"})");
    // By the coreutils: printf '{"alg":"ES256","typ":"JWT"}' | basenc --base64url | tr -d =
    EXPECT_EQ(partsOf(records.token()).at(0), "eyJhbGciOiJFUzI1NiIsInR5cCI6IkpXVCJ9");
    records.header.kid = text("key-1");
    EXPECT_EQ(records.part(0), R"({"alg":"ES256","kid":"key-1","typ":"JWT"})");
}

TEST(GenerateJwt, WritesThePayloadWithTimesAsStrings)
{
    Records records;
    EXPECT_EQ(records.part(1), R"({"exp":"1700003600","iat":"1700000000","iss":"issuer",)"
                               R"("jti":"id-1","nbf":"1700000001","sub":"user"})");
}

TEST(GenerateJwt, EscapesWhatJsonEscapes)
{
    Records records;
    records.payload.sub = text("a\"b\\c\n\x01/\u00e9");
    EXPECT_NE(records.part(1).find(R"("sub":"a\"b\\c\n\u0001/\u00e9")"), std::string::npos);
    records.payload.sub = text("");
    EXPECT_NE(records.part(1).find(R"("sub":"")"), std::string::npos);
}

TEST(GenerateJwt, WritesEachScopeEntryWithItsOwnValues)
{
    Records records;
    std::array<char*, 2> ab{text("a"), text("b")};
    std::array<char*, 1> c{text("c")};
    const std::string payload =
        records.payloadWithScopes({{text("second"), ab.data(), 2}, {text("first"), c.data(), 1}});
    EXPECT_NE(payload.find(R"("scope":{"first":["c"],"second":["a","b"]})"), std::string::npos)
        << payload;
}

TEST(GenerateJwt, WritesOnlyTheCountedValues)
{
    Records records;
    std::array<char*, 2> ab{text("a"), text("b")};
    const std::string payload = records.payloadWithScopes({{text("one"), ab.data(), 1},
                                                           {text("none"), ab.data(), 0},
                                                           {text("null"), nullptr, 0},
                                                           {text("less"), ab.data(), -1}});
    EXPECT_NE(payload.find(R"("scope":{"less":[],"none":[],"null":[],"one":["a"]})"),
              std::string::npos)
        << payload;
}

TEST(GenerateJwt, LetsALaterScopeEntryReplaceAnEarlierOneOfTheSameName)
{
    Records records;
    std::array<char*, 2> ab{text("a"), text("b")};
    std::array<char*, 1> c{text("c")};
    const std::string payload =
        records.payloadWithScopes({{text("name"), ab.data(), 2}, {text("name"), c.data(), 1}});
    EXPECT_NE(payload.find(R"("scope":{"name":["c"]})"), std::string::npos) << payload;
}

TEST(GenerateJwt, WritesNoScopeWithoutACount)
{
    Records records;
    std::array<char*, 1> a{text("a")};
    JWTscopes scope{text("name"), a.data(), 1};
    records.payload.scopes = &scope;
    records.payload.scopes_count = 1;
    EXPECT_NE(records.part(1).find("scope"), std::string::npos);
    for (const int count : {0, -1})
    {
        records.payload.scopes_count = count;
        EXPECT_EQ(records.part(1).find("scope"), std::string::npos) << count;
    }
}

TEST(GenerateJwt, WritesNoOtherField)
{
    Records records;
    const std::string plain = records.part(1);
    TextList list{"one", "two"};
    records.payload.aud = list;
    records.payload.xidp = text(R"({"*":["L"]})");
    records.payload.act = text("actor");
    records.payload.ravok_roles = list;
    records.payload.scope = list;
    EXPECT_EQ(records.part(1), plain);
}

TEST(GenerateJwt, SignsHeaderAndPayload)
{
    Records records;
    const std::string token = records.token();
    ASSERT_EQ(std::ranges::count(token, '.'), 2);
    EXPECT_EQ(token.find_first_of("=+/\n"), std::string::npos);
    const std::vector<std::string> parts = partsOf(token);
    const std::string signingInput = parts.at(0) + "." + parts.at(1);
    const std::string signature = fromBase64Url(parts.at(2));
    EXPECT_TRUE(tokens::verifies(signingInput, signature, serviceKey()));
    EXPECT_FALSE(tokens::verifies(signingInput, signature, otherKey()));
    EXPECT_FALSE(tokens::verifies(signingInput + ".", signature, serviceKey()));
    const auto* bytes = reinterpret_cast<const unsigned char*>(signature.data());
    EXPECT_EQ(verifySignature(signingInput, bytes, static_cast<int>(signature.size()),
                              serviceKey().data(), serviceKey().length()),
              1);
}

TEST(GenerateJwt, SignsWithSha256WhateverAlgSays)
{
    Records records;
    records.header.alg = text("ES512");
    const std::vector<std::string> parts = partsOf(records.token());
    EXPECT_EQ(fromBase64Url(parts.at(0)), R"({"alg":"ES512","typ":"JWT"})");
    EXPECT_TRUE(tokens::verifies(parts.at(0) + "." + parts.at(1), fromBase64Url(parts.at(2)),
                                 serviceKey()));
}

TEST(GenerateJwt, SignsWithAThrowawayKeyWithoutOne)
{
    Records records;
    const HeapText first{generateJWT(&records.header, &records.payload, nullptr, 0)};
    const HeapText second{generateJWT(&records.header, &records.payload, nullptr, 0)};
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_STRNE(first.get(), second.get());
    const std::vector<std::string> parts = partsOf(first.get());
    ASSERT_EQ(parts.size(), 3U);
    EXPECT_EQ(parts.at(0) + "." + parts.at(1),
              base64Url(records.part(0)) + "." + base64Url(records.part(1)));
    EXPECT_FALSE(tokens::verifies(parts.at(0) + "." + parts.at(1), fromBase64Url(parts.at(2)),
                                  serviceKey()));
}

TEST(GenerateJwt, NeedsEveryTextButKid)
{
    const JournalEntries journal;
    Records records;
    EXPECT_NE(records.token(), "(null)");
    for (const auto& [field, name] : {std::pair{&records.header.typ, "typ"},
                                      {&records.header.alg, "alg"},
                                      {&records.payload.sub, "sub"},
                                      {&records.payload.iss, "iss"},
                                      {&records.payload.jti, "jti"},
                                      {&records.payload.iat, "iat"},
                                      {&records.payload.nbf, "nbf"},
                                      {&records.payload.exp, "exp"}})
    {
        char* const kept = std::exchange(*field, nullptr);
        EXPECT_EQ(records.refusal(), std::string{"token.incomplete "} + name);
        *field = kept;
    }
    EXPECT_REFUSED("argument.null", generateJWT(nullptr, &records.payload, nullptr, 0));
    EXPECT_STREQ(lastRefusal().subject, "header");
    EXPECT_REFUSED("argument.null", generateJWT(&records.header, nullptr, nullptr, 0));
    EXPECT_STREQ(lastRefusal().subject, "payload");
    EXPECT_TRUE(journal.all().empty());
}

TEST(GenerateJwt, NeedsEveryTextOfItsScopes)
{
    const JournalEntries journal;
    Records records;
    std::array<char*, 2> values{text("a"), text("b")};
    JWTscopes scope{text("name"), values.data(), 2};
    records.payload.scopes = &scope;
    records.payload.scopes_count = 1;
    EXPECT_NE(records.token(), "(null)");
    scope.name = nullptr;
    EXPECT_EQ(records.refusal(), "token.incomplete scope");
    scope.name = text("name");
    values[1] = nullptr;
    EXPECT_EQ(records.refusal(), "token.incomplete scope");
    scope.count = 1;
    EXPECT_NE(records.token(), "(null)");
    scope.values = nullptr;
    EXPECT_EQ(records.refusal(), "token.incomplete scope");
    records.payload.scopes = nullptr;
    EXPECT_EQ(records.refusal(), "token.incomplete scope");
    EXPECT_TRUE(journal.all().empty());
}

TEST(GenerateJwt, FailsWithAKeyThatDoesNotDecode)
{
    const JournalEntries journal;
    Records records;
    const auto generated = [&](const unsigned char* der, int length) {
        return HeapText{generateJWT(&records.header, &records.payload, der, length)};
    };
    EXPECT_NE(generated(serviceKey().data(), serviceKey().length()), nullptr);
    EXPECT_REFUSED("key.encoding", generated(serviceKey().data(), serviceKey().length() - 1));
    EXPECT_REFUSED("argument.length", generated(serviceKey().data(), 0));
    EXPECT_REFUSED("argument.length", generated(serviceKey().data(), -1));
    EXPECT_TRUE(journal.all().empty());
}

TEST(GenerateJwt, WritesLargePayloads)
{
    Records records;
    std::string subject(1000000, 'x');
    records.payload.sub = subject.data();
    const std::vector<std::string> parts = partsOf(records.token());
    EXPECT_EQ(fromBase64Url(parts.at(1)),
              R"({"exp":"1700003600","iat":"1700000000","iss":"issuer",)"
              R"("jti":"id-1","nbf":"1700000001","sub":")" +
                  subject + "\"}");
    EXPECT_TRUE(tokens::verifies(parts.at(0) + "." + parts.at(1), fromBase64Url(parts.at(2)),
                                 serviceKey()));
}

TEST(GenerateJwt, LeavesErrnoAndTheErrorQueueAlone)
{
    Records records;
    ERR_clear_error();
    errno = EDOM;
    const std::string token = records.token();
    const bool failed =
        generateJWT(&records.header, &records.payload, serviceKey().data(), 5) == nullptr;
    EXPECT_EQ(errno, EDOM);
    EXPECT_EQ(ERR_peek_error(), 0UL);
    EXPECT_TRUE(failed);
    EXPECT_NE(token, "(null)");
}

TEST(GenerateJwt, TellsTheJournalWhichPartFailed)
{
    Records records;
    EXPECT_NE(records.token(), "(null)"); // what is made once for the process is made
    std::vector<std::string> told;
    bool more = true;
    for (unsigned int nth = 1; more; ++nth)
    {
        const JournalEntries journal;
        FailAllocation failure{nth};
        const HeapText token{generateJWT(&records.header, &records.payload, serviceKey().data(),
                                         serviceKey().length())};
        more = failure.reached();
        const std::vector<JournalEntries::Entry> entries = journal.all();
        ASSERT_LE(entries.size(), 1U);
        if (!entries.empty())
        {
            EXPECT_EQ(token, nullptr);
            EXPECT_EQ(field(entries.front(), "PRIORITY"), "3");
            EXPECT_EQ(field(entries.front(), "CODE_LINE"), "77");
            EXPECT_EQ(field(entries.front(), "CODE_FUNC"), "helper_log");
            EXPECT_FALSE(field(entries.front(), "TRANSACTION_ID").empty());
            if (told.empty() || told.back() != field(entries.front(), "MESSAGE"))
            {
                told.push_back(field(entries.front(), "MESSAGE"));
            }
        }
    }
    EXPECT_EQ(told, (std::vector<std::string>{"JWT header serialization failed",
                                              "JWT payload serialization failed",
                                              "Base64 encoding the header failed",
                                              "Base64 encoding the payload failed"}));
}

TEST(GenerateJwt, GivesNullWhenMemoryStaysExhausted)
{
    Records records;
    EXPECT_NE(records.token(), "(null)");
    withEachAllocationFailing(
        [&](FailAllocation& failure) {
            const HeapText token{generateJWT(&records.header, &records.payload, serviceKey().data(),
                                             serviceKey().length())};
            EXPECT_EQ(token == nullptr, failure.reached());
        },
        FailAllocation::fromThenOn);
}

// OpenSSL gets by without some of its blocks.
TEST(GenerateJwt, GivesNullOrAGoodTokenWhicheverAllocationFails)
{
    Records records;
    EXPECT_NE(records.token(), "(null)");
    withEachAllocationFailing([&](FailAllocation& failure) {
        const HeapText token{generateJWT(&records.header, &records.payload, serviceKey().data(),
                                         serviceKey().length())};
        if (failure.reached() && token)
        {
            const std::vector<std::string> parts = partsOf(token.get());
            EXPECT_TRUE(tokens::verifies(parts.at(0) + "." + parts.at(1),
                                         fromBase64Url(parts.at(2)), serviceKey()));
        }
    });
}

TEST(ValidateJwt, AcceptsAGeneratedToken)
{
    const FakeClock clock{now + 1};
    Records records;
    records.header.kid = text("key-1");
    std::array<char*, 2> ab{text("a"), text("b")};
    std::array<char*, 1> c{text("c")};
    std::array<JWTscopes, 2> scopes{{{text("first"), ab.data(), 2}, {text("second"), c.data(), 1}}};
    records.payload.scopes = scopes.data();
    records.payload.scopes_count = 2;

    const Validation checked = validate(records.token());
    ASSERT_EQ(checked.result, 1);
    ASSERT_NE(checked.header, nullptr);
    EXPECT_STREQ(checked.header->typ, "JWT");
    EXPECT_STREQ(checked.header->alg, "ES256");
    EXPECT_STREQ(checked.header->kid, "key-1");
    ASSERT_NE(checked.payload, nullptr);
    EXPECT_STREQ(checked.payload->sub, "user");
    EXPECT_STREQ(checked.payload->iss, "issuer");
    EXPECT_STREQ(checked.payload->jti, "id-1");
    EXPECT_STREQ(checked.payload->iat, "1700000000");
    EXPECT_STREQ(checked.payload->nbf, "1700000001");
    EXPECT_STREQ(checked.payload->exp, "1700003600");
    ASSERT_EQ(checked.payload->scopes_count, 2);
    EXPECT_STREQ(checked.payload->scopes[0].name, "first");
    ASSERT_EQ(checked.payload->scopes[0].count, 2);
    EXPECT_STREQ(checked.payload->scopes[0].values[0], "a");
    EXPECT_STREQ(checked.payload->scopes[0].values[1], "b");
    EXPECT_STREQ(checked.payload->scopes[1].name, "second");
    ASSERT_EQ(checked.payload->scopes[1].count, 1);
    EXPECT_STREQ(checked.payload->scopes[1].values[0], "c");
}

TEST(ValidateJwt, AcceptsATokenMadeElsewhere)
{
    const FakeClock clock{now};
    const Validation checked = validateClaims(json(plainClaims()));
    EXPECT_EQ(checked.result, 1);
    ASSERT_NE(checked.header, nullptr);
    EXPECT_EQ(checked.header->kid, nullptr);
    ASSERT_NE(checked.payload, nullptr);
    EXPECT_EQ(checked.payload->scopes, nullptr);
    EXPECT_EQ(checked.payload->scopes_count, 0);
}

TEST(ValidateJwt, IgnoresOtherClaims)
{
    const FakeClock clock{now};
    tokens::Members claims = plainClaims();
    claims["aud"] = R"(["one"])";
    claims["act"] = "5";
    claims["xidp"] = R"({"*":["L"]})";
    claims["ravok_roles"] = R"(["admin"])";
    claims["more"] = R"([{"deep":[1.5]}])";
    const Validation checked = validateClaims(json(claims));
    EXPECT_EQ(checked.result, 1);
    ASSERT_NE(checked.payload, nullptr);
    EXPECT_EQ(checked.payload->aud, nullptr);
    EXPECT_EQ(checked.payload->act, nullptr);
    EXPECT_EQ(checked.payload->xidp, nullptr);
    EXPECT_EQ(checked.payload->ravok_roles, nullptr);
    EXPECT_EQ(checked.payload->scope, nullptr);
}

TEST(ValidateJwt, HoldsATokenValidUpToItsExpiry)
{
    FakeClock clock{1700003599};
    const std::string token = handmade(plainHeader, json(plainClaims()));
    EXPECT_EQ(validate(token).result, 1);
    for (const std::time_t late : {1700003600, 1700003601, 1800000000})
    {
        clock.set(late);
        const Validation checked = validate(token);
        EXPECT_EQ(checked.rule, "token.expired") << late;
        EXPECT_NE(checked.header, nullptr);
        EXPECT_EQ(checked.payload, nullptr);
    }
}

TEST(ValidateJwt, CallsAForgedTokenExpiredToo)
{
    const FakeClock clock{1700003600};
    EXPECT_EQ(validate(handmade(plainHeader, json(plainClaims())), otherKey()).rule,
              "token.expired");
}

TEST(ValidateJwt, CallsAnExpiredTokenExpiredWhateverItsScope)
{
    const FakeClock clock{now};
    for (const char* scope : {R"({"web":["r"]})", R"("read write")", "{}", "5"})
    {
        tokens::Members claims = plainClaims();
        claims["scope"] = scope;
        claims["exp"] = R"("1700000000")";
        EXPECT_EQ(validateClaims(json(claims)).rule, "token.expired") << scope;
        // But not one that lacks a claim.
        claims.erase("iat");
        EXPECT_EQ(validateClaims(json(claims)).rule, "token.member") << scope;
    }
}

TEST(ValidateJwt, HoldsATokenInvalidBeforeItsTime)
{
    FakeClock clock{1699999999};
    const std::string token = handmade(plainHeader, json(plainClaims()));
    EXPECT_EQ(validate(token).result, 1);
    clock.set(1699999998);
    const Validation checked = validate(token);
    EXPECT_EQ(checked.rule, "token.not-yet-valid");
    EXPECT_NE(checked.header, nullptr);
    EXPECT_EQ(checked.payload, nullptr);
}

TEST(ValidateJwt, HoldsATokenThatIsNeitherYetNorStillValidInvalid)
{
    const FakeClock clock{now};
    tokens::Members claims = plainClaims();
    claims["exp"] = R"("1600000000")";
    EXPECT_EQ(validateClaims(json(claims)).rule, "token.expired");
    claims["nbf"] = R"("1800000000")";
    EXPECT_EQ(validateClaims(json(claims)).rule, "token.not-yet-valid");
}

TEST(ValidateJwt, NeverComparesTheTimeOfIssue)
{
    const FakeClock clock{now};
    for (const char* iat : {R"("1800000000")", R"("0")", R"("soon")", R"("")"})
    {
        EXPECT_EQ(validateClaims(with("iat", iat)).result, 1) << iat;
    }
}

// As strtoull reads them with base 0.
TEST(ValidateJwt, ReadsTimesInThreeBases)
{
    const FakeClock clock{now};
    struct Time
    {
        const char* text;
        int asExpiry;
        int asNotBefore;
    };
    for (const auto& [text, asExpiry, asNotBefore] : {
             Time{"1700000001", 1, 0},
             Time{"1700000000", 2, 1},
             Time{"0x6553F101", 1, 0},   // 1700000001
             Time{"0X6553f100", 2, 1},   // 1700000000
             Time{"014524770401", 1, 0}, // 1700000001
             Time{"014524770400", 2, 1}, // 1700000000
             Time{" 1700000001", 1, 0},
             Time{"+1700000001", 1, 0},
             Time{"1700000001.9", 1, 0},
             Time{"1700000001 seconds", 1, 0},
             Time{"18446744073709551615", 1, 0},
             Time{"18446744073709551616", 1, 0},
             Time{"99999999999999999999999999", 1, 0},
             Time{"-1", 1, 0},
             Time{"-18446744073709551615", 2, 1},
             Time{"01700000001", 2, 1}, // octal
             Time{"09", 2, 1},
             Time{"0170", 2, 1},
             Time{"0x", 2, 1},
             Time{"0", 2, 1},
             Time{"", 2, 1},
             Time{"soon", 2, 1},
             Time{"1,700,000,001", 2, 1},
             Time{"6553F101", 2, 1},
         })
    {
        SCOPED_TRACE(text);
        const std::string value = std::string{"\""} + text + "\"";
        EXPECT_EQ(validateClaims(with("exp", value)).rule, timeRule(asExpiry));
        EXPECT_EQ(validateClaims(with("nbf", value)).rule, timeRule(asNotBefore));
    }
}

TEST(ValidateJwt, FailsWhenTheClockCannotBeRead)
{
    FakeClock clock{now};
    const std::string token = handmade(plainHeader, json(plainClaims()));
    EXPECT_EQ(validate(token).result, 1);
    clock.failBreakingDown();
    for (const std::string& any : {token, std::string{}, std::string{"a.b"}})
    {
        const Validation checked = validate(any);
        EXPECT_EQ(checked.rule, "clock.unreadable");
        EXPECT_EQ(checked.header, nullptr);
        EXPECT_EQ(checked.payload, nullptr);
    }
}

TEST(ValidateJwt, RefusesAnAlteredSignatureAndHandsTheRecordsBack)
{
    const FakeClock clock{now};
    const std::string token = handmade(plainHeader, json(plainClaims()));
    const std::size_t signature = token.rfind('.') + 1;
    // All digits but the last, which carries bits that count for nothing.
    for (std::size_t position = signature; position + 1 < token.size(); ++position)
    {
        SCOPED_TRACE(position);
        const Validation checked = validate(altered(token, position));
        EXPECT_EQ(checked.rule, "token.signature");
        ASSERT_NE(checked.header, nullptr);
        EXPECT_STREQ(checked.header->alg, "ES256");
        ASSERT_NE(checked.payload, nullptr);
        EXPECT_STREQ(checked.payload->sub, "user");
    }
    EXPECT_EQ(validate(token).result, 1);
}

TEST(ValidateJwt, HandsTheRecordsBackWhereTheSignatureDoesNotDecode)
{
    const FakeClock clock{now};
    const std::string token = handmade(plainHeader, json(plainClaims()));
    const std::string signingInput = token.substr(0, token.rfind('.'));
    for (const std::string& bad : {signingInput + ".", signingInput + ".%%%", signingInput + ".A",
                                   token + ".", token + ".c2ln"})
    {
        SCOPED_TRACE(bad);
        const Validation checked = validate(bad);
        EXPECT_EQ(checked.rule, "base64.malformed");
        EXPECT_NE(checked.header, nullptr);
        EXPECT_NE(checked.payload, nullptr);
    }
    EXPECT_EQ(validate(token).result, 1);
}

TEST(ValidateJwt, RefusesWhatTheSignatureDoesNotCover)
{
    const FakeClock clock{now};
    const std::vector<std::string> parts = partsOf(handmade(plainHeader, json(plainClaims())));
    const auto joined = [](const std::string& header, const std::string& payload,
                           const std::string& signature) {
        return validate(header + "." + payload + "." + signature).rule;
    };
    EXPECT_EQ(joined(parts.at(0), parts.at(1), parts.at(2)), "accepted");
    const std::string more = base64Url(with("sub", R"("admin")"));
    const std::string unsignedHeader = base64Url(R"({"alg":"none","typ":"JWT"})");
    EXPECT_EQ(joined(parts.at(0), more, parts.at(2)), "token.signature");
    EXPECT_EQ(joined(unsignedHeader, parts.at(1), parts.at(2)), "token.signature");
    EXPECT_EQ(joined(unsignedHeader, parts.at(1), ""), "base64.malformed");
    EXPECT_EQ(joined(parts.at(0), parts.at(1), ""), "base64.malformed");
    // The same claims, written differently.
    EXPECT_EQ(joined(parts.at(0), base64Url(json(plainClaims()) + " "), parts.at(2)),
              "token.signature");
}

TEST(ValidateJwt, RefusesOtherFormsOfSignature)
{
    const FakeClock clock{now};
    const std::string token = handmade(plainHeader, json(plainClaims()));
    EXPECT_EQ(validate(token).result, 1);
    const std::string signingInput = token.substr(0, token.rfind('.'));
    const std::string der = fromBase64Url(partsOf(token).at(2));
    for (const std::string& signature :
         {der + '\0', der.substr(0, der.size() - 1), std::string(64, '\x01'), std::string(1, '0'),
          std::string(70, '\0'), std::string{"\x30\x06\x02\x01\x00\x02\x01\x00", 8}})
    {
        EXPECT_EQ(validate(signingInput + "." + base64Url(signature)).rule, "token.signature");
    }
}

TEST(ValidateJwt, DoesNotLetAlgChooseTheAlgorithm)
{
    const FakeClock clock{now};
    for (const char* alg : {"none", "HS256", "RS256", "ES512", ""})
    {
        const std::string header = std::string{R"({"alg":")"} + alg + R"(","typ":"JWT"})";
        EXPECT_EQ(validateHeader(header).result, 1) << alg;
        const std::string token = handmade(header, json(plainClaims()), otherKey());
        EXPECT_EQ(validate(token).rule, "token.signature") << alg;
    }
}

TEST(ValidateJwt, NeedsItsOwnKey)
{
    const FakeClock clock{now};
    const std::string token = handmade(plainHeader, json(plainClaims()));
    const auto result = [&](const unsigned char* der, int length) {
        JWTHeader* header = nullptr;
        JWTPayload* payload = nullptr;
        const int code = validateJWT(token.c_str(), der, length, &header, &payload);
        const tokens::Header ownedHeader{header};
        const tokens::Payload ownedPayload{payload};
        return code;
    };
    EXPECT_EQ(result(serviceKey().data(), serviceKey().length()), 1);
    EXPECT_REFUSED("token.signature", result(otherKey().data(), otherKey().length()));
    EXPECT_REFUSED("key.encoding", result(serviceKey().data(), serviceKey().length() - 1));
    EXPECT_REFUSED("argument.length", result(serviceKey().data(), 0));
    EXPECT_REFUSED("argument.length", result(serviceKey().data(), -1));
    EXPECT_REFUSED("argument.null", result(nullptr, 0));
    EXPECT_REFUSED("argument.null", result(nullptr, serviceKey().length()));
}

TEST(ValidateJwt, NeedsATokenAndBothAddresses)
{
    const FakeClock clock{now};
    const std::string token = handmade(plainHeader, json(plainClaims()));
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    const auto* der = serviceKey().data();
    const int length = serviceKey().length();
    EXPECT_REFUSED("argument.null", validateJWT(nullptr, der, length, &header, &payload));
    EXPECT_STREQ(lastRefusal().subject, "token");
    EXPECT_REFUSED("argument.null", validateJWT(token.c_str(), der, length, nullptr, &payload));
    EXPECT_STREQ(lastRefusal().subject, "header");
    EXPECT_REFUSED("argument.null", validateJWT(token.c_str(), der, length, &header, nullptr));
    EXPECT_STREQ(lastRefusal().subject, "payload");
    EXPECT_EQ(header, nullptr);
    EXPECT_EQ(payload, nullptr);
}

TEST(ValidateJwt, LeavesAloneWhatItDoesNotBuild)
{
    FakeClock clock{now};
    JWTHeader otherHeader{};
    JWTPayload otherPayload{};
    JWTHeader* header = &otherHeader;
    JWTPayload* payload = &otherPayload;
    const auto result = [&](const char* token) {
        return validateJWT(token, serviceKey().data(), serviceKey().length(), &header, &payload);
    };
    EXPECT_REFUSED("argument.null", result(nullptr));
    EXPECT_REFUSED("token.parts", result(""));
    EXPECT_REFUSED("base64.malformed", result("a.b.c"));
    EXPECT_REFUSED("token.member", result(handmade("{}", json(plainClaims())).c_str()));
    EXPECT_EQ(header, &otherHeader);
    EXPECT_EQ(payload, &otherPayload);

    // The header is stored without a payload.
    EXPECT_REFUSED("token.member", result(handmade(plainHeader, "{}").c_str()));
    const tokens::Header ofAnInvalidToken{header};
    EXPECT_NE(header, &otherHeader);
    EXPECT_EQ(payload, &otherPayload);
    header = &otherHeader;
    clock.set(1700003600);
    EXPECT_REFUSED("token.expired", result(handmade(plainHeader, json(plainClaims())).c_str()));
    const tokens::Header ofAnExpiredToken{header};
    EXPECT_NE(header, &otherHeader);
    EXPECT_EQ(payload, &otherPayload);

    header = &otherHeader;
    clock.failBreakingDown();
    EXPECT_REFUSED("clock.unreadable", result(handmade(plainHeader, json(plainClaims())).c_str()));
    EXPECT_EQ(header, &otherHeader);
    EXPECT_EQ(payload, &otherPayload);
}

TEST(ValidateJwt, NeedsTypAndAlg)
{
    const FakeClock clock{now};
    EXPECT_EQ(validateHeader(R"({"alg":"ES256","typ":"JWT"})").result, 1);
    EXPECT_EQ(validateHeader(R"({"alg":"","typ":""})").result, 1);
    for (const char* header : {R"({"alg":"ES256"})", R"({"typ":"JWT"})", "{}", "[]", "null", "5",
                               R"("JWT")", R"([{"alg":"ES256","typ":"JWT"}])"})
    {
        const Validation checked = validateHeader(header);
        EXPECT_EQ(checked.rule, *header == '{' ? "token.member" : "json.root") << header;
        EXPECT_EQ(checked.header, nullptr);
        EXPECT_EQ(checked.payload, nullptr);
    }
}

TEST(ValidateJwt, TakesOnlyStringsInTheHeader)
{
    const FakeClock clock{now};
    for (const std::string& value : jsonValuesOfEveryType())
    {
        SCOPED_TRACE(value);
        const char* const expected = value.starts_with('"') ? "accepted" : "token.member";
        EXPECT_EQ(validateHeader(R"({"alg":"ES256","typ":)" + value + "}").rule, expected);
        EXPECT_EQ(validateHeader(R"({"typ":"JWT","alg":)" + value + "}").rule, expected);
        const Validation withKid =
            validateHeader(R"({"alg":"ES256","typ":"JWT","kid":)" + value + "}");
        EXPECT_EQ(withKid.rule, expected);
        EXPECT_EQ(withKid.header != nullptr, withKid.result == 1);
    }
}

TEST(ValidateJwt, NeedsSixClaims)
{
    const FakeClock clock{now};
    for (const char* name : {"sub", "iss", "jti", "iat", "nbf", "exp"})
    {
        SCOPED_TRACE(name);
        const Validation checked = validateClaims(without(name));
        EXPECT_EQ(checked.rule, "token.member");
        EXPECT_NE(checked.header, nullptr);
        EXPECT_EQ(checked.payload, nullptr);
    }
    for (const char* payload : {"{}", "[]", "null", "5", R"("user")"})
    {
        EXPECT_EQ(validateClaims(payload).rule, *payload == '{' ? "token.member" : "json.root")
            << payload;
    }
    EXPECT_EQ(validateClaims("[" + json(plainClaims()) + "]").rule, "json.root");
}

TEST(ValidateJwt, TellsWhichClaimItRefuses)
{
    const FakeClock clock{now};
    for (const char* name : {"sub", "jti", "iss", "iat", "nbf", "exp"})
    {
        EXPECT_EQ(validateClaims(without(name)).rule, "token.member");
        EXPECT_STREQ(lastRefusal().subject, name);
    }
    // The first of several, in the order in which they are looked at.
    tokens::Members claims = plainClaims();
    claims.erase("iss");
    claims.erase("jti");
    EXPECT_EQ(validateClaims(json(claims)).rule, "token.member");
    EXPECT_STREQ(lastRefusal().subject, "jti");
    for (const auto& [header, name] : {std::pair{R"({"alg":"ES256"})", "typ"},
                                       {R"({"typ":"JWT"})", "alg"},
                                       {R"({"typ":"JWT","alg":"ES256","kid":5})", "kid"}})
    {
        EXPECT_EQ(validateHeader(header).rule, "token.member");
        EXPECT_STREQ(lastRefusal().subject, name);
    }
}

TEST(ValidateJwt, TellsWhichPartDoesNotDecode)
{
    const FakeClock clock{now};
    const std::vector<std::string> parts = partsOf(handmade(plainHeader, json(plainClaims())));
    for (const auto& [token, part] : {std::pair{"%." + parts.at(1) + "." + parts.at(2), "header"},
                                      {parts.at(0) + ".%." + parts.at(2), "payload"},
                                      {parts.at(0) + "." + parts.at(1) + ".%", "signature"}})
    {
        EXPECT_EQ(validate(token).rule, "base64.malformed");
        EXPECT_STREQ(lastRefusal().subject, part);
    }
}

TEST(ValidateJwt, TellsTheTimesThatItCompared)
{
    const FakeClock clock{now};
    EXPECT_EQ(validateClaims(with("exp", R"("0x6553F100")")).rule, "token.expired");
    EXPECT_STREQ(lastRefusal().subject, "exp");
    EXPECT_STREQ(lastRefusal().saw, "0x6553F100");
    EXPECT_STREQ(lastRefusal().wanted, "above 1700000000");
    EXPECT_EQ(validateClaims(with("nbf", R"("1700000001")")).rule, "token.not-yet-valid");
    EXPECT_STREQ(lastRefusal().subject, "nbf");
    EXPECT_STREQ(lastRefusal().saw, "1700000001");
    EXPECT_STREQ(lastRefusal().wanted, "at most 1700000000");
}

TEST(ValidateJwt, LeavesTheLastRefusalAloneWhereItAccepts)
{
    const FakeClock clock{now};
    EXPECT_EQ(validateClaims(json(plainClaims())).result, 1);
    EXPECT_TRUE(isPlantedRefusal());
}

TEST(ValidateJwt, TakesOnlyStringsAsClaims)
{
    const FakeClock clock{now};
    for (const char* name : {"sub", "iss", "jti", "iat", "nbf", "exp"})
    {
        EXPECT_EQ(validateClaims(with(name, R"("1700000001")")).rule,
                  std::string_view{name} == "nbf" ? "token.not-yet-valid" : "accepted");
        for (const std::string& value : jsonValuesOfEveryType())
        {
            if (!value.starts_with('"'))
            {
                EXPECT_EQ(validateClaims(with(name, value)).rule, "token.member") << name << value;
            }
        }
        EXPECT_EQ(validateClaims(with(name, "1700000001")).rule, "token.member") << name;
    }
}

TEST(ValidateJwt, ReadsJsonAsEverywhere)
{
    const FakeClock clock{now};
    EXPECT_EQ(validateClaims(json(plainClaims()) + "]} trailing").result, 1);
    EXPECT_EQ(validateClaims("/* comment */" + json(plainClaims())).result, 1);
    const std::string repeated = R"({"sub":"first",)" + json(plainClaims()).substr(1);
    EXPECT_STREQ(validateClaims(repeated).payload->sub, "user");
    EXPECT_STREQ(validateClaims(with("sub", R"("us\u0000er")")).payload->sub, "us");
    std::string nested = json(plainClaims());
    nested.back() = ',';
    nested += nestedMember("x", 200).substr(1);
    EXPECT_EQ(validateClaims(nested).result, 1);
}

TEST(ValidateJwt, CountsEveryScopeValue)
{
    const FakeClock clock{now};
    const Validation checked =
        validateClaims(with("scope", R"({"web":["r","w","r\u0000w",""],"none":[]})"));
    ASSERT_EQ(checked.result, 1);
    ASSERT_EQ(checked.payload->scopes_count, 2);
    EXPECT_STREQ(checked.payload->scopes[0].name, "none");
    EXPECT_EQ(checked.payload->scopes[0].count, 0);
    EXPECT_STREQ(checked.payload->scopes[1].name, "web");
    ASSERT_EQ(checked.payload->scopes[1].count, 4);
    EXPECT_STREQ(checked.payload->scopes[1].values[0], "r");
    EXPECT_STREQ(checked.payload->scopes[1].values[1], "w");
    EXPECT_STREQ(checked.payload->scopes[1].values[2], "r");
    EXPECT_STREQ(checked.payload->scopes[1].values[3], "");
    EXPECT_EQ(checked.payload->scope, nullptr);
}

TEST(ValidateJwt, PassesOverScopeNamesWithAZeroByte)
{
    const FakeClock clock{now};
    const Validation checked =
        validateClaims(with("scope", R"({"admin\u0000":["all"],"web":["r"],"x\u0000":7})"));
    ASSERT_EQ(checked.result, 1);
    ASSERT_EQ(checked.payload->scopes_count, 1);
    EXPECT_STREQ(checked.payload->scopes[0].name, "web");
    // No scope is left, as in an empty object.
    EXPECT_EQ(validateClaims(with("scope", R"({"admin\u0000":["all"]})")).rule, "token.scope");
}

TEST(ValidateJwt, ReadsThousandsOfScopes)
{
    const FakeClock clock{now};
    std::string scope = R"({"s0":["x"])";
    for (int i = 1; i < 5000; ++i)
    {
        scope += ",\"s" + std::to_string(i) + "\":[\"x\"]";
    }
    const Validation checked = validateClaims(with("scope", scope + "}"));
    ASSERT_EQ(checked.result, 1);
    EXPECT_EQ(checked.payload->scopes_count, 5000);
}

TEST(ValidateJwt, RefusesAScopeThatIsNoObjectOfStringArrays)
{
    const FakeClock clock{now};
    EXPECT_EQ(validateClaims(with("scope", R"({"web":["r"]})")).result, 1);
    for (const char* scope :
         {R"("read write")", R"("")", "{}", "[]", R"(["read"])", "null", "true", "5", "1.5",
          R"({"web":"r"})", R"({"web":{"r":"w"}})", R"({"web":null})", R"({"web":5})",
          R"({"web":["r",5]})", R"({"web":["r",null]})", R"({"web":["r",true]})",
          R"({"web":["r",["w"]]})", R"({"web":["r",{}]})", R"({"a":["r"],"web":"w"})"})
    {
        const Validation checked = validateClaims(with("scope", scope));
        EXPECT_EQ(checked.rule, "token.scope") << scope;
        EXPECT_NE(checked.header, nullptr);
        EXPECT_EQ(checked.payload, nullptr);
    }
}

TEST(ValidateJwt, RefusesWhatIsNoToken)
{
    const FakeClock clock{now};
    const std::string token = handmade(plainHeader, json(plainClaims()));
    const std::vector<std::string> parts = partsOf(token);
    EXPECT_EQ(validate(token).result, 1);
    for (const std::string& other :
         {std::string{}, std::string{"."}, std::string{".."}, std::string{"..."}, parts.at(0),
          parts.at(0) + "." + parts.at(1), token + ".", token + "." + parts.at(2), "." + token,
          parts.at(0) + ".." + parts.at(1) + "." + parts.at(2), token + "!", token + "\n!",
          "." + parts.at(1) + "." + parts.at(2), parts.at(0) + ".." + parts.at(2),
          parts.at(0) + "." + parts.at(1) + ".", " " + token, std::string(1000, '.')})
    {
        EXPECT_EQ(validate(other).rule,
                  std::ranges::count(other, '.') < 2 ? "token.parts" : "base64.malformed")
            << other;
    }
}

TEST(ValidateJwt, RefusesHostileTexts)
{
    const FakeClock clock{now};
    for (const HostileText& hostile : hostileTexts())
    {
        SCOPED_TRACE(hostile.name);
        EXPECT_EQ(validate(hostile.text).rule, "token.parts");
        EXPECT_EQ(validateHeader(hostile.text).rule, tokens::hostilePartRule(hostile));
        EXPECT_EQ(validateClaims(hostile.text).rule, tokens::hostilePartRule(hostile));
    }
    for (const HostileText& odd : oddObjects())
    {
        SCOPED_TRACE(odd.name);
        const char* const rule =
            base64Url(odd.text).size() > 98304 ? "base64.length" : "token.member";
        EXPECT_EQ(validateHeader(odd.text).rule, rule);
        EXPECT_EQ(validateClaims(odd.text).rule, rule);
    }
    for (const char* name : {"sub", "nbf", "exp", "scope"})
    {
        EXPECT_EQ(validateClaims(nestedMember(name, 2000)).rule, "json.nesting") << name;
    }
}

TEST(ValidateJwt, LimitsTheLengthOfEachPart)
{
    const FakeClock clock{now};
    // 73728 bytes are 98304 digits, and one byte more makes two digits more.
    std::string header{plainHeader};
    header.append(73728 - header.size(), ' ');
    ASSERT_EQ(base64Url(header).size(), 98304U);
    EXPECT_EQ(validateHeader(header).result, 1);
    EXPECT_EQ(validateHeader(header + " ").rule, "base64.length");
    std::string payload = json(plainClaims());
    payload.append(73728 - payload.size(), ' ');
    EXPECT_EQ(validateClaims(payload).result, 1);
    EXPECT_EQ(validateClaims(payload + " ").rule, "base64.length");

    const std::string signingInput = base64Url(plainHeader) + "." + base64Url(payload);
    for (const std::size_t digits : {98304U, 98305U})
    {
        EXPECT_EQ(validate(signingInput + "." + std::string(digits, 'A')).rule,
                  digits == 98304 ? "token.signature" : "base64.length");
        EXPECT_EQ(validate(std::string(digits, 'A') + ".e30.AA").rule,
                  digits == 98304 ? "json.syntax" : "base64.length");
    }
}

TEST(ValidateJwt, LeavesErrnoAndTheErrorQueueAlone)
{
    const FakeClock clock{now};
    const std::string token = handmade(plainHeader, with("exp", R"("99999999999999999999")"));
    ERR_clear_error();
    errno = EDOM;
    const std::string good = validate(token).rule;
    const std::string forged = validate(altered(token, token.size() - 20)).rule;
    const std::string garbage = validate("!!!.!!!.!!!").rule;
    EXPECT_EQ(errno, EDOM);
    EXPECT_EQ(ERR_peek_error(), 0UL);
    EXPECT_EQ(good, "accepted");
    EXPECT_EQ(forged, "token.signature");
    EXPECT_EQ(garbage, "base64.malformed");
}

TEST(ValidateJwt, LogsNothing)
{
    const FakeClock clock{now};
    const JournalEntries journal;
    validate("a.b.c");
    validateClaims(without("sub"));
    validateClaims(json(plainClaims()));
    EXPECT_TRUE(journal.all().empty());
}

TEST(ValidateJwt, FailsWhicheverAllocationFails)
{
    const FakeClock clock{now};
    const std::string token =
        handmade(plainHeader, with("scope", R"({"web":["r","w"],"x":["y"]})"));
    EXPECT_EQ(validate(token).result, 1); // what is made once for the process is made
    std::map<int, int> results;
    withEachAllocationFailing([&](FailAllocation& failure) {
        JWTHeader* header = nullptr;
        JWTPayload* payload = nullptr;
        const int result = validateJWT(token.c_str(), serviceKey().data(), serviceKey().length(),
                                       &header, &payload);
        const bool failed = failure.reached();
        const tokens::Header ownedHeader{header};
        const tokens::Payload ownedPayload{payload};
        ++results[result];
        EXPECT_TRUE(failed || result == 1);
        EXPECT_NE(result, 2);
        // OpenSSL gets by without some of its blocks, but by then both records are there.
        EXPECT_TRUE(result != 1 || (header != nullptr && payload != nullptr));
        // Nothing is stored after a record that could not be built.
        EXPECT_FALSE(header == nullptr && payload != nullptr);
        EXPECT_FALSE(result == 3 && payload != nullptr);
    });
    EXPECT_EQ(results[3], 3 + 7); // for the header and its two texts, the payload and its six
    EXPECT_GT(results[0], 0);
}

TEST(ValidateJwt, EndsTheProcessWhenMemoryRunsOutForKid)
{
    const FakeClock clock{now};
    const std::string token =
        handmade(R"({"alg":"ES256","kid":"key-1","typ":"JWT"})", json(plainClaims()));
    EXPECT_EQ(validate(token).result, 1);
    int ended = 0;
    int status = asPromised;
    for (unsigned int nth = 1; status != 0; ++nth)
    {
        status = exitStatusOf([&] {
            JWTHeader* header = nullptr;
            JWTPayload* payload = nullptr;
            FailAllocation failure{nth};
            const int result = validateJWT(token.c_str(), serviceKey().data(),
                                           serviceKey().length(), &header, &payload);
            if (failure.reached())
            {
                const bool complete = header != nullptr && payload != nullptr;
                _exit(result == 0 || result == 3 || (result == 1 && complete) ? asPromised : 1);
            }
            _exit(result == 1 ? 0 : 1);
        });
        ended += status == endedAtOnce ? 1 : 0;
        if (status != endedAtOnce && status != asPromised && status != 0)
        {
            ADD_FAILURE() << "allocation " << nth << " gives " << status;
            break;
        }
    }
    EXPECT_EQ(ended, 1);
}

TEST(ParseJwt, IsValidateJwtForAString)
{
    FakeClock clock{now};
    const auto parse = [](const std::string& token) {
        return validation([&](JWTHeader** header, JWTPayload** payload) {
            return parseJWT(token, serviceKey().data(), serviceKey().length(), header, payload);
        });
    };
    const std::string token = handmade(plainHeader, json(plainClaims()));
    const Validation checked = parse(token);
    EXPECT_EQ(checked.result, 1);
    ASSERT_NE(checked.header, nullptr);
    EXPECT_STREQ(checked.header->typ, "JWT");
    ASSERT_NE(checked.payload, nullptr);
    EXPECT_STREQ(checked.payload->sub, "user");
    EXPECT_EQ(parse("").rule, "token.parts");
    EXPECT_EQ(parse(altered(token, token.size() - 20)).rule, "token.signature");
    // All bytes of the string count, unlike for a text.
    EXPECT_EQ(parse(token + std::string(1, '\0')).rule, "base64.malformed");
    EXPECT_EQ(parse(token + std::string("\0x", 2)).rule, "base64.malformed");
    EXPECT_REFUSED("argument.null",
                   parseJWT(token, serviceKey().data(), serviceKey().length(), nullptr, nullptr));
    clock.set(1700003600);
    EXPECT_EQ(parse(token).rule, "token.expired");
    clock.failBreakingDown();
    EXPECT_EQ(parse("").rule, "clock.unreadable");
}
