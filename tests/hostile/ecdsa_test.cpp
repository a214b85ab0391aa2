// SPDX-License-Identifier: Apache-2.0
#include "hostile/forge.hpp"
#include "support/certificates.hpp"
#include "support/issuer.hpp"
#include "support/judgement.hpp"
#include "support/refusals.hpp"

#include <gtest/gtest.h>
#include <openssl/ec.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

using forge::element;
using forge::integer;
using forge::negative;
using forge::Number;
using forge::sequence;

namespace
{

/** What is signed: a token without claims, so that nothing but its signature is judged. */
const std::string& input()
{
    static const std::string text = issuer::signingInput(R"({"alg":"ES256"})", "{}");
    return text;
}

/** The rule that refuses @p signature, "accepted" for none, wherever an ECDSA signature of somebody
 *  else is looked at. */
std::string ruleAsOwn(const std::string& signature)
{
    const tokens::PrivateKey& key = tokens::serviceKey();
    return support::ruleOf([&] {
        return verifySignature(input(), reinterpret_cast<const unsigned char*>(signature.data()),
                               static_cast<int>(signature.size()), key.data(), key.length());
    });
}

std::string ruleAsDelegated(const std::string& signature)
{
    const std::string pem = forge::publicPem(tokens::serviceKey());
    return judge(issuer::token(input(), signature), {.keys = {pem}}).signatureRule();
}

std::string ruleAsProof(const std::string& signature)
{
    static const support::EcKeyPtr key{
        get_EC_privKey(tokens::serviceKey().data(), tokens::serviceKey().length())};
    std::string text = support::base64Url(signature);
    return support::ruleOf([&] {
        return verifyHRSignature(input(), text.data(), static_cast<unsigned int>(text.size()),
                                 key.get());
    });
}

void expectFromAll(const std::string& signature, const std::string& own,
                   const std::string& delegated, const std::string& proof)
{
    EXPECT_EQ(ruleAsOwn(signature), own);
    EXPECT_EQ(ruleAsDelegated(signature), delegated);
    EXPECT_EQ(ruleAsProof(signature), proof);
}

void expectAccepted(const std::string& signature)
{
    expectFromAll(signature, "accepted", "accepted", "accepted");
}

void expectRefused(const std::string& signature)
{
    expectFromAll(signature, "token.signature", "token.signature", "handshake.proof-wrong");
}

/** A good signature and the two integers in it. */
struct Good
{
    std::string der;
    Number r{0};
    Number s{0};
};

/** One whose integers have 32 bytes and, as unsigned ones with the highest bit set, a zero in
 *  front: 30 46 | 02 21 00 r | 02 21 00 s. */
const Good& good()
{
    static const Good made = [] {
        std::string der;
        do
        {
            der = tokens::sign(input(), tokens::serviceKey());
        } while (der.size() != 72);
        return Good{der, Number::fromBytes(std::string_view{der}.substr(5, 32)),
                    Number::fromBytes(std::string_view{der}.substr(40, 32))};
    }();
    return made;
}

std::string pairOf(const std::string& r, const std::string& s)
{
    return sequence(r + s);
}

std::string pairOf(const Number& r, const Number& s)
{
    return pairOf(integer(r), integer(s));
}

TEST(EcdsaIntegers, AreThoseOfTheSignature)
{
    ASSERT_EQ(pairOf(good().r, good().s), good().der);
    expectAccepted(good().der);
    expectRefused(pairOf(good().s, good().r));
    expectRefused(pairOf(good().r, good().s + Number{1}));
    expectRefused(pairOf(good().r + Number{1}, good().s));
}

// A check that divides by zero without noticing takes these for signatures of everything.
TEST(EcdsaIntegers, AreNeverZeroNorBeyondTheOrder)
{
    const Number zero{0};
    const Number one{1};
    const Number order = forge::p256Order();
    const Number prime = forge::p256Prime();
    const std::vector<Number> outside = {zero,
                                         order,
                                         order + one,
                                         order + order,
                                         prime,
                                         Number::powerOfTwo(256) - one,
                                         Number::powerOfTwo(256),
                                         Number::powerOfTwo(4096)};
    for (const Number& r : outside)
    {
        expectRefused(pairOf(r, good().s));
        expectRefused(pairOf(good().r, r));
        for (const Number& s : outside)
        {
            expectRefused(pairOf(r, s));
        }
    }
    expectRefused(pairOf(one, one));
    expectRefused(pairOf(order - one, order - one));
    // The right ones modulo the order.
    expectRefused(pairOf(good().r + order, good().s));
    expectRefused(pairOf(good().r, good().s + order));
    expectRefused(pairOf(good().r + order, good().s + order));
    expectAccepted(good().der);
}

TEST(EcdsaIntegers, AreNeverNegative)
{
    const std::string r = integer(good().r);
    const std::string s = integer(good().s);
    const Number order = forge::p256Order();
    expectRefused(pairOf(negative(good().r), s));
    expectRefused(pairOf(r, negative(good().s)));
    expectRefused(pairOf(negative(good().r), negative(good().s)));
    expectRefused(pairOf(negative(order - good().r), s));
    expectRefused(pairOf(r, negative(order - good().s)));
    expectRefused(pairOf(element(0x02, good().r.bytes()), element(0x02, good().s.bytes())));
    expectAccepted(pairOf(r, s));
}

// Each signature has a twin that anybody can compute: r and the order less s. Neither JSON Web
// Signature nor the partners ask for the smaller one, so both are good. A token is therefore not
// identified by its text.
TEST(EcdsaIntegers, HaveATwinThatIsAsGood)
{
    const std::string twin = pairOf(good().r, forge::p256Order() - good().s);
    EXPECT_NE(twin, good().der);
    expectAccepted(twin);
    expectRefused(pairOf(forge::p256Order() - good().r, good().s));
}

TEST(EcdsaEncoding, IsDerAndNothingElse)
{
    const std::string r = integer(good().r);
    const std::string s = integer(good().s);
    const std::string both = r + s;
    const std::string rBytes = r.substr(2);
    const std::string sBytes = s.substr(2);
    const std::vector<std::pair<const char*, std::string>> others = {
        {"length of the sequence in two bytes", "\x30\x81\x46" + both},
        {"length of the sequence in three bytes", std::string{"\x30\x82\x00\x46", 4} + both},
        {"indefinite length", "\x30\x80" + both + std::string(2, '\0')},
        {"indefinite length without end", "\x30\x80" + both},
        {"length of r in two bytes", sequence("\x02\x81\x21" + rBytes + s)},
        {"length of s in two bytes", sequence(r + "\x02\x81\x21" + sBytes)},
        {"length of s in five bytes",
         sequence(r + std::string{"\x02\x84\x00\x00\x00\x21", 6} + sBytes)},
        {"length of nine bytes",
         std::string{"\x30\x88\x00\x00\x00\x00\x00\x00\x00\x46", 10} + both},
        {"length that does not fit", "\x30\x84\xff\xff\xff\xff" + both},
        {"length of s that does not fit", sequence(r + "\x02\x84\xff\xff\xff\xff" + sBytes)},
        {"zero before r", sequence(element(0x02, '\0' + rBytes) + s)},
        {"zero before s", sequence(r + element(0x02, '\0' + sBytes))},
        {"a thousand zeros before s",
         sequence(r + element(0x02, std::string(1000, '\0') + sBytes))},
        {"no bytes in r", sequence(std::string{"\x02\x00", 2} + s)},
        {"no bytes in s", sequence(r + std::string{"\x02\x00", 2})},
        {"nothing in the sequence", std::string{"\x30\x00", 2}},
        {"r alone", sequence(r)},
        {"third integer", sequence(both + integer(Number{1}))},
        {"null within", sequence(both + std::string{"\x05\x00", 2})},
        {"null before", sequence(std::string{"\x05\x00", 2} + both)},
        {"null behind", good().der + std::string{"\x05\x00", 2}},
        {"zero behind", good().der + '\0'},
        {"itself behind", good().der + good().der},
        {"sequence in a sequence", sequence(good().der)},
        {"integers without a sequence", both},
        {"set", element(0x31, both)},
        {"primitive sequence", element(0x10, both)},
        {"octet string", element(0x04, both)},
        {"octet strings", sequence(element(0x04, rBytes) + element(0x04, sBytes))},
        {"enumerated", sequence(element(0x0a, rBytes) + s)},
        {"constructed integer", sequence(element(0x22, r) + s)},
        {"wrapped in a bit string", element(0x03, '\0' + good().der)},
        {"r of ten thousand bytes",
         sequence(element(0x02, "\x01" + std::string(10000, '\xff')) + s)},
    };
    for (const auto& [name, signature] : others)
    {
        SCOPED_TRACE(name);
        expectRefused(signature);
    }
    expectAccepted(good().der);
}

TEST(EcdsaEncoding, HasNoOtherLength)
{
    // The empty text is not Base64.
    expectFromAll("", "token.signature", "base64.malformed", "base64.malformed");
    for (std::size_t length = 1; length < good().der.size(); ++length)
    {
        SCOPED_TRACE(length);
        expectRefused(good().der.substr(0, length));
        expectRefused(good().der.substr(good().der.size() - length));
    }
    expectRefused(std::string(60000, '\x30'));
    expectRefused(std::string(60000, '\0'));
    expectRefused(good().der + std::string(60000, '\0'));
    expectAccepted(good().der);
}

TEST(EcdsaEncoding, RefusesEachFlippedBit)
{
    for (std::size_t bit = 0; bit < good().der.size() * 8; ++bit)
    {
        std::string flipped = good().der;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
        SCOPED_TRACE(bit);
        expectRefused(flipped);
    }
    expectAccepted(good().der);
}

// The integers side by side are the form of RFC 7518, section 3.4: tokens of others have it. The
// service writes DER, and so do the clients of the handshake.
TEST(EcdsaEncoding, IsBareInTokensOfOthersOnly)
{
    const std::string bare = good().r.bytes(32) + good().s.bytes(32);
    EXPECT_EQ(ruleAsOwn(bare), "token.signature");
    EXPECT_EQ(ruleAsDelegated(bare), "accepted");
    EXPECT_EQ(ruleAsProof(bare), "handshake.proof-wrong");
    for (std::size_t length = 1; length < bare.size(); ++length)
    {
        EXPECT_EQ(ruleAsDelegated(bare.substr(0, length)), "token.signature") << length;
    }
    EXPECT_EQ(ruleAsDelegated(bare + '\0'), "token.signature");
    EXPECT_EQ(ruleAsDelegated('\0' + bare), "token.signature");
    EXPECT_EQ(ruleAsDelegated(good().r.bytes(33) + good().s.bytes(33)), "token.signature");
    EXPECT_EQ(ruleAsDelegated(good().r.bytes(48) + good().s.bytes(48)), "token.signature");
    EXPECT_EQ(ruleAsDelegated(good().s.bytes(32) + good().r.bytes(32)), "token.signature");
    const Number order = forge::p256Order();
    EXPECT_EQ(ruleAsDelegated(std::string(64, '\0')), "token.signature");
    EXPECT_EQ(ruleAsDelegated(std::string(64, '\xff')), "token.signature");
    EXPECT_EQ(ruleAsDelegated(order.bytes(32) + order.bytes(32)), "token.signature");
    EXPECT_EQ(ruleAsDelegated(good().r.bytes(32) + (order - good().s).bytes(32)), "accepted");
}

} // namespace
