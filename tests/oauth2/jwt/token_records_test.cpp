// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/hostile.hpp"
#include "support/machine.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"
#include "support/tokens.hpp"

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

using namespace support;
using tokens::base64Url;
using tokens::json;

namespace
{

constexpr std::time_t now = 1700000000;

/** What a child process reports: a failed allocation, and the outcome that it must have. */
constexpr int asPromised = 10;
/** The exit status of the fail-fast allocation. */
constexpr int endedAtOnce = 255;

char* copy(const char* text)
{
    return text == nullptr ? nullptr : strdup(text);
}

/** An array of two entries, "first" with two values and "second" with none, as a caller makes it.
 */
JWTscopes* twoScopes()
{
    auto* scopes = static_cast<JWTscopes*>(std::calloc(2, sizeof(JWTscopes)));
    auto** values = static_cast<char**>(std::calloc(2, sizeof(char*)));
    values[0] = copy("a");
    values[1] = copy("b");
    scopes[0] = {copy("first"), values, 2};
    scopes[1] = {copy("second"), nullptr, 0};
    return scopes;
}

/** Owns two entries that nobody has taken over. */
struct ScopesReleaser
{
    void operator()(JWTscopes* scopes) const
    {
        free_jwt_scopes(scopes, 2);
        std::free(scopes);
    }
};
using TwoScopes = std::unique_ptr<JWTscopes, ScopesReleaser>;

tokens::Payload plainPayload(const char* iat, const char* nbf, const char* exp)
{
    return tokens::Payload{create_jwt_payload("user", "id-1", "issuer", iat, nbf, exp, nullptr, 0)};
}

/** A token of these JSON texts, with a text that is not a signature. */
std::string tokenOf(std::string_view header, std::string_view payload)
{
    return base64Url(header) + "." + base64Url(payload) + ".nosignature";
}

/** What @p read makes of @p token, which it must refuse by @p rule unless that is "accepted". */
template <typename Owner, typename Record>
Owner recordOf(int (*read)(const char*, Record**), const std::string& token,
               const std::string& rule)
{
    Record* record = nullptr;
    EXPECT_EQ(ruleOf([&] { return read(token.c_str(), &record); }), rule);
    EXPECT_EQ(record != nullptr, rule == "accepted");
    return Owner{record};
}

tokens::Header headerOf(const std::string& token, const std::string& rule = "accepted")
{
    return recordOf<tokens::Header>(get_jwt_header, token, rule);
}

tokens::Header headerOfJson(std::string_view json, const std::string& rule = "accepted")
{
    return headerOf(tokenOf(json, "{}"), rule);
}

tokens::Payload payloadOf(const std::string& token, const std::string& rule = "accepted")
{
    return recordOf<tokens::Payload>(get_jwt_payload, token, rule);
}

tokens::Payload payloadOfJson(std::string_view json, const std::string& rule = "accepted")
{
    return payloadOf(tokenOf("{}", json), rule);
}

/** Runs @p read in child processes, the first allocation failing, then the second and so on until
 *  none fails any more: it must say 0 and leave its record null, or end the process at once.
 *  Returns how often it ended. */
template <typename Record>
int timesEnded(int (*read)(const char*, Record**), const std::string& token)
{
    int ended = 0;
    int status = asPromised;
    for (unsigned int nth = 1; status != 0; ++nth)
    {
        status = exitStatusOf([&] {
            Record* record = nullptr;
            FailAllocation failure{nth};
            const int result = read(token.c_str(), &record);
            if (failure.reached())
            {
                _exit(result == 0 && record == nullptr ? asPromised : 1);
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
    return ended;
}

} // namespace

TEST(CreateJwtHeader, CopiesItsTexts)
{
    std::string typ = "JWT";
    std::string alg = "ES256";
    std::string kid = "key-1";
    const tokens::Header header{create_jwt_header(typ.c_str(), alg.c_str(), kid.c_str())};
    ASSERT_NE(header, nullptr);
    typ[0] = alg[0] = kid[0] = '?';
    EXPECT_STREQ(header->typ, "JWT");
    EXPECT_STREQ(header->alg, "ES256");
    EXPECT_STREQ(header->kid, "key-1");
}

TEST(CreateJwtHeader, LeavesKidNull)
{
    const tokens::Header header{create_jwt_header("JWT", "ES256", nullptr)};
    ASSERT_NE(header, nullptr);
    EXPECT_STREQ(header->typ, "JWT");
    EXPECT_STREQ(header->alg, "ES256");
    EXPECT_EQ(header->kid, nullptr);
}

TEST(CreateJwtHeader, NeedsTypAndAlg)
{
    EXPECT_REFUSED("argument.null", create_jwt_header(nullptr, "ES256", "key-1"));
    EXPECT_STREQ(lastRefusal().subject, "typ");
    EXPECT_REFUSED("argument.null", create_jwt_header("JWT", nullptr, "key-1"));
    EXPECT_STREQ(lastRefusal().subject, "alg");
    EXPECT_REFUSED("argument.null", create_jwt_header(nullptr, nullptr, nullptr));
}

TEST(CreateJwtHeader, GivesNullWhicheverAllocationFails)
{
    withEachAllocationFailing([](FailAllocation& failure) {
        const tokens::Header header{create_jwt_header("JWT", "ES256", nullptr)};
        EXPECT_EQ(header == nullptr, failure.reached());
    });
}

TEST(CreateJwtHeader, EndsTheProcessWhenMemoryRunsOutForKid)
{
    const auto create = [](unsigned int nth) {
        return exitStatusOf([nth] {
            FailAllocation failure{nth};
            const tokens::Header header{create_jwt_header("JWT", "ES256", "key-1")};
            if (failure.reached())
            {
                _exit(header == nullptr ? asPromised : 1);
            }
        });
    };
    EXPECT_EQ(create(1), asPromised);
    EXPECT_EQ(create(2), asPromised);
    EXPECT_EQ(create(3), asPromised);
    EXPECT_EQ(create(4), endedAtOnce);
    EXPECT_EQ(create(5), 0);
}

TEST(FreeJwtHeader, ReleasesIncompleteHeadersAndNull)
{
    free_jwt_header(nullptr);
    auto* header = static_cast<JWTHeader*>(std::calloc(1, sizeof(JWTHeader)));
    ASSERT_NE(header, nullptr);
    header->kid = copy("key-1");
    free_jwt_header(header);
}

TEST(CreateJwtPayload, PutsEachTextIntoItsField)
{
    const FakeClock clock{now};
    const tokens::Payload payload{create_jwt_payload("user", "id-1", "issuer", "1699999999",
                                                     "1699999998", "1700003600", nullptr, 0)};
    ASSERT_NE(payload, nullptr);
    EXPECT_STREQ(payload->sub, "user");
    EXPECT_STREQ(payload->jti, "id-1");
    EXPECT_STREQ(payload->iss, "issuer");
    EXPECT_STREQ(payload->iat, "1699999999");
    EXPECT_STREQ(payload->nbf, "1699999998");
    EXPECT_STREQ(payload->exp, "1700003600");
    EXPECT_EQ(payload->aud, nullptr);
    EXPECT_EQ(payload->xidp, nullptr);
    EXPECT_EQ(payload->act, nullptr);
    EXPECT_EQ(payload->ravok_roles, nullptr);
    EXPECT_EQ(payload->scope, nullptr);
    EXPECT_EQ(payload->scopes, nullptr);
    EXPECT_EQ(payload->scopes_count, 0);
}

TEST(CreateJwtPayload, KeepsTextsThatAreNoTimes)
{
    const FakeClock clock{now};
    const tokens::Payload payload = plainPayload("soon", "0x10", "never");
    ASSERT_NE(payload, nullptr);
    EXPECT_STREQ(payload->iat, "soon");
    EXPECT_STREQ(payload->nbf, "0x10");
    EXPECT_STREQ(payload->exp, "never");
}

TEST(CreateJwtPayload, DatesATokenWithTheCurrentTime)
{
    const FakeClock clock{now};
    const tokens::Payload undated = plainPayload(nullptr, nullptr, "1700003600");
    ASSERT_NE(undated, nullptr);
    EXPECT_STREQ(undated->iat, "1700000000");
    EXPECT_STREQ(undated->nbf, "1700000000");
    EXPECT_STREQ(undated->exp, "1700003600");
    const tokens::Payload withNbf = plainPayload(nullptr, "5", "1700003600");
    ASSERT_NE(withNbf, nullptr);
    EXPECT_STREQ(withNbf->iat, "1700000000");
    EXPECT_STREQ(withNbf->nbf, "5");
    const tokens::Payload withIat = plainPayload("5", nullptr, "1700003600");
    ASSERT_NE(withIat, nullptr);
    EXPECT_STREQ(withIat->iat, "5");
    EXPECT_STREQ(withIat->nbf, "1700000000");
}

TEST(CreateJwtPayload, RefusesAnUndatedTokenThatExpiresThisVerySecond)
{
    const FakeClock clock{now};
    EXPECT_REFUSED("token.expires-now", plainPayload(nullptr, nullptr, "1700000000"));
    EXPECT_REFUSED("token.expires-now", plainPayload(nullptr, "5", "1700000000"));
    EXPECT_REFUSED("token.expires-now",
                   plainPayload(nullptr, nullptr, "0x6553F100")); // the same number
    EXPECT_REFUSED("token.expires-now", plainPayload(nullptr, nullptr, "014524770400"));
    EXPECT_NE(plainPayload(nullptr, nullptr, "1699999999"), nullptr);
    EXPECT_NE(plainPayload(nullptr, nullptr, "1700000001"), nullptr);
    EXPECT_NE(plainPayload(nullptr, nullptr, "0"), nullptr);
}

TEST(CreateJwtPayload, AcceptsADatedTokenThatExpiresThisVerySecond)
{
    const FakeClock clock{now};
    EXPECT_NE(plainPayload("1700000000", nullptr, "1700000000"), nullptr);
}

TEST(CreateJwtPayload, TakesTheScopesOver)
{
    const FakeClock clock{now};
    JWTscopes* const scopes = twoScopes();
    const tokens::Payload payload{
        create_jwt_payload("user", "id-1", "issuer", nullptr, nullptr, "1", scopes, 2)};
    ASSERT_NE(payload, nullptr);
    EXPECT_EQ(payload->scopes, scopes);
    EXPECT_EQ(payload->scopes_count, 2);
    EXPECT_STREQ(payload->scopes[0].values[1], "b");
}

TEST(CreateJwtPayload, TakesNoScopesWithoutBothArrayAndCount)
{
    const FakeClock clock{now};
    const tokens::Payload withoutArray{
        create_jwt_payload("user", "id-1", "issuer", nullptr, nullptr, "1", nullptr, 3)};
    ASSERT_NE(withoutArray, nullptr);
    EXPECT_EQ(withoutArray->scopes, nullptr);
    EXPECT_EQ(withoutArray->scopes_count, 0);

    const TwoScopes scopes{twoScopes()};
    const tokens::Payload withoutCount{
        create_jwt_payload("user", "id-1", "issuer", nullptr, nullptr, "1", scopes.get(), 0)};
    ASSERT_NE(withoutCount, nullptr);
    EXPECT_EQ(withoutCount->scopes, nullptr);
    EXPECT_EQ(withoutCount->scopes_count, 0);
    EXPECT_STREQ(scopes.get()[0].name, "first");
}

TEST(CreateJwtPayload, TakesAnArrayWithANegativeCountOver)
{
    const FakeClock clock{now};
    auto* const scopes = static_cast<JWTscopes*>(std::calloc(1, sizeof(JWTscopes)));
    ASSERT_NE(scopes, nullptr);
    // A leak check sees whether the array is released with the payload.
    const tokens::Payload payload{
        create_jwt_payload("user", "id-1", "issuer", nullptr, nullptr, "1", scopes, -1)};
    ASSERT_NE(payload, nullptr);
    EXPECT_EQ(payload->scopes, scopes);
    EXPECT_EQ(payload->scopes_count, -1);
}

TEST(CreateJwtPayload, NeedsEveryTextButThoseOfTheClock)
{
    const FakeClock clock{now};
    const TwoScopes scopes{twoScopes()};
    EXPECT_NE(plainPayload(nullptr, nullptr, "1"), nullptr);
    EXPECT_REFUSED("argument.null",
                   create_jwt_payload(nullptr, "id", "iss", "1", "1", "1", scopes.get(), 2));
    EXPECT_STREQ(lastRefusal().subject, "sub");
    EXPECT_REFUSED("argument.null",
                   create_jwt_payload("sub", nullptr, "iss", "1", "1", "1", scopes.get(), 2));
    EXPECT_STREQ(lastRefusal().subject, "jti");
    EXPECT_REFUSED("argument.null",
                   create_jwt_payload("sub", "id", nullptr, "1", "1", "1", scopes.get(), 2));
    EXPECT_STREQ(lastRefusal().subject, "iss");
    EXPECT_REFUSED("argument.null",
                   create_jwt_payload("sub", "id", "iss", "1", "1", nullptr, scopes.get(), 2));
    EXPECT_STREQ(lastRefusal().subject, "exp");
    EXPECT_STREQ(scopes.get()[0].name, "first");
    EXPECT_STREQ(scopes.get()[0].values[1], "b");
}

TEST(CreateJwtPayload, GivesNullWhenTheClockCannotBeRead)
{
    FakeClock clock{now};
    EXPECT_NE(plainPayload("1", "1", "1"), nullptr);
    clock.failBreakingDown();
    EXPECT_REFUSED("clock.unreadable", plainPayload("1", "1", "1"));
    EXPECT_REFUSED("clock.unreadable", plainPayload(nullptr, nullptr, "1"));
}

TEST(CreateJwtPayload, GivesNullWhicheverAllocationFails)
{
    const FakeClock clock{now};
    const TwoScopes scopes{twoScopes()};
    withEachAllocationFailing([&](FailAllocation& failure) {
        tokens::Payload payload{create_jwt_payload("user", "id-1", "issuer", nullptr, nullptr,
                                                   "1700003600", scopes.get(), 2)};
        EXPECT_EQ(payload == nullptr, failure.reached());
        if (payload)
        {
            payload->scopes = nullptr; // the test's own again
        }
        EXPECT_STREQ(scopes.get()[0].values[0], "a");
    });
}

TEST(CreateJwtPayload, LeavesErrnoAlone)
{
    const FakeClock clock{now};
    errno = EDOM;
    const tokens::Payload payload = plainPayload(nullptr, nullptr, "99999999999999999999999");
    EXPECT_EQ(errno, EDOM);
    EXPECT_NE(payload, nullptr);
}

TEST(FreeJwtScopes, ReleasesTheEntriesAndKeepsTheArray)
{
    JWTscopes* const scopes = twoScopes();
    free_jwt_scopes(scopes, 2);
    EXPECT_EQ(scopes[0].name, nullptr);
    EXPECT_EQ(scopes[0].values, nullptr);
    EXPECT_EQ(scopes[1].name, nullptr);
    EXPECT_EQ(scopes[1].values, nullptr);
    free_jwt_scopes(scopes, 2);
    std::free(scopes);
}

TEST(FreeJwtScopes, ReleasesOnlyTheCountedEntries)
{
    const TwoScopes scopes{twoScopes()};
    free_jwt_scopes(scopes.get(), 0);
    free_jwt_scopes(scopes.get(), -1);
    EXPECT_STREQ(scopes.get()[0].name, "first");
    EXPECT_STREQ(scopes.get()[0].values[0], "a");
    free_jwt_scopes(scopes.get(), 1);
    EXPECT_EQ(scopes.get()[0].name, nullptr);
    EXPECT_STREQ(scopes.get()[1].name, "second");
}

TEST(FreeJwtScopes, SkipsNullValues)
{
    const TwoScopes scopes{twoScopes()};
    std::free(scopes.get()[0].values[0]);
    scopes.get()[0].values[0] = nullptr;
    free_jwt_scopes(scopes.get(), 2);
    EXPECT_EQ(scopes.get()[0].values, nullptr);
}

TEST(FreeJwtScopes, DoesNothingForNull)
{
    free_jwt_scopes(nullptr, 3);
    free_jwt_scopes(nullptr, 0);
}

TEST(FreeJwtPayload, ReleasesEveryFieldAndNull)
{
    free_jwt_payload(nullptr);
    auto* payload = static_cast<JWTPayload*>(std::calloc(1, sizeof(JWTPayload)));
    ASSERT_NE(payload, nullptr);
    free_jwt_payload(payload);

    // That all of it goes is seen by the leak checkers.
    payload = static_cast<JWTPayload*>(std::calloc(1, sizeof(JWTPayload)));
    ASSERT_NE(payload, nullptr);
    for (char** field : {&payload->jti, &payload->sub, &payload->iss, &payload->iat, &payload->exp,
                         &payload->nbf, &payload->xidp, &payload->act})
    {
        *field = copy("text");
    }
    for (char*** field : {&payload->aud, &payload->ravok_roles, &payload->scope})
    {
        *field = set_char_array(TextList{"one", "two"});
    }
    payload->scopes = twoScopes();
    payload->scopes_count = 2;
    free_jwt_payload(payload);
}

TEST(PrintJwtScopes, DoesNothing)
{
    const JournalEntries journal;
    const TwoScopes scopes{twoScopes()};
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    print_jwt_scopes(scopes.get(), 2);
    print_jwt_scopes(nullptr, 2);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(journal.all().empty());
    EXPECT_STREQ(scopes.get()[0].values[1], "b");
}

TEST(GetJwtHeader, ReadsTheHeaderAlone)
{
    const std::string part = base64Url(R"({"alg":"ES256","kid":"key-1","typ":"JWT"})");
    for (const char* rest : {".e30.c2ln", ".!!!.!!!", "..", "...."})
    {
        SCOPED_TRACE(rest);
        const tokens::Header header = headerOf(part + rest);
        ASSERT_NE(header, nullptr);
        EXPECT_STREQ(header->typ, "JWT");
        EXPECT_STREQ(header->alg, "ES256");
        EXPECT_STREQ(header->kid, "key-1");
    }
}

// The header of the example in RFC 7515, appendix A.3.1.
TEST(GetJwtHeader, ReadsAForeignHeader)
{
    const tokens::Header header = headerOf("eyJhbGciOiJFUzI1NiJ9.e30.c2ln");
    ASSERT_NE(header, nullptr);
    EXPECT_STREQ(header->alg, "ES256");
    EXPECT_EQ(header->typ, nullptr);
    EXPECT_EQ(header->kid, nullptr);
}

TEST(GetJwtHeader, NeedsAlgOnly)
{
    EXPECT_NE(headerOfJson(R"({"alg":""})"), nullptr);
    headerOfJson(R"({"typ":"JWT","kid":"key-1"})", "token.member");
    EXPECT_STREQ(lastRefusal().subject, "alg");
    headerOfJson("{}", "token.member");
}

TEST(GetJwtHeader, TakesStringsOnly)
{
    for (const std::string& value : jsonValuesOfEveryType())
    {
        SCOPED_TRACE(value);
        const bool isString = value.starts_with('"');
        headerOfJson(R"({"alg":)" + value + "}", isString ? "accepted" : "token.member");
        const tokens::Header header =
            headerOfJson(json({{"alg", R"("ES256")"}, {"typ", value}, {"kid", value}}));
        EXPECT_EQ(header->typ != nullptr, isString);
        EXPECT_EQ(header->kid != nullptr, isString);
    }
}

TEST(GetJwtHeader, ReadsJsonAsEverywhere)
{
    EXPECT_STREQ(headerOfJson(R"({"alg":"a","alg":"b"})")->alg, "b");
    EXPECT_STREQ(headerOfJson(R"({"alg":"a"} trailing)")->alg, "a");
    EXPECT_STREQ(headerOfJson(R"(/* comment */ {"alg":"a"})")->alg, "a");
    EXPECT_STREQ(headerOfJson(R"({"alg":"a\u0000b"})")->alg, "a");
    EXPECT_STREQ(headerOfJson(nestedMember("x", 200).insert(1, R"("alg":"a",)"))->alg, "a");
}

TEST(GetJwtHeader, FailsForWhatIsNoToken)
{
    JWTHeader* header = nullptr;
    const std::string part = base64Url(R"({"alg":"ES256"})");
    ASSERT_EQ(get_jwt_header((part + ".e30.").c_str(), &header), 1);
    free_jwt_header(header);

    header = nullptr;
    EXPECT_REFUSED("argument.null", get_jwt_header(nullptr, &header));
    EXPECT_STREQ(lastRefusal().subject, "token");
    EXPECT_REFUSED("argument.null", get_jwt_header((part + ".e30.").c_str(), nullptr));
    EXPECT_STREQ(lastRefusal().subject, "header");
    for (const auto& [token, rule] : {std::pair{std::string{}, "token.parts"},
                                      {".", "token.parts"},
                                      {"..", "base64.malformed"},
                                      {"...", "base64.malformed"},
                                      {part, "token.parts"},
                                      {part + ".", "token.parts"},
                                      {part + ".e30", "token.parts"},
                                      {"." + part + ".e30", "base64.malformed"},
                                      {"!" + part + ".e30.", "base64.malformed"},
                                      {part + "=.e30.", "base64.malformed"},
                                      {base64Url("[]") + ".e30.", "json.root"},
                                      {base64Url("null") + ".e30.", "json.root"},
                                      {base64Url("{") + ".e30.", "json.syntax"}})
    {
        EXPECT_REFUSED(rule, get_jwt_header(token.c_str(), &header)) << token;
    }
    EXPECT_EQ(header, nullptr);
}

TEST(GetJwtHeader, FailsForHostileTexts)
{
    for (const HostileText& hostile : hostileTexts())
    {
        SCOPED_TRACE(hostile.name);
        headerOf(hostile.text, "token.parts");
        headerOfJson(hostile.text, tokens::hostilePartRule(hostile));
    }
    for (const HostileText& odd : oddObjects())
    {
        SCOPED_TRACE(odd.name);
        headerOfJson(odd.text,
                     base64Url(odd.text).size() > 98304 ? "base64.length" : "token.member");
    }
    headerOfJson(nestedMember("alg", 2000), "json.nesting");
}

TEST(GetJwtHeader, LimitsTheLengthOfTheEncodedHeader)
{
    // 73728 bytes are 98304 digits, and one byte more makes two digits more.
    std::string header = R"({"alg":"ES256"})";
    header.append(73728 - header.size(), ' ');
    EXPECT_EQ(base64Url(header).size(), 98304U);
    EXPECT_NE(headerOfJson(header), nullptr);
    headerOf(base64Url(header) + "=.e30.", "base64.length");
    headerOfJson(header + " ", "base64.length");
}

TEST(GetJwtHeader, FailsOrEndsTheProcessWhicheverAllocationFails)
{
    const std::string token = tokenOf(R"({"alg":"ES256","kid":"key-1","typ":"JWT"})", "{}");
    headerOf(token);                                 // what is made once for the process is made
    EXPECT_EQ(timesEnded(get_jwt_header, token), 1); // for the record
}

TEST(GetJwtPayload, ReadsThePayloadAlone)
{
    const std::string part = base64Url(R"({"sub":"user"})");
    for (const std::string& token : {"." + part + ".", "!." + part + ".c2ln", "." + part + "..."})
    {
        SCOPED_TRACE(token);
        const tokens::Payload payload = payloadOf(token);
        ASSERT_NE(payload, nullptr);
        EXPECT_STREQ(payload->sub, "user");
    }
}

// The payload of the example in RFC 7515, appendix A.1.1.
TEST(GetJwtPayload, ReadsAForeignPayload)
{
    const tokens::Payload payload = payloadOf(
        "e30.eyJpc3MiOiJqb2UiLA0KICJleHAiOjEzMDA4MTkzODAsDQogImh0dHA6Ly9leGFtcGxlLmNvbS9pc19yb290Ij"
        "p0cnVlfQ.c2ln");
    ASSERT_NE(payload, nullptr);
    EXPECT_STREQ(payload->iss, "joe");
    EXPECT_STREQ(payload->exp, "1300819380");
    EXPECT_EQ(payload->sub, nullptr);
}

TEST(GetJwtPayload, ReadsEveryClaim)
{
    const tokens::Payload payload = payloadOfJson(
        R"({"sub":"user","iss":"issuer","jti":"id-1","aud":["one","two"],"act":"actor",)"
        R"("iat":1700000000,"nbf":1700000001,"exp":1700003600,)"
        R"("xidp":{"corp":["L"],"*":["TA"]},"ravok_roles":["admin","guest"],"scope":"read write"})");
    ASSERT_NE(payload, nullptr);
    EXPECT_STREQ(payload->sub, "user");
    EXPECT_STREQ(payload->iss, "issuer");
    EXPECT_STREQ(payload->jti, "id-1");
    EXPECT_EQ(texts(payload->aud), (std::vector<std::string>{"one", "two"}));
    EXPECT_STREQ(payload->act, "actor");
    EXPECT_STREQ(payload->iat, "1700000000");
    EXPECT_STREQ(payload->nbf, "1700000001");
    EXPECT_STREQ(payload->exp, "1700003600");
    EXPECT_STREQ(payload->xidp, R"({"*":["TA"],"corp":["L"]})");
    EXPECT_EQ(texts(payload->ravok_roles), (std::vector<std::string>{"admin", "guest"}));
    EXPECT_EQ(texts(payload->scope), (std::vector<std::string>{"read", "write"}));
    EXPECT_EQ(payload->scopes, nullptr);
    EXPECT_EQ(payload->scopes_count, 0);
}

TEST(GetJwtPayload, LeavesMissingClaimsNull)
{
    const tokens::Payload payload = payloadOfJson("{}");
    ASSERT_NE(payload, nullptr);
    for (const char* field : {payload->jti, payload->sub, payload->iss, payload->iat, payload->exp,
                              payload->nbf, payload->xidp, payload->act})
    {
        EXPECT_EQ(field, nullptr);
    }
    EXPECT_EQ(payload->aud, nullptr);
    EXPECT_EQ(payload->ravok_roles, nullptr);
    EXPECT_EQ(payload->scope, nullptr);
    EXPECT_EQ(payload->scopes, nullptr);
    EXPECT_EQ(payload->scopes_count, 0);
}

TEST(GetJwtPayload, LeavesClaimsOfTheWrongTypeNull)
{
    for (const std::string& value : jsonValuesOfEveryType())
    {
        SCOPED_TRACE(value);
        const bool isString = value.starts_with('"');
        const tokens::Payload payload = payloadOfJson(json({{"sub", value},
                                                            {"iss", value},
                                                            {"jti", value},
                                                            {"act", value},
                                                            {"xidp", value},
                                                            {"aud", value},
                                                            {"ravok_roles", value}}));
        ASSERT_NE(payload, nullptr);
        EXPECT_EQ(payload->sub != nullptr, isString);
        EXPECT_EQ(payload->iss != nullptr, isString);
        EXPECT_EQ(payload->jti != nullptr, isString);
        EXPECT_EQ(payload->act != nullptr, isString);
        EXPECT_EQ(payload->xidp != nullptr, value.starts_with('{'));
        const bool holdsString = value == R"(["x"])";
        EXPECT_EQ(payload->aud != nullptr, isString || holdsString);
        EXPECT_EQ(payload->ravok_roles != nullptr, holdsString);
    }
}

TEST(GetJwtPayload, ReadsTheAudienceAsTextOrArray)
{
    const auto audience = [](const std::string& value) {
        return texts(payloadOfJson(R"({"aud":)" + value + "}")->aud);
    };
    EXPECT_EQ(audience(R"("one")"), (std::vector<std::string>{"one"}));
    EXPECT_EQ(audience(R"("one two")"), (std::vector<std::string>{"one two"}));
    EXPECT_EQ(audience(R"("")"), (std::vector<std::string>{""}));
    EXPECT_EQ(audience(R"(["one","two"])"), (std::vector<std::string>{"one", "two"}));
    EXPECT_EQ(audience(R"(["one",2,null,{},"two"])"), (std::vector<std::string>{"one", "two"}));
    EXPECT_EQ(payloadOfJson(R"({"aud":[]})")->aud, nullptr);
    EXPECT_EQ(payloadOfJson(R"({"aud":[1]})")->aud, nullptr);
    EXPECT_EQ(payloadOfJson(R"({"aud":5})")->aud, nullptr);
}

TEST(GetJwtPayload, ReadsRolesAsAnArrayOnly)
{
    EXPECT_EQ(texts(payloadOfJson(R"({"ravok_roles":["a",1,"b"]})")->ravok_roles),
              (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(payloadOfJson(R"({"ravok_roles":[]})")->ravok_roles, nullptr);
    EXPECT_EQ(payloadOfJson(R"({"ravok_roles":"a"})")->ravok_roles, nullptr);
}

TEST(GetJwtPayload, ReadsTimesAsNumberOrText)
{
    struct Time
    {
        const char* json;
        const char* text;
    };
    for (const auto& [value, text] : {
             Time{"1700000000", "1700000000"},
             Time{"0", "0"},
             Time{"4294967295", "4294967295"},
             Time{R"("soon")", "soon"},
             Time{R"("0x10")", "0x10"},
             Time{R"("4294967296")", "4294967296"},
             Time{R"("")", ""},
             // Numbers that no unsigned integer of 32 bits is, and other types: no claim.
             Time{"4294967296", nullptr},
             Time{"-1", nullptr},
             Time{"1700000000.0", nullptr},
             Time{"1e9", nullptr},
             Time{"true", nullptr},
             Time{"null", nullptr},
             Time{"[1700000000]", nullptr},
             Time{"{}", nullptr},
         })
    {
        SCOPED_TRACE(value);
        const tokens::Payload payload =
            payloadOfJson(json({{"iat", value}, {"nbf", value}, {"exp", value}}));
        ASSERT_NE(payload, nullptr);
        EXPECT_STREQ(payload->iat, text);
        EXPECT_STREQ(payload->nbf, text);
        EXPECT_STREQ(payload->exp, text);
    }
}

TEST(GetJwtPayload, SplitsAScopeTextAtSpaces)
{
    const auto scope = [](const std::string& value) {
        const tokens::Payload payload = payloadOfJson(R"({"scope":")" + value + R"("})");
        EXPECT_EQ(payload->scopes, nullptr);
        return texts(payload->scope);
    };
    EXPECT_EQ(scope("read"), (std::vector<std::string>{"read"}));
    EXPECT_EQ(scope("read write"), (std::vector<std::string>{"read", "write"}));
    EXPECT_EQ(scope("read\\twrite"), (std::vector<std::string>{"read\twrite"}));
    EXPECT_EQ(payloadOfJson(R"({"scope":""})")->scope, nullptr);
    EXPECT_EQ(payloadOfJson(R"({"scope":" "})")->scope, nullptr);
    EXPECT_EQ(payloadOfJson(R"({"scope":["read"]})")->scope, nullptr);
    EXPECT_EQ(payloadOfJson(R"({"scope":5})")->scope, nullptr);
}

TEST(GetJwtPayload, MakesAnEntryOfEachMemberOfAScopeObject)
{
    const tokens::Payload payload = payloadOfJson(R"({"scope":{"web":["rw"],"admin":["all"]}})");
    ASSERT_NE(payload, nullptr);
    EXPECT_EQ(payload->scope, nullptr);
    ASSERT_EQ(payload->scopes_count, 2);
    EXPECT_STREQ(payload->scopes[0].name, "admin");
    ASSERT_EQ(payload->scopes[0].count, 1);
    EXPECT_STREQ(payload->scopes[0].values[0], "all");
    EXPECT_STREQ(payload->scopes[1].name, "web");
    ASSERT_EQ(payload->scopes[1].count, 1);
    EXPECT_STREQ(payload->scopes[1].values[0], "rw");
}

TEST(GetJwtPayload, CountsOneScopeValueWhateverTheMemberHolds)
{
    struct Member
    {
        const char* json;
        const char* value;
    };
    for (const auto& [member, value] : {
             Member{R"(["one"])", "one"},
             Member{R"(["one","a second, longer value","three"])", "one"},
             Member{R"(["","two"])", ""},
             Member{R"([5,"two"])", "5"},
             Member{R"([true])", "true"},
             Member{R"(["a\u0000b","c"])", "a"},
             Member{"[]", nullptr},
             Member{R"("text")", nullptr},
             Member{R"({"a":"b"})", nullptr},
             Member{"null", nullptr},
             Member{"5", nullptr},
         })
    {
        SCOPED_TRACE(member);
        const tokens::Payload payload =
            payloadOfJson(std::string{R"({"scope":{"name":)"} + member + "}}");
        ASSERT_NE(payload, nullptr);
        ASSERT_EQ(payload->scopes_count, 1);
        EXPECT_STREQ(payload->scopes[0].name, "name");
        EXPECT_EQ(payload->scopes[0].count, 1);
        ASSERT_NE(payload->scopes[0].values, nullptr);
        EXPECT_STREQ(payload->scopes[0].values[0], value);
    }
}

TEST(GetJwtPayload, KeepsTheOtherScopeValuesBehindTheFirst)
{
    const tokens::Payload payload =
        payloadOfJson(R"({"scope":{"name":["one","a second, longer value","","four"]}})");
    ASSERT_NE(payload, nullptr);
    ASSERT_EQ(payload->scopes_count, 1);
    char** values = payload->scopes[0].values;
    EXPECT_STREQ(values[0], "one");
    EXPECT_STREQ(values[1], "a second, longer value");
    EXPECT_STREQ(values[2], "");
    EXPECT_STREQ(values[3], "four");
}

TEST(GetJwtPayload, FailsForAScopeValueThatIsNoText)
{
    payloadOfJson(R"({"scope":{"name":["one"]}})");
    payloadOfJson(R"({"scope":{"name":["one",{}]}})", "token.scope");
    EXPECT_STREQ(lastRefusal().subject, "scope");
    payloadOfJson(R"({"scope":{"name":[["one"]]}})", "token.scope");
}

TEST(GetJwtPayload, KeepsAnEmptyScopeObjectApartFromNone)
{
    const tokens::Payload payload = payloadOfJson(R"({"scope":{}})");
    ASSERT_NE(payload, nullptr);
    EXPECT_NE(payload->scopes, nullptr);
    EXPECT_EQ(payload->scopes_count, 0);
}

TEST(GetJwtPayload, ReadsAScopeObjectFromItsText)
{
    // Bytes that are not UTF-8 are written as U+FFFD.
    const tokens::Payload broken =
        payloadOfJson("{\"scope\":{\"n\xff\":[\"\xff\xc3\xa4\xc0\x80\"]}}");
    ASSERT_NE(broken, nullptr);
    ASSERT_EQ(broken->scopes_count, 1);
    EXPECT_STREQ(broken->scopes[0].name, "n\xEF\xBF\xBD");
    EXPECT_STREQ(broken->scopes[0].values[0], "\xEF\xBF\xBD\xC3\xA4\xEF\xBF\xBD");
    // A comment is part of the text. One of two slashes hides all that follows it, so that nothing
    // is left to read.
    const tokens::Payload kept = payloadOfJson(R"({"scope":{/*c*/"a":["x"]}})");
    ASSERT_NE(kept, nullptr);
    ASSERT_EQ(kept->scopes_count, 1);
    EXPECT_STREQ(kept->scopes[0].values[0], "x");
    const tokens::Payload hidden = payloadOfJson("{\"scope\":{//c\n\"a\":[\"x\"]//d\n,\"b\":[]}}");
    ASSERT_NE(hidden, nullptr);
    EXPECT_EQ(hidden->scopes, nullptr);
    EXPECT_EQ(hidden->scopes_count, 0);
    EXPECT_EQ(hidden->scope, nullptr);
}

// Cut at its zero byte, the name would be that of the rights that validateJWT_Delegated writes.
TEST(GetJwtPayload, PassesOverScopeNamesWithAZeroByte)
{
    const tokens::Payload payload =
        payloadOfJson(R"({"scope":{"USER_PRIV\u0000":["511"],"a\u0000":[{}],"web":["rw"]}})");
    ASSERT_NE(payload, nullptr);
    ASSERT_EQ(payload->scopes_count, 1);
    EXPECT_STREQ(payload->scopes[0].name, "web");
    EXPECT_STREQ(payload->scopes[0].values[0], "rw");
    const tokens::Payload none = payloadOfJson(R"({"scope":{"a\u0000":["b"]}})");
    ASSERT_NE(none, nullptr);
    EXPECT_NE(none->scopes, nullptr);
    EXPECT_EQ(none->scopes_count, 0);
}

TEST(GetJwtPayload, FailsForWhatIsNoToken)
{
    JWTPayload* payload = nullptr;
    const std::string part = base64Url(R"({"sub":"user"})");
    ASSERT_EQ(get_jwt_payload(("." + part + ".").c_str(), &payload), 1);
    free_jwt_payload(payload);

    payload = nullptr;
    EXPECT_REFUSED("argument.null", get_jwt_payload(nullptr, &payload));
    EXPECT_REFUSED("argument.null", get_jwt_payload(("." + part + ".").c_str(), nullptr));
    EXPECT_STREQ(lastRefusal().subject, "payload");
    for (const std::string& token : {std::string{}, std::string{"."}, part, "." + part, part + "."})
    {
        EXPECT_REFUSED("token.parts", get_jwt_payload(token.c_str(), &payload)) << token;
    }
    for (const auto& [second, rule] : {std::pair{std::string{}, "base64.malformed"},
                                       {"!" + part, "base64.malformed"},
                                       {"." + part, "base64.malformed"},
                                       {base64Url("[1]"), "json.root"},
                                       {base64Url("null"), "json.root"},
                                       {base64Url(R"({"sub":)"), "json.syntax"}})
    {
        EXPECT_REFUSED(rule, get_jwt_payload(("." + second + ".").c_str(), &payload)) << second;
    }
    EXPECT_EQ(payload, nullptr);
}

// jsoncpp takes the byte, and a record would end there: no JSON text holds one.
TEST(TokenReaders, FailForARawZeroByteWhereverItStands)
{
    const std::string header = R"({"alg":"ES256","typ":"JWT"})";
    const std::string claims = R"({"sub":"ab","scope":{"s":["x"]}})";
    EXPECT_NE(headerOfJson(header), nullptr);
    EXPECT_NE(payloadOfJson(claims), nullptr);
    for (std::size_t at = 0; at <= header.size(); ++at)
    {
        headerOfJson(std::string{header}.insert(at, 1, '\0'), "json.syntax");
        EXPECT_STREQ(lastRefusal().saw, "a zero byte");
    }
    for (std::size_t at = 0; at <= claims.size(); ++at)
    {
        payloadOfJson(std::string{claims}.insert(at, 1, '\0'), "json.syntax");
    }
}

/** What the readers and the validator make of the members @p json, as a header and as a payload. */
std::string answersFor(const std::string& json)
{
    std::string answers;
    const auto add = [&answers](const char* text) {
        answers.append(text == nullptr ? "null" : base64Url(text)).append(1, ' ');
    };
    const auto addAll = [&](char* const* texts) {
        for (; texts != nullptr && *texts != nullptr; ++texts)
        {
            add(*texts);
        }
        answers += texts == nullptr ? "none " : "end ";
    };
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    answers += ruleOf([&] { return get_jwt_header(tokenOf(json, "{}").c_str(), &header); }) + ' ';
    answers += lastRefusal().subject;
    const tokens::Header ownedHeader{header};
    for (const char* text :
         {header == nullptr ? nullptr : header->typ, header == nullptr ? nullptr : header->alg,
          header == nullptr ? nullptr : header->kid})
    {
        add(text);
    }
    answers += ruleOf([&] { return get_jwt_payload(tokenOf("{}", json).c_str(), &payload); }) + ' ';
    answers += lastRefusal().subject;
    const tokens::Payload ownedPayload{payload};
    if (payload != nullptr)
    {
        for (const char* text : {payload->sub, payload->jti, payload->iss, payload->iat,
                                 payload->exp, payload->nbf, payload->xidp, payload->act})
        {
            add(text);
        }
        addAll(payload->aud);
        addAll(payload->ravok_roles);
        addAll(payload->scope);
        for (int i = 0; i < payload->scopes_count; ++i)
        {
            add(payload->scopes[i].name);
            add(payload->scopes[i].values[0]);
        }
    }
    header = nullptr;
    payload = nullptr;
    const std::string token = tokenOf(R"({"typ":"JWT","alg":"ES256"})", json);
    answers += ruleOf([&] { return validateJWT(token.c_str(), nullptr, 0, &header, &payload); }) +
               ' ' + lastRefusal().subject;
    const tokens::Header otherHeader{header};
    const tokens::Payload otherPayload{payload};
    for (int i = 0; payload != nullptr && i < payload->scopes_count; ++i)
    {
        add(payload->scopes[i].name);
        for (int j = 0; j < payload->scopes[i].count; ++j)
        {
            add(payload->scopes[i].values[j]);
        }
    }
    return answers;
}

// An ordinary document is read without a tree, and one with a comment or a real number by jsoncpp.
TEST(TokenReaders, ReadAlikeWithAndWithoutATree)
{
    const FakeClock clock{now};
    const std::string dated =
        R"("sub":"u","jti":"j","iss":"i","iat":"1","nbf":"1","exp":"9999999999","alg":"a",)";
    int different = 0;
    std::string last;
    for (const std::string_view members : {R"("typ":"t","kid":"k")",
                                           R"("kid":7)",
                                           R"("alg":"b","alg":"c")",
                                           R"("alg":"b","alg":1)",
                                           R"("alg":null)",
                                           R"("\u0061lg":"escaped")",
                                           R"("sub":"M\u00fcller")",
                                           R"("sub":"")",
                                           R"("sub":"a\u0000b","kid":"a\u0000b","typ":"\u0000")",
                                           "\"sub\":\"M\xc3\xbcller\"",
                                           "\"sub\":\"\xff\x01\t\x7f\"",
                                           R"("sub":["u"])",
                                           R"("sub\u0000":"x")",
                                           R"("act":{"a":1})",
                                           R"("iat":0)",
                                           R"("iat":4294967295)",
                                           R"("iat":4294967296)",
                                           R"("iat":999999999999999999)",
                                           R"("iat":-1)",
                                           R"("iat":true)",
                                           R"("iat":null)",
                                           R"("iat":[1])",
                                           R"("exp":01)",
                                           R"("exp":"1","exp":"9999999999")",
                                           R"("aud":"one")",
                                           R"("aud":[])",
                                           R"("aud":["b","a"])",
                                           R"("aud":["b",1,null,{"c":"d"},"a\u0000x"])",
                                           R"("aud":{"a":"b"})",
                                           R"("aud":7)",
                                           R"("ravok_roles":["r","s"])",
                                           R"("ravok_roles":"r")",
                                           R"("scope":"b a  c")",
                                           R"("scope":" ")",
                                           R"("scope":"{}")",
                                           R"("scope":"[1]")",
                                           R"("scope":7)",
                                           R"("scope":[])",
                                           R"("scope":{})",
                                           R"("scope":{"b":["x","y"],"a":["z"]})",
                                           R"("scope":{"b":["x"],"a":["y"],"b":["z"]})",
                                           R"("scope":{"a":[1,true,null]})",
                                           R"("scope":{"a":[{"b":"c"}]})",
                                           R"("scope":{"a":"b"})",
                                           R"("scope":{"a":["b\u0000c"]})",
                                           R"("scope":{"a\u0000":["b"],"c":["d"]})",
                                           R"("scope":{"\u00fc":["\ud800"]})",
                                           "\"scope\":{\"\xff\":[\"\xc3\xbc\xc3\"]}",
                                           R"("xidp":{"p":["L","CD"],"a":["\u00fc"]})",
                                           R"("xidp":{"n":9999999999999999999})",
                                           R"("xidp":["L"])",
                                           R"("xidp":{"p":"\/","n":[ 1 , {} ]})",
                                           R"("other":{"a":[[{"b":{}}]]})",
                                           R"("other":tru)",
                                           R"("other":"\x")",
                                           R"("other":"\u00g0")",
                                           R"("other":[1,])"})
    {
        SCOPED_TRACE(members);
        const std::string json = "{" + dated + std::string{members};
        const std::string answers = answersFor(json + "}");
        EXPECT_EQ(answers, answersFor(json + R"(,"real":1.5})"));
        EXPECT_EQ(answers, answersFor("/* why */" + json + "}"));
        EXPECT_EQ(answers, answersFor(" " + json + "\n}\n"));
        different += answers != last ? 1 : 0;
        last = answers;
    }
    EXPECT_GT(different, 40);
}

// Where a document has more members than there is room for, it becomes a tree.
TEST(TokenReaders, ReadAnyNumberOfMembers)
{
    const FakeClock clock{now};
    const std::string json =
        R"({"sub":"u","jti":"j","iss":"i","iat":7,"nbf":"1","exp":"9999999999","typ":"t",)";
    const std::string last = R"("alg":"a","scope":{"b":["c"]}})";
    const std::string answers = answersFor(json + last);
    std::string more;
    for (int i = 0; i < 100; ++i)
    {
        more += "\"m" + std::to_string(i) + "\":" + std::to_string(i) + ",";
        ASSERT_EQ(answers, answersFor(json + more + last)) << i;
        ASSERT_EQ(answers, answersFor(R"({"alg":"x","iat":"8",)" + more + json.substr(1) + last))
            << i;
    }
}

TEST(GetJwtPayload, FailsForHostileTexts)
{
    for (const HostileText& hostile : hostileTexts())
    {
        SCOPED_TRACE(hostile.name);
        payloadOf(hostile.text, "token.parts");
        payloadOfJson(hostile.text, tokens::hostilePartRule(hostile));
        const std::string open = R"({"sub":"user","scope":)" + hostile.text;
        payloadOfJson(open, base64Url(open).size() > 98304                ? "base64.length"
                            : hostileRule(hostile.name) == "json.nesting" ? "json.nesting"
                                                                          : "json.syntax");
    }
    for (const HostileText& odd : oddObjects())
    {
        SCOPED_TRACE(odd.name);
        JWTPayload* payload = nullptr;
        const int result = get_jwt_payload(tokenOf("{}", odd.text).c_str(), &payload);
        EXPECT_EQ(payload != nullptr, result == 1);
        free_jwt_payload(payload);
    }
    for (const char* name : {"sub", "aud", "iat", "xidp", "ravok_roles", "scope"})
    {
        SCOPED_TRACE(name);
        EXPECT_NE(payloadOfJson(nestedMember(name, 200)), nullptr);
        payloadOfJson(nestedMember(name, 2000), "json.nesting");
    }
}

TEST(GetJwtPayload, LimitsTheLengthOfTheEncodedPayload)
{
    std::string payload = R"({"sub":"user"})";
    payload.append(73728 - payload.size(), ' ');
    EXPECT_EQ(base64Url(payload).size(), 98304U);
    EXPECT_NE(payloadOfJson(payload), nullptr);
    payloadOf("." + base64Url(payload) + "=.", "base64.length");
    payloadOfJson(payload + " ", "base64.length");
}

TEST(GetJwtPayload, ReadsThousandsOfScopeValues)
{
    std::string json = R"({"scope":{"name":["0")";
    for (int i = 1; i < 10000; ++i)
    {
        json += ",\"" + std::to_string(i) + "\"";
    }
    const tokens::Payload payload = payloadOfJson(json + "]}}");
    ASSERT_NE(payload, nullptr);
    EXPECT_STREQ(payload->scopes[0].values[9999], "9999");
}

TEST(GetJwtPayload, FailsOrEndsTheProcessWhicheverAllocationFails)
{
    const std::string token = tokenOf(
        "{}", R"({"sub":"user","iss":"issuer","jti":"id-1","aud":"one","act":"actor",)"
              R"("iat":1700000000,"nbf":"soon","exp":"1700003600","xidp":{"corp":["L"]},)"
              R"("ravok_roles":["admin","guest"],"scope":{"a":["x","a second value"],"b":["y"]}})");
    payloadOf(token);
    // For the record, for "iat", for the scope entries, and for the values of each of the two.
    EXPECT_EQ(timesEnded(get_jwt_payload, token), 5);
}

TEST(GetJwtPayload, FailsOrEndsTheProcessWhicheverAllocationFailsForNames)
{
    const std::string token = tokenOf(
        "{}", R"({"sub":"user","aud":"one","scope":"read write a-rather-long-name-of-a-scope"})");
    payloadOf(token);
    EXPECT_EQ(timesEnded(get_jwt_payload, token), 1); // for the record
}

TEST(TokenReaders, LeaveTheirArgumentAloneOnFailure)
{
    JWTHeader otherHeader{};
    JWTPayload otherPayload{};
    struct Refusal
    {
        std::string token;
        const char* ofHeader;
        const char* ofPayload;
    };
    for (const auto& [token, ofHeader, ofPayload] :
         {Refusal{"", "token.parts", "token.parts"}, Refusal{"a.b", "token.parts", "token.parts"},
          Refusal{"!.!.", "base64.malformed", "base64.malformed"},
          Refusal{tokenOf("{}", "[]"), "token.member", "json.root"}})
    {
        SCOPED_TRACE(token);
        JWTHeader* header = &otherHeader;
        JWTPayload* payload = &otherPayload;
        EXPECT_REFUSED(ofHeader, get_jwt_header(token.c_str(), &header));
        EXPECT_REFUSED(ofPayload, get_jwt_payload(token.c_str(), &payload));
        EXPECT_EQ(header, &otherHeader);
        EXPECT_EQ(payload, &otherPayload);
    }
}

TEST(TokenReaders, LeaveErrnoAndTheErrorQueueAlone)
{
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    ERR_clear_error();
    errno = EDOM;
    const std::string ofHeader = ruleOf([&] { return get_jwt_header("!!!.!!!.", &header); });
    const std::string ofPayload = ruleOf([&] { return get_jwt_payload("!!!.!!!.", &payload); });
    EXPECT_EQ(errno, EDOM);
    EXPECT_EQ(ERR_peek_error(), 0UL);
    EXPECT_EQ(ofHeader, "base64.malformed");
    EXPECT_EQ(ofPayload, "base64.malformed");
}
