// SPDX-License-Identifier: Apache-2.0
#include "handshake_support.hpp"
#include "support/certificates.hpp"
#include "support/fake_device.hpp"
#include "support/hostile.hpp"
#include "support/refusals.hpp"

#include <gtest/gtest.h>
#include <liboath/oath.h>
#include <openssl/evp.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <map>

using namespace handshake;
using namespace support;

namespace
{

/** RFC 4226, appendix D: the secret there, and the last 8 digits of its truncated numbers for the
 *  moving factors 1 to 9. */
const std::string rfcKeys = R"({"hotp1.0":["12345678901234567890"]})";
constexpr std::array rfcPasswords = {"94287082", "37359152", "26969429", "40338314", "68254676",
                                     "18287922", "82162583", "73399871", "45520489"};

/** The client whose certificate proves who it is. */
const Identity& client()
{
    static const Identity identity =
        Identity::selfSigned({.commonName = std::string{"client-1"}, .group = "prime256v1"});
    return identity;
}

struct Answer
{
    int result = 0;
    PayloadPtr response;
};

Answer answer(HandshakePayload* challenge, const std::string& keys,
              HandshakePayload* certificate = nullptr, const std::string& der = {})
{
    HandshakePayload* response = nullptr;
    const bool made = generateHandshakeResponse(
        challenge, keys.empty() ? nullptr : keys.c_str(), static_cast<unsigned int>(keys.size()),
        &certificate, &response,
        der.empty() ? nullptr : reinterpret_cast<const unsigned char*>(der.data()),
        static_cast<unsigned int>(der.size()));
    return {made ? 1 : 0, PayloadPtr{response}};
}

bool accepted(HandshakePayload* challenge, const std::string& keys, HandshakePayload* response,
              HandshakePayload* certificate = nullptr)
{
    return validateHandshakeResponse(challenge, keys.empty() ? nullptr : keys.c_str(),
                                     static_cast<unsigned int>(keys.size()), &certificate,
                                     response);
}

bool accepts(const std::string& challenge, const std::string& response,
             const std::string& keys = rfcKeys, HandshakePayload* certificate = nullptr)
{
    return accepted(listOf(challenge).get(), keys, listOf(response).get(), certificate);
}

int answers(const std::string& challenge, const std::string& keys = rfcKeys,
            HandshakePayload* certificate = nullptr, const std::string& der = {})
{
    const Answer made = answer(listOf(challenge).get(), keys, certificate, der);
    EXPECT_EQ(made.result, made.response ? 1 : 0);
    return made.result;
}

/** A signature of `text` by `identity`, made with OpenSSL directly. */
std::string signatureOf(const std::string& text, const Identity& identity)
{
    std::unique_ptr<EVP_MD_CTX, Releaser<EVP_MD_CTX_free>> context{EVP_MD_CTX_new()};
    std::string der(512, '\0');
    std::size_t length = der.size();
    auto* target = reinterpret_cast<unsigned char*>(der.data());
    EXPECT_EQ(EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, &identity.key()),
              1);
    EXPECT_EQ(EVP_DigestSign(context.get(), target, &length,
                             reinterpret_cast<const unsigned char*>(text.data()), text.size()),
              1);
    der.resize(length);
    return base64Url(der);
}

/** Whether OpenSSL, used directly, takes `der` for a signature of `text` by `identity`. */
bool verifies(const std::string& der, const std::string& text, const Identity& identity)
{
    std::unique_ptr<EVP_MD_CTX, Releaser<EVP_MD_CTX_free>> context{EVP_MD_CTX_new()};
    return EVP_DigestVerifyInit(context.get(), nullptr, EVP_sha256(), nullptr, &identity.key()) ==
               1 &&
           EVP_DigestVerify(context.get(), reinterpret_cast<const unsigned char*>(der.data()),
                            der.size(), reinterpret_cast<const unsigned char*>(text.data()),
                            text.size()) == 1;
}

std::string decoded(const std::string& base64UrlText)
{
    char* raw = nullptr;
    int length = 0;
    EXPECT_EQ(base64URIdecode(base64UrlText.c_str(), &raw, &length), 1);
    const HeapText owned{raw};
    return {raw, static_cast<std::size_t>(length)};
}

PayloadPtr clientRecord()
{
    return certificateRecord({client().body()});
}

const std::string certificateChallenge = R"({"T":"software_id_cert-1.0","V":"dG9rZW4="})";
const std::string bothChallenge =
    R"({"T":["hotp1.0","software_id_cert-1.0"],"M":"7","C":"1","V":"dG9rZW4="})";

// ----------------------------------------------------------------------------- one-time passwords

TEST(GenerateHandshakeResponse, GivesTheOneTimePasswordsOfRfc4226)
{
    for (std::size_t c = 1; c <= rfcPasswords.size(); ++c)
    {
        const PayloadPtr challenge =
            listOf(R"({"T":"hotp1.0","M":"5","C":")" + std::to_string(c) + "\"}");
        const Answer made = answer(challenge.get(), rfcKeys);
        EXPECT_EQ(shown(made.response.get()), (Lines{std::string{"R="} + rfcPasswords.at(c - 1)}));
    }
}

TEST(GenerateHandshakeResponse, WritesASingleProofAsAString)
{
    const PayloadPtr challenge = listOf(R"({"T":"hotp1.0","M":"5","C":"1"})");
    const Answer made = answer(challenge.get(), rfcKeys);
    const HeapText written{write_handshake_payload(made.response.get())};
    EXPECT_EQ(orNull(written.get()), R"({"R":"94287082"})");
}

TEST(GenerateHandshakeResponse, AgreesWithLiboathForEveryDrawnChallenge)
{
    for (int i = 0; i < 16; ++i)
    {
        char* text = nullptr;
        ASSERT_EQ(generateKeyTool("hotp", 1, 1, 24, &text), 1);
        const HeapText keys{text};
        char** secrets = nullptr;
        ASSERT_EQ(get_value_chararray(text, "hotp1.0", &secrets), 1);
        const StringArray owned{secrets};
        TextList types{"hotp1.0"};
        HandshakePayload* challenge = nullptr;
        ASSERT_EQ(generateServerHandshakeChallenge(types, 2, &challenge), 1);
        const PayloadPtr ownedChallenge{challenge};
        const Answer made = answer(challenge, text);
        ASSERT_EQ(made.result, 1);
        const std::string secret = *secrets;
        EXPECT_EQ(oath_hotp_validate(secret.data(), secret.size(),
                                     std::stoull(valuesOf(challenge, "C").at(0)), 0,
                                     valuesOf(made.response.get(), "R").at(0).c_str()),
                  0);
        EXPECT_TRUE(accepted(challenge, text, made.response.get()));
    }
}

TEST(GenerateHandshakeResponse, PicksTheSecretByTheRemainder)
{
    const std::string keys = R"({"t":["00000000000000000000","12345678901234567890","22222"]})";
    for (const char* selector : {"1", "4", "7", "9223372036854775807"})
    {
        const PayloadPtr challenge =
            listOf(std::string{R"({"T":"t","C":"1","M":")"} + selector + "\"}");
        const bool second = std::stoull(selector) % 3 == 1;
        EXPECT_EQ(shown(answer(challenge.get(), keys).response.get()) == Lines{"R=94287082"},
                  second)
            << selector;
    }
}

TEST(GenerateHandshakeResponse, GivesOneProofForEachTypeInOrder)
{
    const std::string keys = R"({"a":["12345678901234567890"],"b":["other"]})";
    const PayloadPtr challenge = listOf(R"({"T":["a","b","a"],"M":"1","C":"1"})");
    const Lines proofs = valuesOf(answer(challenge.get(), keys).response.get(), "R");
    ASSERT_EQ(proofs.size(), 3U);
    EXPECT_EQ(proofs[0], "94287082");
    EXPECT_NE(proofs[1], "94287082");
    EXPECT_EQ(proofs[2], "94287082");
}

TEST(GenerateHandshakeResponse, DrawsCountersWhereTheChallengeHasNone)
{
    const PayloadPtr challenge = listOf(R"({"T":"hotp1.0"})");
    FakeRandom random{std::string("\0\0\0\0\0\0\0\5\0\0\0\0\0\0\0\3", 16)};
    const Answer made = answer(challenge.get(), rfcKeys);
    EXPECT_EQ(shown(made.response.get()), (Lines{"M=5", "C=3", "R=26969429"}));
    EXPECT_TRUE(accepted(challenge.get(), rfcKeys, made.response.get()));
}

TEST(GenerateHandshakeResponse, FailsWhenADrawnCounterIsZeroOrTheDeviceFails)
{
    const PayloadPtr challenge = listOf(R"({"T":"hotp1.0"})");
    for (const std::string& drawn : {std::string("\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\3", 16),
                                     std::string("\0\0\0\0\0\0\0\5\0\0\0\0\0\0\0\0", 16)})
    {
        FakeRandom random{drawn};
        EXPECT_REFUSED("handshake.counters", answer(challenge.get(), rfcKeys).result);
    }
    FakeRandom random{"12345678"};
    random.failReading(EIO, {1, 1});
    EXPECT_REFUSED("random.device", answer(challenge.get(), rfcKeys).result);
}

TEST(GenerateHandshakeResponse, TakesNothingFromWhatStandsInTheOutParameter)
{
    const PayloadPtr challenge = listOf(R"({"T":"hotp1.0"})");
    const PayloadPtr before = listOf(R"({"C":"1","M":"1"})");
    const FakeRandom random{std::string("\0\0\0\0\0\0\0\5\0\0\0\0\0\0\0\3", 16)};
    HandshakePayload* none = nullptr;
    HandshakePayload* response = before.get();
    EXPECT_REFUSED("handshake.secret", generateHandshakeResponse(challenge.get(), "{}", 2, &none,
                                                                 &response, nullptr, 0));
    EXPECT_EQ(response, before.get());
    EXPECT_TRUE(generateHandshakeResponse(challenge.get(), rfcKeys.c_str(),
                                          static_cast<unsigned int>(rfcKeys.size()), &none,
                                          &response, nullptr, 0));
    const PayloadPtr owned{response};
    EXPECT_EQ(shown(response), (Lines{"M=5", "C=3", "R=26969429"}));
    EXPECT_EQ(shown(before.get()), (Lines{"C=1", "M=1"}));
}

TEST(GenerateHandshakeResponse, FailsWithoutTypes)
{
    EXPECT_REFUSED("handshake.types", answers(R"({"M":"1","C":"1"})"));
    EXPECT_STREQ(lastRefusal().subject, "T");
    EXPECT_REFUSED("handshake.types", answers(R"({"T":[],"M":"1","C":"1"})"));
    EXPECT_REFUSED("argument.null", answer(nullptr, rfcKeys).result);
    EXPECT_STREQ(lastRefusal().subject, "challenge");
}

TEST(GenerateHandshakeResponse, FailsForOneCounterAlone)
{
    EXPECT_EQ(answers(R"({"T":"hotp1.0","M":"1","C":"1"})"), 1);
    EXPECT_REFUSED("handshake.counters", answers(R"({"T":"hotp1.0","M":"1"})"));
    EXPECT_STREQ(lastRefusal().subject, "C");
    EXPECT_REFUSED("handshake.counters", answers(R"({"T":"hotp1.0","C":"1"})"));
    EXPECT_STREQ(lastRefusal().subject, "M");
}

TEST(GenerateHandshakeResponse, TakesCountersThatAreDecimalNumbersOfOneToTheLargestButOne)
{
    for (const char* number : {"1", "7", "007", "18446744073709551614"})
    {
        EXPECT_EQ(answers(std::string{R"({"T":"hotp1.0","M":"1","C":")"} + number + "\"}"), 1)
            << number;
        EXPECT_EQ(answers(std::string{R"({"T":"hotp1.0","C":"1","M":")"} + number + "\"}"), 1)
            << number;
    }
    for (const char* number :
         {"0", "00", "18446744073709551615", "18446744073709551616", "99999999999999999999999",
          "1000000000000000000000000000000000000001", "12a", "a", "", " 1", "1 ", "+1", "-1", "0x1",
          "1.0", "1e3"})
    {
        EXPECT_REFUSED("handshake.counters",
                       answers(std::string{R"({"T":"hotp1.0","M":"1","C":")"} + number + "\"}"))
            << number;
        EXPECT_STREQ(lastRefusal().subject, "C");
        EXPECT_EQ(std::string{lastRefusal().saw}, number);
        EXPECT_REFUSED("handshake.counters",
                       answers(std::string{R"({"T":"hotp1.0","C":"1","M":")"} + number + "\"}"))
            << number;
        EXPECT_STREQ(lastRefusal().subject, "M");
        EXPECT_EQ(std::string{lastRefusal().saw}, number);
    }
}

TEST(GenerateHandshakeResponse, FailsWithoutASecretOfTheType)
{
    const std::string challenge = R"({"T":"hotp1.0","M":"1","C":"1"})";
    EXPECT_EQ(answers(challenge, R"({"hotp1.0":["s"]})"), 1);
    for (const char* keys : {R"({"hotp2.0":["s"]})", R"({"HOTP1.0":["s"]})", R"({"hotp1.0":[]})",
                             R"({"hotp1.0":"s"})", R"({"hotp1.0":{"a":"s"}})", R"({"hotp1.0":[5]})",
                             R"({"hotp1.0":[null]})", R"({"hotp1.0":null})", "{}"})
    {
        EXPECT_REFUSED("handshake.secret", answers(challenge, keys)) << keys;
        EXPECT_STREQ(lastRefusal().subject, "hotp1.0");
        EXPECT_EQ(lastRefusal().index, 0);
    }
}

TEST(GenerateHandshakeResponse, NeedsAKeyDocumentOfExactlyTheGivenLength)
{
    const PayloadPtr challenge = listOf(R"({"T":"hotp1.0","M":"1","C":"1"})");
    HandshakePayload* none = nullptr;
    for (const int off : {-1, 0, 1})
    {
        HandshakePayload* response = nullptr;
        const auto length = static_cast<unsigned int>(static_cast<int>(rfcKeys.size()) + off);
        EXPECT_REFUSED(off == 0 ? "accepted" : "argument.length",
                       generateHandshakeResponse(challenge.get(), rfcKeys.c_str(), length, &none,
                                                 &response, nullptr, 0));
        EXPECT_EQ(response != nullptr, off == 0);
        const PayloadPtr owned{response};
    }
    // Not even where a document ends there.
    const std::string more = rfcKeys + " ";
    HandshakePayload* response = nullptr;
    EXPECT_REFUSED("argument.length",
                   generateHandshakeResponse(challenge.get(), more.c_str(),
                                             static_cast<unsigned int>(rfcKeys.size()), &none,
                                             &response, nullptr, 0));
    EXPECT_STREQ(lastRefusal().subject, "keysLength");
    for (const char* absent : {static_cast<const char*>(nullptr), ""})
    {
        EXPECT_REFUSED("handshake.keys", generateHandshakeResponse(challenge.get(), absent, 0,
                                                                   &none, &response, nullptr, 0));
        EXPECT_STREQ(lastRefusal().subject, "keys");
    }
    EXPECT_EQ(response, nullptr);
}

TEST(GenerateHandshakeResponse, RefusesHostileKeyDocuments)
{
    const PayloadPtr challenge = listOf(R"({"T":"hotp1.0","M":"1","C":"1"})");
    for (const HostileText& hostile : hostileTexts())
    {
        EXPECT_REFUSED(hostile.text.empty() ? "handshake.keys" : hostileRule(hostile.name),
                       answer(challenge.get(), hostile.text).result)
            << hostile.name;
        EXPECT_STREQ(lastRefusal().subject, "keys");
    }
    for (const HostileText& odd : oddObjects())
    {
        EXPECT_REFUSED("handshake.secret", answer(challenge.get(), odd.text).result) << odd.name;
    }
}

TEST(GenerateHandshakeResponse, FailsWhicheverAllocationFails)
{
    const PayloadPtr challenge = listOf(R"({"T":["hotp1.0","hotp1.0"]})");
    withEachAllocationFailing([&](auto& failure) {
        HandshakePayload* none = nullptr;
        HandshakePayload* response = nullptr;
        const bool made = generateHandshakeResponse(challenge.get(), rfcKeys.c_str(),
                                                    static_cast<unsigned int>(rfcKeys.size()),
                                                    &none, &response, nullptr, 0);
        const bool failed = failure.reached();
        const PayloadPtr owned{response};
        EXPECT_EQ(made, !failed);
        EXPECT_EQ(response == nullptr, failed);
    });
}

TEST(ValidateHandshakeResponse, TakesTheOneTimePasswordOfTheMovingFactorAlone)
{
    const std::string challenge = R"({"T":"hotp1.0","M":"5","C":"4"})";
    for (std::size_t c = 1; c <= rfcPasswords.size(); ++c)
    {
        EXPECT_REFUSED(
            c == 4 ? "accepted" : "handshake.proof-wrong",
            accepts(challenge, std::string{R"({"R":")"} + rfcPasswords.at(c - 1) + "\"}"));
    }
}

TEST(ValidateHandshakeResponse, TakesExactlyEightDigits)
{
    const std::string challenge = R"({"T":"hotp1.0","M":"5","C":"1"})";
    EXPECT_TRUE(accepts(challenge, R"({"R":"94287082"})"));
    for (const char* proof : {"287082", "4287082", "094287082", "942870820", "94287082 ",
                              " 94287082", "9428708", "94287083", "00287082", ""})
    {
        EXPECT_REFUSED("handshake.proof-wrong",
                       accepts(challenge, std::string{R"({"R":")"} + proof + "\"}"))
            << proof;
        EXPECT_STREQ(lastRefusal().wanted, std::strlen(proof) == 8 ? "" : "8 digits");
    }
}

TEST(ValidateHandshakeResponse, TakesCountersFromTheResponseWhereTheChallengeHasNone)
{
    const std::string challenge = R"({"T":"hotp1.0"})";
    EXPECT_TRUE(accepts(challenge, R"({"C":"1","M":"1","R":"94287082"})"));
    EXPECT_REFUSED("handshake.proof-wrong",
                   accepts(challenge, R"({"C":"2","M":"1","R":"94287082"})"));
    for (const char* more : {R"("M":"1",)", R"("C":"1",)", ""})
    {
        EXPECT_REFUSED("handshake.counters",
                       accepts(challenge, std::string{"{"} + more + R"("R":"94287082"})"))
            << more;
    }
    // The challenge's counters are the ones that count.
    EXPECT_REFUSED("handshake.proof-wrong", accepts(R"({"T":"hotp1.0","M":"1","C":"2"})",
                                                    R"({"C":"1","M":"1","R":"94287082"})"));
    // Nor is one of them alone made whole by the response.
    for (const char* one : {R"("M":"1")", R"("C":"1")"})
    {
        EXPECT_REFUSED("handshake.counters", accepts(std::string{R"({"T":"hotp1.0",)"} + one + "}",
                                                     R"({"C":"1","M":"1","R":"94287082"})"))
            << one;
    }
}

TEST(ValidateHandshakeResponse, DrawsNoCounters)
{
    // Those that would make the answer right.
    const FakeRandom random{std::string("\0\0\0\0\0\0\0\5\0\0\0\0\0\0\0\3", 16)};
    EXPECT_TRUE(accepts(R"({"T":"hotp1.0"})", R"({"C":"3","M":"5","R":"26969429"})"));
    EXPECT_REFUSED("handshake.counters", accepts(R"({"T":"hotp1.0"})", R"({"R":"26969429"})"));
    EXPECT_REFUSED("argument.null",
                   accepted(listOf(R"({"T":"hotp1.0"})").get(), rfcKeys, nullptr, nullptr));
    EXPECT_EQ(random.bytesAskedFor(), 0U);
}

TEST(ValidateHandshakeResponse, EndsAtTheFirstWrongPassword)
{
    const std::string challenge = R"({"T":["hotp1.0","hotp1.0"],"M":"1","C":"1"})";
    EXPECT_TRUE(accepts(challenge, R"({"R":["94287082","94287082"]})"));
    EXPECT_REFUSED("handshake.proof-wrong", accepts(challenge, R"({"R":["00000000","94287082"]})"));
    EXPECT_EQ(lastRefusal().index, 0);
    EXPECT_REFUSED("handshake.proof-wrong", accepts(challenge, R"({"R":["94287082","00000000"]})"));
    EXPECT_EQ(lastRefusal().index, 1);
}

TEST(ValidateHandshakeResponse, NamesTheProofThatItRefusesButNeverShowsIt)
{
    const std::string keys = R"({"a":["12345678901234567890"],"b":["12345678901234567890"]})";
    EXPECT_REFUSED("handshake.proof-wrong", accepts(R"({"T":["a","b"],"M":"1","C":"1"})",
                                                    R"({"R":["94287082","94287083"]})", keys));
    const bmcoauth_refusal refusal = lastRefusal();
    EXPECT_EQ(refusal.index, 1);
    EXPECT_STREQ(refusal.subject, "b");
    EXPECT_STREQ(refusal.saw, "");
    EXPECT_STREQ(refusal.wanted, "");
}

TEST(ValidateHandshakeResponse, StopsAtTheFirstMissingProof)
{
    const std::string challenge = R"({"T":["hotp1.0","hotp1.0"],"M":"1","C":"1"})";
    EXPECT_TRUE(accepts(challenge, R"({"R":"94287082"})"));
    EXPECT_REFUSED("handshake.proof-wrong", accepts(challenge, R"({"R":"00000000"})"));
    EXPECT_REFUSED("handshake.proof-missing", accepts(challenge, R"({"R":[]})"));
    EXPECT_REFUSED("handshake.proof-missing", accepts(challenge, R"({"X":"94287082"})"));
    EXPECT_STREQ(lastRefusal().subject, "R");
    EXPECT_TRUE(accepts(challenge, R"({"R":["94287082","94287082","more"]})"));
    EXPECT_REFUSED("argument.null", accepted(listOf(challenge).get(), rfcKeys, nullptr));
    EXPECT_STREQ(lastRefusal().subject, "response");
}

TEST(ValidateHandshakeResponse, LeavesTheResponseAsItIs)
{
    const PayloadPtr record = clientRecord();
    const PayloadPtr challenge = listOf(certificateChallenge);
    std::string padded = signatureOf("dG9rZW4=:client-1", client());
    padded.append((4 - padded.size() % 4) % 4, '=');
    const PayloadPtr response = listOf(R"({"R":")" + padded + "\"}");
    EXPECT_TRUE(accepted(challenge.get(), "", response.get(), record.get()));
    EXPECT_EQ(shown(response.get()), (Lines{"R=" + padded}));
}

// ----------------------------------------------------------------------------- certificate proofs

TEST(GenerateHandshakeResponse, SignsTheTokenAndTheCommonName)
{
    const PayloadPtr record = clientRecord();
    const PayloadPtr challenge = listOf(certificateChallenge);
    const Answer made = answer(challenge.get(), "", record.get(), client().privateKeyDer());
    ASSERT_EQ(namesOf(made.response.get()), (Lines{"R"}));
    const Lines proofs = valuesOf(made.response.get(), "R");
    ASSERT_EQ(proofs.size(), 1U);
    EXPECT_EQ(proofs[0].find_first_of("+/="), std::string::npos);
    EXPECT_LE(proofs[0].size(), 96U);
    EXPECT_TRUE(verifies(decoded(proofs[0]), "dG9rZW4=:client-1", client()));
    EXPECT_TRUE(accepted(challenge.get(), "", made.response.get(), record.get()));
}

TEST(GenerateHandshakeResponse, SignsTheWholeTokenHoweverLongItIs)
{
    const PayloadPtr record = clientRecord();
    const std::string token(100, 'v');
    const PayloadPtr challenge =
        listOf(std::string{R"({"T":"software_id_cert-1.0","V":")"} + token + "\"}");
    const Answer made = answer(challenge.get(), "", record.get(), client().privateKeyDer());
    ASSERT_EQ(made.result, 1);
    EXPECT_TRUE(
        verifies(decoded(valuesOf(made.response.get(), "R").at(0)), token + ":client-1", client()));
    EXPECT_TRUE(accepted(challenge.get(), "", made.response.get(), record.get()));
}

TEST(GenerateHandshakeResponse, CutsTheCommonNameTo24Characters)
{
    const std::string name = "abcdefghijklmnopqrstuvwxyz";
    const Identity named = Identity::selfSigned({.commonName = name});
    const PayloadPtr record = certificateRecord({named.body()});
    const PayloadPtr challenge = listOf(certificateChallenge);
    const Answer made = answer(challenge.get(), "", record.get(), named.privateKeyDer());
    ASSERT_EQ(made.result, 1);
    EXPECT_TRUE(verifies(decoded(valuesOf(made.response.get(), "R").at(0)),
                         "dG9rZW4=:abcdefghijklmnopqrstuvwx", named));
}

TEST(GenerateHandshakeResponse, NeedsNoKeyDocumentForACertificateProofAlone)
{
    const PayloadPtr record = clientRecord();
    const std::string der = client().privateKeyDer();
    EXPECT_EQ(answers(certificateChallenge, "", record.get(), der), 1);
    EXPECT_EQ(answers(certificateChallenge, "garbage", record.get(), der), 1);
    // A challenge of two types is more than a certificate proof, whatever they are.
    const std::string twice =
        R"({"T":["software_id_cert-1.0","software_id_cert-1.0"],"V":"dG9rZW4="})";
    EXPECT_REFUSED("handshake.keys", answers(twice, "", record.get(), der));
    EXPECT_EQ(answers(twice, "{}", record.get(), der), 1);
}

TEST(GenerateHandshakeResponse, LooksAtNoNumbersForACertificateProofAlone)
{
    const PayloadPtr record = clientRecord();
    const std::string der = client().privateKeyDer();
    const auto answersWith = [&](const std::string& numbers) {
        return answers(std::string{R"({"T":"software_id_cert-1.0","V":"dG9rZW4=")"} + numbers + "}",
                       "", record.get(), der);
    };
    EXPECT_EQ(answersWith(R"(,"M":"x","C":"0")"), 1);
    // But for whether they are both there.
    EXPECT_REFUSED("handshake.counters", answersWith(R"(,"M":"1")"));
    EXPECT_REFUSED("handshake.counters", answersWith(R"(,"C":"1")"));
}

TEST(GenerateHandshakeResponse, NeedsCertificateTokenAndKeyForACertificateProof)
{
    const PayloadPtr record = clientRecord();
    const PayloadPtr empty = certificateRecord({""});
    const PayloadPtr nameless =
        certificateRecord({Identity::selfSigned({.commonName = std::nullopt}).body()});
    const PayloadPtr other = listOf(R"({"kty":"EC"})");
    const std::string der = client().privateKeyDer();
    EXPECT_EQ(answers(certificateChallenge, "", record.get(), der), 1);
    EXPECT_REFUSED("handshake.token",
                   answers(R"({"T":"software_id_cert-1.0"})", "", record.get(), der));
    EXPECT_STREQ(lastRefusal().subject, "V");
    EXPECT_REFUSED("handshake.token",
                   answers(R"({"T":["hotp1.0","software_id_cert-1.0"],"M":"1","C":"1"})", rfcKeys,
                           record.get(), der));
    EXPECT_EQ(lastRefusal().index, 1);
    EXPECT_REFUSED("handshake.certificate", answers(certificateChallenge, "", nullptr, der));
    EXPECT_STREQ(lastRefusal().subject, "certificate");
    EXPECT_REFUSED("certificate.encoding", answers(certificateChallenge, "", empty.get(), der));
    EXPECT_STREQ(lastRefusal().subject, "x5c");
    EXPECT_REFUSED("certificate.name", answers(certificateChallenge, "", nameless.get(), der));
    EXPECT_STREQ(lastRefusal().subject, "x5c");
    EXPECT_REFUSED("handshake.certificate", answers(certificateChallenge, "", other.get(), der));
    EXPECT_STREQ(lastRefusal().subject, "x5c");
    EXPECT_REFUSED("argument.null", answers(certificateChallenge, "", record.get(), ""));
    EXPECT_STREQ(lastRefusal().subject, "der");
    for (const std::string& wrong : {std::string{"garbage"}, der.substr(0, der.size() / 2)})
    {
        EXPECT_REFUSED("key.encoding", answers(certificateChallenge, "", record.get(), wrong));
        EXPECT_STREQ(lastRefusal().subject, "der");
        EXPECT_EQ(lastRefusal().index, 0);
    }
}

TEST(GenerateHandshakeResponse, RefusesAKeyLongerThanAnIntCounts)
{
    const PayloadPtr record = clientRecord();
    const PayloadPtr challenge = listOf(certificateChallenge);
    HandshakePayload* certificate = record.get();
    HandshakePayload* response = nullptr;
    const unsigned char byte = 0;
    EXPECT_REFUSED("argument.length",
                   generateHandshakeResponse(challenge.get(), nullptr, 0, &certificate, &response,
                                             &byte, 0x80000000U));
    EXPECT_STREQ(lastRefusal().subject, "derLength");
}

TEST(GenerateHandshakeResponse, WantsTheCertificateAddressWhereThereIsAToken)
{
    const PayloadPtr challenge = listOf(R"({"T":"hotp1.0","M":"1","C":"1","V":"dG9rZW4="})");
    HandshakePayload* response = nullptr;
    EXPECT_REFUSED("handshake.certificate",
                   generateHandshakeResponse(challenge.get(), rfcKeys.c_str(),
                                             static_cast<unsigned int>(rfcKeys.size()), nullptr,
                                             &response, nullptr, 0));
    EXPECT_EQ(response, nullptr);
    const PayloadPtr nameless =
        certificateRecord({Identity::selfSigned({.commonName = std::nullopt}).body()});
    EXPECT_REFUSED("certificate.name", answer(challenge.get(), rfcKeys, nameless.get()).result);
    EXPECT_REFUSED("certificate.encoding",
                   answer(challenge.get(), rfcKeys, certificateRecord({""}).get()).result);
    const PayloadPtr record = clientRecord();
    EXPECT_EQ(shown(answer(challenge.get(), rfcKeys, record.get()).response.get()),
              (Lines{"R=94287082"}));
}

TEST(GenerateHandshakeResponse, DrawsNoCountersWhereThereIsAToken)
{
    const PayloadPtr record = clientRecord();
    const std::string der = client().privateKeyDer();
    EXPECT_REFUSED("handshake.counters",
                   answers(R"({"T":"hotp1.0","V":"dG9rZW4="})", rfcKeys, record.get(), der));
    EXPECT_EQ(answers(bothChallenge, rfcKeys, record.get(), der), 1);
}

TEST(GenerateHandshakeResponse, GivesBothProofsInOrder)
{
    const PayloadPtr record = clientRecord();
    const PayloadPtr challenge = listOf(bothChallenge);
    const Answer made = answer(challenge.get(), rfcKeys, record.get(), client().privateKeyDer());
    ASSERT_EQ(namesOf(made.response.get()), (Lines{"R"}));
    const Lines proofs = valuesOf(made.response.get(), "R");
    ASSERT_EQ(proofs.size(), 2U);
    EXPECT_EQ(proofs[0], "94287082");
    EXPECT_TRUE(verifies(decoded(proofs[1]), "dG9rZW4=:client-1", client()));
    EXPECT_TRUE(accepted(challenge.get(), rfcKeys, made.response.get(), record.get()));
}

TEST(GenerateHandshakeResponse, FailsWhicheverAllocationOfACertificateProofFails)
{
    const PayloadPtr record = clientRecord();
    const PayloadPtr challenge = listOf(certificateChallenge);
    const std::string der = client().privateKeyDer();
    withEachAllocationFailing([&](auto& failure) {
        HandshakePayload* certificate = record.get();
        HandshakePayload* response = nullptr;
        const bool made =
            generateHandshakeResponse(challenge.get(), nullptr, 0, &certificate, &response,
                                      reinterpret_cast<const unsigned char*>(der.data()),
                                      static_cast<unsigned int>(der.size()));
        const bool failed = failure.reached();
        const PayloadPtr owned{response};
        // libcrypto gets along without some of its allocations.
        EXPECT_TRUE(made || failed);
        EXPECT_EQ(made, response != nullptr);
    });
}

TEST(ValidateHandshakeResponse, TakesSignaturesMadeElsewhere)
{
    const PayloadPtr record = clientRecord();
    const std::string right = signatureOf("dG9rZW4=:client-1", client());
    EXPECT_TRUE(accepts(certificateChallenge, R"({"R":")" + right + "\"}", "", record.get()));
    const Identity stranger = Identity::selfSigned({.commonName = std::string{"client-1"}});
    const auto refusesBy = [&](const char* rule, const std::string& wrong) {
        EXPECT_REFUSED(rule,
                       accepts(certificateChallenge, R"({"R":")" + wrong + "\"}", "", record.get()))
            << wrong;
        EXPECT_STREQ(lastRefusal().subject, certificateType);
        EXPECT_EQ(lastRefusal().index, 0);
        EXPECT_STREQ(lastRefusal().saw, "");
    };
    for (const std::string& wrong :
         {signatureOf("dG9rZW4=:client-2", client()), signatureOf("other:client-1", client()),
          signatureOf("dG9rZW4=:client-1", stranger), right.substr(0, right.size() / 2),
          std::string{"AAAA"}})
    {
        refusesBy("handshake.proof-wrong", wrong);
    }
    refusesBy("base64.malformed", "!!!!");
    refusesBy("base64.malformed", "");
}

TEST(ValidateHandshakeResponse, NeedsTokenAndCertificateForACertificateProof)
{
    const PayloadPtr record = clientRecord();
    const std::string right = R"({"R":")" + signatureOf("dG9rZW4=:client-1", client()) + "\"}";
    EXPECT_TRUE(accepts(certificateChallenge, right, "", record.get()));
    EXPECT_REFUSED("handshake.certificate", accepts(certificateChallenge, right, "", nullptr));
    EXPECT_REFUSED("handshake.token",
                   accepts(R"({"T":"software_id_cert-1.0"})", right, "", record.get()));
    EXPECT_REFUSED("handshake.token",
                   accepts(R"({"T":["hotp1.0","software_id_cert-1.0"],"M":"1","C":"1"})",
                           R"({"R":["94287082","AAAA"]})", rfcKeys, record.get()));
    EXPECT_STREQ(lastRefusal().subject, "V");
    EXPECT_EQ(lastRefusal().index, 1);
    // A text that was never signed is not a wrong signature, which a later proof would replace.
    EXPECT_REFUSED("handshake.token",
                   accepts(R"({"T":["software_id_cert-1.0","hotp1.0"],"M":"1","C":"1"})",
                           R"({"R":["AAAA","94287082"]})", rfcKeys, record.get()));
    EXPECT_EQ(lastRefusal().index, 0);
}

TEST(ValidateHandshakeResponse, LetsTheLastProofDecide)
{
    const PayloadPtr record = clientRecord();
    const std::string right = signatureOf("dG9rZW4=:client-1", client());
    const std::string wrong = signatureOf("dG9rZW4=:somebody", client());
    const std::string certificateFirst =
        R"({"T":["software_id_cert-1.0","hotp1.0"],"M":"7","C":"1","V":"dG9rZW4="})";
    const auto proofs = [](const std::string& first, const std::string& second) {
        return R"({"R":[")" + first + "\",\"" + second + "\"]}";
    };
    EXPECT_TRUE(accepts(bothChallenge, proofs("94287082", right), rfcKeys, record.get()));
    const auto refusesProof = [&](int index, const char* type, const std::string& challenge,
                                  const std::string& response) {
        EXPECT_REFUSED("handshake.proof-wrong",
                       accepts(challenge, response, rfcKeys, record.get()));
        EXPECT_EQ(lastRefusal().index, index);
        EXPECT_STREQ(lastRefusal().subject, type);
    };
    refusesProof(1, certificateType, bothChallenge, proofs("94287082", wrong));
    refusesProof(0, "hotp1.0", bothChallenge, proofs("00000000", right));
    // Only the password, and nothing is asked about the rest.
    EXPECT_TRUE(accepts(bothChallenge, R"({"R":"94287082"})", rfcKeys, record.get()));
    // A wrong signature is carried on and replaced by what comes after it.
    plantRefusal();
    EXPECT_TRUE(accepts(certificateFirst, proofs(wrong, "94287082"), rfcKeys, record.get()));
    EXPECT_TRUE(isPlantedRefusal());
    refusesProof(1, "hotp1.0", certificateFirst, proofs(right, "00000000"));
    refusesProof(1, "hotp1.0", certificateFirst, proofs(wrong, "00000000"));
    refusesProof(0, certificateType, certificateFirst, R"({"R":")" + wrong + "\"}");
    EXPECT_TRUE(accepts(certificateFirst, R"({"R":")" + right + "\"}", rfcKeys, record.get()));
}

TEST(ValidateHandshakeResponse, RefusesAResponseToAnotherChallenge)
{
    const PayloadPtr record = clientRecord();
    TextList types{"hotp1.0", certificateType};
    HandshakePayload* first = nullptr;
    HandshakePayload* second = nullptr;
    ASSERT_EQ(generateServerHandshakeChallenge(types, 3, &first), 1);
    ASSERT_EQ(generateServerHandshakeChallenge(types, 3, &second), 1);
    const PayloadPtr ownedFirst{first};
    const PayloadPtr ownedSecond{second};
    const Answer made = answer(first, rfcKeys, record.get(), client().privateKeyDer());
    EXPECT_TRUE(accepted(first, rfcKeys, made.response.get(), record.get()));
    EXPECT_REFUSED("handshake.proof-wrong",
                   accepted(second, rfcKeys, made.response.get(), record.get()));
}

TEST(ValidateHandshakeResponse, RefusesACertificateWithoutAnEcKey)
{
    const Identity rsa =
        Identity::selfSigned({.commonName = std::string{"client-1"}, .group = "RSA"});
    const PayloadPtr record = certificateRecord({rsa.body()});
    const std::string right = signatureOf("dG9rZW4=:client-1", rsa);
    EXPECT_REFUSED("key.kind",
                   accepts(certificateChallenge, R"({"R":")" + right + "\"}", "", record.get()));
    EXPECT_STREQ(lastRefusal().subject, "x5c");
}

TEST(GenerateHandshakeResponseForChallenge, RunsBothWays)
{
    const PayloadPtr challenge = listOf(R"({"T":"hotp1.0","M":"1","C":"1"})");
    HandshakePayload* none = nullptr;
    HandshakePayload* response = nullptr;
    const auto length = static_cast<unsigned int>(rfcKeys.size());
    const auto run = [&](HandshakePayload** list, int validate) {
        return generateHandshakeResponseForChallenge(challenge.get(), rfcKeys.c_str(), length,
                                                     &none, list, nullptr, 0, validate);
    };
    EXPECT_NE(run(&response, 0), 0);
    const PayloadPtr owned{response};
    EXPECT_NE(run(&response, 1), 0);
    EXPECT_NE(run(&response, -1), 0);
    EXPECT_EQ(response, owned.get());
    for (const int validate : {0, 1})
    {
        EXPECT_REFUSED("argument.null", run(nullptr, validate));
        EXPECT_STREQ(lastRefusal().subject, "response");
    }
    EXPECT_REFUSED("argument.null", run(&none, 1));
}

// --------------------------------------------------------------------------- signature primitives

TEST(GenerateSignedResponseValue, GivesASignatureThatOpenSslVerifies)
{
    const EcKeyPtr key{EVP_PKEY_get1_EC_KEY(&client().key())};
    const HeapText value{generateSignedResponseValue("some text", key.get())};
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(std::string{value.get()}.find_first_of("+/="), std::string::npos);
    EXPECT_TRUE(verifies(decoded(value.get()), "some text", client()));
    EXPECT_FALSE(verifies(decoded(value.get()), "some texT", client()));
}

TEST(GenerateSignedResponseValue, NeedsAPrivateKey)
{
    EXPECT_REFUSED("argument.null", generateSignedResponseValue("some text", nullptr));
    const EcKeyPtr publicKey{get_EC_pubKey(client().pem().c_str())};
    ASSERT_NE(publicKey, nullptr);
    EXPECT_REFUSED("key.unsound", generateSignedResponseValue("some text", publicKey.get()));
}

TEST(VerifyHrSignature, ConvertsTheTextInPlace)
{
    const EcKeyPtr key{get_EC_pubKey(client().pem().c_str())};
    const std::string unpadded = signatureOf("some text", client());
    // The same in the standard alphabet and with padding.
    std::string standard = base64(decoded(unpadded));
    EXPECT_EQ(verifyHRSignature("some text", standard.data(),
                                static_cast<unsigned int>(standard.size()), key.get()),
              1);
    EXPECT_STREQ(standard.c_str(), unpadded.c_str());
}

TEST(VerifyHrSignature, RefusesWhatDoesNotVerify)
{
    const EcKeyPtr key{get_EC_pubKey(client().pem().c_str())};
    const auto verify = [&](const std::string& text, std::string signature, EC_KEY* with) {
        const auto length = static_cast<unsigned int>(signature.size());
        return verifyHRSignature(text, signature.data(), length, with);
    };
    const std::string right = signatureOf("some text", client());
    EXPECT_EQ(verify("some text", right, key.get()), 1);
    EXPECT_REFUSED("argument.null", verify("some text", right, nullptr));
    EXPECT_REFUSED("handshake.proof-wrong", verify("some texT", right, key.get()));
    EXPECT_REFUSED("base64.malformed", verify("some text", "", key.get()));
    EXPECT_STREQ(lastRefusal().subject, "signature");
    EXPECT_REFUSED("handshake.proof-wrong", verify("some text", "MAA", key.get()));
    EXPECT_REFUSED("handshake.proof-wrong", verify("some text", right + "AAAA", key.get()));
    EXPECT_REFUSED("argument.null", verifyHRSignature("some text", nullptr, 0, key.get()));
    std::string shortened = right;
    EXPECT_REFUSED("argument.length",
                   verifyHRSignature("some text", shortened.data(), 5, key.get()));
    EXPECT_STREQ(lastRefusal().subject, "signatureLength");
}

// ------------------------------------------------------------------------------------ common name

TEST(GetX509Cn, GivesTheCommonNameCutTo24Characters)
{
    const std::map<std::string, std::string> names = {
        {"a", "a"},
        {"abcdefghijklmnopqrstuvwx", "abcdefghijklmnopqrstuvwx"},
        {"abcdefghijklmnopqrstuvwxy", "abcdefghijklmnopqrstuvwx"},
        {std::string(64, 'n'), std::string(24, 'n')},
        {std::string("ab\0cd", 5), "ab"}};
    for (const auto& [name, expected] : names)
    {
        const Identity named = Identity::selfSigned({.commonName = name});
        const HeapText found{get_x509_CN(named.pem().c_str())};
        EXPECT_EQ(orNull(found.get()), expected);
    }
}

TEST(GetX509Cn, GivesNullWithoutACertificateOrName)
{
    EXPECT_REFUSED("argument.null", get_x509_CN(nullptr));
    for (const char* text : {"", "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n"})
    {
        EXPECT_REFUSED("certificate.encoding", get_x509_CN(text)) << text;
    }
    const Identity nameless = Identity::selfSigned({.commonName = std::nullopt});
    EXPECT_REFUSED("certificate.name", get_x509_CN(nameless.pem().c_str()));
    const Identity zero = Identity::selfSigned({.commonName = std::string(1, '\0')});
    EXPECT_REFUSED("certificate.name-empty", get_x509_CN(zero.pem().c_str()));
}

// --------------------------------------------------------------------------------- SSL certificate

const std::string iv = "00112233445566778899AABBCCDDEEFF";

TEST(AppendSslCertToResponse, MakesAResponseWhereThereIsNone)
{
    HandshakePayload* response = nullptr;
    EXPECT_EQ(appendSSLCertToResponse(&response, "sealed", "mac", iv.c_str()), 1);
    const PayloadPtr owned{response};
    EXPECT_EQ(shown(response), (Lines{"encrypted_sslcert=sealed", "HMAC=mac", "iv=" + iv}));
}

TEST(AppendSslCertToResponse, AppendsToAResponse)
{
    HandshakePayload* response = listOf(R"({"M":"1","R":["a","b"]})").release();
    EXPECT_EQ(appendSSLCertToResponse(&response, "sealed", "mac", iv.c_str()), 1);
    const PayloadPtr owned{response};
    EXPECT_EQ(shown(response),
              (Lines{"M=1", "R=a,b", "encrypted_sslcert=sealed", "HMAC=mac", "iv=" + iv}));
}

TEST(AppendSslCertToResponse, KeepsTheFirstTwoParametersWhenTheIvIsRefused)
{
    for (const std::string& wrong : {iv.substr(1), iv + "0", std::string{}})
    {
        HandshakePayload* response = listOf(R"({"R":"a"})").release();
        EXPECT_REFUSED("handshake.iv",
                       appendSSLCertToResponse(&response, "sealed", "mac", wrong.c_str()));
        const PayloadPtr owned{response};
        EXPECT_EQ(shown(response), (Lines{"R=a", "encrypted_sslcert=sealed", "HMAC=mac"}));
    }
    HandshakePayload* response = listOf(R"({"R":"a"})").release();
    EXPECT_REFUSED("handshake.iv", appendSSLCertToResponse(&response, "sealed", "mac", nullptr));
    const PayloadPtr owned{response};
    EXPECT_EQ(shown(response), (Lines{"R=a", "encrypted_sslcert=sealed", "HMAC=mac"}));
}

TEST(AppendSslCertToResponse, LeavesNoNewResponseWhenTheIvIsRefused)
{
    HandshakePayload* response = nullptr;
    EXPECT_REFUSED("handshake.iv",
                   appendSSLCertToResponse(&response, "sealed", "mac", iv.substr(1).c_str()));
    EXPECT_EQ(response, nullptr);
    EXPECT_REFUSED("handshake.iv", appendSSLCertToResponse(&response, "sealed", "mac", nullptr));
    EXPECT_EQ(response, nullptr);
}

TEST(AppendSslCertToResponse, NeedsResponseCertificateAndMac)
{
    HandshakePayload* response = listOf(R"({"R":"a"})").release();
    EXPECT_REFUSED("argument.null", appendSSLCertToResponse(nullptr, "sealed", "mac", iv.c_str()));
    EXPECT_STREQ(lastRefusal().subject, "response");
    EXPECT_REFUSED("argument.null", appendSSLCertToResponse(&response, nullptr, "mac", iv.c_str()));
    EXPECT_STREQ(lastRefusal().subject, "certificate");
    EXPECT_REFUSED("argument.null",
                   appendSSLCertToResponse(&response, "sealed", nullptr, iv.c_str()));
    EXPECT_STREQ(lastRefusal().subject, "hmac");
    const PayloadPtr owned{response};
    EXPECT_EQ(shown(response), (Lines{"R=a"}));
}

TEST(AppendSslCertToResponse, LeavesTheResponseAsItIsWhicheverAllocationFails)
{
    bool failed = true;
    for (unsigned int nth = 1; failed; ++nth)
    {
        HandshakePayload* response = listOf(R"({"R":"a"})").release();
        FailAllocation failure{nth};
        const int result = appendSSLCertToResponse(&response, "sealed", "mac", iv.c_str());
        failed = failure.reached();
        const PayloadPtr owned{response};
        EXPECT_EQ(result, failed ? 0 : 1);
        EXPECT_EQ(shown(response).size(), failed ? 1U : 4U);
    }
}

} // namespace
