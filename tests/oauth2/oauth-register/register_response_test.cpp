// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/hostile.hpp"
#include "support/lists.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>

#include <array>

namespace
{

using namespace support;

using ResponsePtr = std::unique_ptr<RegisterResponse, Releaser<free_register_response>>;

/** A response whose fields belong to the test. */
struct Response
{
    Response()
    {
        record.client_secret = static_cast<char**>(fixed)[0];
        record.client_id = static_cast<char**>(fixed)[1];
        record.client_secret_expires_in = static_cast<char**>(fixed)[2];
        record.handshake_challenge = challenge;
    }

    /** The document, or the rule that refuses it and the member that it concerns. */
    [[nodiscard]] std::string written()
    {
        plantRefusal();
        const HeapText text{write_register_response(&record)};
        return text ? text.get() : lastRule() + ": " + lastRefusal().subject;
    }

    TextList fixed{"secret", "id", "60"};
    ParameterList challenge{{"T", {"type-1.0"}}, {"V", {"token"}}};
    RegisterResponse record{};
};

constexpr const char* leastText =
    R"({"client_id":"id","client_secret":"secret","client_secret_expires_in":"60",)"
    R"("handshake_challenge":{"T":["type-1.0"],"V":"token"},"kest_policy_auth_req":[]})";

TEST(WriteRegisterResponse, WritesWhatIsMandatory)
{
    Response response;
    EXPECT_EQ(response.written(), leastText);
    EXPECT_REFUSED("argument.null", write_register_response(nullptr));
}

TEST(WriteRegisterResponse, WritesEveryField)
{
    Response response;
    TextList lists{"a", "b"};
    ParameterList answer{{"R", {"proof"}}, {"iv", {"0"}}};
    ParameterList certificate{{"x5c", {"MIIB"}}, {"kty", {"EC"}}};
    std::array<HandshakePayload*, 2> software = {certificate, nullptr};
    response.record.grant_types = lists;
    response.record.kest_policy_auth_types = lists;
    response.record.kest_policy_auth_req = lists;
    response.record.ssl_cert_cryptex = static_cast<char**>(lists)[0];
    response.record.handshake_response = answer;
    response.record.software_id_cert = software.data();
    // Neither of these is ever written.
    response.record.reserved_text = static_cast<char**>(lists)[0];
    response.record.reserved_value = "1234567";
    response.record.issued_at = static_cast<char**>(lists)[0];
    EXPECT_EQ(response.written(),
              R"({"client_id":"id","client_secret":"secret","client_secret_expires_in":"60",)"
              R"("grant_types":["a","b"],"handshake_challenge":{"T":["type-1.0"],"V":"token"},)"
              R"("handshake_response":{"R":["proof"],"iv":"0"},"kest_policy_auth_req":["a","b"],)"
              R"("kest_policy_auth_types":["a","b"],)"
              R"("software_id_cert":[{"kty":"EC","x5c":["MIIB"]}],"ssl_cert_cryptex":"a"})");
}

TEST(WriteRegisterResponse, WritesEmptyArrays)
{
    Response response;
    TextList none{};
    std::array<HandshakePayload*, 1> noCertificate = {nullptr};
    response.record.grant_types = none;
    response.record.kest_policy_auth_types = none;
    response.record.kest_policy_auth_req = none;
    response.record.software_id_cert = noCertificate.data();
    EXPECT_EQ(response.written(),
              R"({"client_id":"id","client_secret":"secret","client_secret_expires_in":"60",)"
              R"("grant_types":[],"handshake_challenge":{"T":["type-1.0"],"V":"token"},)"
              R"("kest_policy_auth_req":[],"kest_policy_auth_types":[],"software_id_cert":[]})");
}

TEST(WriteRegisterResponse, RaisesALogicErrorForEachMissingMandatoryText)
{
    for (char* RegisterResponse::*field :
         {&RegisterResponse::client_secret, &RegisterResponse::client_id,
          &RegisterResponse::client_secret_expires_in})
    {
        Response response;
        response.record.*field = nullptr;
        EXPECT_EQ(logicErrorOf([&] { return response.written(); }),
                  "basic_string: construction from null is not valid");
        // The texts come first: the missing challenge is not seen.
        response.record.handshake_challenge = nullptr;
        EXPECT_EQ(logicErrorOf([&] { return response.written(); }),
                  "basic_string: construction from null is not valid");
    }
}

/** The written challenge, or why nothing is written. */
std::string challengeText(HandshakePayload* challenge)
{
    Response response;
    response.record.handshake_challenge = challenge;
    const std::string text = response.written();
    const std::string before = "\"handshake_challenge\":";
    const std::size_t begin = text.find(before);
    return begin == std::string::npos
               ? text
               : text.substr(begin + before.size(), text.find('}') + 1 - begin - before.size());
}

TEST(WriteRegisterResponse, WantsAChallengeOfTwoParameters)
{
    constexpr const char* refused = "registration.challenge: handshake_challenge";
    EXPECT_EQ(challengeText(nullptr), refused);
    ParameterList empty{};
    EXPECT_EQ(challengeText(empty), refused);
    ParameterList one{{"T", {"a"}}};
    EXPECT_EQ(challengeText(one), refused);
    ParameterList two{{"T", {"a"}}, {"V", {"x"}}};
    EXPECT_EQ(challengeText(two), R"({"T":["a"],"V":"x"})");
    // Two parameters of one name make one member, but are two.
    ParameterList twice{{"V", {"x"}}, {"V", {"y"}}};
    EXPECT_EQ(challengeText(twice), R"({"V":"y"})");
}

TEST(WriteRegisterResponse, WritesTheChallengeUpToItsFirstParameterWithoutAValue)
{
    ParameterList list{{"A", {"1"}}, {"B", {"2"}}, {"C", {}}, {"D", {"4"}}};
    EXPECT_EQ(challengeText(list), R"({"A":"1","B":"2"})");
    static_cast<HandshakePayload*>(list)[1].values = nullptr;
    constexpr const char* refused = "registration.challenge: handshake_challenge";
    EXPECT_EQ(challengeText(list), refused);
    ParameterList early{{"A", {"1"}}, {"B", {}}, {"C", {"3"}}, {"D", {"4"}}};
    EXPECT_EQ(challengeText(early), refused);
    ParameterList none{{"A", {}}, {"B", {"2"}}, {"C", {"3"}}};
    EXPECT_EQ(challengeText(none), refused);
}

TEST(WriteRegisterResponse, WritesOnlyAnExactTOfTheChallengeAsAnArray)
{
    ParameterList list{{"T", {"a"}}, {"t", {"a"}}, {"R", {"x"}}, {"M", {"1", "2"}}};
    EXPECT_EQ(challengeText(list), R"({"M":["1","2"],"R":"x","T":["a"],"t":"a"})");
    ParameterList several{{"T", {"a", "b"}}, {"V", {"x"}}};
    EXPECT_EQ(challengeText(several), R"({"T":["a","b"],"V":"x"})");
}

TEST(WriteRegisterResponse, WritesAHandshakeResponseOfAnyLength)
{
    const auto responseText = [](HandshakePayload* answer) {
        Response response;
        response.record.handshake_response = answer;
        const std::string text = response.written();
        const std::string before = "\"handshake_response\":";
        const std::size_t begin = text.find(before);
        return begin == std::string::npos
                   ? text
                   : text.substr(begin + before.size(),
                                 text.find('}', begin) + 1 - begin - before.size());
    };
    ParameterList one{{"R", {"x"}}};
    EXPECT_EQ(responseText(one), R"({"R":["x"]})");
    ParameterList several{{"T", {"a"}}, {"R", {"x", "y"}}, {"r", {"z"}}};
    EXPECT_EQ(responseText(several), R"({"R":["x","y"],"T":"a","r":"z"})");
    ParameterList stopped{{"T", {"a"}}, {"R", {}}, {"C", {"1"}}};
    EXPECT_EQ(responseText(stopped), R"({"T":"a"})");
    ParameterList valueless{{"T", {}}};
    EXPECT_EQ(responseText(valueless), "{}");
    ParameterList empty{};
    EXPECT_EQ(responseText(empty), "document.empty: handshake_response");
    EXPECT_EQ(responseText(nullptr), leastText);
}

TEST(WriteRegisterResponse, WritesCertificatesUpToTheirFirstParameterWithoutAValue)
{
    Response response;
    ParameterList chain{{"x5c", {"A"}}, {"X5C", {"A"}}, {"n", {"A", "B"}}, {"e", {}}, {"f", {"g"}}};
    ParameterList empty{};
    std::array<HandshakePayload*, 3> software = {chain, empty, nullptr};
    response.record.software_id_cert = software.data();
    EXPECT_NE(response.written().find(
                  R"("software_id_cert":[{"X5C":"A","n":["A","B"],"x5c":["A"]},{}]})"),
              std::string::npos)
        << response.written();
}

TEST(WriteRegisterResponse, EscapesWhatIsNotPlainAscii)
{
    Response response;
    TextList texts{"\"\\\x01", "gr\xC3\xBCn \xF0\x9F\x98\x80", "\xFF"};
    response.record.client_id = static_cast<char**>(texts)[0];
    response.record.client_secret = static_cast<char**>(texts)[1];
    response.record.ssl_cert_cryptex = static_cast<char**>(texts)[2];
    EXPECT_EQ(response.written(),
              R"({"client_id":"\"\\\u0001","client_secret":"gr\u00fcn \ud83d\ude00",)"
              R"("client_secret_expires_in":"60",)"
              R"("handshake_challenge":{"T":["type-1.0"],"V":"token"},"kest_policy_auth_req":[],)"
              R"("ssl_cert_cryptex":"\ufffd"})");
}

TEST(WriteRegisterResponse, GivesNullWhicheverAllocationFails)
{
    Response response;
    withEachAllocationFailing([&](auto& failure) {
        const HeapText text{write_register_response(&response.record)};
        const bool failed = failure.reached();
        EXPECT_EQ(orNull(text.get()), failed ? "(null)" : leastText);
    });
}

TEST(ParseRegisterResponse, GivesNullForWhatTheWriterWrites)
{
    Response response;
    EXPECT_EQ(response.written(), leastText);
    EXPECT_REFUSED("registration.unsupported", parse_register_response(leastText));
    EXPECT_REFUSED(
        "registration.unsupported",
        parse_register_response(
            R"({"client_id":"id","client_secret":"secret","client_secret_expires_in":"60",)"
            R"("grant_types":["a"],"handshake_challenge":{"T":["type-1.0"],"V":"token"},)"
            R"("handshake_response":{"R":["proof"]},"kest_policy_auth_req":["a"],)"
            R"("kest_policy_auth_types":["a"],"software_id_cert":[{"x5c":["MIIB"]}]})"));
    withEachAllocationFailing([](auto& failure) {
        const ResponsePtr parsed{parse_register_response(leastText)};
        (void)failure.reached();
        EXPECT_EQ(parsed, nullptr);
    });
}

TEST(ParseRegisterResponse, GivesNullForEveryOtherText)
{
    EXPECT_REFUSED("argument.null", parse_register_response(nullptr));
    for (const HostileText& hostile : hostileTexts())
    {
        EXPECT_REFUSED(hostileRule(hostile.name),
                       ResponsePtr{parse_register_response(hostile.text.c_str())})
            << hostile.name;
    }
    for (const HostileText& odd : oddObjects())
    {
        EXPECT_REFUSED("document.member", ResponsePtr{parse_register_response(odd.text.c_str())})
            << odd.name;
    }
}

/** @p leastText with another value of the member @p name. */
std::string textWith(const char* name, const std::string& value)
{
    std::string text = leastText;
    return text.insert(text.size() - 1, nextMember(name, value));
}

TEST(ParseRegisterResponse, TellsWhichMemberIsAtFault)
{
    for (const std::string& value : jsonValuesOfEveryType())
    {
        SCOPED_TRACE(value);
        for (const char* name : {"client_id", "client_secret", "client_secret_expires_in"})
        {
            const ResponsePtr parsed{parse_register_response(textWith(name, value).c_str())};
            EXPECT_EQ(parsed, nullptr);
            EXPECT_EQ(lastRule(), !value.starts_with('"') ? "document.member"
                                  : std::string_view{name} == "client_secret_expires_in"
                                      ? "registration.lifetime"
                                      : "registration.unsupported");
        }
        // Of the others only keys that are not keys matter.
        for (const char* name : {"grant_types", "handshake_challenge", "handshake_response",
                                 "kest_policy_auth_req", "kest_policy_auth_types"})
        {
            EXPECT_REFUSED("registration.unsupported",
                           ResponsePtr{parse_register_response(textWith(name, value).c_str())})
                << name;
        }
        EXPECT_REFUSED(
            value.starts_with("[") && value != "[]" ? "registration.keys"
                                                    : "registration.unsupported",
            ResponsePtr{parse_register_response(textWith("software_id_cert", value).c_str())});
    }
    EXPECT_REFUSED("registration.keys",
                   parse_register_response(
                       textWith("software_id_cert", R"([{"x5c":["A"]},{"x5c":{}}])").c_str()));
    EXPECT_STREQ(lastRefusal().subject, "software_id_cert");
    EXPECT_EQ(lastRefusal().index, 1);
}

} // namespace
