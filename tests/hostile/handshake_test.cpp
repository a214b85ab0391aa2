// SPDX-License-Identifier: Apache-2.0
#include "hostile/forge.hpp"
#include "oauth2/oauth-register/handshake_support.hpp"
#include "support/certificates.hpp"
#include "support/fake_device.hpp"
#include "support/refusals.hpp"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

using handshake::listOf;
using support::Identity;
using support::PayloadPtr;

namespace
{

/** RFC 4226, appendix D: the secret there, and what the moving factors 1 to 3 make of it, in eight
 *  digits. */
const std::string keys = R"({"hotp1.0":["12345678901234567890"],"other":["another secret"]})";
constexpr const char* passwordOf1 = "94287082";
constexpr const char* passwordOf2 = "37359152";

const std::string passwordChallenge = R"({"T":"hotp1.0","M":"7","C":"1"})";
const std::string certificateChallenge = R"({"T":"software_id_cert-1.0","V":"dG9rZW4="})";

/** A factory, and two clients with certificates of it. */
struct Factory
{
    Identity root = Identity::root("factory");
    Identity authority = root.issueAuthority("authority");
    Identity client = authority.issue({.commonName = "client-1"});
    Identity other = authority.issue({.commonName = "client-2"});
};

const Factory& factory()
{
    static const Factory made;
    return made;
}

bool accepted(HandshakePayload* challenge, HandshakePayload* response,
              HandshakePayload* certificate = nullptr, const std::string& keyDocument = keys)
{
    return validateHandshakeResponse(challenge, keyDocument.c_str(),
                                     static_cast<unsigned int>(keyDocument.size()), &certificate,
                                     response);
}

bool accepts(const std::string& challenge, const std::string& response,
             const Identity* client = nullptr)
{
    const PayloadPtr record =
        client == nullptr ? nullptr : support::certificateRecord({client->body()});
    return accepted(listOf(challenge).get(), listOf(response).get(), record.get());
}

std::string responseOf(const std::string& proof)
{
    return R"({"R":")" + proof + "\"}";
}

/** The proof that `signer` makes when he answers as the one whom the certificate names. */
std::string proofOf(const std::string& challenge, const Identity& signer, const Identity& named)
{
    const PayloadPtr question = listOf(challenge);
    const PayloadPtr record = support::certificateRecord({named.body()});
    HandshakePayload* certificate = record.get();
    HandshakePayload* response = nullptr;
    const std::string der = signer.privateKeyDer();
    EXPECT_TRUE(generateHandshakeResponse(
        question.get(), keys.c_str(), static_cast<unsigned int>(keys.size()), &certificate,
        &response, reinterpret_cast<const unsigned char*>(der.data()),
        static_cast<unsigned int>(der.size())));
    const PayloadPtr owned{response};
    return handshake::valuesOf(response, "R").at(0);
}

// The library keeps no state: whoever asks must ask something else each time, and then an answer
// that was heard is good for nothing.
TEST(HandshakeReplay, IsOfUseForTheSameChallengeAlone)
{
    EXPECT_TRUE(accepts(passwordChallenge, responseOf(passwordOf1)));
    EXPECT_TRUE(accepts(passwordChallenge, responseOf(passwordOf1)));
    EXPECT_REFUSED("handshake.proof-wrong",
                   accepts(R"({"T":"hotp1.0","M":"7","C":"2"})", responseOf(passwordOf1)));
    EXPECT_TRUE(accepts(R"({"T":"hotp1.0","M":"7","C":"2"})", responseOf(passwordOf2)));

    const Identity& client = factory().client;
    const std::string proof = responseOf(proofOf(certificateChallenge, client, client));
    EXPECT_TRUE(accepts(certificateChallenge, proof, &client));
    EXPECT_TRUE(accepts(certificateChallenge, proof, &client));
    for (const char* token : {"dG9rZW5=", "dG9rZW4", "", "DG9rZW4=", "dG9rZW4=:", "dG9rZW4= "})
    {
        EXPECT_REFUSED("handshake.proof-wrong",
                       accepts(R"({"T":"software_id_cert-1.0","V":")" + std::string{token} + "\"}",
                               proof, &client))
            << token;
    }
}

TEST(HandshakeReplay, IsOfNoUseForAnotherType)
{
    const Identity& client = factory().client;
    const std::string both =
        R"({"T":["hotp1.0","software_id_cert-1.0"],"M":"7","C":"1","V":"dG9rZW4="})";
    const std::string signature = proofOf(certificateChallenge, client, client);
    const auto proofs = [](const std::string& first, const std::string& second) {
        return R"({"R":[")" + first + R"(",")" + second + R"("]})";
    };
    EXPECT_TRUE(accepts(both, proofs(passwordOf1, signature), &client));
    const auto refusesProof = [&](int index, const std::string& challenge,
                                  const std::string& response) {
        EXPECT_REFUSED("handshake.proof-wrong", accepts(challenge, response, &client));
        EXPECT_EQ(support::lastRefusal().index, index);
    };
    refusesProof(0, both, proofs(signature, passwordOf1));
    refusesProof(0, both, proofs(signature, signature));
    refusesProof(1, both, proofs(passwordOf1, passwordOf1));
    refusesProof(0, certificateChallenge, responseOf(passwordOf1));
    refusesProof(0, passwordChallenge, responseOf(signature));
    // Another type has another secret.
    refusesProof(0, R"({"T":"other","M":"7","C":"1"})", responseOf(passwordOf1));
    EXPECT_REFUSED("handshake.secret",
                   accepts(R"({"T":"HOTP1.0","M":"7","C":"1"})", responseOf(passwordOf1)));
}

TEST(HandshakeRoles, CannotBeExchanged)
{
    // The server's challenge is not an answer, and the client's answer is not a challenge.
    EXPECT_TRUE(accepts(passwordChallenge, responseOf(passwordOf1)));
    EXPECT_REFUSED("handshake.types", accepts(responseOf(passwordOf1), passwordChallenge));
    EXPECT_REFUSED("handshake.proof-missing", accepts(passwordChallenge, passwordChallenge));
    EXPECT_REFUSED("handshake.proof-missing",
                   accepts(certificateChallenge, certificateChallenge, &factory().client));
    // M chooses the secret and C counts: of one secret the M is of no account, the C is.
    EXPECT_REFUSED("handshake.proof-wrong",
                   accepts(R"({"T":"hotp1.0","M":"1","C":"7"})", responseOf(passwordOf1)));
    EXPECT_TRUE(accepts(R"({"T":"hotp1.0","M":"8","C":"1"})", responseOf(passwordOf1)));
}

TEST(HandshakePasswords, AreThoseOfTheCounterAlone)
{
    // RFC 4226, appendix D, the truncated numbers of 0 to 9.
    const std::vector<std::pair<unsigned int, const char*>> passwords = {
        {0, "84755224"}, {1, "94287082"}, {2, "37359152"}, {3, "26969429"}, {4, "40338314"},
        {5, "68254676"}, {6, "18287922"}, {7, "82162583"}, {8, "73399871"}, {9, "45520489"}};
    for (unsigned int counter = 1; counter <= 9; ++counter)
    {
        const std::string challenge =
            R"({"T":"hotp1.0","M":"7","C":")" + std::to_string(counter) + "\"}";
        for (const auto& [other, password] : passwords)
        {
            EXPECT_REFUSED(other == counter ? "accepted" : "handshake.proof-wrong",
                           accepts(challenge, responseOf(password)))
                << counter << " " << other;
        }
    }
}

TEST(HandshakePasswords, AreEightDigitsAndNothingElse)
{
    const std::string right = passwordOf1;
    EXPECT_TRUE(accepts(passwordChallenge, responseOf(right)));
    for (std::size_t length = 0; length < right.size(); ++length)
    {
        EXPECT_REFUSED("handshake.proof-wrong",
                       accepts(passwordChallenge, responseOf(right.substr(0, length))));
        EXPECT_REFUSED("handshake.proof-wrong",
                       accepts(passwordChallenge, responseOf(right.substr(right.size() - length))));
    }
    for (const char* other : {"+94287082",
                              "-94287082",
                              "+4287082",
                              " 94287082",
                              "94287082 ",
                              "\\t94287082",
                              "94287082\\n",
                              "094287082",
                              "0094287082",
                              "942870820",
                              "94 287 082",
                              "94287082.0",
                              "9.4287082e7",
                              "0x59EBA8A",
                              "0x59EBA8",
                              "94287082\\u0000",
                              "\\u000094287082",
                              "94287082\\u00001",
                              "9428708\\u0000",
                              "94287082,37359152",
                              "9428708B",
                              "94287O82",
                              "\xd9\xa9\xd9\xa4\xd9\xa2\xd9\xa8",
                              "%08d",
                              "********",
                              "\\\\d\\\\d\\\\d",
                              "",
                              "null",
                              "94287083",
                              "04287082"})
    {
        // A text ends at its first zero byte for everybody, so that one behind the end is not there.
        const bool same =
            std::string{other} == R"(94287082\u0000)" || std::string{other} == R"(94287082\u00001)";
        EXPECT_REFUSED(same ? "accepted" : "handshake.proof-wrong",
                       accepts(passwordChallenge, responseOf(other)))
            << other;
    }
    EXPECT_REFUSED("handshake.proof-wrong",
                   accepts(passwordChallenge, responseOf(std::string(100000, '9'))));
}

TEST(HandshakeCertificate, IsThatOfTheSigner)
{
    const Factory& made = factory();
    const auto acceptsFrom = [&](const Identity& signer, const Identity& named,
                                 const Identity& presented) {
        return accepts(certificateChallenge,
                       responseOf(proofOf(certificateChallenge, signer, named)), &presented);
    };
    EXPECT_TRUE(acceptsFrom(made.client, made.client, made.client));
    // Others of the same chain: who issued the certificate, his issuer, and another client.
    EXPECT_REFUSED("handshake.proof-wrong", acceptsFrom(made.authority, made.client, made.client));
    EXPECT_REFUSED("handshake.proof-wrong", acceptsFrom(made.root, made.client, made.client));
    EXPECT_REFUSED("handshake.proof-wrong", acceptsFrom(made.other, made.client, made.client));
    // The same name from another factory.
    const Factory foreign;
    EXPECT_REFUSED("handshake.proof-wrong", acceptsFrom(foreign.client, made.client, made.client));
    EXPECT_REFUSED("handshake.proof-wrong", acceptsFrom(made.client, made.client, foreign.client));
    // One client's proof with another one's certificate.
    EXPECT_REFUSED("handshake.proof-wrong", acceptsFrom(made.client, made.client, made.other));
    EXPECT_REFUSED("handshake.proof-wrong", acceptsFrom(made.client, made.client, made.authority));
}

// The name is part of the signed text: a proof under one name is not a proof under another, even
// with the same key.
TEST(HandshakeCertificate, IsSignedWithItsName)
{
    const Factory& made = factory();
    const Identity& client = made.client;
    const std::string der = client.privateKeyDer();
    const support::EcKeyPtr key{get_EC_privKey(reinterpret_cast<const unsigned char*>(der.data()),
                                               static_cast<int>(der.size()))};
    const auto acceptsSigned = [&](const std::string& text) {
        const support::HeapText signature{generateSignedResponseValue(text, key.get())};
        return accepts(certificateChallenge, responseOf(support::orNull(signature.get())), &client);
    };
    EXPECT_TRUE(acceptsSigned("dG9rZW4=:client-1"));
    for (const std::string& text :
         {std::string{"dG9rZW4=:client-2"}, std::string{"dG9rZW4=:Client-1"},
          std::string{"dG9rZW4=:client-1 "}, std::string{"dG9rZW4=:client-"},
          std::string{"dG9rZW4=:"}, std::string{"dG9rZW4="}, std::string{"dG9rZW4=client-1"},
          std::string{"client-1:dG9rZW4="}, std::string{"dG9rZW4=::client-1"},
          std::string{":client-1"}, std::string{"dG9rZW4=:client-1\0", 18}, std::string{}})
    {
        EXPECT_REFUSED("handshake.proof-wrong", acceptsSigned(text)) << text;
    }
}

// Read as a second "x5c", the longer name would bring a chain of any client of the factory, while
// the empty list leaves no name to check.
TEST(HandshakeCertificate, IsNamedWhereAnotherNameBeginsLikeThatOfTheChain)
{
    const Factory& made = factory();
    support::FakeFiles files;
    files.put("/etc/default/certs/FactorycertProdRoot.pem", made.root.pem());
    files.put("/etc/default/certs/FactorycertDevRoot.pem", Identity::root("development").pem());
    const Identity client = made.root.issue({.commonName = "client-1"});
    const auto named = [&](const std::string& members, const char* name) {
        std::string text = R"({"kty":"EC",)" + members + "}";
        const std::size_t mark = text.find("CERT");
        text.replace(mark, 4, client.body());
        return validate_x509_jwk(listOf(text).get(), name);
    };
    EXPECT_EQ(named(R"("x5c":["CERT"])", "client-1"), 1);
    EXPECT_REFUSED("certificate.name", named(R"("x5c":["CERT"])", "client-2"));
    for (const char* members :
         {R"("x5c":[],"x5c\u0000":["CERT"])", R"("x5c":7,"x5c\u0000":["CERT"])",
          R"("x5c":null,"x5c\u0000":["CERT"])", R"("x5c\u0000":["CERT"])",
          R"("x5c\u0000":[],"x5c\u0000\u0000":["CERT"])"})
    {
        SCOPED_TRACE(members);
        EXPECT_REFUSED("certificate.missing", named(members, "client-1"));
        EXPECT_REFUSED("certificate.missing", named(members, "client-2"));
        EXPECT_REFUSED("certificate.missing", named(members, nullptr));
    }
}

// The proof shows who holds the key. Whether the factory knows him is another question, which has an
// answer of its own.
TEST(HandshakeCertificate, IsCheckedForItsFactoryByItself)
{
    const Factory& made = factory();
    const Factory foreign;
    support::FakeFiles files;
    files.put("/etc/default/certs/FactorycertProdRoot.pem", made.root.pem());
    files.put("/etc/default/certs/FactorycertDevRoot.pem", Identity::root("development").pem());
    for (const Factory* one : {&made, &foreign})
    {
        const std::string proof = proofOf(certificateChallenge, one->client, one->client);
        EXPECT_TRUE(accepts(certificateChallenge, responseOf(proof), &one->client));
        const PayloadPtr chain = support::certificateRecord(
            {one->client.body(), one->authority.body(), one->client.body()});
        EXPECT_REFUSED(one == &made ? "accepted" : "chain.untrusted",
                       validate_x509_jwk(chain.get(), "client-1"));
        EXPECT_REFUSED("certificate.name", validate_x509_jwk(chain.get(), "client-2"));
    }
    // The first value is named and the last one is verified: who shows a chain whose two ends are
    // different certificates proves the one and hides behind the other.
    const PayloadPtr spliced = support::certificateRecord(
        {foreign.client.body(), made.authority.body(), made.client.body()});
    EXPECT_EQ(validate_x509_jwk(spliced.get(), "client-1"), 1);
    HandshakePayload* certificate = spliced.get();
    const std::string proof =
        responseOf(proofOf(certificateChallenge, foreign.client, foreign.client));
    EXPECT_TRUE(accepted(listOf(certificateChallenge).get(), listOf(proof).get(), certificate));
}

TEST(HandshakeResponse, MayHoldMoreButNotLess)
{
    const std::string right = passwordOf1;
    EXPECT_TRUE(accepts(passwordChallenge, responseOf(right)));
    // What the challenge has said is not for the response to change.
    for (const char* more :
         {R"("T":"other")", R"("V":"dG9rZW4=")", R"("M":"1","C":"2")", R"("C":"2")", R"("M":"x")",
          R"("R2":"00000000")", R"("encrypted_sslcert":"x","HMAC":"y","iv":"z")",
          R"("a":[],"b":null,"c":5)", R"("r":"00000000")"})
    {
        SCOPED_TRACE(more);
        EXPECT_TRUE(accepts(passwordChallenge, R"({"R":")" + right + "\"," + more + "}"));
        EXPECT_REFUSED("handshake.proof-wrong",
                       accepts(passwordChallenge, R"({"R":"00000000",)" + std::string{more} + "}"));
    }
    // Nor is the type: a proof of another type does not count.
    EXPECT_REFUSED("handshake.proof-wrong",
                   accepts(R"({"T":"other","M":"7","C":"1"})",
                           R"({"T":"hotp1.0","M":"7","C":"1","R":")" + right + "\"}"));
    // Without an answer there is none.
    for (const char* less : {R"({"R":[]})", R"({"R":5})", R"({"R":true})", R"({"S":"94287082"})",
                             R"({"RR":"94287082"})", R"({"R ":"94287082"})", R"({"T":"hotp1.0"})",
                             R"({"M":"7","C":"1"})"})
    {
        EXPECT_REFUSED("handshake.proof-missing", accepts(passwordChallenge, less)) << less;
    }
    for (const char* wrong : {R"({"R":""})", R"({"R":[""]})", R"({"R":["","94287082"]})",
                              R"({"R":["00000000","94287082"]})"})
    {
        EXPECT_REFUSED("handshake.proof-wrong", accepts(passwordChallenge, wrong)) << wrong;
    }
    EXPECT_REFUSED("argument.null", accepted(listOf(passwordChallenge).get(), nullptr));
    EXPECT_REFUSED("argument.null", accepted(nullptr, listOf(responseOf(right)).get()));
    EXPECT_REFUSED("argument.null", accepted(nullptr, nullptr));
}

// In a document the last of two members counts; of two names that differ in case, which are one to
// the handshake, the first one in the order of their bytes.
TEST(HandshakeResponse, HasOneAnswerOfTwo)
{
    EXPECT_TRUE(accepts(passwordChallenge, R"({"R":"00000000","R":"94287082"})"));
    EXPECT_REFUSED("handshake.proof-wrong",
                   accepts(passwordChallenge, R"({"R":"94287082","R":"00000000"})"));
    EXPECT_TRUE(accepts(passwordChallenge, R"({"r":"94287082"})"));
    EXPECT_TRUE(accepts(passwordChallenge, R"({"r":"00000000","R":"94287082"})"));
    EXPECT_REFUSED("handshake.proof-wrong",
                   accepts(passwordChallenge, R"({"r":"94287082","R":"00000000"})"));
    EXPECT_TRUE(accepts(R"({"T":"hotp1.0","M":"7","C":"2","C":"1"})", responseOf(passwordOf1)));
    EXPECT_REFUSED("handshake.proof-wrong",
                   accepts(R"({"T":"hotp1.0","M":"7","C":"1","C":"2"})", responseOf(passwordOf1)));
    // So it is with the secrets.
    const PayloadPtr challenge = listOf(passwordChallenge);
    const PayloadPtr response = listOf(responseOf(passwordOf1));
    const std::string secret = R"("hotp1.0":["12345678901234567890"])";
    EXPECT_TRUE(
        accepted(challenge.get(), response.get(), nullptr, R"({"hotp1.0":["x"],)" + secret + "}"));
    EXPECT_REFUSED("handshake.proof-wrong", accepted(challenge.get(), response.get(), nullptr,
                                                     "{" + secret + R"(,"hotp1.0":["x"]})"));
    EXPECT_REFUSED("handshake.secret", accepted(challenge.get(), response.get(), nullptr,
                                                R"({"hotp1.0\u0000":["12345678901234567890"]})"));
}

// Without counters of its own a challenge lets the client choose them: an answer that was overheard
// once is good forever. Servers ask with counters, as generateServerHandshakeChallenge does.
TEST(HandshakeResponse, BringsItsCountersOnlyWhereNoneWereAsked)
{
    const std::string open = R"({"T":"hotp1.0"})";
    const std::string heard = R"({"M":"7","C":"1","R":"94287082"})";
    EXPECT_TRUE(accepts(open, heard));
    EXPECT_TRUE(accepts(open, heard));
    EXPECT_REFUSED("handshake.proof-wrong", accepts(R"({"T":"hotp1.0","M":"7","C":"2"})", heard));
    EXPECT_REFUSED("handshake.proof-wrong", accepts(open, R"({"M":"7","C":"2","R":"94287082"})"));
    EXPECT_REFUSED("handshake.counters", accepts(open, R"({"M":"7","R":"94287082"})"));
    EXPECT_REFUSED("handshake.counters", accepts(open, R"({"C":"1","R":"94287082"})"));
    EXPECT_REFUSED("handshake.counters", accepts(open, responseOf("94287082")));
    for (const char* number :
         {"0", "00", "-1", "+1", " 1", "1 ", "0x1", "1.0", "1e0", "", "18446744073709551615",
          "18446744073709551616", "18446744073709551617", "\\u00001"})
    {
        const std::string text{number};
        EXPECT_REFUSED("handshake.counters",
                       accepts(open, R"({"M":"7","C":")" + text + R"(","R":"94287082"})"))
            << text;
        EXPECT_REFUSED("handshake.counters",
                       accepts(open, R"({"M":")" + text + R"(","C":"1","R":"94287082"})"))
            << text;
    }
}

} // namespace
