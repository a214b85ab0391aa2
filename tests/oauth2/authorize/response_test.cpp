// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/hostile.hpp"
#include "support/lists.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>

#include <array>
#include <cerrno>

namespace
{

using namespace support;

using ResponsePtr = std::unique_ptr<AuthorizeResponse, Releaser<free_authorize_response>>;

constexpr const char* accepted =
    R"({"access_token":"at","expires_in":"3600","refresh_token":"rt","state":"st",)"
    R"("token_type":"bearer"})";

constexpr std::array memberNames = {"state", "access_token", "refresh_token", "expires_in",
                                    "token_type"};

ResponsePtr parsed(const std::string& text)
{
    return ResponsePtr{parse_authorize_response(text.c_str())};
}

TEST(CreateAuthorizeResponse, TakesTheStateFirst)
{
    const FakeClock clock{1'700'000'000};
    const ResponsePtr response{
        create_authorize_response("state", "access", "refresh", "60", "bearer")};
    ASSERT_NE(response, nullptr);
    EXPECT_STREQ(response->state, "state");
    EXPECT_STREQ(response->access_token, "access");
    EXPECT_STREQ(response->refresh_token, "refresh");
    EXPECT_STREQ(response->expires_in, "60");
    EXPECT_STREQ(response->token_type, "bearer");
    EXPECT_STREQ(response->issued_at, "1700000000");
}

TEST(CreateAuthorizeResponse, DoesNotCheckTheLifetime)
{
    for (const char* lifetime : {"", "0", "-1", "soon", "99999999999999999999999"})
    {
        const ResponsePtr response{create_authorize_response("", "", "", lifetime, "")};
        ASSERT_NE(response, nullptr);
        EXPECT_STREQ(response->expires_in, lifetime);
    }
}

TEST(CreateAuthorizeResponse, RefusesEachMissingText)
{
    std::array<const char*, 5> texts = {"a", "b", "c", "d", "e"};
    const auto create = [&] {
        return ResponsePtr{
            create_authorize_response(texts[0], texts[1], texts[2], texts[3], texts[4])};
    };
    EXPECT_NE(create(), nullptr);
    for (std::size_t i = 0; i < texts.size(); ++i)
    {
        const char* const kept = std::exchange(texts.at(i), nullptr);
        EXPECT_REFUSED("argument.null", create());
        EXPECT_STREQ(lastRefusal().subject, memberNames.at(i));
        texts.at(i) = kept;
    }
}

TEST(CreateAuthorizeResponse, WritesTheTimeWithoutSignAndLeadingZeros)
{
    const auto issuedAt = [](std::time_t now) {
        const FakeClock clock{now};
        return orNull(ResponsePtr { create_authorize_response("", "", "", "", "") } -> issued_at);
    };
    EXPECT_EQ(issuedAt(0), "0");
    EXPECT_EQ(issuedAt(1), "1");
    EXPECT_EQ(issuedAt(-100), "0");
    EXPECT_EQ(issuedAt(2'147'483'647), "2147483647");
}

TEST(CreateAuthorizeResponse, GivesNullWhereTheClockCannotBeBrokenDown)
{
    FakeClock clock{1'700'000'000};
    EXPECT_NE(ResponsePtr{create_authorize_response("", "", "", "", "")}, nullptr);
    EXPECT_NE(parsed(accepted), nullptr);
    clock.failBreakingDown();
    EXPECT_REFUSED("clock.unreadable", create_authorize_response("", "", "", "", ""));
    EXPECT_REFUSED("clock.unreadable", parsed(accepted));
    EXPECT_REFUSED("clock.unreadable", configure_auth_response(nullptr, nullptr));
}

TEST(CreateAuthorizeResponse, GivesNullWhicheverAllocationFails)
{
    // The zone file is read before: what that allocates is not looked at.
    EXPECT_NE(ResponsePtr{create_authorize_response("", "", "", "", "")}, nullptr);
    withEachAllocationFailing([&](auto& failure) {
        const ResponsePtr response{
            create_authorize_response("state", "access", "refresh", "60", "bearer")};
        EXPECT_EQ(response == nullptr, failure.reached());
        EXPECT_EQ(lastRule(), response ? "nothing noted" : "memory.exhausted");
    });
}

TEST(FreeAuthorizeResponse, AcceptsNullAndAnEmptyRecord)
{
    free_authorize_response(nullptr);
    free_authorize_response(static_cast<AuthorizeResponse*>(calloc(1, sizeof(AuthorizeResponse))));
}

TEST(WriteAuthorizeResponse, WritesFiveStrings)
{
    const ResponsePtr response{create_authorize_response("st", "at", "rt", "3600", "bearer")};
    const HeapText text{write_authorize_response(response.get())};
    EXPECT_EQ(orNull(text.get()), accepted);
    EXPECT_REFUSED("argument.null", write_authorize_response(nullptr));
}

TEST(WriteAuthorizeResponse, RaisesALogicErrorForEachMissingText)
{
    for (char* AuthorizeResponse::*field :
         {&AuthorizeResponse::access_token, &AuthorizeResponse::refresh_token,
          &AuthorizeResponse::state, &AuthorizeResponse::expires_in,
          &AuthorizeResponse::token_type})
    {
        const ResponsePtr response{create_authorize_response("st", "at", "rt", "60", "bearer")};
        ASSERT_NE(response, nullptr);
        const HeapText kept{std::exchange(response.get()->*field, nullptr)};
        EXPECT_EQ(logicErrorOf([&] { return HeapText{write_authorize_response(response.get())}; }),
                  "basic_string: construction from null is not valid");
    }
}

TEST(WriteAuthorizeResponse, DoesNotNeedTheTimeOfIssue)
{
    const ResponsePtr response{create_authorize_response("st", "at", "rt", "3600", "bearer")};
    const HeapText kept{std::exchange(response->issued_at, nullptr)};
    EXPECT_EQ(orNull(HeapText{write_authorize_response(response.get())}.get()), accepted);
}

TEST(WriteAuthorizeResponse, GivesNullWhicheverAllocationFails)
{
    const ResponsePtr response{create_authorize_response("st", "at", "rt", "3600", "bearer")};
    withEachAllocationFailing([&](auto& failure) {
        const HeapText text{write_authorize_response(response.get())};
        const bool failed = failure.reached();
        EXPECT_EQ(lastRule(), failed ? "memory.exhausted" : "nothing noted");
        EXPECT_EQ(orNull(text.get()), failed ? "(null)" : accepted);
    });
}

TEST(ParseAuthorizeResponse, ReadsTheFiveTextsAndRenewsTheTimeOfIssue)
{
    FakeClock clock{1'700'000'000};
    const ResponsePtr response = parsed(accepted);
    ASSERT_NE(response, nullptr);
    EXPECT_STREQ(response->access_token, "at");
    EXPECT_STREQ(response->refresh_token, "rt");
    EXPECT_STREQ(response->state, "st");
    EXPECT_STREQ(response->expires_in, "3600");
    EXPECT_STREQ(response->token_type, "bearer");
    EXPECT_STREQ(response->issued_at, "1700000000");

    clock.advance(90);
    const HeapText text{write_authorize_response(response.get())};
    const ResponsePtr again = parsed(text.get());
    ASSERT_NE(again, nullptr);
    EXPECT_STREQ(again->issued_at, "1700000090");
    EXPECT_EQ(orNull(HeapText{write_authorize_response(again.get())}.get()), accepted);
}

TEST(ParseAuthorizeResponse, NeverReadsATimeOfIssue)
{
    const FakeClock clock{1'700'000'000};
    std::string text = accepted;
    text.insert(1, R"("issued_at":"5",)");
    const ResponsePtr response = parsed(text);
    ASSERT_NE(response, nullptr);
    EXPECT_STREQ(response->issued_at, "1700000000");
}

TEST(ParseAuthorizeResponse, WantsEachMemberAsAString)
{
    ASSERT_NE(parsed(accepted), nullptr);
    for (const std::string name : memberNames)
    {
        std::string text = accepted;
        text.replace(text.find(name), name.size(), "something");
        SCOPED_TRACE(text);
        EXPECT_REFUSED("document.member", parsed(text));
        EXPECT_EQ(lastRefusal().subject, name);
        for (const std::string& value : jsonValuesOfEveryType())
        {
            SCOPED_TRACE(value);
            // The last of two members with the same name is the one that counts.
            text = accepted;
            text.insert(text.size() - 1, nextMember(name, value));
            EXPECT_EQ(ruleOf([&] { return parsed(text); }),
                      value.starts_with('"') ? "accepted" : "document.member");
        }
    }
}

TEST(ParseAuthorizeResponse, RefusesALifetimeThatIsANumber)
{
    std::string text = accepted;
    text.replace(text.find("\"3600\""), 6, "3600");
    EXPECT_REFUSED("document.member", parsed(text));
}

TEST(ParseAuthorizeResponse, HandlesZeroBytesAndForeignCharacters)
{
    struct Case
    {
        const char* json;
        const char* state;   /**< what the record holds; null: refused */
        const char* written; /**< what is written again */
    };
    const std::vector<Case> cases = {
        {R"("a\u0000b")", "a", R"("a")"},
        {R"("\u0000")", "", R"("")"},
        {"\"gr\xC3\xBCn\"", "gr\xC3\xBCn", R"("gr\u00fcn")"},
        {R"("\u20ac")", "\xE2\x82\xAC", R"("\u20ac")"},
        {R"("\ud83d\ude00")", "\xF0\x9F\x98\x80", R"("\ud83d\ude00")"},
        {"\"\x7F\"", "\x7F", "\"\x7F\""},
        // Bytes that are not UTF-8 are kept, and written as the replacement character.
        {"\"a\xFFz\"", "a\xFFz", R"("a\ufffdz")"},
        {R"("\ud83d")", nullptr, nullptr},
        {R"("\u00")", nullptr, nullptr},
    };
    for (const auto& [json, state, again] : cases)
    {
        SCOPED_TRACE(json);
        std::string text = accepted;
        text.replace(text.find(R"("st")"), 4, json);
        if (state == nullptr)
        {
            EXPECT_REFUSED("json.syntax", parsed(text));
            continue;
        }
        const ResponsePtr response = parsed(text);
        ASSERT_NE(response, nullptr);
        EXPECT_STREQ(response->state, state);
        const HeapText written{write_authorize_response(response.get())};
        EXPECT_NE(orNull(written.get()).find(std::string{"\"state\":"} + again + ","),
                  std::string::npos)
            << orNull(written.get());
    }
    std::string text = accepted;
    text.replace(text.find("state"), 5, R"(state\u0000)");
    EXPECT_REFUSED("document.member", parsed(text));
}

TEST(ParseAuthorizeResponse, RefusesHostileTexts)
{
    EXPECT_REFUSED("argument.null", parse_authorize_response(nullptr));
    for (const auto& [name, text] : hostileTexts())
    {
        SCOPED_TRACE(name);
        EXPECT_REFUSED(hostileRule(name), parsed(text));
    }
    for (const auto& [name, text] : oddObjects())
    {
        SCOPED_TRACE(name);
        EXPECT_REFUSED("document.member", parsed(text));
    }
}

TEST(ParseAuthorizeResponse, GivesNullWhicheverAllocationFails)
{
    EXPECT_NE(parsed(accepted), nullptr);
    withEachAllocationFailing([&](auto& failure) {
        const ResponsePtr response{parse_authorize_response(accepted)};
        EXPECT_EQ(response == nullptr, failure.reached());
        EXPECT_EQ(lastRule(), response ? "nothing noted" : "memory.exhausted");
    });
}

TEST(ConfigureAuthResponse, FillsInTheDefaults)
{
    const ResponsePtr plain{configure_auth_response(nullptr, nullptr)};
    ASSERT_NE(plain, nullptr);
    EXPECT_STREQ(plain->expires_in, "3600");
    EXPECT_STREQ(plain->token_type, "bearer");
    EXPECT_STREQ(plain->state, "");
    EXPECT_STREQ(plain->access_token, "");
    EXPECT_STREQ(plain->refresh_token, "");

    const ResponsePtr chosen{configure_auth_response("0x258", "mac")};
    ASSERT_NE(chosen, nullptr);
    EXPECT_STREQ(chosen->expires_in, "0x258");
    EXPECT_STREQ(chosen->token_type, "mac");
    const ResponsePtr empty{configure_auth_response("", "")};
    ASSERT_NE(empty, nullptr);
    EXPECT_STREQ(empty->expires_in, "");
    EXPECT_STREQ(empty->token_type, "");
}

} // namespace
