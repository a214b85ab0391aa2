// SPDX-License-Identifier: Apache-2.0
#include "handshake_support.hpp"
#include "support/fake_device.hpp"
#include "support/refusals.hpp"

#include <gtest/gtest.h>
#include <json/value.h>

#include <cerrno>
#include <map>
#include <set>

using namespace handshake;
using namespace support;

namespace
{

PayloadPtr serverChallenge(char** types, unsigned int mode)
{
    HandshakePayload* challenge = nullptr;
    const int result = generateServerHandshakeChallenge(types, mode, &challenge);
    PayloadPtr owned{challenge};
    EXPECT_EQ(result, owned ? 1 : 0);
    return owned;
}

PayloadPtr clientChallenge(char** types, unsigned int count)
{
    HandshakePayload* challenge = nullptr;
    const int result = generateClientHandshakeChallenge(types, count, &challenge);
    PayloadPtr owned{challenge};
    EXPECT_EQ(result, owned ? 1 : 0);
    return owned;
}

HeapText keyDocument(const char* prefix, unsigned int keys, unsigned int tokens, int length)
{
    char* text = nullptr;
    const int result = generateKeyTool(prefix, keys, tokens, length, &text);
    HeapText owned{text};
    EXPECT_EQ(result, owned ? 1 : 0);
    return owned;
}

bool isCounter(const std::string& text)
{
    return !text.empty() && text.size() <= 19 && text.front() != '0' &&
           text.find_first_not_of("0123456789") == std::string::npos;
}

// A server challenge draws, in this order: 4 bytes that pick the type, 8 for "M", 8 for "C" and 16
// for "V", as far as its mode needs them.
const std::string pickZero(4, '\0');
const std::string oneToEight = "\x01\x02\x03\x04\x05\x06\x07\x08"; // 72623859790382856
const std::string allOnes(8, '\xff');                              // without the top bit 2^63 - 1
const std::string tokenBytes = "0123456789abcdef";
constexpr const char* tokenParameter = "V=MDEyMzQ1Njc4OWFiY2RlZg==";

TEST(CompareSoftwareCertTag, TakesExactlyTheCertificateType)
{
    EXPECT_TRUE(compareSoftwareCertTag("software_id_cert-1.0"));
    for (const char* other : {"Software_id_cert-1.0", "software_id_cert-1.1", "software_id_cert-1",
                              "software_id_cert-1.0 ", "", "hotp1.0"})
    {
        EXPECT_FALSE(compareSoftwareCertTag(other)) << other;
    }
    EXPECT_FALSE(compareSoftwareCertTag(nullptr));
}

TEST(GenRandHexValue, TakesEightBytesAndClearsTheTopBit)
{
    FakeRandom random{oneToEight + allOnes};
    EXPECT_EQ(genRandHexValue(), 0x0102030405060708U);
    EXPECT_EQ(genRandHexValue(), 0x7FFFFFFFFFFFFFFFU);
    EXPECT_EQ(random.bytesAskedFor(), 16U);
}

TEST(GenRandHexValue, GivesZeroWhenTheDeviceFails)
{
    FakeRandom random{oneToEight};
    random.failOpening(ENOENT);
    EXPECT_REFUSED("random.device", genRandHexValue());
}

TEST(GenRandHexValue, DrawsAZeroWithoutARefusal)
{
    const FakeRandom random{std::string(1, '\0')};
    EXPECT_REFUSED("nothing noted", genRandHexValue());
    EXPECT_REFUSED("nothing noted", _do_random());
}

TEST(GenRandHexValue, DiffersBetweenCalls)
{
    EXPECT_NE(genRandHexValue(), genRandHexValue());
}

TEST(DoRandom, TakesFourBytes)
{
    FakeRandom random{"\xf1\x02\x03\x04"};
    EXPECT_EQ(_do_random(), 0xF1020304U);
    EXPECT_EQ(random.bytesAskedFor(), 4U);
}

TEST(DoRandom, GivesZeroWhenTheDeviceFails)
{
    FakeRandom random{oneToEight};
    random.shortenReading(1);
    EXPECT_REFUSED("random.device", _do_random());
}

TEST(GenerateServerHandshakeChallenge, AsksForTheCertificateInMode1)
{
    TextList types{"A", certificateType};
    FakeRandom random{pickZero + tokenBytes};
    const PayloadPtr challenge = serverChallenge(types, 1);
    EXPECT_EQ(shown(challenge.get()), (Lines{"T=software_id_cert-1.0", tokenParameter}));
    const HeapText written{write_handshake_payload(challenge.get())};
    EXPECT_EQ(orNull(written.get()),
              R"({"T":"software_id_cert-1.0","V":"MDEyMzQ1Njc4OWFiY2RlZg=="})");
}

TEST(GenerateServerHandshakeChallenge, GivesAFreshTokenOf24Characters)
{
    TextList types{"A", certificateType};
    const PayloadPtr first = serverChallenge(types, 1);
    const PayloadPtr second = serverChallenge(types, 1);
    ASSERT_EQ(namesOf(first.get()), (Lines{"T", "V"}));
    ASSERT_EQ(valuesOf(first.get(), "V").size(), 1U);
    EXPECT_EQ(valuesOf(first.get(), "V").front().size(), 24U);
    EXPECT_NE(valuesOf(first.get(), "V"), valuesOf(second.get(), "V"));
}

TEST(GenerateServerHandshakeChallenge, AsksForAnyOrdinaryTypeInMode2)
{
    TextList types{"A", "B", certificateType};
    std::set<std::string> picked;
    for (int i = 0; i < 64; ++i)
    {
        const PayloadPtr challenge = serverChallenge(types, 2);
        ASSERT_EQ(namesOf(challenge.get()), (Lines{"T", "M", "C"}));
        ASSERT_EQ(valuesOf(challenge.get(), "T").size(), 1U);
        picked.insert(valuesOf(challenge.get(), "T").front());
        EXPECT_TRUE(isCounter(valuesOf(challenge.get(), "M").at(0)));
        EXPECT_TRUE(isCounter(valuesOf(challenge.get(), "C").at(0)));
    }
    EXPECT_EQ(picked, (std::set<std::string>{"A", "B"}));
}

TEST(GenerateServerHandshakeChallenge, NeedsNoCertificateTypeInMode2)
{
    TextList types{"A"};
    FakeRandom random{pickZero + oneToEight + allOnes};
    EXPECT_EQ(shown(serverChallenge(types, 2).get()),
              (Lines{"T=A", "M=72623859790382856", "C=9223372036854775807"}));
}

TEST(GenerateServerHandshakeChallenge, AsksForBothInMode3)
{
    TextList types{"A", certificateType};
    FakeRandom random{pickZero + oneToEight + allOnes + tokenBytes};
    EXPECT_EQ(shown(serverChallenge(types, 3).get()),
              (Lines{"T=A,software_id_cert-1.0", "M=72623859790382856", "C=9223372036854775807",
                     tokenParameter}));
    EXPECT_EQ(random.bytesAskedFor(), 36U);
}

TEST(GenerateServerHandshakeChallenge, PicksAmongTheOrdinaryTypesByTheRemainder)
{
    TextList types{"A", "B", "C"};
    const std::map<std::string, std::string> picks = {{std::string("\0\0\0\0", 4), "T=A"},
                                                      {std::string("\0\0\0\1", 4), "T=B"},
                                                      {std::string("\0\0\0\5", 4), "T=C"},
                                                      {std::string("\0\0\1\0", 4), "T=B"}};
    for (const auto& [pick, type] : picks)
    {
        FakeRandom random{pick + oneToEight + oneToEight};
        EXPECT_EQ(shown(serverChallenge(types, 2).get()).at(0), type);
    }
}

TEST(GenerateServerHandshakeChallenge, SwapsCertificateTypesBehindTheOthers)
{
    // The certificate type in front changes places with the last other type: B, A, then it.
    TextList types{certificateType, "A", "B", certificateType};
    FakeRandom random{pickZero + oneToEight + oneToEight};
    EXPECT_EQ(shown(serverChallenge(types, 2).get()).at(0), "T=B");
}

TEST(GenerateServerHandshakeChallenge, LeavesTheCallersListAsItIs)
{
    TextList types{certificateType, "A", "B"};
    EXPECT_NE(serverChallenge(types, 3), nullptr);
    EXPECT_EQ(texts(types), (Lines{certificateType, "A", "B"}));
}

TEST(GenerateServerHandshakeChallenge, FailsWithoutATypeThatTheModeNeeds)
{
    TextList ordinary{"A"};
    EXPECT_REFUSED("handshake.types", serverChallenge(ordinary, 1));
    EXPECT_STREQ(lastRefusal().wanted, certificateType);
    EXPECT_NE(serverChallenge(ordinary, 2), nullptr);
    EXPECT_REFUSED("handshake.types", serverChallenge(ordinary, 3));
    EXPECT_STREQ(lastRefusal().wanted, certificateType);
    TextList certificate{certificateType};
    TextList certificates{certificateType, certificateType};
    for (TextList* types : {&certificate, &certificates})
    {
        EXPECT_NE(serverChallenge(*types, 1), nullptr);
        EXPECT_REFUSED("handshake.types", serverChallenge(*types, 2));
        EXPECT_REFUSED("handshake.types", serverChallenge(*types, 3));
        EXPECT_STREQ(lastRefusal().wanted, "a type for passwords");
    }
}

TEST(GenerateServerHandshakeChallenge, FailsForOtherModesAndWithoutTypes)
{
    TextList both{"A", certificateType};
    for (const unsigned int mode : {0U, 4U, 0xFFFFFFFFU})
    {
        EXPECT_REFUSED("argument.range", serverChallenge(both, mode)) << mode;
    }
    TextList none{};
    for (const unsigned int mode : {1U, 2U, 3U})
    {
        EXPECT_REFUSED("handshake.types", serverChallenge(none, mode)) << mode;
        EXPECT_REFUSED("argument.null", serverChallenge(nullptr, mode)) << mode;
    }
}

TEST(GenerateServerHandshakeChallenge, FailsForADrawnZero)
{
    TextList types{"A"};
    const std::string zero(8, '\0');
    const std::map<std::string, std::string> draws = {{"M", zero + oneToEight},
                                                      {"C", oneToEight + zero}};
    for (const auto& [name, numbers] : draws)
    {
        FakeRandom random{pickZero + numbers};
        EXPECT_REFUSED("handshake.counters", serverChallenge(types, 2));
        EXPECT_EQ(lastRefusal().subject, name);
    }
}

TEST(GenerateServerHandshakeChallenge, FailsWhenADrawBehindThePickFails)
{
    TextList types{"A", certificateType};
    for (const unsigned int draw : {0U, 1U, 2U, 3U, 4U})
    {
        SCOPED_TRACE(draw);
        FakeRandom random{oneToEight};
        random.failReading(EIO, {draw, 1});
        // The pick is zero then, and the fifth draw is never made.
        const bool matters = draw >= 1 && draw <= 3;
        EXPECT_REFUSED(matters ? "random.device" : "accepted", serverChallenge(types, 3));
    }
}

TEST(GenerateServerHandshakeChallenge, FailsWhicheverAllocationFails)
{
    TextList types{"A", certificateType};
    withEachAllocationFailing([&](auto& failure) {
        HandshakePayload* challenge = nullptr;
        const int result = generateServerHandshakeChallenge(types, 3, &challenge);
        const bool failed = failure.reached();
        const PayloadPtr owned{challenge};
        EXPECT_EQ(result, failed ? 0 : 1);
        EXPECT_EQ(challenge == nullptr, failed);
    });
}

TEST(GenerateClientHandshakeChallenge, RepeatsThePickedType)
{
    TextList types{"A", certificateType};
    EXPECT_EQ(shown(clientChallenge(types, 1).get()), (Lines{"T=A"}));
    EXPECT_EQ(shown(clientChallenge(types, 2).get()), (Lines{"T=A,A"}));
    EXPECT_EQ(shown(clientChallenge(types, 3).get()), (Lines{"T=A,A,A"}));
}

TEST(GenerateClientHandshakeChallenge, GivesNoValuesForACountOfZero)
{
    TextList types{"A", certificateType};
    const PayloadPtr challenge = clientChallenge(types, 0);
    ASSERT_NE(challenge, nullptr);
    ASSERT_NE(challenge->values, nullptr);
    EXPECT_EQ(shown(challenge.get()), (Lines{"T="}));
}

TEST(GenerateClientHandshakeChallenge, FailsForACountThatNoArrayHolds)
{
    TextList types{"A", certificateType};
    // On 32 bits there is no room for the end behind so many values. Elsewhere a machine may lend
    // what it does not have: there the array, after the copy of the types, is refused it.
    constexpr unsigned int none = 0;
    constexpr unsigned int array = sizeof(std::size_t) > sizeof(unsigned int) ? 4 : none;
    FailAllocation failure{array, FailAllocation::fromThenOn};
    HandshakePayload* challenge = nullptr;
    const int result = generateClientHandshakeChallenge(types, 0xFFFFFFFFU, &challenge);
    EXPECT_EQ(failure.reached(), array != none);
    const PayloadPtr owned{challenge};
    EXPECT_EQ(result, 0);
    EXPECT_EQ(lastRule(), "memory.exhausted");
    EXPECT_EQ(challenge, nullptr);
}

TEST(GenerateClientHandshakeChallenge, FailsForFewerThanTwoTypes)
{
    TextList ordinary{"A"};
    TextList certificate{certificateType};
    TextList none{};
    EXPECT_REFUSED("handshake.types", clientChallenge(ordinary, 1));
    EXPECT_STREQ(lastRefusal().wanted, "two types or more");
    EXPECT_REFUSED("handshake.types", clientChallenge(certificate, 1));
    EXPECT_REFUSED("handshake.types", clientChallenge(none, 1));
    EXPECT_REFUSED("argument.null", clientChallenge(nullptr, 1));
}

TEST(GenerateClientHandshakeChallenge, FailsForCertificateTypesAlone)
{
    TextList types{certificateType, certificateType};
    EXPECT_REFUSED("handshake.types", clientChallenge(types, 1));
    EXPECT_STREQ(lastRefusal().wanted, "a type for passwords");
}

TEST(GenerateClientHandshakeChallenge, PicksAmongTheOrdinaryTypes)
{
    TextList types{"A", "B"};
    FakeRandom random{std::string("\0\0\0\1", 4)};
    EXPECT_EQ(shown(clientChallenge(types, 1).get()), (Lines{"T=B"}));
}

TEST(GenerateClientHandshakeChallenge, TakesTheFirstTypeWhenTheDeviceFails)
{
    TextList types{"A", "B"};
    FakeRandom random{allOnes};
    random.failOpening(EMFILE);
    EXPECT_EQ(shown(clientChallenge(types, 1).get()), (Lines{"T=A"}));
}

TEST(GenerateClientHandshakeChallenge, FailsWhicheverAllocationFails)
{
    TextList types{"A", "B"};
    withEachAllocationFailing([&](auto& failure) {
        HandshakePayload* challenge = nullptr;
        const int result = generateClientHandshakeChallenge(types, 2, &challenge);
        const bool failed = failure.reached();
        const PayloadPtr owned{challenge};
        EXPECT_EQ(result, failed ? 0 : 1);
        EXPECT_EQ(challenge == nullptr, failed);
    });
}

TEST(GenerateKeyTool, MakesNumberedKeysOfRandomSecrets)
{
    const HeapText text = keyDocument("k", 2, 1, 16);
    Json::Value document;
    ASSERT_TRUE(loadJsonDoc(text.get(), document));
    ASSERT_EQ(document.getMemberNames(), (Lines{"k1.0", "k2.0"}));
    for (const Json::Value& secrets : document)
    {
        ASSERT_EQ(secrets.size(), 1U);
        const std::string secret = secrets[0].asString();
        EXPECT_EQ(secret.size(), 22U);
        EXPECT_EQ(secret.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                           "0123456789-_"),
                  std::string::npos);
    }
    EXPECT_NE(document["k1.0"], document["k2.0"]);
}

TEST(GenerateKeyTool, WritesSecretsAsUnpaddedBase64Url)
{
    FakeRandom random{"\xfb\xff\xbf\xff"};
    EXPECT_EQ(orNull(keyDocument("hotp", 1, 2, 4).get()), R"({"hotp1.0":["-_-__w","-_-__w"]})");
}

TEST(GenerateKeyTool, WritesEmptyObjectsArraysAndSecrets)
{
    EXPECT_EQ(orNull(keyDocument("k", 0, 5, 16).get()), "{}");
    EXPECT_EQ(orNull(keyDocument("k", 1, 0, 16).get()), R"({"k1.0":[]})");
    EXPECT_EQ(orNull(keyDocument("", 1, 1, 0).get()), R"({"1.0":[""]})");
}

TEST(GenerateKeyTool, RefusesNamesBeyond49Characters)
{
    EXPECT_NE(keyDocument(std::string(46, 'p').c_str(), 9, 0, 1), nullptr);
    EXPECT_REFUSED("argument.length", keyDocument(std::string(46, 'p').c_str(), 10, 0, 1));
    EXPECT_STREQ(lastRefusal().subject, "prefix");
    EXPECT_REFUSED("argument.length", keyDocument(std::string(47, 'p').c_str(), 1, 0, 1));
}

TEST(GenerateKeyTool, RefusesANegativeLengthAndANullPrefix)
{
    EXPECT_REFUSED("argument.length", keyDocument("k", 1, 1, -1));
    EXPECT_STREQ(lastRefusal().subject, "tokenLength");
    EXPECT_REFUSED("argument.null", keyDocument(nullptr, 1, 1, 16));
    EXPECT_STREQ(lastRefusal().subject, "prefix");
}

TEST(GenerateKeyTool, AndBothChallengesNeedSomewhereToPutThem)
{
    TextList types{"A", certificateType};
    EXPECT_REFUSED("argument.null", generateKeyTool("k", 1, 1, 16, nullptr));
    EXPECT_STREQ(lastRefusal().subject, "text");
    EXPECT_REFUSED("argument.null", generateServerHandshakeChallenge(types, 3, nullptr));
    EXPECT_STREQ(lastRefusal().subject, "challenge");
    EXPECT_REFUSED("argument.null", generateClientHandshakeChallenge(types, 1, nullptr));
    EXPECT_STREQ(lastRefusal().subject, "challenge");
}

TEST(GenerateKeyTool, FailsWhicheverDrawFails)
{
    for (const unsigned int draw : {0U, 1U, 2U})
    {
        FakeRandom random{oneToEight};
        random.shortenReading(1, {draw, 1});
        EXPECT_REFUSED("random.device", keyDocument("k", 3, 1, 16)) << draw;
    }
}

TEST(GenerateKeyTool, FailsWhicheverAllocationFails)
{
    withEachAllocationFailing([](auto& failure) {
        char* text = nullptr;
        const int result = generateKeyTool("k", 2, 2, 16, &text);
        const bool failed = failure.reached();
        const HeapText owned{text};
        EXPECT_EQ(result, failed ? 0 : 1);
        EXPECT_EQ(text == nullptr, failed);
    });
}

} // namespace
