// SPDX-License-Identifier: Apache-2.0
#include "hostile/forge.hpp"
#include "oauth2/jwt/issuer.hpp"
#include "oauth2/jwt/judgement.hpp"
#include "support/certificates.hpp"
#include "support/hostile.hpp"

#include <gtest/gtest.h>
#include <openssl/ec.h>

#include <cstddef>
#include <cstdint>
#include <functional>
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

bool acceptedAsOwn(const std::string& signature)
{
    const tokens::PrivateKey& key = tokens::serviceKey();
    return verifySignature(input(), reinterpret_cast<const unsigned char*>(signature.data()),
                           static_cast<int>(signature.size()), key.data(), key.length()) == 1;
}

bool acceptedAsDelegated(const std::string& signature)
{
    const std::string pem = forge::publicPem(tokens::serviceKey());
    return judge(issuer::token(input(), signature), {.keys = {pem}}).verified == 1;
}

bool acceptedAsProof(const std::string& signature)
{
    static const support::EcKeyPtr key{
        get_EC_privKey(tokens::serviceKey().data(), tokens::serviceKey().length())};
    std::string text = support::base64Url(signature);
    return verifyHRSignature(input(), text.data(), static_cast<unsigned int>(text.size()),
                             key.get()) == 1;
}

/** Each place where an ECDSA signature of somebody else is looked at. */
struct Verifier
{
    const char* name;
    bool (*accepts)(const std::string& signature);
};
constexpr Verifier verifiers[] = {{"own token", acceptedAsOwn},
                                  {"delegated token", acceptedAsDelegated},
                                  {"certificate proof", acceptedAsProof}};

void expectFromAll(const std::string& signature, bool accepted)
{
    for (const Verifier& verifier : verifiers)
    {
        EXPECT_EQ(verifier.accepts(signature), accepted) << verifier.name;
    }
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
    expectFromAll(good().der, true);
    expectFromAll(pairOf(good().s, good().r), false);
    expectFromAll(pairOf(good().r, good().s + Number{1}), false);
    expectFromAll(pairOf(good().r + Number{1}, good().s), false);
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
        expectFromAll(pairOf(r, good().s), false);
        expectFromAll(pairOf(good().r, r), false);
        for (const Number& s : outside)
        {
            expectFromAll(pairOf(r, s), false);
        }
    }
    expectFromAll(pairOf(one, one), false);
    expectFromAll(pairOf(order - one, order - one), false);
    // The right ones modulo the order.
    expectFromAll(pairOf(good().r + order, good().s), false);
    expectFromAll(pairOf(good().r, good().s + order), false);
    expectFromAll(pairOf(good().r + order, good().s + order), false);
    expectFromAll(good().der, true);
}

TEST(EcdsaIntegers, AreNeverNegative)
{
    const std::string r = integer(good().r);
    const std::string s = integer(good().s);
    const Number order = forge::p256Order();
    expectFromAll(pairOf(negative(good().r), s), false);
    expectFromAll(pairOf(r, negative(good().s)), false);
    expectFromAll(pairOf(negative(good().r), negative(good().s)), false);
    expectFromAll(pairOf(negative(order - good().r), s), false);
    expectFromAll(pairOf(r, negative(order - good().s)), false);
    expectFromAll(pairOf(element(0x02, good().r.bytes()), element(0x02, good().s.bytes())), false);
    expectFromAll(pairOf(r, s), true);
}

// Whoever has one signature has its twin: r and the order less s. Neither JSON Web Signature nor the
// partners ask for the smaller one, so both are good; a token's text is no name for the token.
TEST(EcdsaIntegers, HaveATwinThatIsAsGood)
{
    const std::string twin = pairOf(good().r, forge::p256Order() - good().s);
    EXPECT_NE(twin, good().der);
    expectFromAll(twin, true);
    expectFromAll(pairOf(forge::p256Order() - good().r, good().s), false);
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
        expectFromAll(signature, false);
    }
    expectFromAll(good().der, true);
}

TEST(EcdsaEncoding, HasNoOtherLength)
{
    for (std::size_t length = 0; length < good().der.size(); ++length)
    {
        SCOPED_TRACE(length);
        expectFromAll(good().der.substr(0, length), false);
        expectFromAll(good().der.substr(good().der.size() - length), false);
    }
    expectFromAll(std::string(60000, '\x30'), false);
    expectFromAll(std::string(60000, '\0'), false);
    expectFromAll(good().der + std::string(60000, '\0'), false);
    expectFromAll(good().der, true);
}

TEST(EcdsaEncoding, RefusesEachFlippedBit)
{
    for (std::size_t bit = 0; bit < good().der.size() * 8; ++bit)
    {
        std::string flipped = good().der;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
        SCOPED_TRACE(bit);
        expectFromAll(flipped, false);
    }
    expectFromAll(good().der, true);
}

// The integers side by side are the form of RFC 7518, section 3.4: tokens of others have it. The
// service writes DER, and so do the clients of the handshake.
TEST(EcdsaEncoding, IsBareInTokensOfOthersOnly)
{
    const std::string bare = good().r.bytes(32) + good().s.bytes(32);
    EXPECT_FALSE(acceptedAsOwn(bare));
    EXPECT_TRUE(acceptedAsDelegated(bare));
    EXPECT_FALSE(acceptedAsProof(bare));
    for (std::size_t length = 0; length < bare.size(); ++length)
    {
        EXPECT_FALSE(acceptedAsDelegated(bare.substr(0, length))) << length;
    }
    EXPECT_FALSE(acceptedAsDelegated(bare + '\0'));
    EXPECT_FALSE(acceptedAsDelegated('\0' + bare));
    EXPECT_FALSE(acceptedAsDelegated(good().r.bytes(33) + good().s.bytes(33)));
    EXPECT_FALSE(acceptedAsDelegated(good().r.bytes(48) + good().s.bytes(48)));
    EXPECT_FALSE(acceptedAsDelegated(good().s.bytes(32) + good().r.bytes(32)));
    const Number order = forge::p256Order();
    EXPECT_FALSE(acceptedAsDelegated(std::string(64, '\0')));
    EXPECT_FALSE(acceptedAsDelegated(std::string(64, '\xff')));
    EXPECT_FALSE(acceptedAsDelegated(order.bytes(32) + order.bytes(32)));
    EXPECT_TRUE(acceptedAsDelegated(good().r.bytes(32) + (order - good().s).bytes(32)));
}

} // namespace
