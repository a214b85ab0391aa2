// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>

using namespace support;

namespace
{

struct Row
{
    oauthError code;
    std::uint32_t number;
    const char* text;
};

constexpr Row rows[] = {
    {OAUTH_SUCCESS, 0, "success"},
    {OAUTH_SERVER_ERROR, 1, "server_error"},
    {OAUTH_INVALID_REQUEST, 2, "invalid_request"},
    {OAUTH_INVALID_CLIENT, 3, "invalid_client"},
    {OAUTH_INVALID_CLIENT_SECRET, 4, "invalid_client_secret"},
    {OAUTH_INVALID_GRANT, 5, "invalid_grant"},
    {OAUTH_INVALID_PARAM, 6, "invalid_param"},
    {OAUTH_UNAUTHORIZED_CLIENT, 7, "unauthorized_client"},
    {OAUTH_UNSUPPORTED_GRANT_TYPE, 8, "unsupported_grant_type"},
    {OAUTH_INVALID_SCOPE, 9, "invalid_scope"},
    {OAUTH_TOKEN_EXPIRED, 10, "token_expired"},
    {OAUTH_INVALID_TOKEN, 11, "invalid_token"},
    {OAUTH_ACCESS_DENIED, 12, "access_denied"},
    {OAUTH_NETWORK_ERROR, 13, "network_error"},
};

std::string document(oauthError code, const char* description, const char* resolution,
                     const char* uri)
{
    return orNull(HeapText{write_oauth_error(code, description, resolution, uri)}.get());
}

} // namespace

TEST(OauthErroToStr, GivesTheTextOfEachCode)
{
    for (const auto& [code, number, text] : rows)
    {
        EXPECT_EQ(static_cast<std::uint32_t>(code), number);
        EXPECT_STREQ(oauthErro_toStr(static_cast<oauthError>(number)), text);
    }
}

TEST(OauthErroToStr, GivesTheEmptyTextOutsideTheEnumeration)
{
    for (const std::uint32_t number : {14U, 15U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU})
    {
        EXPECT_STREQ(oauthErro_toStr(static_cast<oauthError>(number)), "") << number;
    }
}

TEST(OauthErroToStr, GivesTheSameStaticTextEachTime)
{
    EXPECT_EQ(oauthErro_toStr(OAUTH_INVALID_SCOPE), oauthErro_toStr(OAUTH_INVALID_SCOPE));
}

TEST(WriteOauthError, WritesTheCodeOfEveryRow)
{
    for (const auto& [code, number, text] : rows)
    {
        EXPECT_EQ(document(code, nullptr, nullptr, nullptr),
                  R"({"error":")" + std::string{text} + R"("})");
    }
}

TEST(WriteOauthError, WritesAnUnknownCodeAsTheEmptyText)
{
    EXPECT_EQ(document(static_cast<oauthError>(14), nullptr, nullptr, nullptr), R"({"error":""})");
    EXPECT_EQ(document(static_cast<oauthError>(0xFFFFFFFFU), "x", nullptr, nullptr),
              R"({"error":"","error_description":"x"})");
}

TEST(WriteOauthError, WritesEveryTextThatIsThere)
{
    constexpr oauthError code = OAUTH_INVALID_GRANT;
    EXPECT_EQ(document(code, "d", nullptr, nullptr),
              R"({"error":"invalid_grant","error_description":"d"})");
    EXPECT_EQ(document(code, nullptr, "r", nullptr),
              R"({"error":"invalid_grant","error_resolution":"r"})");
    EXPECT_EQ(document(code, nullptr, nullptr, "u"),
              R"({"error":"invalid_grant","error_uri":"u"})");
    EXPECT_EQ(document(code, "x", nullptr, "u"),
              R"({"error":"invalid_grant","error_description":"x","error_uri":"u"})");
    EXPECT_EQ(document(code, "d", "r", nullptr),
              R"({"error":"invalid_grant","error_description":"d","error_resolution":"r"})");
    EXPECT_EQ(document(code, nullptr, "r", "u"),
              R"({"error":"invalid_grant","error_resolution":"r","error_uri":"u"})");
    EXPECT_EQ(document(code, "d", "r", "u"), R"({"error":"invalid_grant","error_description":"d",)"
                                             R"("error_resolution":"r","error_uri":"u"})");
}

TEST(WriteOauthError, WritesAnEmptyTextAsAnEmptyString)
{
    EXPECT_EQ(document(OAUTH_INVALID_REQUEST, "", "", ""),
              R"({"error":"invalid_request","error_description":"",)"
              R"("error_resolution":"","error_uri":""})");
}

TEST(WriteOauthError, EscapesWhatJsonDoesNotAllow)
{
    EXPECT_EQ(document(OAUTH_INVALID_REQUEST, "say \"no\"\\\n\x01", nullptr, nullptr),
              R"({"error":"invalid_request","error_description":"say \"no\"\\\n\u0001"})");
    EXPECT_EQ(document(OAUTH_INVALID_REQUEST, "\xC3\xA9 \xFF", nullptr, nullptr),
              R"({"error":"invalid_request","error_description":"\u00e9 \ufffd"})");
}

TEST(WriteOauthError, KeepsALongText)
{
    const std::string description(1024UL * 1024UL, 'x');
    EXPECT_EQ(document(OAUTH_SERVER_ERROR, description.c_str(), nullptr, nullptr),
              R"({"error":"server_error","error_description":")" + description + R"("})");
}

TEST(WriteOauthError, GivesNullWhicheverAllocationFails)
{
    const int found = errno;
    withEachAllocationFailing([&](FailAllocation& failure) {
        errno = 77;
        const HeapText text{write_oauth_error(OAUTH_INVALID_GRANT, "d", "r", "u")};
        const int left = errno;
        const bool failed = failure.reached();
        EXPECT_EQ(lastRule(), failed ? "memory.exhausted" : "nothing noted");
        EXPECT_EQ(left, 77);
        EXPECT_EQ(orNull(text.get()), failed
                                          ? "(null)"
                                          : R"({"error":"invalid_grant","error_description":"d",)"
                                            R"("error_resolution":"r","error_uri":"u"})");
    });
    errno = found;
}
