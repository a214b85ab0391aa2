// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/hostile.hpp"
#include "support/lists.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>

#include <cerrno>

namespace
{

using namespace support;

using RequestPtr = std::unique_ptr<AuthorizeRequest, Releaser<free_authorize_request>>;
using PolicyPtr = std::unique_ptr<KestPolicyAuth, Releaser<free_kest_policy_response>>;
using PolicyList = PairList<KestPolicyAuth>;

constexpr const char* nullText = "basic_string: construction from null is not valid";

/** A request whose texts belong to the test. */
AuthorizeRequest requestOf(TextList& texts)
{
    char** const text = texts;
    AuthorizeRequest request{};
    request.client_id = text[0];
    request.client_secret = text[1];
    request.state = text[2];
    request.refresh_token = text[3];
    return request;
}

std::string written(AuthorizeRequest& request)
{
    return orNull(HeapText{write_authorize_request(&request)}.get());
}

TEST(CreateAuthorizeRequest, TakesTheSecretBeforeTheIdentifier)
{
    const RequestPtr request{
        create_authorize_request("secret", "id", "state", nullptr, nullptr, nullptr, nullptr)};
    ASSERT_NE(request, nullptr);
    EXPECT_STREQ(request->client_secret, "secret");
    EXPECT_STREQ(request->client_id, "id");
    EXPECT_STREQ(request->state, "state");
    EXPECT_EQ(request->reserved, nullptr);
    EXPECT_EQ(request->refresh_token, nullptr);
    EXPECT_EQ(request->policy, nullptr);
    EXPECT_EQ(request->handshake, nullptr);
}

TEST(CreateAuthorizeRequest, CopiesEverything)
{
    PolicyList policy{{"p", "1"}, {"q", ""}};
    ParameterList handshake{{"T", {"a", "b"}}, {"R", {"proof"}}};
    std::string secret = "secret";
    const RequestPtr request{create_authorize_request(secret.c_str(), "id", "state", "unused",
                                                      policy, handshake, "refresh")};
    ASSERT_NE(request, nullptr);
    secret[0] = 'X';
    static_cast<KestPolicyAuth*>(policy)[0].value[0] = 'X';
    static_cast<HandshakePayload*>(handshake)[0].values[0][0] = 'X';
    EXPECT_STREQ(request->client_secret, "secret");
    EXPECT_EQ(pairs(request->policy), (Pairs{{"p", "1"}, {"q", ""}}));
    EXPECT_EQ(parameters(request->handshake), (Parameters{{"T", {"a", "b"}}, {"R", {"proof"}}}));
    EXPECT_STREQ(request->refresh_token, "refresh");
    EXPECT_EQ(request->reserved, nullptr);
}

TEST(CreateAuthorizeRequest, AcceptsEmptyTexts)
{
    const RequestPtr request{create_authorize_request("", "", "", nullptr, nullptr, nullptr, "")};
    ASSERT_NE(request, nullptr);
    EXPECT_STREQ(request->client_id, "");
    EXPECT_STREQ(request->refresh_token, "");
}

TEST(CreateAuthorizeRequest, RefusesAMissingMandatoryText)
{
    const auto create = [](const char* secret, const char* id, const char* state) {
        return RequestPtr{
            create_authorize_request(secret, id, state, nullptr, nullptr, nullptr, "refresh")};
    };
    EXPECT_NE(create("secret", "id", "state"), nullptr);
    EXPECT_REFUSED("argument.null", create(nullptr, "id", "state"));
    EXPECT_REFUSED("argument.null", create("secret", nullptr, "state"));
    EXPECT_REFUSED("argument.null", create("secret", "id", nullptr));
}

TEST(CreateAuthorizeRequest, RefusesAHandshakeThatHasNoCopy)
{
    const auto create = [](HandshakePayload* handshake) {
        return RequestPtr{create_authorize_request("secret", "id", "state", nullptr, nullptr,
                                                   handshake, "refresh")};
    };
    ParameterList handshake{{"T", {"a"}}, {"R", {"b"}}};
    EXPECT_NE(create(handshake), nullptr);
    ParameterList withoutValues{{"T", {"a"}}, {"R", {}}};
    EXPECT_REFUSED("document.parameter-missing", create(withoutValues));
    ParameterList empty{};
    EXPECT_REFUSED("document.empty", create(empty));
}

TEST(CreateAuthorizeRequest, KeepsAnEmptyPolicyList)
{
    PolicyList empty{};
    const RequestPtr request{
        create_authorize_request("secret", "id", "state", nullptr, empty, nullptr, nullptr)};
    ASSERT_NE(request, nullptr);
    ASSERT_NE(request->policy, nullptr);
    EXPECT_EQ(request->policy[0].name, nullptr);
    EXPECT_EQ(request->policy[0].value, nullptr);
}

TEST(CreateAuthorizeRequest, LosesAtMostPolicyAndRefreshTokenWithoutMemory)
{
    PolicyList policy{{"p", "1"}};
    ParameterList handshake{{"R", {"proof"}}};
    unsigned int refused = 0;
    unsigned int withoutPolicy = 0;
    unsigned int withoutToken = 0;
    withEachAllocationFailing([&](auto& failure) {
        const RequestPtr request{create_authorize_request("secret", "id", "state", nullptr, policy,
                                                          handshake, "refresh")};
        const bool failed = failure.reached();
        if (!request)
        {
            EXPECT_TRUE(failed);
            ++refused;
            return;
        }
        EXPECT_EQ(orNull(request->client_secret), "secret");
        EXPECT_EQ(orNull(request->client_id), "id");
        EXPECT_EQ(orNull(request->state), "state");
        EXPECT_EQ(parameters(request->handshake), (Parameters{{"R", {"proof"}}}));
        withoutPolicy += request->policy == nullptr ? 1U : 0U;
        withoutToken += request->refresh_token == nullptr ? 1U : 0U;
        if (!failed)
        {
            EXPECT_EQ(pairs(request->policy), (Pairs{{"p", "1"}}));
            EXPECT_EQ(orNull(request->refresh_token), "refresh");
        }
    });
    // The record and its three texts; the handshake's list, array, name and value.
    EXPECT_EQ(refused, 8U);
    EXPECT_EQ(withoutPolicy, 3U);
    EXPECT_EQ(withoutToken, 1U);
}

TEST(CreateAuthorizeRequest, RefusesNothingWhereItGoesOnWithoutMemory)
{
    PolicyList policy{{"p", "1"}};
    unsigned int wentOn = 0;
    bool failed = true;
    for (unsigned int nth = 1; failed; ++nth)
    {
        SCOPED_TRACE(nth);
        plantRefusal();
        FailAllocation failure{nth};
        const RequestPtr request{
            create_authorize_request("secret", "id", "state", nullptr, policy, nullptr, "refresh")};
        failed = failure.reached();
        EXPECT_EQ(lastRule(), request ? "nothing noted" : "memory.exhausted");
        wentOn += request && failed ? 1U : 0U;
    }
    // The policy's list, name and value; the refresh token.
    EXPECT_EQ(wentOn, 4U);
}

TEST(FreeAuthorizeRequest, ReleasesAReservedTextThatACallerHasSet)
{
    RequestPtr request{
        create_authorize_request("secret", "id", "state", nullptr, nullptr, nullptr, "refresh")};
    ASSERT_NE(request, nullptr);
    // A leak check sees whether it is released.
    request->reserved = strdup("reserved");
    EXPECT_STREQ(request->reserved, "reserved");
}

TEST(FreeAuthorizeRequest, AcceptsNullAndAnEmptyRecord)
{
    free_authorize_request(nullptr);
    free_authorize_request(static_cast<AuthorizeRequest*>(calloc(1, sizeof(AuthorizeRequest))));
}

TEST(SetKestPolicyResponse, GivesNullForNull)
{
    EXPECT_REFUSED("argument.null", set_kest_policy_response(nullptr));
}

TEST(SetKestPolicyResponse, CopiesEachPair)
{
    PolicyList policy{{"a", "1"}, {"b", "2"}, {"a", "3"}};
    const PolicyPtr copy{set_kest_policy_response(policy)};
    EXPECT_EQ(pairs(copy.get()), (Pairs{{"a", "1"}, {"b", "2"}, {"a", "3"}}));
    EXPECT_NE(copy.get()[0].name, static_cast<KestPolicyAuth*>(policy)[0].name);
    EXPECT_EQ(copy.get()[3].name, nullptr);
    EXPECT_EQ(copy.get()[3].value, nullptr);
}

TEST(SetKestPolicyResponse, StopsAtTheFirstIncompletePair)
{
    PolicyList policy{{"a", "1"}, {"b", "2"}, {"c", "3"}};
    KestPolicyAuth* const list = policy;
    list[1].value = nullptr;
    EXPECT_EQ(pairs(PolicyPtr{set_kest_policy_response(list)}.get()), (Pairs{{"a", "1"}}));
    list[1] = {nullptr, list[0].value};
    EXPECT_EQ(pairs(PolicyPtr{set_kest_policy_response(list)}.get()), (Pairs{{"a", "1"}}));
}

TEST(SetKestPolicyResponse, GivesAnEmptyListWhereTheFirstPairIsIncomplete)
{
    PolicyList policy{{"a", "1"}, {"b", "2"}};
    KestPolicyAuth* const list = policy;
    const KestPolicyAuth whole = list[0];
    for (const KestPolicyAuth first : {KestPolicyAuth{whole.name, nullptr},
                                       KestPolicyAuth{nullptr, whole.value}, KestPolicyAuth{}})
    {
        list[0] = first;
        const PolicyPtr copy{set_kest_policy_response(list)};
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(copy->name, nullptr);
        EXPECT_EQ(copy->value, nullptr);
    }
}

TEST(SetKestPolicyResponse, GivesNullWhicheverAllocationFails)
{
    PolicyList policy{{"a", "1"}, {"b", "2"}};
    withEachAllocationFailing([&](auto& failure) {
        const PolicyPtr copy{set_kest_policy_response(policy)};
        EXPECT_EQ(copy == nullptr, failure.reached());
        EXPECT_EQ(lastRule(), copy ? "nothing noted" : "memory.exhausted");
    });
}

TEST(FreeKestPolicyResponse, GoesOnWhileNameOrValueIsThere)
{
    // A leak check sees whether all four texts are released.
    auto* list = static_cast<KestPolicyAuth*>(calloc(4, sizeof(KestPolicyAuth)));
    list[0] = {strdup("name"), strdup("value")};
    list[1] = {strdup("name without value"), nullptr};
    list[2] = {nullptr, strdup("value without name")};
    free_kest_policy_response(list);
    free_kest_policy_response(nullptr);
}

TEST(ParseAuthorizeRequest, ReadsEveryMember)
{
    const RequestPtr request{parse_authorize_request(
        R"({"client_id":"id","client_secret":"secret","state":"st","refresh_token":"refresh",)"
        R"("handshake_response":{"T":["a","b"],"R":["x"],"C":"7","one":["v"]},)"
        R"("kest_policy_auth":{"z":"1","b":""},"unknown":{"x":[1]}})")};
    ASSERT_NE(request, nullptr);
    EXPECT_STREQ(request->client_id, "id");
    EXPECT_STREQ(request->client_secret, "secret");
    EXPECT_STREQ(request->state, "st");
    EXPECT_STREQ(request->refresh_token, "refresh");
    // In ascending order of the names, as every object is read.
    EXPECT_EQ(parameters(request->handshake),
              (Parameters{{"C", {"7"}}, {"R", {"x"}}, {"T", {"a", "b"}}, {"one", {"v"}}}));
    EXPECT_EQ(pairs(request->policy), (Pairs{{"b", ""}, {"z", "1"}}));
    EXPECT_EQ(request->reserved, nullptr);
}

/** A document with these three members and what @p more adds. */
std::string document(const std::string& more)
{
    return R"({"client_id":"id","client_secret":"secret","state":"state")" + more + "}";
}

RequestPtr parsed(const std::string& more)
{
    return RequestPtr{parse_authorize_request(document(more).c_str())};
}

TEST(ParseAuthorizeRequest, WantsARefreshTokenOrAHandshake)
{
    EXPECT_REFUSED("authorize.grant", parsed(""));
    EXPECT_NE(parsed(R"(,"refresh_token":"r")"), nullptr);
    EXPECT_NE(parsed(R"(,"handshake_response":{"R":["x"]})"), nullptr);
    EXPECT_REFUSED("authorize.grant", parsed(R"(,"kest_policy_auth":{"a":"1"})"));
}

TEST(ParseAuthorizeRequest, WantsTheThreeMandatoryMembersAsStrings)
{
    for (const std::string name : {"client_id", "client_secret", "state"})
    {
        for (const std::string& value : jsonValuesOfEveryType())
        {
            SCOPED_TRACE(nextMember(name, value));
            // The last of two members with the same name is the one that counts.
            const std::string rule =
                ruleOf([&] { return parsed(R"(,"refresh_token":"r")" + nextMember(name, value)); });
            EXPECT_EQ(rule, value.starts_with('"') ? "accepted" : "document.member");
            EXPECT_TRUE(rule == "accepted" || lastRefusal().subject == name);
        }
        SCOPED_TRACE(name);
        std::string missing = document(R"(,"refresh_token":"r")");
        EXPECT_NE(RequestPtr{parse_authorize_request(missing.c_str())}, nullptr);
        missing.replace(missing.find(name), name.size(), "something");
        EXPECT_REFUSED("document.member", RequestPtr{parse_authorize_request(missing.c_str())});
    }
}

TEST(ParseAuthorizeRequest, TakesARefreshTokenThatIsNoStringAsAbsent)
{
    for (const std::string& value : jsonValuesOfEveryType())
    {
        SCOPED_TRACE(value);
        EXPECT_EQ(ruleOf([&] { return parsed(R"(,"refresh_token":)" + value); }),
                  value.starts_with('"') ? "accepted" : "authorize.grant");
        const RequestPtr request =
            parsed(R"(,"handshake_response":{"R":"x"},"refresh_token":)" + value);
        ASSERT_NE(request, nullptr);
        EXPECT_EQ(request->refresh_token != nullptr, value.starts_with('"'));
    }
}

TEST(ParseAuthorizeRequest, TakesAHandshakeThatIsNoObjectAsAbsent)
{
    for (const std::string& value : jsonValuesOfEveryType())
    {
        if (value.starts_with('{'))
        {
            continue;
        }
        SCOPED_TRACE(value);
        EXPECT_REFUSED("authorize.grant", parsed(R"(,"handshake_response":)" + value));
        const RequestPtr request = parsed(R"(,"refresh_token":"r","handshake_response":)" + value);
        ASSERT_NE(request, nullptr);
        EXPECT_EQ(request->handshake, nullptr);
        EXPECT_STREQ(request->refresh_token, "r");
    }
}

TEST(ParseAuthorizeRequest, RefusesAHandshakeWithoutParametersEvenBesideARefreshToken)
{
    for (const char* handshake : {"{}", R"({"a":null})", R"({"a":[]})",
                                  R"({"a":7,"b":true,"c":[],"d":null,"e":1.5,"f":false})"})
    {
        SCOPED_TRACE(handshake);
        EXPECT_REFUSED(
            "authorize.handshake",
            parsed(std::string{R"(,"refresh_token":"r","handshake_response":)"} + handshake));
    }
}

TEST(ParseAuthorizeRequest, LeavesOutHandshakeMembersWithoutTexts)
{
    const RequestPtr request = parsed(
        R"(,"handshake_response":{"a":null,"b":[],"c":3,"d":true,"e":"kept","f":["x","y"],"g":2.5})");
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(parameters(request->handshake), (Parameters{{"e", {"kept"}}, {"f", {"x", "y"}}}));
}

TEST(ParseAuthorizeRequest, RefusesAHandshakeThatIsNotFlat)
{
    for (const char* odd : {R"({"x":"y"})", "{}", R"(["x",null])", "[1]", R"([["x"]])", "[true]",
                            R"([{"x":"y"}])", "[null]"})
    {
        SCOPED_TRACE(odd);
        const std::string before = R"(,"refresh_token":"r","handshake_response":{"R":"x","a":)";
        EXPECT_NE(parsed(before + R"(["x"]})"), nullptr);
        EXPECT_REFUSED("authorize.handshake", parsed(before + odd + "}"));
        EXPECT_STREQ(lastRefusal().subject, "a");
    }
}

TEST(ParseAuthorizeRequest, WantsStringsInThePolicy)
{
    const std::string before = R"(,"refresh_token":"r","kest_policy_auth":{"a":"1","b":)";
    for (const std::string& value : jsonValuesOfEveryType())
    {
        SCOPED_TRACE(value);
        const std::string expected = value.starts_with('"') ? "accepted" : "authorize.policy";
        EXPECT_EQ(ruleOf([&] { return parsed(before + value + "}"); }), expected);
        EXPECT_TRUE(expected == "accepted" || lastRefusal().subject == std::string{"b"});
        const std::string proven = R"(,"handshake_response":{"R":"x"},"kest_policy_auth":{"b":)";
        EXPECT_EQ(ruleOf([&] { return parsed(proven + value + "}"); }), expected);
    }
}

TEST(ParseAuthorizeRequest, TakesAPolicyThatIsNoObjectOrEmptyAsAbsent)
{
    for (const char* policy : {"[]", R"(["a"])", R"("a")", "7", "null", "true", "{}"})
    {
        SCOPED_TRACE(policy);
        const RequestPtr request =
            parsed(std::string{R"(,"refresh_token":"r","kest_policy_auth":)"} + policy);
        ASSERT_NE(request, nullptr);
        EXPECT_EQ(request->policy, nullptr);
    }
}

TEST(ParseAuthorizeRequest, EndsTextsAtAZeroByteButNotTheNamesItLooksFor)
{
    const RequestPtr request =
        parsed(R"(,"refresh_token":"a\u0000b","handshake_response":{"V":"\u0000","W":["c\u0000"]},)"
               R"("kest_policy_auth":{"p":"1\u00002"},"client_id\u0000":"other")");
    ASSERT_NE(request, nullptr);
    EXPECT_STREQ(request->client_id, "id");
    EXPECT_STREQ(request->refresh_token, "a");
    EXPECT_EQ(parameters(request->handshake), (Parameters{{"V", {""}}, {"W", {"c"}}}));
    EXPECT_EQ(pairs(request->policy), (Pairs{{"p", "1"}}));
    // No "state" but one with a zero byte behind.
    EXPECT_REFUSED(
        "document.member",
        parse_authorize_request(
            R"({"client_id":"i","client_secret":"s","state\u0000":"x","refresh_token":"r"})"));
}

TEST(ParseAuthorizeRequest, PassesOverNamesWithAZeroByteInItsLists)
{
    const RequestPtr request =
        parsed(R"(,"handshake_response":{"R\u0000":"1","V":"2","V\u0000x":{}},)"
               R"("kest_policy_auth":{"p\u0000q":"1","q":"2","q\u0000":3})");
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(parameters(request->handshake), (Parameters{{"V", {"2"}}}));
    EXPECT_EQ(pairs(request->policy), (Pairs{{"q", "2"}}));
    const RequestPtr none = parsed(R"(,"refresh_token":"r","kest_policy_auth":{"p\u0000":"1"})");
    ASSERT_NE(none, nullptr);
    EXPECT_EQ(none->policy, nullptr);
    EXPECT_REFUSED("authorize.handshake",
                   parsed(R"(,"refresh_token":"r","handshake_response":{"R\u0000":"1"})"));
}

TEST(ParseAuthorizeRequest, KeepsCharactersOutsideAscii)
{
    const RequestPtr request =
        parsed(",\"refresh_token\":\"gr\xC3\xBCn \\ud83d\\ude00\",\"handshake_response\":"
               "{\"\xC3\xBC\":\"\xFF\"}");
    ASSERT_NE(request, nullptr);
    EXPECT_STREQ(request->refresh_token, "gr\xC3\xBCn \xF0\x9F\x98\x80");
    // Bytes that are not UTF-8 pass through the reader.
    EXPECT_EQ(parameters(request->handshake), (Parameters{{"\xC3\xBC", {"\xFF"}}}));
}

TEST(ParseAuthorizeRequest, RefusesWhatIsNoObject)
{
    EXPECT_REFUSED("argument.null", parse_authorize_request(nullptr));
    for (const auto& [name, text] : hostileTexts())
    {
        SCOPED_TRACE(name);
        EXPECT_REFUSED(hostileRule(name), RequestPtr{parse_authorize_request(text.c_str())});
    }
}

TEST(ParseAuthorizeRequest, ComesBackFromOddObjects)
{
    for (const auto& [name, text] : oddObjects())
    {
        SCOPED_TRACE(name);
        EXPECT_REFUSED("authorize.grant", RequestPtr{parse_authorize_request(text.c_str())});
    }
    EXPECT_NE(parsed(R"(,"refresh_token":"r","deep":)" + nestedMember("a", 254)), nullptr);
    EXPECT_REFUSED("json.nesting",
                   parsed(R"(,"refresh_token":"r","deep":)" + nestedMember("a", 255)));
}

TEST(ParseAuthorizeRequest, ReadsHugeDocuments)
{
    const std::string huge(1024 * 1024, 'x');
    std::string more = R"(,"refresh_token":")" + huge + R"(","kest_policy_auth":{"a":"1")";
    for (int i = 0; i < 20000; ++i)
    {
        more += ",\"n" + std::to_string(i) + "\":\"v\"";
    }
    const RequestPtr request = parsed(more + "}");
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(request->refresh_token, huge);
    EXPECT_EQ(pairs(request->policy).size(), 20001U);
}

TEST(ParseAuthorizeRequest, NeverGivesAPartOfTheMandatoryTextsWithoutMemory)
{
    const std::string text = document(
        R"(,"refresh_token":"r","handshake_response":{"R":["x"],"T":"t"},"kest_policy_auth":{"a":"1"})");
    unsigned int refused = 0;
    withEachAllocationFailing([&](auto& failure) {
        const RequestPtr request{parse_authorize_request(text.c_str())};
        const bool failed = failure.reached();
        if (!request)
        {
            EXPECT_TRUE(failed);
            ++refused;
            return;
        }
        EXPECT_EQ(orNull(request->client_id), "id");
        EXPECT_EQ(orNull(request->client_secret), "secret");
        EXPECT_EQ(orNull(request->state), "state");
        EXPECT_EQ(parameters(request->handshake), (Parameters{{"R", {"x"}}, {"T", {"t"}}}));
        if (!failed)
        {
            EXPECT_EQ(orNull(request->refresh_token), "r");
            EXPECT_EQ(pairs(request->policy), (Pairs{{"a", "1"}}));
        }
    });
    EXPECT_GT(refused, 20U);
}

TEST(ParseAuthorizeRequest, LeavesErrnoAlone)
{
    errno = EXDEV;
    EXPECT_REFUSED("json.syntax", parse_authorize_request("{"));
    EXPECT_NE(parsed(R"(,"refresh_token":"r")"), nullptr);
    EXPECT_EQ(errno, EXDEV);
}

TEST(WriteAuthorizeRequest, WritesARefreshToken)
{
    TextList texts{"id", "secret", "state", "refresh"};
    AuthorizeRequest request = requestOf(texts);
    EXPECT_EQ(
        written(request),
        R"({"client_id":"id","client_secret":"secret","refresh_token":"refresh","state":"state"})");
}

TEST(WriteAuthorizeRequest, WritesAHandshakeAndDropsTheRefreshToken)
{
    TextList texts{"id", "secret", "state", "refresh"};
    AuthorizeRequest request = requestOf(texts);
    ParameterList handshake{{"T", {"a"}}, {"R", {"x"}}, {"M", {"1", "2"}}};
    request.handshake = handshake;
    const char* const expected =
        R"({"client_id":"id","client_secret":"secret","handshake_response":)"
        R"({"M":["1","2"],"R":["x"],"T":"a"},"state":"state"})";
    EXPECT_EQ(written(request), expected);
    request.refresh_token = nullptr;
    EXPECT_EQ(written(request), expected);
}

TEST(WriteAuthorizeRequest, WritesOnlyAnExactRAsAnArray)
{
    TextList texts{"id", "secret", "state"};
    AuthorizeRequest request = requestOf(texts);
    ParameterList handshake{{"R", {"x", "y"}}, {"RR", {"x"}}, {"r", {"x"}}, {"", {"x"}}};
    request.handshake = handshake;
    EXPECT_EQ(written(request),
              R"({"client_id":"id","client_secret":"secret","handshake_response":)"
              R"({"":"x","R":["x","y"],"RR":"x","r":"x"},"state":"state"})");
}

TEST(WriteAuthorizeRequest, WritesThePolicyEvenWhenItIsEmpty)
{
    TextList texts{"id", "secret", "state", "r"};
    AuthorizeRequest request = requestOf(texts);
    PolicyList policy{{"b", "2"}, {"a", "1"}};
    request.policy = policy;
    EXPECT_EQ(written(request), R"({"client_id":"id","client_secret":"secret",)"
                                R"("kest_policy_auth":{"a":"1","b":"2"},)"
                                R"("refresh_token":"r","state":"state"})");
    PolicyList empty{};
    request.policy = empty;
    EXPECT_EQ(written(request), R"({"client_id":"id","client_secret":"secret",)"
                                R"("kest_policy_auth":{},"refresh_token":"r","state":"state"})");
}

TEST(WriteAuthorizeRequest, WritesTheLastOfSeveralWithTheSameName)
{
    TextList texts{"id", "secret", "state"};
    AuthorizeRequest request = requestOf(texts);
    PolicyList policy{{"a", "1"}, {"b", "2"}, {"a", "3"}};
    ParameterList handshake{{"T", {"a", "b"}}, {"R", {"x"}}, {"T", {"c"}}};
    request.policy = policy;
    request.handshake = handshake;
    EXPECT_EQ(written(request), R"({"client_id":"id","client_secret":"secret",)"
                                R"("handshake_response":{"R":["x"],"T":"c"},)"
                                R"("kest_policy_auth":{"a":"3","b":"2"},"state":"state"})");
}

TEST(WriteAuthorizeRequest, WritesThePolicyUpToItsFirstPairWithoutAValue)
{
    TextList texts{"id", "secret", "state", "r"};
    AuthorizeRequest request = requestOf(texts);
    PolicyList policy{{"a", "1"}, {"b", "2"}, {"c", "3"}};
    static_cast<KestPolicyAuth*>(policy)[1].value = nullptr;
    request.policy = policy;
    EXPECT_EQ(written(request), R"({"client_id":"id","client_secret":"secret",)"
                                R"("kest_policy_auth":{"a":"1"},"refresh_token":"r",)"
                                R"("state":"state"})");
}

TEST(WriteAuthorizeRequest, WritesTheHandshakeUpToItsFirstParameterWithoutAnArray)
{
    TextList texts{"id", "secret", "state"};
    AuthorizeRequest request = requestOf(texts);
    ParameterList handshake{{"A", {"1"}}, {"B", {"2"}}, {"C", {"3"}}};
    HandshakePayload* const list = handshake;
    request.handshake = list;
    list[1].values = nullptr;
    EXPECT_EQ(written(request), R"({"client_id":"id","client_secret":"secret",)"
                                R"("handshake_response":{"A":"1"},"state":"state"})");
    list[0].name = nullptr;
    EXPECT_EQ(written(request), R"({"client_id":"id","client_secret":"secret",)"
                                R"("handshake_response":{},"state":"state"})");
}

TEST(WriteAuthorizeRequest, GivesNullWithoutRefreshTokenAndHandshake)
{
    TextList texts{"id", "secret", "state"};
    AuthorizeRequest request = requestOf(texts);
    EXPECT_REFUSED("authorize.grant", write_authorize_request(&request));
    EXPECT_REFUSED("argument.null", write_authorize_request(nullptr));
}

TEST(WriteAuthorizeRequest, RaisesALogicErrorForEachMissingMandatoryText)
{
    TextList texts{"id", "secret", "state", "refresh"};
    for (char* AuthorizeRequest::*field :
         {&AuthorizeRequest::client_id, &AuthorizeRequest::client_secret, &AuthorizeRequest::state})
    {
        AuthorizeRequest request = requestOf(texts);
        request.*field = nullptr;
        EXPECT_EQ(logicErrorOf([&] { return HeapText{write_authorize_request(&request)}; }),
                  nullText);
        // The texts come first: the missing refresh token is not seen.
        request.refresh_token = nullptr;
        EXPECT_EQ(logicErrorOf([&] { return HeapText{write_authorize_request(&request)}; }),
                  nullText);
    }
}

TEST(WriteAuthorizeRequest, RaisesALogicErrorForAParameterWithoutValues)
{
    TextList texts{"id", "secret", "state"};
    AuthorizeRequest request = requestOf(texts);
    for (const char* name : {"A", "R"})
    {
        ParameterList handshake{{"T", {"t"}}, {name, {}}};
        request.handshake = handshake;
        EXPECT_EQ(logicErrorOf([&] { return HeapText{write_authorize_request(&request)}; }),
                  nullText);
    }
}

TEST(WriteAuthorizeRequest, EscapesWhatIsNotPlainAscii)
{
    TextList texts{"\"\\/\n\x01", "gr\xC3\xBCn", "\xF0\x9F\x98\x80", ""};
    AuthorizeRequest request = requestOf(texts);
    EXPECT_EQ(written(request),
              R"({"client_id":"\"\\/\n\u0001","client_secret":"gr\u00fcn","refresh_token":"",)"
              R"("state":"\ud83d\ude00"})");
}

TEST(WriteAuthorizeRequest, IsReadBack)
{
    PolicyList policy{{"a", "1"}, {"b", "2"}};
    ParameterList handshake{{"C", {"9"}}, {"R", {"only"}}, {"T", {"x", "y"}}};
    const RequestPtr request{
        create_authorize_request("s\xC3\xBC", "i\"d", "st", nullptr, policy, handshake, nullptr)};
    ASSERT_NE(request, nullptr);
    const HeapText text{write_authorize_request(request.get())};
    const RequestPtr back{parse_authorize_request(text.get())};
    ASSERT_NE(back, nullptr);
    EXPECT_STREQ(back->client_secret, "s\xC3\xBC");
    EXPECT_STREQ(back->client_id, "i\"d");
    EXPECT_STREQ(back->state, "st");
    EXPECT_EQ(pairs(back->policy), (Pairs{{"a", "1"}, {"b", "2"}}));
    EXPECT_EQ(parameters(back->handshake),
              (Parameters{{"C", {"9"}}, {"R", {"only"}}, {"T", {"x", "y"}}}));
}

TEST(WriteAuthorizeRequest, GivesNullWhicheverAllocationFails)
{
    TextList texts{"id", "secret", "state"};
    AuthorizeRequest request = requestOf(texts);
    PolicyList policy{{"a", "1"}};
    ParameterList handshake{{"R", {"x"}}, {"T", {"a", "b"}}};
    request.policy = policy;
    request.handshake = handshake;
    const char* const expected =
        R"({"client_id":"id","client_secret":"secret","handshake_response":)"
        R"({"R":["x"],"T":["a","b"]},"kest_policy_auth":{"a":"1"},"state":"state"})";
    EXPECT_EQ(written(request), expected);
    withEachAllocationFailing([&](auto& failure) {
        const HeapText text{write_authorize_request(&request)};
        const bool failed = failure.reached();
        EXPECT_EQ(lastRule(), failed ? "memory.exhausted" : "nothing noted");
        EXPECT_EQ(orNull(text.get()), failed ? "(null)" : expected);
    });
}

} // namespace
