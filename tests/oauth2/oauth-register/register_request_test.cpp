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

using RequestPtr = std::unique_ptr<RegisterRequest, Releaser<free_register_request>>;
using Key = PairList<jwk>;

/** What a list of keys holds; nothing for null. */
std::vector<Pairs> keys(jwk* const* list)
{
    std::vector<Pairs> found;
    for (; list != nullptr && *list != nullptr; ++list)
    {
        found.push_back(pairs(*list));
    }
    return found;
}

std::vector<Parameters> certificates(HandshakePayload* const* list)
{
    std::vector<Parameters> found;
    for (; list != nullptr && *list != nullptr; ++list)
    {
        found.push_back(parameters(*list));
    }
    return found;
}

/** A record whose every field, but redirect_uris and scope, is set. */
RequestPtr fullRequest()
{
    TextList uris{"https://a/", "https://b/"};
    TextList types{"type-1.0", "software_id_cert-1.0"};
    Key first{{"kty", "DFS"}, {"dfs", "YWJj"}};
    Key second{{"kty", "EC"}};
    std::array<jwk*, 3> dfs = {first, second, nullptr};
    ParameterList certificate{{"kty", {"EC"}}, {"x5c", {"MIIB"}}};
    ParameterList chain{{"x5c", {"MIIC", "MIID"}}};
    std::array<HandshakePayload*, 3> software = {certificate, chain, nullptr};
    ParameterList challenge{{"T", {"type-1.0"}}};
    return RequestPtr{create_register_request(uris, "name", "software", dfs.data(), software.data(),
                                              types, challenge)};
}

constexpr const char* fullText =
    R"({"client_name":"name","handshake_challenge":{"T":["type-1.0"]},)"
    R"("handshake_types":["type-1.0","software_id_cert-1.0"],)"
    R"("jwks":{"dfs":[{"dfs":"YWJj","kty":"DFS"},{"kty":"EC"}],)"
    R"("software_id_cert":[{"kty":"EC","x5c":["MIIB"]},{"x5c":["MIIC","MIID"]}]},)"
    R"("redirect_uri":["https://a/","https://b/"],"software_id":"software"})";

/** A document that is accepted, and what @p more adds; the last of two members with the same name
 *  is the one that counts. */
RequestPtr parsed(const std::string& more)
{
    return RequestPtr{parse_register_request(
        (R"({"redirect_uri":["u"],"client_name":"n","software_id":"s")" + more + "}").c_str())};
}

std::string written(RegisterRequest& request)
{
    return orNull(HeapText{write_register_request(&request)}.get());
}

TEST(CreateRegisterRequest, CopiesEverything)
{
    const RequestPtr request = fullRequest();
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(texts(request->redirect_uri), (std::vector<std::string>{"https://a/", "https://b/"}));
    EXPECT_STREQ(request->client_name, "name");
    EXPECT_STREQ(request->software_id, "software");
    EXPECT_EQ(texts(request->handshake_types),
              (std::vector<std::string>{"type-1.0", "software_id_cert-1.0"}));
    EXPECT_EQ(keys(request->dfs),
              (std::vector<Pairs>{{{"kty", "DFS"}, {"dfs", "YWJj"}}, {{"kty", "EC"}}}));
    EXPECT_EQ(certificates(request->software_id_cert),
              (std::vector<Parameters>{{{"kty", {"EC"}}, {"x5c", {"MIIB"}}},
                                       {{"x5c", {"MIIC", "MIID"}}}}));
    EXPECT_EQ(parameters(request->handshake_challenge), (Parameters{{"T", {"type-1.0"}}}));
    EXPECT_EQ(request->redirect_uris, nullptr);
    EXPECT_EQ(request->scope, nullptr);
}

TEST(CreateRegisterRequest, WantsNameAndSoftwareAlone)
{
    const auto create = [](const char* name, const char* software) {
        return RequestPtr{
            create_register_request(nullptr, name, software, nullptr, nullptr, nullptr, nullptr)};
    };
    const RequestPtr request = create("", "");
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(request->redirect_uri, nullptr);
    EXPECT_EQ(request->handshake_types, nullptr);
    EXPECT_EQ(request->dfs, nullptr);
    EXPECT_EQ(request->software_id_cert, nullptr);
    EXPECT_EQ(request->handshake_challenge, nullptr);
    EXPECT_REFUSED("argument.null", create(nullptr, ""));
    EXPECT_STREQ(lastRefusal().subject, "client_name");
    EXPECT_REFUSED("argument.null", create("", nullptr));
    EXPECT_STREQ(lastRefusal().subject, "software_id");
}

TEST(CreateRegisterRequest, LeavesOutListsThatHaveNoCopy)
{
    TextList noTexts{};
    Key key{{"kty", "EC"}};
    Key noPairs{};
    std::array<jwk*, 3> dfs = {key, noPairs, nullptr};
    ParameterList certificate{{"kty", {"EC"}}, {"x5c", {}}};
    std::array<HandshakePayload*, 2> software = {certificate, nullptr};
    ParameterList challenge{{"T", {}}};
    plantRefusal();
    const RequestPtr request{create_register_request(noTexts, "name", "software", dfs.data(),
                                                     software.data(), noTexts, challenge)};
    ASSERT_NE(request, nullptr);
    // Their absence is not a failure of the call.
    EXPECT_TRUE(isPlantedRefusal());
    EXPECT_EQ(request->redirect_uri, nullptr);
    EXPECT_EQ(request->handshake_types, nullptr);
    EXPECT_EQ(request->dfs, nullptr);
    EXPECT_EQ(request->software_id_cert, nullptr);
    EXPECT_EQ(request->handshake_challenge, nullptr);
}

TEST(CreateRegisterRequest, LosesAtMostItsListsWithoutMemory)
{
    TextList uris{"u"};
    Key key{{"kty", "EC"}};
    std::array<jwk*, 2> dfs = {key, nullptr};
    ParameterList certificate{{"x5c", {"MIIB"}}};
    std::array<HandshakePayload*, 2> software = {certificate, nullptr};
    ParameterList challenge{{"T", {"t"}}};
    unsigned int refused = 0;
    unsigned int incomplete = 0;
    withEachAllocationFailing([&](auto& failure) {
        const RequestPtr request{create_register_request(uris, "name", "software", dfs.data(),
                                                         software.data(), uris, challenge)};
        const bool failed = failure.reached();
        if (!request)
        {
            EXPECT_TRUE(failed);
            ++refused;
            return;
        }
        EXPECT_EQ(orNull(request->client_name), "name");
        EXPECT_EQ(orNull(request->software_id), "software");
        const int missing = (request->redirect_uri == nullptr ? 1 : 0) +
                            (request->handshake_types == nullptr ? 1 : 0) +
                            (request->dfs == nullptr ? 1 : 0) +
                            (request->software_id_cert == nullptr ? 1 : 0) +
                            (request->handshake_challenge == nullptr ? 1 : 0);
        EXPECT_EQ(missing, failed ? 1 : 0);
        incomplete += failed ? 1U : 0U;
    });
    // The record and its two texts; two for each string array, four for the keys, five for the
    // certificates, four for the challenge.
    EXPECT_EQ(refused, 3U);
    EXPECT_EQ(incomplete, 2U + 2U + 4U + 5U + 4U);
}

TEST(FreeRegisterRequest, AcceptsNullAndReleasesEveryField)
{
    free_register_request(nullptr);
    free_register_request(static_cast<RegisterRequest*>(calloc(1, sizeof(RegisterRequest))));
    RequestPtr request = fullRequest();
    ASSERT_NE(request, nullptr);
    // A leak check sees whether what a caller has set is released too.
    TextList uris{"x", "y"};
    request->redirect_uris = set_char_array(uris);
    request->scope = strdup("scope");
    EXPECT_NE(request->redirect_uris, nullptr);
}

TEST(ParseRegisterRequest, ReadsEveryMember)
{
    const RequestPtr request{parse_register_request(fullText)};
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(texts(request->redirect_uri), (std::vector<std::string>{"https://a/", "https://b/"}));
    EXPECT_STREQ(request->client_name, "name");
    EXPECT_STREQ(request->software_id, "software");
    EXPECT_EQ(texts(request->handshake_types),
              (std::vector<std::string>{"type-1.0", "software_id_cert-1.0"}));
    EXPECT_EQ(keys(request->dfs),
              (std::vector<Pairs>{{{"dfs", "YWJj"}, {"kty", "DFS"}}, {{"kty", "EC"}}}));
    EXPECT_EQ(certificates(request->software_id_cert),
              (std::vector<Parameters>{{{"kty", {"EC"}}, {"x5c", {"MIIB"}}},
                                       {{"x5c", {"MIIC", "MIID"}}}}));
    EXPECT_EQ(parameters(request->handshake_challenge), (Parameters{{"T", {"type-1.0"}}}));
}

TEST(ParseRegisterRequest, ReadsNeitherScopeNorFurtherUris)
{
    const RequestPtr request = parsed(R"(,"scope":"read","redirect_uris":["x"])");
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(request->scope, nullptr);
    EXPECT_EQ(request->redirect_uris, nullptr);
    // Whatever they are.
    EXPECT_NE(parsed(R"(,"scope":7,"redirect_uris":{})"), nullptr);
}

TEST(ParseRegisterRequest, WantsOneUriOrMore)
{
    EXPECT_NE(parsed(""), nullptr);
    for (const char* uri : {"[]", R"("u")", "null", "{}", "7", "true", "[null]", R"(["u",null])",
                            R"(["u",1])", R"([["u"]])", R"([{"u":"u"}])"})
    {
        SCOPED_TRACE(uri);
        EXPECT_REFUSED("registration.redirect-uri",
                       parsed(std::string{R"(,"redirect_uri":)"} + uri));
        EXPECT_STREQ(lastRefusal().subject, "redirect_uri");
    }
    EXPECT_REFUSED("registration.redirect-uri",
                   parse_register_request(R"({"client_name":"n","software_id":"s"})"));
    const RequestPtr request = parsed(R"(,"redirect_uri":["","u","u"])");
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(texts(request->redirect_uri), (std::vector<std::string>{"", "u", "u"}));
}

TEST(ParseRegisterRequest, WantsNameAndSoftwareAsStrings)
{
    for (const std::string name : {"client_name", "software_id"})
    {
        for (const std::string& value : jsonValuesOfEveryType())
        {
            SCOPED_TRACE(nextMember(name, value));
            const bool accepted = value.starts_with('"');
            EXPECT_REFUSED(accepted ? "accepted" : "document.member",
                           parsed(nextMember(name, value)));
            EXPECT_TRUE(accepted || lastRefusal().subject == name);
        }
    }
    EXPECT_REFUSED("document.member",
                   parse_register_request(R"({"redirect_uri":["u"],"software_id":"s"})"));
    EXPECT_STREQ(lastRefusal().subject, "client_name");
    EXPECT_REFUSED("document.member",
                   parse_register_request(R"({"redirect_uri":["u"],"client_name":"n"})"));
    EXPECT_STREQ(lastRefusal().subject, "software_id");
}

TEST(WriteRegisterRequest, WritesALowerCaseChallengeOfOneTypeAsAString)
{
    const RequestPtr upper = parsed(R"(,"handshake_challenge":{"T":["A"]})");
    const RequestPtr lower = parsed(R"(,"handshake_challenge":{"t":["A"]})");
    ASSERT_NE(upper, nullptr);
    ASSERT_NE(lower, nullptr);
    EXPECT_NE(written(*upper).find(R"("handshake_challenge":{"T":["A"]})"), std::string::npos);
    EXPECT_NE(written(*lower).find(R"("handshake_challenge":{"t":"A"})"), std::string::npos);
    EXPECT_REFUSED("registration.challenge", parse_register_request(written(*lower).c_str()));
}

TEST(ParseRegisterRequest, TakesAChallengeOfTypesAlone)
{
    const RequestPtr lower = parsed(R"(,"handshake_challenge":{"t":["A","B"]})");
    ASSERT_NE(lower, nullptr);
    EXPECT_EQ(parameters(lower->handshake_challenge), (Parameters{{"t", {"A", "B"}}}));
    for (const char* challenge : {R"({"T":"A"})",
                                  R"({"T":["A"],"V":["x"]})",
                                  R"({"T":["A"],"t":["B"]})",
                                  R"({"T":[]})",
                                  "{}",
                                  R"({"T":null})",
                                  R"({"T":{"A":"B"}})",
                                  R"({"T":7})",
                                  R"({"T":true})",
                                  R"({"T":["A",null]})",
                                  R"({"T":["A",7]})",
                                  R"({"T":[["A"]]})",
                                  R"({"V":["A"]})",
                                  R"({"TT":["A"]})",
                                  R"({"":["A"]})",
                                  R"({"T\u0000":["A"]})",
                                  R"(["T"])",
                                  R"("T")",
                                  "7",
                                  "true",
                                  "[]"})
    {
        SCOPED_TRACE(challenge);
        EXPECT_NE(parsed(R"(,"handshake_challenge":{"T":["A"]})"), nullptr);
        EXPECT_REFUSED("registration.challenge",
                       parsed(std::string{R"(,"handshake_challenge":)"} + challenge));
        EXPECT_STREQ(lastRefusal().subject, "handshake_challenge");
    }
    const RequestPtr without = parsed(R"(,"handshake_challenge":null)");
    ASSERT_NE(without, nullptr);
    EXPECT_EQ(without->handshake_challenge, nullptr);
}

TEST(ParseRegisterRequest, TakesHandshakeTypesAsStrings)
{
    for (const char* types : {R"("A")", "{}", "7", "true", "[null]", R"(["A",7])", R"([["A"]])"})
    {
        SCOPED_TRACE(types);
        EXPECT_NE(parsed(R"(,"handshake_types":["A"])"), nullptr);
        EXPECT_REFUSED("registration.handshake-types",
                       parsed(std::string{R"(,"handshake_types":)"} + types));
        EXPECT_STREQ(lastRefusal().subject, "handshake_types");
    }
    for (const char* types : {"null", "[]"})
    {
        SCOPED_TRACE(types);
        const RequestPtr request = parsed(std::string{R"(,"handshake_types":)"} + types);
        ASSERT_NE(request, nullptr);
        EXPECT_EQ(request->handshake_types, nullptr);
    }
}

TEST(ParseRegisterRequest, TakesKeysThatAreNoListAsAbsent)
{
    for (const char* jwks :
         {"null", "[]", "7", "\"x\"", "true", "{}", R"([{"dfs":[1]}])",
          R"({"dfs":null,"software_id_cert":null})", R"({"dfs":[],"software_id_cert":[]})",
          R"({"dfs":"x","software_id_cert":"x"})", R"({"dfs":{},"software_id_cert":{"a":1}})",
          R"({"dfs":7,"software_id_cert":true})"})
    {
        SCOPED_TRACE(jwks);
        const RequestPtr request = parsed(std::string{R"(,"jwks":)"} + jwks);
        ASSERT_NE(request, nullptr);
        EXPECT_EQ(request->dfs, nullptr);
        EXPECT_EQ(request->software_id_cert, nullptr);
    }
}

TEST(ParseRegisterRequest, RefusesKeysThatAreNoObjects)
{
    for (const char* name : {"dfs", "software_id_cert"})
    {
        const std::string before = std::string{R"(,"jwks":{")"} + name + R"(":[{"a":"b"},)";
        EXPECT_NE(parsed(before + R"({"a":"b"}]})"), nullptr);
        for (const char* element : {"1", "null", "\"x\"", "[]", "true", R"(["x"])"})
        {
            SCOPED_TRACE(element);
            EXPECT_REFUSED("registration.keys", parsed(before + element + "]}"));
            EXPECT_STREQ(lastRefusal().subject, name);
            EXPECT_EQ(lastRefusal().index, 1);
        }
    }
}

TEST(ParseRegisterRequest, RefusesKeysWithMembersOfOtherTypes)
{
    for (const std::string& value : jsonValuesOfEveryType())
    {
        SCOPED_TRACE(value);
        const char* const rule = value.starts_with('"') ? "accepted" : "registration.keys";
        EXPECT_REFUSED(rule, parsed(R"(,"jwks":{"dfs":[{"kty":"DFS","a":)" + value + "}]}"));
        if (!value.starts_with('['))
        {
            EXPECT_REFUSED(
                rule, parsed(R"(,"jwks":{"software_id_cert":[{"kty":"EC","a":)" + value + "}]}"));
        }
    }
    for (const char* array : {"[1]", "[null]", R"(["x",1])", R"([["x"]])", R"([{"x":"y"}])"})
    {
        SCOPED_TRACE(array);
        const std::string before = R"(,"jwks":{"software_id_cert":[{"a":)";
        EXPECT_NE(parsed(before + R"(["x"]}]})"), nullptr);
        EXPECT_REFUSED("registration.keys", parsed(before + array + "}]}"));
    }
}

TEST(ParseRegisterRequest, DropsAListOfWhichAKeyHasNoCopy)
{
    for (const char* jwks : {R"({"dfs":[{"a":"b"},{}]})", R"({"software_id_cert":[{"a":"b"},{}]})",
                             R"({"software_id_cert":[{"a":"b","x5c":[]}]})"})
    {
        SCOPED_TRACE(jwks);
        const RequestPtr request = parsed(std::string{R"(,"jwks":)"} + jwks);
        ASSERT_NE(request, nullptr);
        EXPECT_EQ(request->dfs, nullptr);
        EXPECT_EQ(request->software_id_cert, nullptr);
    }
}

TEST(ParseRegisterRequest, EndsTextsAtAZeroByteButNotTheNamesItLooksFor)
{
    const RequestPtr request = parsed(
        R"(,"redirect_uri":["a\u0000b","\u0000"],"handshake_types":["gr\u00fcn","\ud83d\ude00"],)"
        R"("handshake_challenge":{"T":["x\u0000y"]},"jwks\u0000":{"dfs":[1]},"client_name\u0000":7,)"
        "\"jwks\":{\"dfs\":[{\"k\":\"v\\u0000\",\"k\\u0000x\":\"w\",\"l\\u0000\":7}],"
        "\"software_id_cert\":[{\"\xC3\xBC\":[\"\xFF\"],\"x5c\\u0000\":[\"A\"]}]}");
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(texts(request->redirect_uri), (std::vector<std::string>{"a", ""}));
    EXPECT_EQ(texts(request->handshake_types),
              (std::vector<std::string>{"gr\xC3\xBCn", "\xF0\x9F\x98\x80"}));
    EXPECT_EQ(parameters(request->handshake_challenge), (Parameters{{"T", {"x"}}}));
    EXPECT_EQ(keys(request->dfs), (std::vector<Pairs>{{{"k", "v"}}}));
    EXPECT_EQ(certificates(request->software_id_cert),
              (std::vector<Parameters>{{{"\xC3\xBC", {"\xFF"}}}}));
    EXPECT_STREQ(request->client_name, "n");
}

TEST(ParseRegisterRequest, RefusesHostileTexts)
{
    EXPECT_REFUSED("argument.null", parse_register_request(nullptr));
    EXPECT_REFUSED("argument.null", client_register(nullptr));
    EXPECT_REFUSED("argument.null", parse_register_response(nullptr));
    EXPECT_REFUSED("argument.null", parse_oidc_register_response(nullptr));
    const auto refuses = [](const HostileText& hostile, const std::string& rule) {
        SCOPED_TRACE(hostile.name);
        EXPECT_REFUSED(rule, RequestPtr{parse_register_request(hostile.text.c_str())});
        EXPECT_REFUSED(rule, HeapText{client_register(hostile.text.c_str())});
    };
    for (const HostileText& hostile : hostileTexts())
    {
        refuses(hostile, hostileRule(hostile.name));
    }
    for (const HostileText& odd : oddObjects())
    {
        refuses(odd, "registration.redirect-uri");
    }
    EXPECT_NE(parsed(",\"deep\":" + nestedMember("a", 254)), nullptr);
    EXPECT_REFUSED("json.nesting", parsed(",\"deep\":" + nestedMember("a", 255)));
}

TEST(ParseRegisterRequest, ReadsLongLists)
{
    std::string uris = R"(,"redirect_uri":["u")";
    std::string dfs = R"(,"jwks":{"dfs":[{"k":"v"})";
    for (int i = 0; i < 10000; ++i)
    {
        uris += R"(,"https://client/")";
        dfs += R"(,{"k":"v"})";
    }
    const RequestPtr request = parsed(uris + "]" + dfs + "]}");
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(texts(request->redirect_uri).size(), 10001U);
    EXPECT_EQ(keys(request->dfs).size(), 10001U);
}

TEST(ParseRegisterRequest, NeverGivesAPartOfItsTextsWithoutMemory)
{
    unsigned int refused = 0;
    withEachAllocationFailing([&](auto& failure) {
        const RequestPtr request{parse_register_request(fullText)};
        const bool failed = failure.reached();
        if (!request)
        {
            EXPECT_TRUE(failed);
            ++refused;
            return;
        }
        EXPECT_EQ(orNull(request->client_name), "name");
        EXPECT_EQ(orNull(request->software_id), "software");
        if (!failed)
        {
            EXPECT_EQ(written(*request), fullText);
        }
    });
    EXPECT_GT(refused, 50U);
}

TEST(WriteRegisterRequest, WritesEveryField)
{
    const RequestPtr request = fullRequest();
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(written(*request), fullText);
    TextList uris{"x"};
    request->redirect_uris = set_char_array(uris);
    request->scope = strdup("read write");
    EXPECT_EQ(written(*request),
              R"({"client_name":"name","handshake_challenge":{"T":["type-1.0"]},)"
              R"("handshake_types":["type-1.0","software_id_cert-1.0"],)"
              R"("jwks":{"dfs":[{"dfs":"YWJj","kty":"DFS"},{"kty":"EC"}],)"
              R"("software_id_cert":[{"kty":"EC","x5c":["MIIB"]},{"x5c":["MIIC","MIID"]}]},)"
              R"("redirect_uri":["https://a/","https://b/"],"redirect_uris":["x"],)"
              R"("scope":"read write","software_id":"software"})");
}

TEST(WriteRegisterRequest, LeavesOutWhatIsAbsentOrAnEmptyArray)
{
    RegisterRequest request{};
    EXPECT_EQ(written(request), "{}");
    TextList none{};
    request.redirect_uri = none;
    request.redirect_uris = none;
    request.handshake_types = none;
    EXPECT_EQ(written(request), "{}");
    TextList texts{"", "x"};
    request.scope = static_cast<char**>(texts)[0];
    request.redirect_uri = texts;
    EXPECT_EQ(written(request), R"({"redirect_uri":["","x"],"scope":""})");
    EXPECT_REFUSED("argument.null", write_register_request(nullptr));
}

TEST(WriteRegisterRequest, WritesEitherListOfKeysAlone)
{
    RegisterRequest request{};
    Key key{{"a", "1"}, {"b", "2"}, {"c", "3"}};
    static_cast<jwk*>(key)[2].value = nullptr;
    std::array<jwk*, 2> dfs = {key, nullptr};
    request.dfs = dfs.data();
    EXPECT_EQ(written(request), R"({"jwks":{"dfs":[{"a":"1","b":"2"}]}})");
    request.dfs = nullptr;
    ParameterList certificate{
        {"x5c", {"A"}}, {"X5C", {"A"}}, {"n", {"A", "B"}}, {"e", {}}, {"f", {"g"}}};
    std::array<HandshakePayload*, 2> software = {certificate, nullptr};
    request.software_id_cert = software.data();
    EXPECT_EQ(written(request),
              R"({"jwks":{"software_id_cert":[{"X5C":"A","f":"g","n":["A","B"],"x5c":["A"]}]}})");
    dfs[0] = nullptr;
    software[0] = nullptr;
    request.dfs = dfs.data();
    EXPECT_EQ(written(request), R"({"jwks":{"dfs":[],"software_id_cert":[]}})");
}

TEST(WriteRegisterRequest, WritesOnlyAnExactTAsAnArray)
{
    RegisterRequest request{};
    ParameterList challenge{{"T", {"a"}}, {"t", {"a"}}, {"V", {"x"}}, {"M", {"1", "2"}}};
    request.handshake_challenge = challenge;
    EXPECT_EQ(written(request),
              R"({"handshake_challenge":{"M":["1","2"],"T":["a"],"V":"x","t":"a"}})");
    static_cast<HandshakePayload*>(challenge)[1].values = nullptr;
    EXPECT_EQ(written(request), R"({"handshake_challenge":{"T":["a"]}})");
    ParameterList valueless{{"T", {}}, {"V", {}}, {"X", {"x"}}};
    request.handshake_challenge = valueless;
    EXPECT_EQ(written(request), R"({"handshake_challenge":{"T":[],"X":"x"}})");
    ParameterList empty{};
    request.handshake_challenge = empty;
    EXPECT_EQ(written(request), R"({"handshake_challenge":{}})");
}

TEST(WriteRegisterRequest, IsReadBack)
{
    plantRefusal();
    const RequestPtr request{parse_register_request(fullText)};
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(written(*request), fullText);
    EXPECT_TRUE(isPlantedRefusal());
}

TEST(WriteRegisterRequest, GivesNullWhicheverAllocationFails)
{
    const RequestPtr request = fullRequest();
    ASSERT_NE(request, nullptr);
    withEachAllocationFailing([&](auto& failure) {
        const HeapText text{write_register_request(request.get())};
        const bool failed = failure.reached();
        EXPECT_EQ(orNull(text.get()), failed ? "(null)" : fullText);
    });
}

TEST(ClientRegister, GivesNullForEveryRequest)
{
    ASSERT_NE(RequestPtr{parse_register_request(fullText)}, nullptr);
    EXPECT_REFUSED("registration.challenge", client_register(fullText));
    EXPECT_STREQ(lastRefusal().subject, "handshake_challenge");
    EXPECT_REFUSED("registration.redirect-uri", client_register("{}"));
    withEachAllocationFailing([](auto& failure) {
        const HeapText text{client_register(fullText)};
        (void)failure.reached();
        EXPECT_EQ(text, nullptr);
    });
}

TEST(ClientRegister, LeavesErrnoAlone)
{
    errno = EXDEV;
    EXPECT_REFUSED("registration.challenge", client_register(fullText));
    EXPECT_REFUSED("json.syntax", parse_register_request("{"));
    EXPECT_EQ(errno, EXDEV);
}

} // namespace
