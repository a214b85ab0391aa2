// SPDX-License-Identifier: Apache-2.0
#include "hostile/forge.hpp"
#include "support/certificates.hpp"
#include "support/issuer.hpp"
#include "support/judgement.hpp"
#include "support/refusals.hpp"
#include "support/vectors.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using forge::Number;
using forge::Point;

namespace
{

/** A private key of a small number, as an ECPrivateKey structure (RFC 5915) with its curve. */
tokens::PrivateKey smallKey(unsigned long number)
{
    const std::string der =
        forge::sequence(forge::integer(Number{1}) + forge::element(0x04, Number{number}.bytes(32)) +
                        forge::element(0xa0, support::fromHex("06082a8648ce3d030107")));
    return {{der.begin(), der.end()}};
}

// The smallest numbers whose point's x, and whose point's y, begins with a zero byte.
constexpr unsigned long withShortX = 379;
constexpr unsigned long withShortY = 43;

/** The rule by which the key @p trusted refuses a signature of @p signer; "accepted" for none. */
std::string ruleOf(const std::string& trusted, const tokens::PrivateKey& signer,
                   std::string_view header = R"({"alg":"ES256"})")
{
    const std::string input = issuer::signingInput(header, "{}");
    return judge(issuer::token(input, tokens::sign(input, signer)), {.keys = {trusted}})
        .signatureRule();
}

/** The same of the key that is made of these coordinates. */
std::string ruleOf(const Point& point, const tokens::PrivateKey& signer)
{
    return ruleOf(forge::ecJwk(point), signer);
}

bool imported(const Point& point)
{
    return forge::ecJwk(point).find("kest_decoded_key") != std::string::npos;
}

TEST(EcCoordinates, AreNumbersOfAnyLength)
{
    // RFC 7518 asks for 32 bytes; there are issuers that leave the leading zero out, or put one
    // before a byte that is negative to them.
    for (const unsigned long number : {withShortX, withShortY, 1UL})
    {
        SCOPED_TRACE(number);
        const tokens::PrivateKey key = smallKey(number);
        const Point point = forge::pointOf(key);
        ASSERT_EQ(point.x[0] == '\0', number == withShortX);
        ASSERT_EQ(point.y[0] == '\0', number == withShortY);
        const std::string shortX = Number::fromBytes(point.x).bytes();
        const std::string shortY = Number::fromBytes(point.y).bytes();
        EXPECT_EQ(ruleOf(point, key), "accepted");
        EXPECT_EQ(ruleOf({shortX, shortY}, key), "accepted");
        EXPECT_EQ(ruleOf({'\0' + point.x, '\0' + point.y}, key), "accepted");
        EXPECT_EQ(ruleOf({std::string(1000, '\0') + point.x, point.y}, key), "accepted");
        EXPECT_EQ(ruleOf(point, smallKey(number + 1)), "token.signature");
    }
}

TEST(EcCoordinates, AreRefusedWhenTheyAreOfNoPoint)
{
    const tokens::PrivateKey key = smallKey(withShortX);
    const auto [x, y] = forge::pointOf(key);
    EXPECT_TRUE(imported({x, y}));
    const Number prime = forge::p256Prime();
    const Number xNumber = Number::fromBytes(x);
    const Number yNumber = Number::fromBytes(y);
    const std::string zero(32, '\0');
    const std::vector<std::pair<const char*, Point>> others = {
        {"exchanged", {y, x}},
        {"x without its last byte", {x.substr(0, 31), y}},
        {"y without its last byte", {x, y.substr(0, 31)}},
        {"x without a first byte that counts", {x.substr(2), y}},
        {"x and a zero behind", {x + '\0', y}},
        {"y and a zero behind", {x, y + '\0'}},
        {"one before x", {'\x01' + x, y}},
        {"one before y", {x, '\x01' + y}},
        {"x twice", {x + x, y}},
        {"no x", {"", y}},
        {"no y", {x, ""}},
        {"nothing", {"", ""}},
        {"x and the prime", {(xNumber + prime).bytes(), y}},
        {"y and the prime", {x, (yNumber + prime).bytes()}},
        {"x is the prime", {prime.bytes(), y}},
        {"zeros, as some write infinity", {zero, zero}},
        {"x is zero", {zero, y}},
        {"y is zero", {x, zero}},
        {"ones", {std::string(32, '\xff'), std::string(32, '\xff')}},
        {"one beside the point", {(xNumber + Number{1}).bytes(32), y}},
        {"x as an encoded point", {'\x04' + x + y, y}},
        {"x as a compressed point", {'\x02' + x, y}},
        {"72 KiB", {std::string(73728, '\xff'), y}},
    };
    for (const auto& [name, point] : others)
    {
        SCOPED_TRACE(name);
        const bool both = !point.x.empty() && !point.y.empty();
        EXPECT_REFUSED(both ? "jwk.point" : "base64.malformed", imported(point));
        EXPECT_EQ(ruleOf(point, key), "token.key-not-imported");
    }
    for (std::size_t bit = 0; bit < 512; ++bit)
    {
        std::string both = x + y;
        both[bit / 8] = static_cast<char>(both[bit / 8] ^ (1 << bit % 8));
        EXPECT_REFUSED("jwk.point", imported(Point{both.substr(0, 32), both.substr(32)})) << bit;
    }
}

TEST(EcCoordinates, OfTheOppositePointAreAnotherKey)
{
    const tokens::PrivateKey key = smallKey(1);
    const auto [x, y] = forge::pointOf(key);
    const Point opposite{x, (forge::p256Prime() - Number::fromBytes(y)).bytes(32)};
    EXPECT_TRUE(imported(opposite));
    EXPECT_EQ(ruleOf(opposite, key), "token.signature");
    EXPECT_EQ(ruleOf({x, y}, key), "accepted");
}

// The key decides the curve, never the token. An attacker who could choose a curve and its
// generator for a given point would have the private key.
TEST(EcCurve, IsNotTheTokensToChoose)
{
    constexpr std::string_view header =
        R"({"alg":"ES256","crv":"secp256k1","jwk":{"kty":"EC","crv":"secp256k1"}})";
    const std::string own = forge::publicPem(tokens::serviceKey());
    const std::string other = forge::publicPem(tokens::otherKey());
    EXPECT_EQ(ruleOf(own, tokens::serviceKey(), header), "accepted");
    EXPECT_EQ(ruleOf(other, tokens::serviceKey(), header), "token.signature");
}

// Headers that carry or name a key of their own: nobody follows them.
TEST(KeyInTheHeader, IsNeverLookedAt)
{
    const Point point = forge::pointOf(tokens::otherKey());
    const std::string jwk = forge::ecJwk(point);
    const std::string quotedPem = jwk.substr(jwk.find("kest_decoded_key") + 18);
    const std::string pem = quotedPem.substr(0, quotedPem.find("\",") + 1);
    const std::vector<std::string> members = {
        R"("jwk":)" + jwk,
        R"("jwk":)" + jwk + R"(,"kid":"attacker")",
        R"("x5c":["MIIB"])",
        R"("jku":"https://attacker/keys","x5u":"file:///etc/passwd")",
        R"("kest_decoded_key":)" + pem,
        R"("kid":"../../../../dev/null")",
        R"("kid":"' OR '1'='1")",
        R"("kid":"")",
        R"("crit":["exp"])",
        R"("b64":false,"crit":["b64"])",
        R"("zip":"DEF")",
        R"("cty":"JWT")",
    };
    const std::string trusted =
        forge::ecJwk(forge::pointOf(tokens::serviceKey()), R"("kid":"service",)");
    for (const std::string& member : members)
    {
        SCOPED_TRACE(member);
        const std::string header = R"({"alg":"ES256","typ":"JWT",)" + member + "}";
        EXPECT_EQ(ruleOf(trusted, tokens::serviceKey(), header), "accepted");
        EXPECT_EQ(ruleOf(trusted, tokens::otherKey(), header), "token.signature");
    }
}

// Only the members with the exact names count: a zero byte ends a text of the
// interface, and the key under the name without a zero byte comes first.
TEST(KeyMembers, WithZeroBytesDoNotReplaceOthers)
{
    const std::string trusted = forge::ecJwk(forge::pointOf(tokens::serviceKey()));
    const std::string foreign = forge::ecJwk(forge::pointOf(tokens::otherKey()));
    const std::string from = foreign.substr(foreign.find("\"kest_decoded_key\""));
    std::string hidden = from.substr(0, from.find("\",") + 2);
    hidden.insert(hidden.find("key\"") + 3, R"(\u0000)");
    const std::string mixed = "{" + hidden + trusted.substr(1);
    ASSERT_NE(mixed.find(R"("kest_decoded_key\u0000":)"), std::string::npos);
    EXPECT_EQ(ruleOf(mixed, tokens::serviceKey()), "accepted");
    EXPECT_EQ(ruleOf(mixed, tokens::otherKey()), "token.signature");
}

// Which of two members with one name counts is the same in every document: the last one.
TEST(KeyMembers, CountOnceAndTheLastOne)
{
    const auto [x, y] = forge::pointOf(tokens::serviceKey());
    const auto other = forge::pointOf(tokens::otherKey());
    const std::string coordinates =
        R"("x":")" + support::base64Url(x) + R"(","y":")" + support::base64Url(y) + "\"}";
    const std::string otherCoordinates = R"("x":")" + support::base64Url(other.x) + R"(","y":")" +
                                         support::base64Url(other.y) + "\",";
    const auto judged = [](const std::string& jwk, const tokens::PrivateKey& signer) {
        return ruleOf(forge::completed(jwk), signer);
    };
    const std::string two = R"({"kty":"EC",)" + otherCoordinates + coordinates;
    EXPECT_EQ(judged(two, tokens::serviceKey()), "accepted");
    EXPECT_EQ(judged(two, tokens::otherKey()), "token.signature");
    EXPECT_EQ(judged(R"({"kty":"oct","kty":"EC",)" + coordinates, tokens::serviceKey()),
              "accepted");
    EXPECT_EQ(judged(R"({"kty":"EC","kty":"oct",)" + coordinates, tokens::serviceKey()),
              "token.key-not-selected");
}

} // namespace
