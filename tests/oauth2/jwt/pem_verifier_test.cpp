// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/hostile.hpp"
#include "support/issuer.hpp"
#include "support/judgement.hpp"
#include "support/tokens.hpp"
#include "support/vectors.hpp"

#include <bmcoauth/signing.h>

#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/err.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

using issuer::Key;
using issuer::Padding;

namespace
{

/** A token without "exp" is invalid, but only after its signature has been looked at: what comes
 *  back is the verifier's answer alone. */
constexpr std::string_view noClaims = "{}";

std::string inputFor(const std::string& algorithm)
{
    return issuer::signingInput(R"({"alg":")" + algorithm + R"("})", noClaims);
}

/** The rule by which `signature` is refused as one of the signing input by the key in `pem`;
 *  "accepted" if it is taken for one. */
std::string outcome(const std::string& input, std::string_view signature, const std::string& pem)
{
    const Judgement judgement = judge(issuer::token(input, signature), {.keys = {pem}});
    EXPECT_EQ(judgement.verdict, 0);
    EXPECT_TRUE(judgement.hasRecords());
    EXPECT_TRUE(judgement.verified == 1 || judgement.verified == -1);
    if (judgement.verified == 1)
    {
        EXPECT_EQ(judgement.rule, "token.member");
        return "accepted";
    }
    return judgement.rule;
}

constexpr const char* wrong = "token.signature";
constexpr const char* noKey = "token.key-not-imported";

struct Algorithm
{
    const char* name;
    const char* digest;
    const Key& (*key)();
    Padding padding;
    /** The length of r and of s; 0 for RSA. */
    std::size_t half;
};

// RFC 7518, section 3.1.
const std::vector<Algorithm> algorithms = {
    {"RS256", "SHA256", issuer::rsaKey, {}, 0},
    {"RS384", "SHA384", issuer::rsaKey, {}, 0},
    {"RS512", "SHA512", issuer::rsaKey, {}, 0},
    {"PS256", "SHA256", issuer::rsaKey, {.pss = true}, 0},
    {"PS384", "SHA384", issuer::rsaKey, {.pss = true}, 0},
    {"PS512", "SHA512", issuer::rsaKey, {.pss = true}, 0},
    {"ES256", "SHA256", issuer::p256Key, {}, 32},
    {"ES384", "SHA384", issuer::p384Key, {}, 48},
    {"ES512", "SHA512", issuer::p521Key, {}, 66},
};

/** A signature by the algorithm, in the form that tokens have. */
std::string signatureOf(const Algorithm& algorithm, std::string_view input)
{
    const std::string signature = algorithm.key().sign(input, algorithm.digest, algorithm.padding);
    return algorithm.half == 0 ? signature : issuer::sideBySide(signature, algorithm.half);
}

TEST(PemVerifier, AcceptsEachAlgorithmOfJsonWebSignature)
{
    for (const Algorithm& algorithm : algorithms)
    {
        SCOPED_TRACE(algorithm.name);
        const std::string input = inputFor(algorithm.name);
        const std::string signature = signatureOf(algorithm, input);
        const std::string pem = algorithm.key().pem();
        EXPECT_EQ(outcome(input, signature, pem), "accepted");
        // An "A" would be a zero byte behind the payload, which no reader takes.
        EXPECT_EQ(outcome(input + "B", signature, pem), wrong);
    }
}

TEST(PemVerifier, RefusesTheSignaturesOfEachOtherAlgorithm)
{
    for (const Algorithm& claimed : algorithms)
    {
        const std::string input = inputFor(claimed.name);
        for (const Algorithm& used : algorithms)
        {
            SCOPED_TRACE(std::string{claimed.name} + " claimed, " + used.name + " used");
            const bool sameFamily = (claimed.half == 0) == (used.half == 0);
            const char* const expected = &claimed == &used ? "accepted"
                                         : sameFamily      ? wrong
                                                           : noKey;
            EXPECT_EQ(outcome(input, signatureOf(used, input), used.key().pem()), expected);
        }
    }
}

TEST(PemVerifier, RefusesAnotherKey)
{
    const std::string rsaInput = inputFor("RS256");
    const std::string rsaSignature = issuer::rsaKey().sign(rsaInput, "SHA256");
    EXPECT_EQ(outcome(rsaInput, rsaSignature, issuer::rsaKey().pem()), "accepted");
    EXPECT_EQ(outcome(rsaInput, rsaSignature, issuer::otherRsaKey().pem()), wrong);
    EXPECT_EQ(outcome(rsaInput, rsaSignature, issuer::p256Key().pem()), noKey);

    const std::string ecInput = inputFor("ES256");
    const std::string ecSignature = issuer::p256Key().sign(ecInput, "SHA256");
    EXPECT_EQ(outcome(ecInput, ecSignature, issuer::p256Key().pem()), "accepted");
    EXPECT_EQ(outcome(ecInput, ecSignature, issuer::otherP256Key().pem()), wrong);
    EXPECT_EQ(outcome(ecInput, ecSignature, issuer::p384Key().pem()), wrong);
    EXPECT_EQ(outcome(ecInput, ecSignature, issuer::rsaKey().pem()), noKey);
}

TEST(PemVerifier, AcceptsEcdsaSideBySideAndInDer)
{
    for (const Algorithm& algorithm : algorithms)
    {
        if (algorithm.half == 0)
        {
            continue;
        }
        SCOPED_TRACE(algorithm.name);
        const std::string input = inputFor(algorithm.name);
        const std::string der = algorithm.key().sign(input, algorithm.digest);
        const std::string raw = issuer::sideBySide(der, algorithm.half);
        const std::string pem = algorithm.key().pem();
        EXPECT_EQ(outcome(input, der, pem), "accepted");
        EXPECT_EQ(outcome(input, raw, pem), "accepted");
        // r and s exchanged, shortened and lengthened.
        EXPECT_EQ(outcome(input, raw.substr(algorithm.half) + raw.substr(0, algorithm.half), pem),
                  wrong);
        EXPECT_EQ(outcome(input, raw.substr(0, raw.size() - 1), pem), wrong);
        EXPECT_EQ(outcome(input, raw.substr(1), pem), wrong);
        EXPECT_EQ(outcome(input, raw + '\0', pem), wrong);
        EXPECT_EQ(outcome(input, '\0' + raw, pem), wrong);
        EXPECT_EQ(outcome(input, raw.substr(0, algorithm.half), pem), wrong);
        EXPECT_EQ(outcome(input, der.substr(0, der.size() - 1), pem), wrong);
        EXPECT_EQ(outcome(input, der + '\0', pem), wrong);
        EXPECT_EQ(outcome(input, der + der, pem), wrong);
    }
}

TEST(PemVerifier, TakesTheSideBySideLengthFromTheName)
{
    // The digest and the length follow the name, not the key: a P-384 key under "ES256".
    const std::string input = inputFor("ES256");
    const std::string der = issuer::p384Key().sign(input, "SHA256");
    EXPECT_EQ(outcome(input, der, issuer::p384Key().pem()), "accepted");
    EXPECT_EQ(outcome(input, issuer::sideBySide(der, 48), issuer::p384Key().pem()), wrong);
    // P-521's 132 bytes are expected under "ES512" only.
    const std::string input384 = inputFor("ES384");
    const std::string der521 = issuer::p521Key().sign(input384, "SHA384");
    EXPECT_EQ(outcome(input384, der521, issuer::p521Key().pem()), "accepted");
    EXPECT_EQ(outcome(input384, issuer::sideBySide(der521, 66), issuer::p521Key().pem()), wrong);
    // A P-256 signature in 132 bytes is one under "ES512".
    const std::string input512 = inputFor("ES512");
    const std::string der256 = issuer::p256Key().sign(input512, "SHA512");
    EXPECT_EQ(outcome(input512, issuer::sideBySide(der256, 66), issuer::p256Key().pem()),
              "accepted");
}

/** An integer of 32 bytes. */
using Integer = std::string;

// The order of P-256 (FIPS 186-4, D.1.2.3).
const Integer order = {"\xff\xff\xff\xff\x00\x00\x00\x00\xff\xff\xff\xff\xff\xff\xff\xff"
                       "\xbc\xe6\xfa\xad\xa7\x17\x9e\x84\xf3\xb9\xca\xc2\xfc\x63\x25\x51",
                       32};

TEST(PemVerifier, RefusesIntegersOutOfRange)
{
    const std::string input = inputFor("ES256");
    const std::string pem = issuer::p256Key().pem();
    const Integer zero(32, '\0');
    const Integer one = Integer(31, '\0') + '\1';
    const Integer largest(32, '\xff');
    for (const Integer& r : {zero, one, order, largest})
    {
        for (const Integer& s : {zero, one, order, largest})
        {
            EXPECT_EQ(outcome(input, r + s, pem), wrong);
        }
    }
    const std::string good = issuer::sideBySide(issuer::p256Key().sign(input, "SHA256"), 32);
    EXPECT_EQ(outcome(input, good, pem), "accepted");
    EXPECT_EQ(outcome(input, good.substr(0, 32) + zero, pem), wrong);
    EXPECT_EQ(outcome(input, zero + good.substr(32), pem), wrong);
}

TEST(PemVerifier, RefusesDerThatIsNotTheOneEncoding)
{
    const std::string input = inputFor("ES256");
    const std::string pem = issuer::p256Key().pem();
    // Both integers with a sign byte, so that each byte's meaning is known:
    // 30 46 | 02 21 00 r | 02 21 00 s.
    std::string der;
    do
    {
        der = issuer::p256Key().sign(input, "SHA256");
    } while (der.size() != 72);
    EXPECT_EQ(outcome(input, der, pem), "accepted");

    std::string longLength = der;
    longLength.insert(1, 1, '\x81');
    EXPECT_EQ(outcome(input, longLength, pem), wrong);

    std::string indefinite = der + std::string(2, '\0');
    indefinite[1] = '\x80';
    EXPECT_EQ(outcome(input, indefinite, pem), wrong);

    std::string padded = der;
    padded.insert(4, 1, '\0');
    padded[1] = '\x47';
    padded[3] = '\x22';
    EXPECT_EQ(outcome(input, padded, pem), wrong);

    std::string negative = der;
    negative.erase(4, 1);
    negative[1] = '\x45';
    negative[3] = '\x20';
    EXPECT_EQ(outcome(input, negative, pem), wrong);

    std::string third = der + std::string{"\x02\x01\x01"};
    third[1] = '\x49';
    EXPECT_EQ(outcome(input, third, pem), wrong);

    EXPECT_EQ(outcome(input, std::string{"\x30\x06\x02\x01\x00\x02\x01\x00", 8}, pem), wrong);
    EXPECT_EQ(outcome(input, std::string{"\x30\x06\x02\x01\x01\x02\x01\x01", 8}, pem), wrong);
    EXPECT_EQ(outcome(input, std::string{"\x30\x00", 2}, pem), wrong);
}

TEST(PemVerifier, AcceptsPssSaltsOfAnyLength)
{
    const std::string pem = issuer::rsaKey().pem();
    for (const Algorithm& algorithm : algorithms)
    {
        if (!algorithm.padding.pss)
        {
            continue;
        }
        const std::string input = inputFor(algorithm.name);
        // From none to the longest: 256 bytes less the digest and two.
        const int digestLength = std::stoi(std::string{algorithm.name}.substr(2)) / 8;
        for (const int saltLength : {0, 1, 20, 32, 48, 64, 256 - digestLength - 2})
        {
            SCOPED_TRACE(std::string{algorithm.name} + " " + std::to_string(saltLength));
            const std::string signature = issuer::rsaKey().sign(
                input, algorithm.digest, {.pss = true, .saltLength = saltLength});
            EXPECT_EQ(outcome(input, signature, pem), "accepted");
            EXPECT_EQ(outcome(input + "B", signature, pem), wrong);
        }
    }
}

TEST(PemVerifier, DecidesTheFamilyByTheFirstCharacterInEitherCase)
{
    struct Name
    {
        const char* name;
        bool rsa;
        bool accepted;
    };
    const std::vector<Name> names = {
        {"rs256", true, true},
        {"Rx", true, true},
        {"r256", true, true},
        {"es256", false, true},
        {"Ex", false, true},
        {"ex", false, true},
        {"EdDSA", false, true},
        {"X256", true, false},
        {"X256", false, false},
        {"none", true, false},
        {"none", false, false},
        {"", true, false},
        {"", false, false},
        {"R", true, false},
        {"E", false, false},
        {" RS256", true, false},
        {"\\u0000RS256", true, false},
    };
    for (const Name& name : names)
    {
        SCOPED_TRACE(name.name);
        const Key& key = name.rsa ? issuer::rsaKey() : issuer::p256Key();
        const std::string input = inputFor(name.name);
        EXPECT_EQ(outcome(input, key.sign(input, "SHA256"), key.pem()),
                  name.accepted ? "accepted" : "token.algorithm");
    }
}

TEST(PemVerifier, DecidesTheDigestByTheLastThreeCharacters)
{
    struct Name
    {
        const char* name;
        const char* digest;
    };
    const std::vector<Name> names = {
        {"R384", "SHA384"},   {"rs512", "SHA512"}, {"RS256x", "SHA256"}, {"RS38", "SHA256"},
        {"RS1512", "SHA512"}, {"R5", "SHA256"},    {"RS3840", "SHA256"}, {"RS999", "SHA256"},
    };
    for (const Name& name : names)
    {
        const std::string input = inputFor(name.name);
        for (const char* digest : {"SHA256", "SHA384", "SHA512"})
        {
            SCOPED_TRACE(std::string{name.name} + " " + digest);
            EXPECT_EQ(outcome(input, issuer::rsaKey().sign(input, digest), issuer::rsaKey().pem()),
                      std::string_view{digest} == name.digest ? "accepted" : wrong);
        }
    }
}

TEST(PemVerifier, TakesOnlyTheUpperCaseLetterForPss)
{
    const std::string pem = issuer::rsaKey().pem();
    for (const char* name : {"PS256", "Ps256", "P_"})
    {
        SCOPED_TRACE(name);
        const std::string input = inputFor(name);
        EXPECT_EQ(outcome(input, issuer::rsaKey().sign(input, "SHA256", {.pss = true}), pem),
                  "accepted");
        EXPECT_EQ(outcome(input, issuer::rsaKey().sign(input, "SHA256"), pem), wrong);
    }
    for (const char* name : {"ps256", "pS256", "p_"})
    {
        SCOPED_TRACE(name);
        const std::string input = inputFor(name);
        EXPECT_EQ(outcome(input, issuer::rsaKey().sign(input, "SHA256", {.pss = true}), pem),
                  wrong);
        EXPECT_EQ(outcome(input, issuer::rsaKey().sign(input, "SHA256"), pem), "accepted");
    }
}

/** An RSASSA-PSS signature whose first byte is zero, or is not. */
std::string pssSignature(const std::string& input, bool leadingZero)
{
    std::string signature;
    do
    {
        signature = issuer::rsaKey().sign(input, "SHA256", {.pss = true});
    } while ((signature[0] == '\0') != leadingZero);
    return signature;
}

TEST(PemVerifier, RefusesRsaSignaturesOfAnotherLength)
{
    const std::string pem = issuer::rsaKey().pem();
    for (const char* name : {"RS256", "PS256"})
    {
        SCOPED_TRACE(name);
        const std::string input = inputFor(name);
        const std::string good =
            name[0] == 'P' ? pssSignature(input, false) : issuer::rsaKey().sign(input, "SHA256");
        EXPECT_EQ(outcome(input, good, pem), "accepted");
        EXPECT_EQ(outcome(input, good.substr(0, 255), pem), wrong);
        EXPECT_EQ(outcome(input, good.substr(1), pem), wrong);
        EXPECT_EQ(outcome(input, good + '\0', pem), wrong);
        EXPECT_EQ(outcome(input, '\0' + good, pem), wrong);
        EXPECT_EQ(outcome(input, good + good, pem), wrong);
        EXPECT_EQ(outcome(input, std::string(256, '\0'), pem), wrong);
        EXPECT_EQ(outcome(input, std::string(256, '\xff'), pem), wrong);
        EXPECT_EQ(outcome(input, std::string(1, '\1'), pem), wrong);
        EXPECT_EQ(outcome(input, std::string(60000, '\1'), pem), wrong);
    }
}

TEST(PemVerifier, TakesAPssSignatureWithoutItsLeadingZero)
{
    // It is still a number; RFC 8017, 8.1.2, would refuse it for its length.
    const std::string input = inputFor("PS256");
    const std::string good = pssSignature(input, true);
    EXPECT_EQ(outcome(input, good, issuer::rsaKey().pem()), "accepted");
    EXPECT_EQ(outcome(input, good.substr(1), issuer::rsaKey().pem()), "accepted");
}

TEST(PemVerifier, RefusesEachChangedByte)
{
    for (const Algorithm& algorithm : algorithms)
    {
        SCOPED_TRACE(algorithm.name);
        const std::string input = inputFor(algorithm.name);
        const std::string good = signatureOf(algorithm, input);
        const std::string pem = algorithm.key().pem();
        const std::size_t step = algorithm.half > 32 ? 13 : 7;
        for (std::size_t i = 0; i < good.size(); i += step)
        {
            std::string bad = good;
            bad[i] = static_cast<char>(bad[i] ^ 1);
            EXPECT_EQ(outcome(input, bad, pem), wrong) << i;
        }
        EXPECT_EQ(outcome(input, good, pem), "accepted");
    }
}

TEST(PemVerifier, ReadsBothFormsOfRsaKeys)
{
    const std::string input = inputFor("RS256");
    const std::string signature = issuer::rsaKey().sign(input, "SHA256");
    const std::string info = issuer::rsaKey().pem();
    const std::string pkcs1 = issuer::rsaKey().pkcs1Pem();
    ASSERT_EQ(info.find("-----BEGIN PUBLIC KEY-----"), 0U);
    ASSERT_EQ(pkcs1.find("-----BEGIN RSA PUBLIC KEY-----"), 0U);
    EXPECT_EQ(outcome(input, signature, info), "accepted");
    EXPECT_EQ(outcome(input, signature, pkcs1), "accepted");
    EXPECT_EQ(outcome(input, signature, issuer::otherRsaKey().pkcs1Pem()), wrong);
    // Text before the key, and after it, is skipped.
    EXPECT_EQ(outcome(input, signature, "a comment\n" + info), "accepted");
    EXPECT_EQ(outcome(input, signature, "a comment\n" + pkcs1 + "and more"), "accepted");
    // Of the two the SubjectPublicKeyInfo counts, wherever it is.
    EXPECT_EQ(outcome(input, signature, issuer::otherRsaKey().pkcs1Pem() + info), "accepted");
    EXPECT_EQ(outcome(input, signature, pkcs1 + issuer::otherRsaKey().pem()), wrong);
    // One that does not decode does not hide the other one.
    EXPECT_EQ(outcome(input, signature,
                      "-----BEGIN PUBLIC KEY-----\nAAAA\n-----END PUBLIC KEY-----\n" + pkcs1),
              "accepted");
}

TEST(PemVerifier, RefusesTextsThatHoldNoPublicKey)
{
    const std::string input = inputFor("RS256");
    const std::string signature = issuer::rsaKey().sign(input, "SHA256");
    const std::string good = issuer::rsaKey().pem();
    EXPECT_EQ(outcome(input, signature, good), "accepted");
    const std::string body = good.substr(good.find('\n') + 1);
    const std::vector<std::string> bad = {
        "",
        "-----BEGIN PUBLIC KEY-----",
        good.substr(0, good.size() / 2),
        body,
        good.substr(0, good.find('\n') + 1) + "AAAA\n-----END PUBLIC KEY-----\n",
        "-----BEGIN CERTIFICATE-----\n" + body,
        // The private key would do for a verification, but has no business in a list of trust.
        issuer::rsaKey().privatePem(),
    };
    for (const std::string& pem : bad)
    {
        SCOPED_TRACE(pem.substr(0, 60));
        EXPECT_EQ(outcome(input, signature, pem), noKey);
    }
    for (const auto& [name, text] : support::hostileTexts())
    {
        SCOPED_TRACE(name);
        EXPECT_EQ(outcome(input, signature, text), noKey);
    }
    const std::string ecInput = inputFor("ES256");
    const std::string ecSignature = issuer::p256Key().sign(ecInput, "SHA256");
    EXPECT_EQ(outcome(ecInput, ecSignature, issuer::p256Key().privatePem()), noKey);
    EXPECT_EQ(outcome(ecInput, ecSignature, ""), noKey);
}

TEST(PemVerifier, DoesNotAskForAPassPhrase)
{
    const std::string input = inputFor("RS256");
    const std::string signature = issuer::rsaKey().sign(input, "SHA256");
    const support::FakeFiles files;
    for (std::string pem : {issuer::rsaKey().pem(), issuer::rsaKey().pkcs1Pem()})
    {
        // It would wait at the terminal forever.
        pem.insert(pem.find('\n') + 1, "Proc-Type: 4,ENCRYPTED\n"
                                       "DEK-Info: AES-128-CBC,00112233445566778899AABBCCDDEEFF\n"
                                       "\n");
        EXPECT_EQ(outcome(input, signature, pem), noKey);
    }
    const std::string ecInput = inputFor("ES256");
    const std::string ecSignature = issuer::p256Key().sign(ecInput, "SHA256");
    std::string ecPem = issuer::p256Key().pem();
    ecPem.insert(ecPem.find('\n') + 1, "Proc-Type: 4,ENCRYPTED\n"
                                       "DEK-Info: AES-128-CBC,00112233445566778899AABBCCDDEEFF\n"
                                       "\n");
    EXPECT_EQ(outcome(ecInput, ecSignature, ecPem), noKey);
    EXPECT_TRUE(files.openings().empty()) << "the terminal is opened, if there is one";
}

/** The PEM text that holds `der` under `label`. */
std::string pemOf(const std::string& label, const std::string& der)
{
    std::string body((der.size() + 2) / 3 * 4 + 1, '\0');
    body.resize(static_cast<std::size_t>(EVP_EncodeBlock(
        reinterpret_cast<unsigned char*>(body.data()),
        reinterpret_cast<const unsigned char*>(der.data()), static_cast<int>(der.size()))));
    for (std::size_t at = 64; at < body.size(); at += 65)
    {
        body.insert(at, "\n");
    }
    return "-----BEGIN " + label + "-----\n" + body + "\n-----END " + label + "-----\n";
}

/** An RSA public key of any numbers, as PKCS #1 has it: SEQUENCE { INTEGER n, INTEGER e }. */
std::string rsaPem(const std::string& n, const std::string& e)
{
    const auto element = [](char tag, const std::string& content) {
        const auto length = static_cast<unsigned int>(content.size());
        return std::string{tag, '\x82', static_cast<char>(length >> 8U),
                           static_cast<char>(length & 0xFFU)} +
               content;
    };
    return pemOf("RSA PUBLIC KEY", element('\x30', element('\x02', n) + element('\x02', e)));
}

TEST(PemVerifier, RefusesRsaKeysOfAbsurdSizes)
{
    const std::string three{'\3'};
    for (const char* name : {"RS256", "PS256"})
    {
        SCOPED_TRACE(name);
        const std::string input = inputFor(name);
        // Moduli of 20000 bits, of one byte, one and zero; exponents that are even larger.
        EXPECT_EQ(outcome(input, std::string(2500, '\1'),
                          rsaPem('\0' + std::string(2500, '\xff'), three)),
                  wrong);
        EXPECT_EQ(outcome(input, std::string(1, '\1'), rsaPem("\x7f", three)), wrong);
        EXPECT_EQ(outcome(input, std::string(1, '\1'), rsaPem("\1", three)), wrong);
        EXPECT_EQ(outcome(input, std::string(1, '\1'), rsaPem(std::string(1, '\0'), three)),
                  name[0] == 'P' ? noKey : wrong);
        EXPECT_EQ(
            outcome(input, std::string(256, '\1'),
                    rsaPem("\x7f" + std::string(255, '\xff'), "\x7f" + std::string(256, '\xff'))),
            wrong);
        EXPECT_EQ(
            outcome(input, std::string(512, '\1'),
                    rsaPem("\x7f" + std::string(511, '\xff'), "\x7f" + std::string(100, '\xff'))),
            wrong);
    }
}

TEST(PemVerifier, AcceptsRsaKeysOfOtherSizes)
{
    for (const unsigned int bits : {1024U, 1025U, 3072U})
    {
        SCOPED_TRACE(bits);
        const Key key = Key::rsa(bits);
        for (const char* name : {"RS256", "PS256"})
        {
            SCOPED_TRACE(name);
            const std::string input = inputFor(name);
            const std::string signature = key.sign(input, "SHA256", {.pss = name[0] == 'P'});
            EXPECT_EQ(outcome(input, signature, key.pem()), "accepted");
            EXPECT_EQ(outcome(input + "B", signature, key.pem()), wrong);
        }
    }
}

// FIPS 186-4, D.1.2.3: the generator of P-256, the public key to the private scalar 1.
constexpr std::string_view generatorX =
    "6b17d1f2e12c4247f8bce6e563a440f277037d812deb33a0f4a13945d898c296";
constexpr std::string_view generatorY =
    "4fe342e2fe1a7f9b8ee7eb4a7c0f9e162bce33576b315ececbb6406837bf51f5";

/** SubjectPublicKeyInfo: SEQUENCE { SEQUENCE { id-ecPublicKey, prime256v1 }, BIT STRING point },
 *  typed in by hand; `length` and `bits` are those of the two that hold the point. */
std::string p256Info(const std::string& length, const std::string& bits, const std::string& point)
{
    return support::fromHex("30" + length + "301306072a8648ce3d020106082a8648ce3d030107" + "03" +
                            bits + "00" + point);
}

/** A signature by the private scalar 1, DER. */
std::string signedByOne(const std::string& input)
{
    const std::string der = support::fromHex("30250201010420" + std::string(63, '0') + "1");
    char* signature = signToken(input, reinterpret_cast<const unsigned char*>(der.data()),
                                static_cast<int>(der.size()));
    const support::HeapText owned{signature};
    return tokens::fromBase64Url(signature);
}

TEST(PemVerifier, ReadsEachEncodingOfAPoint)
{
    const std::string input = inputFor("ES256");
    const std::string signature = signedByOne(input);
    const std::string x{generatorX};
    const std::string y{generatorY};
    const auto outcomeOf = [&](const std::string& info) {
        return outcome(input, signature, pemOf("PUBLIC KEY", info));
    };
    const std::string usual = p256Info("59", "42", "04" + x + y);
    EXPECT_EQ(outcomeOf(usual), "accepted");
    // Compressed, and of both forms at once; y is odd.
    EXPECT_EQ(outcomeOf(p256Info("39", "22", "03" + x)), "accepted");
    EXPECT_EQ(outcomeOf(p256Info("59", "42", "07" + x + y)), "accepted");
    // Bytes after the structure are ignored.
    EXPECT_EQ(outcomeOf(usual + "x"), "accepted");
    // The other point with this x, and the same in its wrong mark.
    EXPECT_EQ(outcomeOf(p256Info("39", "22", "02" + x)), wrong);
    EXPECT_EQ(outcomeOf(p256Info("59", "42", "06" + x + y)), noKey);
    EXPECT_EQ(outcomeOf(p256Info("59", "42", "05" + x + y)), noKey);
    // Off the curve, beyond the field, and at infinity.
    EXPECT_EQ(outcomeOf(p256Info("59", "42", "04" + x + x)), "key.point");
    EXPECT_EQ(outcomeOf(p256Info("59", "42", "04" + std::string(128, '0'))), "key.point");
    EXPECT_EQ(outcomeOf(p256Info("59", "42", "04" + std::string(128, 'f'))), "key.point");
    EXPECT_EQ(outcomeOf(p256Info("18", "02", "00")), noKey);
    // One byte short.
    EXPECT_EQ(outcomeOf(usual.substr(0, usual.size() - 1)), noKey);
    for (std::size_t i = 0; i < 27; ++i)
    {
        SCOPED_TRACE(i);
        std::string changed = usual;
        changed[i] = static_cast<char>(changed[i] ^ 1);
        EXPECT_EQ(outcomeOf(changed), noKey);
    }
}

/** The bytes in the block of @p pem. */
std::string derOf(std::string pem)
{
    pem.erase(0, pem.find('\n'));
    pem.resize(pem.find("-----END"));
    std::erase(pem, '\n');
    std::erase(pem, '=');
    std::ranges::replace(pem, '+', '-');
    std::ranges::replace(pem, '/', '_');
    return tokens::fromBase64Url(pem);
}

TEST(PemVerifier, RefusesPointsOffEachCurve)
{
    for (const Algorithm& algorithm : algorithms)
    {
        if (algorithm.half == 0)
        {
            continue;
        }
        SCOPED_TRACE(algorithm.name);
        const std::string input = inputFor(algorithm.name);
        const std::string signature = signatureOf(algorithm, input);
        const std::string usual = derOf(algorithm.key().pem());
        EXPECT_EQ(outcome(input, signature, pemOf("PUBLIC KEY", usual)), "accepted");
        EXPECT_EQ(outcome(input, signature, pemOf("PUBLIC KEY", usual + "x")), "accepted");
        EXPECT_EQ(outcome(input, signature, pemOf("PUBLIC KEY", usual.substr(0, usual.size() - 1))),
                  noKey);
        std::string off = usual;
        off.back() = static_cast<char>(off.back() ^ 1);
        EXPECT_EQ(outcome(input, signature, pemOf("PUBLIC KEY", off)), "key.point");
        // In each byte before the coordinates but the number of bits that do not count at the end:
        // without a last bit that is zero a point stays the same.
        const std::size_t mark = usual.size() - 2 * algorithm.half - 1;
        for (std::size_t i = 0; i <= mark; ++i)
        {
            if (i == mark - 1)
            {
                continue;
            }
            std::string changed = usual;
            changed[i] = static_cast<char>(changed[i] ^ 1);
            EXPECT_EQ(outcome(input, signature, pemOf("PUBLIC KEY", changed)), noKey) << i;
        }
    }
}

TEST(PemVerifier, ReadsACurveThatIsSpeltOut)
{
    const Key key = Key::ec("P-256");
    const std::string input = inputFor("ES256");
    const std::string signature = key.sign(input, "SHA256");
    const std::string spelt = key.explicitPem();
    EXPECT_GT(spelt.size(), 2 * key.pem().size());
    EXPECT_EQ(outcome(input, signature, key.pem()), "accepted");
    EXPECT_EQ(outcome(input, signature, spelt), "accepted");
    EXPECT_EQ(outcome(input, signature, Key::ec("P-256").explicitPem()), wrong);
}

TEST(PemVerifier, AcceptsOtherCurves)
{
    // Nothing ties a name to a curve but the lengths.
    for (const char* curve : {"secp256k1", "brainpoolP256r1"})
    {
        SCOPED_TRACE(curve);
        const Key key = Key::ec(curve);
        const std::string input = inputFor("ES256");
        const std::string der = key.sign(input, "SHA256");
        EXPECT_EQ(outcome(input, der, key.pem()), "accepted");
        EXPECT_EQ(outcome(input, issuer::sideBySide(der, 32), key.pem()), "accepted");
        EXPECT_EQ(outcome(input, der, Key::ec(curve).pem()), wrong);
    }
}

TEST(PemVerifier, KeepsErrnoAndTheErrorQueue)
{
    ERR_clear_error();
    ERR_raise(ERR_LIB_USER, 42);
    errno = EDOM;
    // Each of these leaves several errors of its own, and the queue holds sixteen.
    const std::vector<std::string> keys(40, "-----BEGIN PUBLIC KEY-----\nAAAA\n"
                                            "-----END PUBLIC KEY-----\n");
    const std::string input = inputFor("RS256");
    const Judgement judgement = judge(issuer::token(input, "signature"), {.keys = keys});
    EXPECT_EQ(errno, EDOM);
    EXPECT_EQ(ERR_GET_REASON(ERR_get_error()), 42);
    EXPECT_EQ(ERR_get_error(), 0U);
    EXPECT_EQ(judgement.rule, noKey);
}

} // namespace
