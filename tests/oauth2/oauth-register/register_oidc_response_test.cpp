// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/hostile.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>

namespace
{

using namespace support;

using AnswerPtr = std::unique_ptr<OidcRegisterResponse, Releaser<free_oidc_register_response>>;

AnswerPtr parsed(const std::string& text)
{
    return AnswerPtr{parse_oidc_register_response(text.c_str())};
}

constexpr const char* fullText =
    R"({"client_id":"a","client_id_issued_at":1700000000,"client_secret":"s",)"
    R"("client_secret_expires_at":60,"registration_access_token":"t",)"
    R"("registration_client_uri":"https://server/a"})";

TEST(ParseOidcRegisterResponse, ReadsEveryMember)
{
    const AnswerPtr answer = parsed(fullText);
    ASSERT_NE(answer, nullptr);
    EXPECT_STREQ(answer->client_id, "a");
    EXPECT_STREQ(answer->client_secret, "s");
    EXPECT_STREQ(answer->registration_access_token, "t");
    EXPECT_STREQ(answer->registration_client_uri, "https://server/a");
    EXPECT_STREQ(answer->client_id_issued_at, "1700000000");
    EXPECT_STREQ(answer->client_secret_expires_at, "60");
}

TEST(ParseOidcRegisterResponse, NeedsOnlyTheIdentifier)
{
    const AnswerPtr answer = parsed(R"({"client_id":"a"})");
    ASSERT_NE(answer, nullptr);
    EXPECT_STREQ(answer->client_id, "a");
    EXPECT_EQ(answer->client_secret, nullptr);
    EXPECT_EQ(answer->registration_access_token, nullptr);
    EXPECT_EQ(answer->registration_client_uri, nullptr);
    EXPECT_EQ(answer->client_id_issued_at, nullptr);
    EXPECT_STREQ(answer->client_secret_expires_at, "0");
    EXPECT_REFUSED("document.member", parsed("{}"));
    EXPECT_STREQ(lastRefusal().subject, "client_id");
    EXPECT_REFUSED("document.member", parsed(R"({"client_id\u0000":"a"})"));
    for (const std::string& value : jsonValuesOfEveryType())
    {
        SCOPED_TRACE(value);
        EXPECT_REFUSED(value.starts_with('"') ? "accepted" : "document.member",
                       parsed(R"({"client_id":)" + value + "}"));
    }
}

TEST(ParseOidcRegisterResponse, WantsTheExpiryOfASecret)
{
    EXPECT_REFUSED("registration.lifetime", parsed(R"({"client_id":"a","client_secret":"s"})"));
    EXPECT_STREQ(lastRefusal().subject, "client_secret_expires_at");
    const AnswerPtr answer =
        parsed(R"({"client_id":"a","client_secret":"s","client_secret_expires_at":60})");
    ASSERT_NE(answer, nullptr);
    EXPECT_STREQ(answer->client_secret_expires_at, "60");
    EXPECT_EQ(answer->client_id_issued_at, nullptr);
    for (const char* expiry :
         {"null", "\"60\"", "-1", "1.0", "6e1", "true", "4294967296", "[60]", "{}"})
    {
        SCOPED_TRACE(expiry);
        EXPECT_REFUSED(
            "registration.lifetime",
            parsed(
                std::string{R"({"client_id":"a","client_secret":"s","client_secret_expires_at":)"} +
                expiry + "}"));
    }
    for (const char* expiry : {"0", "4294967295"})
    {
        const AnswerPtr accepted = parsed(
            std::string{R"({"client_id":"a","client_secret":"s","client_secret_expires_at":)"} +
            expiry + "}");
        ASSERT_NE(accepted, nullptr);
        EXPECT_STREQ(accepted->client_secret_expires_at, expiry);
    }
}

TEST(ParseOidcRegisterResponse, LooksAtNoExpiryWithoutASecret)
{
    for (const char* secret : {"", R"(,"client_secret":null)", R"(,"client_secret":7)"})
    {
        for (const char* expiry : {"60", "\"soon\"", "-1"})
        {
            SCOPED_TRACE(std::string{secret} + expiry);
            const AnswerPtr answer = parsed(std::string{R"({"client_id":"a")"} + secret +
                                            R"(,"client_secret_expires_at":)" + expiry + "}");
            ASSERT_NE(answer, nullptr);
            EXPECT_EQ(answer->client_secret, nullptr);
            EXPECT_STREQ(answer->client_secret_expires_at, "0");
        }
    }
}

TEST(ParseOidcRegisterResponse, TakesOptionalMembersOfOtherTypesAsAbsent)
{
    for (const std::string& value : jsonValuesOfEveryType())
    {
        SCOPED_TRACE(value);
        const AnswerPtr answer =
            parsed(R"({"client_id":"a")" + nextMember("registration_access_token", value) +
                   nextMember("registration_client_uri", value) + "}");
        ASSERT_NE(answer, nullptr);
        EXPECT_EQ(answer->registration_access_token != nullptr, value.starts_with('"'));
        EXPECT_EQ(answer->registration_client_uri != nullptr, value.starts_with('"'));
    }
    for (const char* time : {"null", "\"5\"", "-5", "5.0", "false", "4294967296", "[5]"})
    {
        SCOPED_TRACE(time);
        const AnswerPtr answer =
            parsed(std::string{R"({"client_id":"a","client_id_issued_at":)"} + time + "}");
        ASSERT_NE(answer, nullptr);
        EXPECT_EQ(answer->client_id_issued_at, nullptr);
    }
    const AnswerPtr answer = parsed(R"({"client_id":"a","client_id_issued_at":4294967295})");
    ASSERT_NE(answer, nullptr);
    EXPECT_STREQ(answer->client_id_issued_at, "4294967295");
}

TEST(ParseOidcRegisterResponse, EndsTextsAtAZeroByte)
{
    const AnswerPtr answer = parsed(
        "{\"client_id\":\"a\\u0000b\",\"registration_access_token\":\"\xC3\xBC\\ud83d\\ude00\","
        "\"registration_client_uri\":\"\xFF\"}");
    ASSERT_NE(answer, nullptr);
    EXPECT_STREQ(answer->client_id, "a");
    EXPECT_STREQ(answer->registration_access_token, "\xC3\xBC\xF0\x9F\x98\x80");
    EXPECT_STREQ(answer->registration_client_uri, "\xFF");
}

TEST(ParseOidcRegisterResponse, RefusesHostileTexts)
{
    EXPECT_REFUSED("argument.null", parse_oidc_register_response(nullptr));
    for (const HostileText& hostile : hostileTexts())
    {
        EXPECT_REFUSED(hostileRule(hostile.name), parsed(hostile.text)) << hostile.name;
    }
    for (const HostileText& odd : oddObjects())
    {
        EXPECT_REFUSED("document.member", parsed(odd.text)) << odd.name;
    }
}

TEST(ParseOidcRegisterResponse, GivesNullWhicheverAllocationFails)
{
    EXPECT_NE(parsed(fullText), nullptr);
    withEachAllocationFailing([](auto& failure) {
        const AnswerPtr answer{parse_oidc_register_response(fullText)};
        EXPECT_EQ(answer == nullptr, failure.reached());
    });
}

TEST(FreeOidcRegisterResponse, AcceptsNullAndAnEmptyRecord)
{
    free_oidc_register_response(nullptr);
    free_oidc_register_response(
        static_cast<OidcRegisterResponse*>(calloc(1, sizeof(OidcRegisterResponse))));
}

} // namespace
