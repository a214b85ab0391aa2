// SPDX-License-Identifier: Apache-2.0
#include "service/keys.hpp"
#include "service/registration/service_support.hpp"
#include "support/refusals.hpp"

#include <gtest/gtest.h>
#include <openssl/rand.h>

#include <algorithm>
#include <chrono>
#include <string>

// What docs/threats.md promises and no other test shows.
namespace bmcoauth
{

namespace
{

using namespace std::chrono_literals;

constexpr const char* header = R"({"typ":"JWT","alg":"ES256","kid":"one"})";
constexpr const char* claims = R"({"sub":"admin","iss":"controller","jti":"1","iat":"1000000",)"
                               R"("nbf":"1000000","exp":"1000600","scope":{"aud":["console"]}})";

std::string tokenOf(const std::string& head, const std::string& body,
                    const issuer::Key& key = issuer::p256Key())
{
    const std::string input = issuer::signingInput(head, body);
    return issuer::token(input, key.sign(input, "SHA256"));
}

/** A validator of tokens that the key "one" signs. */
TokenValidator console()
{
    const VerificationKeys keys =
        VerificationKeys::of(jwks(ecJwk(issuer::p256Key(), {{"kid", "\"one\""}}))).value();
    return TokenValidator::of(keys,
                              {.issuer = "controller",
                               .audience = "console",
                               .longestLifetime = 10min,
                               .revoked = ignored},
                              TestClock{})
        .value();
}

TEST(ThreatToTokens, AKeyThatTheHeaderBringsIsNotLookedAt)
{
    const issuer::Key& stranger = issuer::otherP256Key();
    EXPECT_REFUSED("accepted", console().validate(tokenOf(header, claims)));
    for (const std::string& member : {R"("jwk":)" + ecJwk(stranger, {{"kid", "\"one\""}}),
                                      std::string{R"("jku":"https://stranger.example/keys")"},
                                      std::string{R"("x5u":"https://stranger.example/chain")"},
                                      std::string{R"("x5c":["MIIB"])"}})
    {
        std::string with{header};
        with.insert(1, member + ",");
        EXPECT_REFUSED("token.signature", console().validate(tokenOf(with, claims, stranger)));
        EXPECT_REFUSED("accepted", console().validate(tokenOf(with, claims)));
    }
}

TEST(ThreatToTokens, AMemberThatComesTwiceIsTheLastOne)
{
    std::string twice{claims};
    twice.insert(1, R"("sub":"nobody",)");
    const ValidToken valid = console().validate(tokenOf(header, twice)).value();
    EXPECT_EQ(valid.claims().subject(), "admin");
    EXPECT_REFUSED("policy.algorithm",
                   console().validate(tokenOf(
                       R"({"typ":"JWT","alg":"ES256","kid":"one","alg":"HS256"})", claims)));
}

TEST(ThreatToTokens, OnesOwnAndThoseOfOthersAreToldApartUnderOneKey)
{
    const DelegatedValidator delegated =
        DelegatedValidator::of({{.name = "controller",
                                 .jwks = jwks(ecJwk(issuer::p256Key(), {{"kid", "\"one\""}})),
                                 .algorithms = {"ES256"},
                                 .audience = ignored,
                                 .longestLifetime = ignored,
                                 .type = ignored}},
                               {.revoked = ignored}, TestClock{})
            .value();
    EXPECT_REFUSED("policy.scopes", delegated.validate(tokenOf(header, claims)));
    const std::string theirs = tokenOf(
        header, R"({"sub":"admin","iss":"controller","jti":"1","iat":1000000,"nbf":1000000,)"
                R"("exp":1000600,"aud":"console","scope":"ravok_login"})");
    EXPECT_REFUSED("accepted", delegated.validate(theirs));
    EXPECT_REFUSED("policy.audience", console().validate(theirs));
}

/** As long as it lives, OpenSSL draws the same random numbers again and again. */
class RepeatedRandom
{
public:
    RepeatedRandom()
    {
        method.bytes = [](unsigned char* bytes, int count) {
            std::fill_n(bytes, count, static_cast<unsigned char>(7));
            return 1;
        };
        method.status = [] {
            return 1;
        };
        RAND_set_rand_method(&method);
    }
    RepeatedRandom(const RepeatedRandom&) = delete;
    RepeatedRandom(RepeatedRandom&&) = delete;
    RepeatedRandom& operator=(const RepeatedRandom&) = delete;
    RepeatedRandom& operator=(RepeatedRandom&&) = delete;
    ~RepeatedRandom()
    {
        RAND_set_rand_method(nullptr);
    }

private:
    RAND_METHOD method{};
};

/** The first number of a signature, as its nonce makes it. */
std::string firstNumber(const Text& signature)
{
    const Bytes der = decodeBase64Url(signature).value();
    // SEQUENCE, INTEGER, and the length of the first number.
    return std::string{der.view().substr(4, static_cast<unsigned char>(der.view()[3]))};
}

TEST(ThreatToKeys, NoncesDifferWhereRandomNumbersDoNot)
{
    const KeyPair pair = KeyPair::generate().value();
    const RepeatedRandom repeated;
    const std::string one = firstNumber(sign("one", pair.privateKey).value());
    EXPECT_EQ(one, firstNumber(sign("one", pair.privateKey).value()));
    // Two texts under one nonce give the key away.
    EXPECT_NE(one, firstNumber(sign("two", pair.privateKey).value()));
}

struct ThreatByClients : TestService
{
};

TEST_F(ThreatByClients, WhoChooseTheirNameAndRights)
{
    TestClient client;
    std::string text = client.registration();
    text.insert(1, R"("client_id":"admin","client_secret":"mine","scope":"ravok_users",)");
    client.keep(registrar().answer(text, "sender").value());
    EXPECT_NE(client.id, "admin");
    EXPECT_NE(client.secret, "mine");
    // 16 random bytes each, in Base64.
    EXPECT_EQ(client.id.size(), 24U);
    EXPECT_EQ(client.secret.size(), 24U);
    std::string proof = client.proof();
    proof.insert(1, R"("scope":"ravok_users",)");
    const Tokens given = TestClient::tokensOf(endpoint().answer(proof, "sender").value());
    const Text described = endpoint().introspect(given.access, "resource").value();
    EXPECT_EQ(parseJson(described).value()["scope"], "ravok_login");
}

TEST_F(ThreatByClients, WhoShowTheTokensOfAnother)
{
    const TestClient one = registered();
    const TestClient other = registered();
    const Tokens ones = proven(one);
    EXPECT_REFUSED("client.refresh-unknown",
                   endpoint().answer(other.refreshing(ones.refresh), "sender"));
    static_cast<void>(proven(other));
    EXPECT_REFUSED("client.refresh-unknown",
                   endpoint().answer(other.refreshing(ones.refresh), "sender"));
    // An access token is not a refresh token.
    EXPECT_REFUSED("client.refresh-unknown",
                   endpoint().answer(one.refreshing(ones.access), "sender"));
    EXPECT_TRUE(endpoint().answer(one.refreshing(ones.refresh), "sender"));
}

} // namespace

} // namespace bmcoauth
