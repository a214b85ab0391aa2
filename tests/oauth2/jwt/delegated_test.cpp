// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/hostile.hpp"
#include "support/issuer.hpp"
#include "support/judgement.hpp"
#include "support/machine.hpp"
#include "support/tokens.hpp"

#include <gtest/gtest.h>
#include <json/json.h>
#include <openssl/err.h>
#include <openssl/hmac.h>

#include <strutil.h>

#include <array>
#include <cerrno>
#include <map>
#include <string>
#include <vector>

using namespace support;

namespace
{

/** What cleanPrint was last given. */
std::string cleanedText;

} // namespace

/** Takes the place of the string library's function, to see what it is handed. */
extern "C" void cleanPrint(char* text)
{
    cleanedText = text;
}

namespace
{

constexpr std::time_t now = 1700000000;

/** The clock at `now`, and a token that is valid then. */
class ValidateJwtDelegated : public ::testing::Test
{
protected:
    FakeClock clock{now};
};

/** Claims that hold at `now`, and what is put between them, such as `"sub":"x",`. */
std::string claims(const std::string& more = {})
{
    return "{" + more + R"("exp":1700003600,"nbf":1700000000})";
}

std::string headerOf(const std::string& algorithm, const std::string& more = {})
{
    return R"({"alg":")" + algorithm + R"(","typ":"JWT")" + more + "}";
}

/** A token signed as its header's algorithm demands, with SHA-256. */
std::string es256Token(const std::string& header, const std::string& payload,
                       const issuer::Key& key = issuer::p256Key())
{
    const std::string input = issuer::signingInput(header, payload);
    return issuer::token(input, issuer::sideBySide(key.sign(input, "SHA256"), 32));
}

std::string es256Token(const std::string& payload = claims())
{
    return es256Token(headerOf("ES256"), payload);
}

std::string rsaToken(const std::string& algorithm, const issuer::Padding& padding = {})
{
    const std::string input = issuer::signingInput(headerOf(algorithm), claims());
    return issuer::token(input, issuer::rsaKey().sign(input, "SHA256", padding));
}

using Members = std::map<std::string, std::string>;

/** A trusted JWK: the members of `members`, and the key as appendPublicKey adds it. */
std::string jwkOf(const issuer::Key& key, const Members& members)
{
    Json::Value object{Json::objectValue};
    for (const auto& [name, value] : members)
    {
        object[name] = value;
    }
    std::string pem = key.pem();
    pem.pop_back();
    object["kest_decoded_key"] = pem;
    return Json::writeString(Json::StreamWriterBuilder{}, object);
}

std::string pem()
{
    return issuer::p256Key().pem();
}

/** A JWK that the "kid" of no token selects, and no other member. */
const std::string unselected = R"({"kid":"nobody"})";

/** The scope entries of a payload: names and first values. */
using Entries = std::vector<std::pair<std::string, std::string>>;

Entries entriesOf(const Judgement& judgement)
{
    Entries entries;
    for (int i = 0; judgement.payload != nullptr && i < judgement.payload->scopes_count; ++i)
    {
        const JWTscopes& scope = judgement.payload->scopes[i];
        EXPECT_EQ(scope.count, 1);
        entries.emplace_back(orNull(scope.name), orNull(scope.values[0]));
    }
    return entries;
}

Entries rightsOf(const std::string& subject, const std::string& mask)
{
    return {{"AUTHNZ_USER", subject}, {"USER_PRIV", mask}, {"singleUse", "false"}};
}

TEST_F(ValidateJwtDelegated, AcceptsAPemKey)
{
    const Judgement judgement = judge(es256Token(claims(R"("sub":"alice",)")), {.keys = {pem()}});
    EXPECT_EQ(judgement.verdict, 1);
    EXPECT_EQ(judgement.verified, 1);
    ASSERT_TRUE(judgement.hasRecords());
    EXPECT_STREQ(judgement.header->alg, "ES256");
    EXPECT_STREQ(judgement.header->typ, "JWT");
    EXPECT_EQ(judgement.header->kid, nullptr);
    EXPECT_STREQ(judgement.payload->sub, "alice");
    EXPECT_STREQ(judgement.payload->exp, "1700003600");
}

TEST_F(ValidateJwtDelegated, AcceptsAJwk)
{
    const std::string key = jwkOf(issuer::p256Key(), {{"kty", "EC"}, {"crv", "P-256"}});
    EXPECT_EQ(judge(es256Token(), {.keys = {key}}).verdict, 1);
}

TEST_F(ValidateJwtDelegated, AcceptsAJwkThatAppendPublicKeyCompleted)
{
    // RFC 7515, A.3.1.
    const std::string published =
        R"({"kty":"EC","crv":"P-256","x":"f83OJ3D2xF1Bg8vub9tLe1gHMzV76e8Tus9uPHvRVEU",)"
        R"("y":"x_FEzRu9m36HLN_tue659LNpXW6pCyStikYjKIWI5a0"})";
    const std::string token = "eyJhbGciOiJFUzI1NiJ9"
                              ".eyJpc3MiOiJqb2UiLA0KICJleHAiOjEzMDA4MTkzODAsDQogImh0dHA6Ly9leGFt"
                              "cGxlLmNvbS9pc19yb290Ijp0cnVlfQ"
                              ".DtEhU3ljbEg8L38VWAfUAqOyKAM6-Xx-F4GawxaepmXFCgfTjDxw5djxLa8ISlSA"
                              "pmWQxfKTUJqPP3-Kg6NU1Q";
    clock.set(1300819379);
    // As it is published it holds no key that the verifier can read.
    EXPECT_EQ(judge(token, {.keys = {published}}).rule, "token.key-not-imported");
    char* completed = heapText(published).release();
    ASSERT_EQ(appendPublicKey(&completed), 1);
    const HeapText owned{completed};
    const Judgement judgement = judge(token, {.keys = {completed}});
    EXPECT_EQ(judgement.verdict, 1);
    ASSERT_TRUE(judgement.hasRecords());
    EXPECT_STREQ(judgement.payload->iss, "joe");
    clock.set(1300819380);
    EXPECT_EQ(judge(token, {.keys = {completed}}).rule, "token.expired");
    // "jse" instead of "joe".
    std::string forged = token;
    forged[33] = 'c';
    EXPECT_EQ(judge(forged, {.keys = {completed}}).rule, "token.signature");
}

TEST_F(ValidateJwtDelegated, AcceptsTheRsaTokenOfRfc7515)
{
    // RFC 7515, A.2.1.
    const std::string token = "eyJhbGciOiJSUzI1NiJ9"
                              ".eyJpc3MiOiJqb2UiLA0KICJleHAiOjEzMDA4MTkzODAsDQogImh0dHA6Ly9leGFt"
                              "cGxlLmNvbS9pc19yb290Ijp0cnVlfQ"
                              ".cC4hiUPoj9Eetdgtv3hF80EGrhuB__dzERat0XF9g2VtQgr9PJbu3XOiZj5RZmh7"
                              "AAuHIm4Bh-0Qc_lF5YKt_O8W2Fp5jujGbds9uJdbF9CUAr7t1dnZcAcQjbKBYNX4"
                              "BAynRFdiuB--f_nZLgrnbyTyWzO75vRK5h6xBArLIARNPvkSjtQBMHlb1L07Qe7K"
                              "0GarZRmB_eSN9383LcOLn6_dO--xi12jzDwusC-eOkHWEsqtFZESc6BfI7noOPqv"
                              "hJ1phCnvWh6IeYI2w9QOYEUipUTI8np6LbgGY9Fs98rqVt5AXLIhWkWywlVmtVrB"
                              "p0igcN_IoypGlUPQGe77Rw";
    char* completed =
        heapText(R"({"kty":"RSA","e":"AQAB",)"
                 R"("n":"ofgWCuLjybRlzo0tZWJjNiuSfb4p4fAkd_wWJcyQoTbji9k0l8W26mPddxHmfHQp-Vaw-)"
                 R"(4qPCJrcS2mJPMEzP1Pt0Bm4d4QlL-yRT-SFd2lZS-pCgNMsD1W_YpRPEwOWvG6b32690r2jZ47)"
                 R"(soMZo9wGzjb_7OMg0LOL-bSf63kpaSHSXndS5z5rexMdbBYUsLA9e-KXBdQOS-UTo7WTBEMa2R2)"
                 R"(CapHg665xsmtdVMTBQY4uDZlxvb3qCo5ZwKh9kG4LT6_I5IhlJH7aGhyxXFvUK-DWNmoudF8NAc)"
                 R"(o9_h9iaGNj8q2ethFkMLs91kzk2PAcDTW9gb54h4FRWyuXpoQ"})")
            .release();
    ASSERT_EQ(appendPublicKey(&completed), 1);
    const HeapText owned{completed};
    clock.set(1300819379);
    EXPECT_EQ(judge(token, {.keys = {completed}}).verdict, 1);
    std::string forged = token;
    forged[200] = forged[200] == 'A' ? 'B' : 'A';
    EXPECT_EQ(judge(forged, {.keys = {completed}}).rule, "token.signature");
}

TEST_F(ValidateJwtDelegated, RefusesMissingArguments)
{
    const std::string token = es256Token();
    const std::string text = pem();
    const char* keys[] = {text.c_str(), nullptr};
    const char* none[] = {nullptr};
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    int verified = -1;
    const auto call = [&](const char* tokenText, const char** keyList, JWTHeader** headerOut,
                          JWTPayload** payloadOut, int* flag) {
        return validateJWT_Delegated(tokenText, keyList, 0, headerOut, payloadOut, 0, nullptr,
                                     nullptr, flag);
    };
    EXPECT_REFUSED("argument.null", call(nullptr, keys, &header, &payload, &verified));
    EXPECT_STREQ(lastRefusal().subject, "token");
    EXPECT_REFUSED("argument.null", call(token.c_str(), nullptr, &header, &payload, &verified));
    EXPECT_STREQ(lastRefusal().subject, "keys");
    EXPECT_REFUSED("argument.null", call(token.c_str(), none, &header, &payload, &verified));
    EXPECT_STREQ(lastRefusal().subject, "keys");
    EXPECT_REFUSED("argument.null", call(token.c_str(), keys, nullptr, &payload, &verified));
    EXPECT_STREQ(lastRefusal().subject, "header");
    EXPECT_REFUSED("argument.null", call(token.c_str(), keys, &header, nullptr, &verified));
    EXPECT_STREQ(lastRefusal().subject, "payload");
    EXPECT_REFUSED("argument.null", call(token.c_str(), keys, &header, &payload, nullptr));
    EXPECT_STREQ(lastRefusal().subject, "verified");
    EXPECT_EQ(header, nullptr);
    EXPECT_EQ(payload, nullptr);
    EXPECT_EQ(verified, -1);

    EXPECT_EQ(call(token.c_str(), keys, &header, &payload, &verified), 1);
    free_jwt_header(header);
    free_jwt_payload(payload);
}

TEST_F(ValidateJwtDelegated, IgnoresItsThirdArgument)
{
    const std::string token = es256Token();
    const std::string text = pem();
    const char* keys[] = {text.c_str(), nullptr};
    for (const unsigned int unused : {0U, 1U, ~0U})
    {
        JWTHeader* header = nullptr;
        JWTPayload* payload = nullptr;
        int verified = -1;
        EXPECT_EQ(validateJWT_Delegated(token.c_str(), keys, unused, &header, &payload, 0, nullptr,
                                        nullptr, &verified),
                  1);
        free_jwt_header(header);
        free_jwt_payload(payload);
    }
}

TEST_F(ValidateJwtDelegated, StoresNothingOfATokenThatCannotBeRead)
{
    const std::string good = es256Token();
    const std::string header = tokens::base64Url(headerOf("ES256"));
    const std::string payload = tokens::base64Url(claims());
    std::vector<std::pair<std::string, std::string>> tokens = {
        {"", "token.parts"},
        {".", "token.parts"},
        {"..", "base64.malformed"},
        {"...", "base64.malformed"},
        {header, "token.parts"},
        {header + "." + payload, "token.parts"},
        {"." + payload + ".AAAA", "base64.malformed"},
        {header + "..AAAA", "base64.malformed"},
        {"%%%." + payload + ".AAAA", "base64.malformed"},
        {header + ".%%%.AAAA", "base64.malformed"},
        // A header without "alg", or with one that is not a text.
        {es256Token(R"({"typ":"JWT"})", claims()), "token.member"},
        {es256Token(R"({"alg":256})", claims()), "token.member"},
        {es256Token(R"({"alg":null})", claims()), "token.member"},
        {es256Token("{}", claims()), "token.member"},
        {std::string(300000, 'A'), "token.parts"},
        {std::string(300000, '.'), "base64.malformed"},
    };
    for (const HostileText& hostile : hostileTexts())
    {
        const std::string part = tokens::base64Url(hostile.text);
        tokens.emplace_back(hostile.text, "token.parts");
        tokens.emplace_back(part + "." + payload + ".AAAA", tokens::hostilePartRule(hostile));
        tokens.emplace_back(header + "." + part + ".AAAA", tokens::hostilePartRule(hostile));
    }
    for (const auto& [token, rule] : tokens)
    {
        SCOPED_TRACE(token.substr(0, 80));
        const Judgement judgement = judge(token, {.keys = {pem()}});
        EXPECT_EQ(judgement.rule, rule);
        EXPECT_EQ(judgement.header, nullptr);
        EXPECT_EQ(judgement.payload, nullptr);
        EXPECT_EQ(judgement.verified, -1);
    }
    EXPECT_EQ(judge(good, {.keys = {pem()}}).verdict, 1);
}

TEST_F(ValidateJwtDelegated, LeavesItsArgumentsAloneWhereItStoresNothing)
{
    const std::string text = pem();
    const char* keys[] = {text.c_str(), nullptr};
    JWTHeader otherHeader{};
    JWTPayload otherPayload{};
    for (const auto& [token, rule] : {std::pair{std::string{"a.b"}, "token.parts"},
                                      {"a.b.c", "base64.malformed"},
                                      {es256Token("{}", claims()), "token.member"},
                                      {es256Token(headerOf("ES256"), ""), "base64.malformed"}})
    {
        SCOPED_TRACE(token);
        JWTHeader* header = &otherHeader;
        JWTPayload* payload = &otherPayload;
        int verified = -1;
        EXPECT_REFUSED(rule, validateJWT_Delegated(token.c_str(), keys, 0, &header, &payload, 0,
                                                   nullptr, nullptr, &verified));
        EXPECT_EQ(header, &otherHeader);
        EXPECT_EQ(payload, &otherPayload);
        EXPECT_EQ(verified, -1);
    }
}

TEST_F(ValidateJwtDelegated, HandsTheRecordsOfAForgedTokenOver)
{
    const std::string good = es256Token();
    std::string forged = good;
    forged[good.size() - 20] = forged[good.size() - 20] == 'A' ? 'B' : 'A';
    const std::string input = good.substr(0, good.rfind('.'));
    for (const std::string& token : {forged, input + ".", input + ".%%%", good + ".", good + ".x"})
    {
        SCOPED_TRACE(token);
        const Judgement judgement = judge(token, {.keys = {pem()}});
        EXPECT_EQ(judgement.rule, token == forged ? "token.signature" : "base64.malformed");
        EXPECT_EQ(judgement.verified, -1);
        EXPECT_TRUE(judgement.hasRecords());
    }
    EXPECT_EQ(judge(good, {.keys = {pem()}}).verdict, 1);
}

TEST_F(ValidateJwtDelegated, CoversHeaderAndPayloadByTheSignature)
{
    const std::string token = es256Token();
    const std::string signature = token.substr(token.rfind('.') + 1);
    const std::string otherHeader =
        issuer::signingInput(headerOf("ES256", R"(,"kid":"x")"), claims());
    const std::string otherPayload =
        issuer::signingInput(headerOf("ES256"), claims(R"("sub":"root",)"));
    EXPECT_EQ(judge(token, {.keys = {pem()}}).verdict, 1);
    EXPECT_EQ(judge(otherHeader + "." + signature, {.keys = {pem()}}).rule, "token.signature");
    EXPECT_EQ(judge(otherPayload + "." + signature, {.keys = {pem()}}).rule, "token.signature");
}

TEST_F(ValidateJwtDelegated, NeverAcceptsAMac)
{
    // The oldest forgery: the public key, which everybody knows, as the secret of a MAC.
    for (const char* name : {"HS256", "hs256", "HS384", "H1", "h_"})
    {
        SCOPED_TRACE(name);
        const std::string input = issuer::signingInput(headerOf(name, R"(,"kid":"k")"), claims());
        const std::string secret = pem();
        std::string mac(32, '\0');
        unsigned int length = 0;
        HMAC(EVP_sha256(), secret.data(), static_cast<int>(secret.size()),
             reinterpret_cast<const unsigned char*>(input.data()), input.size(),
             reinterpret_cast<unsigned char*>(mac.data()), &length);
        const std::string jwk = jwkOf(issuer::p256Key(), {{"alg", name}, {"kid", "k"}});
        const Judgement judgement = judge(issuer::token(input, mac), {.keys = {secret, jwk}});
        EXPECT_EQ(judgement.rule, "token.algorithm");
        EXPECT_EQ(judgement.verified, -1);
        EXPECT_TRUE(judgement.hasRecords());
        // Nor a genuine signature under such a name.
        EXPECT_EQ(judge(es256Token(headerOf(name), claims()), {.keys = {secret, jwk}}).rule,
                  "token.algorithm");
    }
}

TEST_F(ValidateJwtDelegated, NeverAcceptsTokensThatAreNotSigned)
{
    for (const char* name : {"none", "None", "NONE", "", "N"})
    {
        SCOPED_TRACE(name);
        const std::string input = issuer::signingInput(headerOf(name, R"(,"kid":"k")"), claims());
        const std::string jwk = jwkOf(issuer::p256Key(), {{"alg", name}, {"kid", "k"}});
        for (const std::string& signature : {std::string{}, std::string(3, '\0')})
        {
            const Judgement judgement =
                judge(issuer::token(input, signature), {.keys = {jwk, pem()}});
            EXPECT_EQ(judgement.rule, signature.empty() ? "base64.malformed" : "token.algorithm");
            EXPECT_EQ(judgement.verified, -1);
        }
    }
}

TEST_F(ValidateJwtDelegated, NeverTakesSecretsForKeys)
{
    const std::string token = es256Token(headerOf("ES256", R"(,"kid":"k")"), claims());
    EXPECT_EQ(judge(token, {.keys = {issuer::p256Key().privatePem()}}).rule,
              "token.key-not-imported");
    EXPECT_EQ(judge(token, {.keys = {R"({"kty":"oct","k":"AAAA","kid":"k","alg":"ES256"})"}}).rule,
              "token.key-not-imported");
    EXPECT_EQ(judge(token, {.keys = {pem()}}).verdict, 1);
}

/** Whether a JWK of these members is selected for `token`, which its key has signed. */
bool selects(const Members& members, const std::string& token,
             const issuer::Key& key = issuer::p256Key())
{
    const Judgement judgement = judge(token, {.keys = {jwkOf(key, members)}});
    EXPECT_EQ(judgement.rule, judgement.verified == 1 ? "accepted" : "token.key-not-selected");
    return judgement.verified == 1;
}

TEST_F(ValidateJwtDelegated, SelectsAJwkByItsAlgorithm)
{
    const std::string token = es256Token();
    EXPECT_TRUE(selects({{"alg", "ES256"}}, token));
    // Whatever else it says.
    EXPECT_TRUE(selects({{"alg", "ES256"}, {"kty", "RSA"}, {"crv", "P-384"}}, token));
    EXPECT_FALSE(selects({{"alg", "es256"}}, token));
    EXPECT_FALSE(selects({{"alg", "ES2567"}}, token));
    EXPECT_FALSE(selects({{"alg", "ES25"}}, token));
    EXPECT_FALSE(selects({{"alg", ""}}, token));
    EXPECT_FALSE(selects({{"Alg", "ES256"}}, token));
    EXPECT_FALSE(selects({}, token));
}

TEST_F(ValidateJwtDelegated, SelectsAJwkByItsKeyId)
{
    const std::string token = es256Token(headerOf("ES256", R"(,"kid":"k1")"), claims());
    EXPECT_TRUE(selects({{"kid", "k1"}}, token));
    EXPECT_TRUE(selects({{"kid", "k1"}, {"kty", "EC"}, {"crv", "P-384"}}, token));
    EXPECT_TRUE(selects({{"kid", "k1"}, {"alg", "RS256"}}, token));
    EXPECT_FALSE(selects({{"kid", "K1"}}, token));
    EXPECT_FALSE(selects({{"kid", "k"}}, token));
    EXPECT_FALSE(selects({{"kid", "k11"}}, token));
    EXPECT_FALSE(selects({{"kid", ""}}, token));
    EXPECT_FALSE(selects({}, token));
    // What neither side has is nothing in common; an empty text is.
    const std::string anonymous = es256Token();
    EXPECT_FALSE(selects({}, anonymous));
    EXPECT_FALSE(selects({{"kid", ""}}, anonymous));
    EXPECT_TRUE(selects({{"kid", ""}}, es256Token(headerOf("ES256", R"(,"kid":"")"), claims())));
}

TEST_F(ValidateJwtDelegated, PairsCurvesWithAlgorithms)
{
    struct Curve
    {
        const char* curve;
        const issuer::Key& key;
        const char* algorithm;
        const char* digest;
    };
    const std::vector<Curve> curves = {
        {"P-256", issuer::p256Key(), "ES256", "SHA256"},
        {"P-384", issuer::p384Key(), "ES384", "SHA384"},
        {"P-521", issuer::p521Key(), "ES512", "SHA512"},
    };
    for (const Curve& right : curves)
    {
        const std::string input = issuer::signingInput(headerOf(right.algorithm), claims());
        const std::string token = issuer::token(input, right.key.sign(input, right.digest));
        for (const Curve& named : curves)
        {
            SCOPED_TRACE(std::string{right.algorithm} + " " + named.curve);
            EXPECT_EQ(selects({{"kty", "EC"}, {"crv", named.curve}}, token, right.key),
                      &named == &right);
        }
        // A curve that is not named, or not one of the three, is left to the signature.
        EXPECT_TRUE(selects({{"kty", "EC"}}, token, right.key));
        for (const char* unknown : {"", "P-25", "P-2567", "p-256", "secp256k1", "Ed25519"})
        {
            SCOPED_TRACE(unknown);
            EXPECT_TRUE(selects({{"kty", "EC"}, {"crv", unknown}}, token, right.key));
        }
        EXPECT_FALSE(selects({{"kty", "RSA"}}, token, right.key));
        EXPECT_FALSE(selects({{"kty", "ec"}}, token, right.key));
        EXPECT_FALSE(selects({{"kty", "oct"}}, token, right.key));
        EXPECT_FALSE(selects({{"crv", right.curve}}, token, right.key));
    }
}

TEST_F(ValidateJwtDelegated, PairsKnownCurvesWithTheOneNameOnly)
{
    // "Ex" and "es256" are ECDSA with SHA-256 to the verifier.
    const Members p256 = {{"kty", "EC"}, {"crv", "P-256"}};
    const Members unnamed = {{"kty", "EC"}};
    const std::string odd = es256Token(headerOf("Ex"), claims());
    EXPECT_FALSE(selects(p256, odd));
    EXPECT_TRUE(selects(unnamed, odd));
    const std::string lower = es256Token(headerOf("es256"), claims());
    EXPECT_FALSE(selects(p256, lower));
    EXPECT_FALSE(selects(unnamed, lower));
    EXPECT_TRUE(selects({{"alg", "es256"}}, lower));
    EXPECT_EQ(judge(es256Token(headerOf("E"), claims()), {.keys = {pem()}}).rule,
              "token.algorithm");
}

TEST_F(ValidateJwtDelegated, SelectsRsaKeysByTheirType)
{
    const Members rsa = {{"kty", "RSA"}};
    const issuer::Padding pss{.pss = true};
    const auto selectsRsa = [&](const Members& members, const std::string& token) {
        return selects(members, token, issuer::rsaKey());
    };
    EXPECT_TRUE(selectsRsa(rsa, rsaToken("RS256")));
    EXPECT_TRUE(selectsRsa(rsa, rsaToken("RSx")));
    EXPECT_TRUE(selectsRsa(rsa, rsaToken("PS256", pss)));
    EXPECT_TRUE(selectsRsa(rsa, rsaToken("Px", pss)));
    // Longer than two characters is asked of "RS", not of "P".
    EXPECT_FALSE(selectsRsa(rsa, rsaToken("RS")));
    EXPECT_TRUE(selectsRsa({{"alg", "RS"}}, rsaToken("RS")));
    EXPECT_FALSE(selectsRsa(rsa, rsaToken("RX256")));
    EXPECT_TRUE(selectsRsa({{"alg", "RX256"}}, rsaToken("RX256")));
    EXPECT_FALSE(selectsRsa(rsa, rsaToken("rs256")));
    EXPECT_TRUE(selectsRsa({{"alg", "rs256"}}, rsaToken("rs256")));
    EXPECT_FALSE(selectsRsa(rsa, rsaToken("ps256")));
    EXPECT_TRUE(selectsRsa({{"alg", "ps256"}}, rsaToken("ps256")));
    EXPECT_FALSE(selectsRsa({{"kty", "rsa"}}, rsaToken("RS256")));
    EXPECT_FALSE(selectsRsa({{"kty", "EC"}}, rsaToken("RS256")));
    EXPECT_FALSE(selectsRsa({}, rsaToken("RS256")));
}

TEST_F(ValidateJwtDelegated, DoesNotMixUpTheFamilies)
{
    // Selected by its id, a key of the other family verifies nothing.
    const std::string token = es256Token(headerOf("RS256", R"(,"kid":"k")"), claims());
    const std::string ecKey = jwkOf(issuer::p256Key(), {{"kid", "k"}});
    EXPECT_EQ(judge(token, {.keys = {ecKey}}).rule, "token.key-not-imported");
    const std::string input = issuer::signingInput(headerOf("ES256", R"(,"kid":"k")"), claims());
    const std::string rsaSigned = issuer::token(input, issuer::rsaKey().sign(input, "SHA256"));
    const std::string rsaKey = jwkOf(issuer::rsaKey(), {{"kid", "k"}});
    EXPECT_EQ(judge(rsaSigned, {.keys = {rsaKey}}).rule, "token.key-not-imported");
}

TEST_F(ValidateJwtDelegated, TakesASelectedJwkWithoutAKeyForUnselected)
{
    const std::string token = es256Token();
    EXPECT_EQ(judge(token, {.keys = {R"({"alg":"ES256"})"}}).rule, "token.key-not-imported");
    EXPECT_EQ(judge(token, {.keys = {R"({"alg":"ES256","kest_decoded_key":5})"}}).rule,
              "token.key-not-imported");
    EXPECT_EQ(judge(token, {.keys = {R"({"alg":"ES256","kest_decoded_key":"x"})"}}).rule,
              "token.key-not-imported");
    EXPECT_EQ(judge(token, {.keys = {R"({"alg":["ES256"]})", pem()}}).verdict, 1);
    // It ends a search that a PEM key has won, as an unselected one does.
    EXPECT_EQ(judge(token, {.keys = {pem(), R"({"alg":"ES256"})", "no key"}}).verdict, 1);
}

TEST_F(ValidateJwtDelegated, SearchesTheKeysInTheirOrder)
{
    const std::string token = es256Token();
    const std::string goodPem = pem();
    const std::string badPem = issuer::otherP256Key().pem();
    const std::string goodJwk = jwkOf(issuer::p256Key(), {{"kty", "EC"}});
    const std::string badJwk = jwkOf(issuer::otherP256Key(), {{"kty", "EC"}});
    const auto outcome = [&](const std::vector<std::string>& keys) {
        const Judgement judgement = judge(token, {.keys = keys});
        EXPECT_EQ(judgement.verified, judgement.verdict == 1 ? 1 : -1);
        return judgement.rule;
    };
    EXPECT_EQ(outcome({badPem}), "token.signature");
    EXPECT_EQ(outcome({badJwk}), "token.signature");
    EXPECT_EQ(outcome({unselected}), "token.key-not-selected");
    // A JWK that verifies ends the search.
    EXPECT_EQ(outcome({goodJwk, badPem}), "accepted");
    EXPECT_EQ(outcome({goodJwk, badJwk}), "accepted");
    EXPECT_EQ(outcome({badJwk, goodJwk}), "accepted");
    EXPECT_EQ(outcome({unselected, goodJwk}), "accepted");
    EXPECT_EQ(outcome({badPem, goodJwk, badPem}), "accepted");
    // A PEM key does not: the next key that is tried has the say.
    EXPECT_EQ(outcome({goodPem, badPem}), "token.signature");
    EXPECT_EQ(outcome({badPem, goodPem}), "accepted");
    EXPECT_EQ(outcome({goodPem, "no key"}), "token.key-not-imported");
    EXPECT_EQ(outcome({goodPem, ""}), "token.key-not-imported");
    // Neither is an object without members a JWK, nor one whose members are all objects.
    EXPECT_EQ(outcome({goodPem, "{}"}), "token.key-not-imported");
    EXPECT_EQ(outcome({goodPem, R"({"a":{"b":1}})"}), "token.key-not-imported");
    EXPECT_EQ(outcome({goodPem, R"({"a":1})"}), "accepted");
    EXPECT_EQ(outcome({goodPem, badJwk}), "token.signature");
    EXPECT_EQ(outcome({badJwk, goodPem}), "accepted");
    // A JWK that is not tried ends the search where a PEM key has verified.
    EXPECT_EQ(outcome({goodPem, unselected}), "accepted");
    EXPECT_EQ(outcome({goodPem, unselected, badPem}), "accepted");
    EXPECT_EQ(outcome({badPem, unselected, goodPem}), "accepted");
    EXPECT_EQ(outcome({badPem, unselected}), "token.signature");
    EXPECT_EQ(outcome({goodPem, badPem, unselected}), "token.signature");
    EXPECT_EQ(outcome({goodPem, badPem, unselected, goodPem}), "accepted");
}

TEST_F(ValidateJwtDelegated, TellsWhatBecameOfEachKey)
{
    const std::string unimported = R"({"alg":"ES256"})";
    const std::string badPem = issuer::otherP256Key().pem();
    struct Search
    {
        std::vector<std::string> keys;
        const char* rule;
        int index;
        const char* saw;
    };
    const std::vector<Search> searches = {
        {{unselected, unimported, badPem, "no key", unselected},
         "token.signature",
         2,
         "2 not selected, 2 not imported, 1 not verified"},
        // Of several that came as far, the first.
        {{unselected, unimported, "no key"},
         "token.key-not-imported",
         1,
         "1 not selected, 2 not imported, 0 not verified"},
        {{unselected, unselected},
         "token.key-not-selected",
         -1,
         "2 not selected, 0 not imported, 0 not verified"},
        // A PEM key that verified has its place in the list, and no say before another one.
        {{pem(), badPem}, "token.signature", 1, "0 not selected, 0 not imported, 1 not verified"},
    };
    const std::string token = es256Token();
    for (const Search& search : searches)
    {
        SCOPED_TRACE(search.saw);
        EXPECT_EQ(judge(token, {.keys = search.keys}).rule, search.rule);
        EXPECT_EQ(lastRefusal().index, search.index);
        EXPECT_STREQ(lastRefusal().saw, search.saw);
    }
}

TEST_F(ValidateJwtDelegated, TellsWhatItSawAndWanted)
{
    EXPECT_EQ(judge(es256Token(R"({"exp":1600000000})"), {.keys = {pem()}}).rule, "token.expired");
    EXPECT_STREQ(lastRefusal().subject, "exp");
    EXPECT_STREQ(lastRefusal().saw, "1600000000");
    EXPECT_STREQ(lastRefusal().wanted, "above 1700000000");
    EXPECT_EQ(judge(es256Token(headerOf("none"), claims()), {.keys = {pem()}}).rule,
              "token.algorithm");
    EXPECT_STREQ(lastRefusal().subject, "alg");
    EXPECT_STREQ(lastRefusal().saw, "none");
}

TEST_F(ValidateJwtDelegated, LeavesTheLastRefusalAloneWhereItAccepts)
{
    const std::string token = es256Token();
    // A PEM key is looked at as a JWK first; the last of three keys comes after two that are refused.
    const std::string jwk = jwkOf(issuer::p256Key(), {{"kty", "EC"}});
    for (const std::vector<std::string>& keys :
         {std::vector{pem()}, {unselected, issuer::otherP256Key().pem(), jwk}})
    {
        EXPECT_EQ(judge(token, {.keys = keys}).verdict, 1);
        EXPECT_TRUE(isPlantedRefusal());
    }
}

TEST_F(ValidateJwtDelegated, FindsTheLastOfAHundredKeys)
{
    const std::string token = es256Token(headerOf("ES256", R"(,"kid":"k99")"), claims());
    std::vector<std::string> keys;
    keys.reserve(100);
    for (int i = 0; i < 99; ++i)
    {
        keys.push_back(jwkOf(issuer::otherP256Key(), {{"kid", "k" + std::to_string(i)}}));
    }
    EXPECT_EQ(judge(token, {.keys = keys}).rule, "token.key-not-selected");
    keys.push_back(jwkOf(issuer::p256Key(), {{"kid", "k99"}}));
    EXPECT_EQ(judge(token, {.keys = keys}).verdict, 1);
    // All of them selected and tried.
    std::vector<std::string> pems(99, issuer::otherP256Key().pem());
    EXPECT_EQ(judge(token, {.keys = pems}).rule, "token.signature");
    pems.push_back(pem());
    EXPECT_EQ(judge(token, {.keys = pems}).verdict, 1);
}

/** A JWK whose members all hold `value`. */
std::string jwkOfOneValue(const std::string& value)
{
    return R"({"alg":)" + value + R"(,"kid":)" + value + R"(,"kty":)" + value +
           R"(,"kest_decoded_key":)" + value + "}";
}

TEST_F(ValidateJwtDelegated, IsNotConfusedByHostileKeys)
{
    const std::string token = es256Token();
    for (const auto& [name, text] : hostileTexts())
    {
        SCOPED_TRACE(name);
        EXPECT_EQ(judge(token, {.keys = {text}}).rule, "token.key-not-imported");
        EXPECT_EQ(judge(token, {.keys = {text, pem()}}).verdict, 1);
    }
    for (const std::string& value : jsonValuesOfEveryType())
    {
        SCOPED_TRACE(value);
        const std::string key = jwkOfOneValue(value);
        // Without a member that is not an object it is not a JWK.
        EXPECT_EQ(judge(token, {.keys = {key}}).rule,
                  value.starts_with('{') ? "token.key-not-imported" : "token.key-not-selected");
        EXPECT_EQ(judge(token, {.keys = {key, pem()}}).verdict, 1);
    }
}

TEST_F(ValidateJwtDelegated, TellsAnExpiredTokenFromAForgedOne)
{
    const std::string token = es256Token();
    clock.set(1700003599);
    EXPECT_EQ(judge(token, {.keys = {pem()}}).verdict, 1);
    clock.set(1700003600);
    const Judgement expired = judge(token, {.keys = {pem()}});
    EXPECT_EQ(expired.rule, "token.expired");
    EXPECT_EQ(expired.verified, 1);
    EXPECT_TRUE(expired.hasRecords());
    const Judgement forged = judge(token, {.keys = {issuer::otherP256Key().pem()}});
    EXPECT_EQ(forged.rule, "token.signature");
    EXPECT_EQ(forged.verified, -1);
    EXPECT_TRUE(forged.hasRecords());
}

TEST_F(ValidateJwtDelegated, AllowsTheSkewAfterTheExpiry)
{
    const std::string token = es256Token();
    clock.set(1700003600 + 299);
    EXPECT_EQ(judge(token, {.keys = {pem()}, .skew = 300}).verdict, 1);
    EXPECT_EQ(judge(token, {.keys = {pem()}, .skew = 299}).rule, "token.expired");
    clock.advance(1);
    EXPECT_EQ(judge(token, {.keys = {pem()}, .skew = 300}).rule, "token.expired");
    EXPECT_EQ(judge(token, {.keys = {pem()}, .skew = ~0U}).verdict, 1);
    clock.set(1700003600 + 1000000);
    EXPECT_EQ(judge(token, {.keys = {pem()}, .skew = 1000000}).rule, "token.expired");
    EXPECT_EQ(judge(token, {.keys = {pem()}, .skew = 1000001}).verdict, 1);
    // The sum goes beyond 32 bits.
    EXPECT_EQ(judge(es256Token(R"({"exp":4294967295})"), {.keys = {pem()}, .skew = 300}).verdict,
              1);
}

TEST_F(ValidateJwtDelegated, AllowsTheSkewBeforeTheBeginning)
{
    const std::string token = es256Token();
    EXPECT_EQ(judge(token, {.keys = {pem()}}).verdict, 1);
    clock.set(now - 300);
    EXPECT_EQ(judge(token, {.keys = {pem()}, .skew = 300}).verdict, 1);
    clock.set(now - 301);
    const Judgement early = judge(token, {.keys = {pem()}, .skew = 300});
    EXPECT_EQ(early.rule, "token.not-yet-valid");
    EXPECT_EQ(early.verified, 1);
    EXPECT_TRUE(early.hasRecords());
    EXPECT_EQ(judge(token, {.keys = {pem()}}).rule, "token.not-yet-valid");
    // The sum goes beyond 32 bits.
    EXPECT_EQ(judge(token, {.keys = {pem()}, .skew = 4000000000U}).verdict, 1);
}

TEST_F(ValidateJwtDelegated, CallsATokenThatIsNeitherYetNorStillValidExpired)
{
    // Unlike for a token of the service's own, the expiry is looked at first.
    const Trust trust{.keys = {pem()}};
    EXPECT_EQ(judge(es256Token(R"({"exp":1700003600,"nbf":1800000000})"), trust).rule,
              "token.not-yet-valid");
    EXPECT_EQ(judge(es256Token(R"({"exp":1600000000,"nbf":1600000000})"), trust).rule,
              "token.expired");
    const Judgement both = judge(es256Token(R"({"exp":1600000000,"nbf":1800000000})"), trust);
    EXPECT_EQ(both.rule, "token.expired");
    EXPECT_EQ(both.verified, 1);
}

TEST_F(ValidateJwtDelegated, NeedsAnExpiryButNoBeginning)
{
    const Judgement endless = judge(es256Token(R"({"nbf":1700000000})"), {.keys = {pem()}});
    EXPECT_EQ(endless.rule, "token.member");
    EXPECT_EQ(endless.verified, 1);
    EXPECT_EQ(judge(es256Token(R"({"exp":1700003600})"), {.keys = {pem()}}).verdict, 1);
    EXPECT_EQ(judge(es256Token("{}"), {.keys = {pem()}}).rule, "token.member");
    EXPECT_EQ(judge(es256Token(R"({"exp":true})"), {.keys = {pem()}}).rule, "token.member");
}

TEST_F(ValidateJwtDelegated, TakesTimesThatItDoesNotReadAsMissing)
{
    const Trust trust{.keys = {pem()}};
    EXPECT_EQ(judge(es256Token(R"({"exp":4294967295})"), trust).verdict, 1);
    EXPECT_EQ(judge(es256Token(R"({"exp":1700003600,"nbf":4294967295})"), trust).rule,
              "token.not-yet-valid");
    for (const char* time : {"4294967296", "1800000000.0", "-1", "null", "[1800000000]"})
    {
        SCOPED_TRACE(time);
        const Judgement endless = judge(es256Token(std::string{R"({"exp":)"} + time + "}"), trust);
        EXPECT_EQ(endless.rule, "token.member");
        EXPECT_EQ(endless.verified, 1);
        EXPECT_EQ(judge(es256Token(std::string{R"({"exp":1700003600,"nbf":)"} + time + "}"), trust)
                      .verdict,
                  1);
    }
}

TEST_F(ValidateJwtDelegated, ReadsTimesAsTextsToo)
{
    const auto outcome = [](const std::string& exp, unsigned int skew = 0) {
        return judge(es256Token(R"({"exp":")" + exp + R"("})"), {.keys = {pem()}, .skew = skew})
            .rule;
    };
    EXPECT_EQ(outcome("1700000001"), "accepted");
    EXPECT_EQ(outcome("1700000000"), "token.expired");
    // 1700000001 again, in hexadecimal and in octal.
    EXPECT_EQ(outcome("0x6553f101"), "accepted");
    EXPECT_EQ(outcome("0x6553f100"), "token.expired");
    EXPECT_EQ(outcome("014524770401"), "accepted");
    EXPECT_EQ(outcome("014524770400"), "token.expired");
    EXPECT_EQ(outcome("soon"), "token.expired");
    EXPECT_EQ(outcome(""), "token.expired");
    // The largest time there is; adding the skew to it wraps.
    EXPECT_EQ(outcome("18446744073709551615"), "accepted");
    EXPECT_EQ(outcome("99999999999999999999"), "accepted");
    EXPECT_EQ(outcome("-1"), "accepted");
    EXPECT_EQ(outcome("-1", 300), "token.expired");
    const auto outcomeBefore = [](const std::string& nbf) {
        std::string payload = R"({"exp":1700003600,"nbf":")";
        payload.append(nbf).append(R"("})");
        return judge(es256Token(payload), {.keys = {pem()}}).rule;
    };
    EXPECT_EQ(outcomeBefore("1700000000"), "accepted");
    EXPECT_EQ(outcomeBefore("1700000001"), "token.not-yet-valid");
    EXPECT_EQ(outcomeBefore("0x6553f100"), "accepted");
    EXPECT_EQ(outcomeBefore("0x6553f101"), "token.not-yet-valid");
    EXPECT_EQ(outcomeBefore("014524770400"), "accepted");
    EXPECT_EQ(outcomeBefore("014524770401"), "token.not-yet-valid");
    EXPECT_EQ(outcomeBefore("soon"), "accepted");
    EXPECT_EQ(outcomeBefore(""), "accepted");
    EXPECT_EQ(outcomeBefore("-1"), "token.not-yet-valid");
}

TEST_F(ValidateJwtDelegated, TakesAClockThatFailsForExpiry)
{
    const std::string token = es256Token();
    EXPECT_EQ(judge(token, {.keys = {pem()}}).verdict, 1);
    clock.failBreakingDown();
    const Judgement judgement = judge(token, {.keys = {pem()}});
    EXPECT_EQ(judgement.rule, "clock.unreadable");
    EXPECT_EQ(judgement.verified, 1);
    EXPECT_EQ(judge(es256Token(R"({"exp":1700003600})"), {.keys = {pem()}}).rule,
              "clock.unreadable");
    // What never expires is not valid, whatever the time is.
    EXPECT_EQ(judge(es256Token("{}"), {.keys = {pem()}}).rule, "token.member");
}

TEST_F(ValidateJwtDelegated, SpellsTheRightsOutAsThreeEntries)
{
    const auto rights = [](const std::string& more) {
        return entriesOf(judge(es256Token(claims(more)), {.keys = {pem()}}));
    };
    EXPECT_EQ(rights(R"("sub":"alice","scope":"ravok_login",)"), rightsOf("alice", "1"));
    EXPECT_EQ(rights(R"("sub":"alice","scope":"ravok_login ravok_testalerts",)"),
              rightsOf("alice", "129"));
    EXPECT_EQ(rights(R"("sub":"alice","scope":"other",)"), rightsOf("alice", "0"));
    EXPECT_EQ(rights(R"("sub":"alice",)"), rightsOf("alice", "0"));
    EXPECT_EQ(rights(""), rightsOf("", "0"));
    EXPECT_EQ(rights(R"("sub":"",)"), rightsOf("", "0"));
}

TEST_F(ValidateJwtDelegated, UnitesTheRightsOfScopesRolesAndProviders)
{
    userRole_s roles[] = {{"admin", 0x100}, {"user", 0x002}, {nullptr, 0x0FF}};
    const char* providers[] = {"corp", nullptr};
    const std::string token =
        es256Token(claims(R"("sub":"alice","scope":"ravok_login","ravok_roles":["admin","nobody"],)"
                          R"("xidp":{"corp":["CU"],"other":["CL"],"*":["VM"]},)"));
    EXPECT_EQ(entriesOf(judge(token, {.keys = {pem()}, .roles = roles, .providers = providers})),
              rightsOf("alice", std::to_string(0x145)));
    EXPECT_EQ(entriesOf(judge(token, {.keys = {pem()}, .roles = roles})),
              rightsOf("alice", std::to_string(0x141)));
    EXPECT_EQ(entriesOf(judge(token, {.keys = {pem()}, .providers = providers})),
              rightsOf("alice", std::to_string(0x045)));
    EXPECT_EQ(entriesOf(judge(token, {.keys = {pem()}})), rightsOf("alice", std::to_string(0x041)));
}

TEST_F(ValidateJwtDelegated, KeepsStructuredScopes)
{
    const Judgement judgement = judge(
        es256Token(claims(R"("sub":"alice","xidp":{"*":["L"]},"scope":{"b":["2"],"a":["1"]},)")),
        {.keys = {pem()}});
    EXPECT_EQ(judgement.verdict, 1);
    EXPECT_EQ(entriesOf(judgement), (Entries{{"a", "1"}, {"b", "2"}}));
}

TEST_F(ValidateJwtDelegated, GrantsNothingBesideAnEmptyScopeObject)
{
    const std::string rights = R"("sub":"alice","xidp":{"*":["L"]},)";
    EXPECT_EQ(entriesOf(judge(es256Token(claims(rights)), {.keys = {pem()}})),
              rightsOf("alice", "1"));
    const Judgement judgement =
        judge(es256Token(claims(rights + R"("scope":{},)")), {.keys = {pem()}});
    EXPECT_EQ(judgement.verdict, 1);
    ASSERT_TRUE(judgement.hasRecords());
    EXPECT_EQ(judgement.payload->scopes_count, 0);
    EXPECT_EQ(entriesOf(judgement), Entries{});
}

TEST_F(ValidateJwtDelegated, HandsThePrivilegeDocumentToTheStringLibrary)
{
    const auto documentOf = [](const std::string& more) {
        cleanedText = "untouched";
        EXPECT_EQ(judge(es256Token(claims(more)), {.keys = {pem()}}).verdict, 1);
        return cleanedText;
    };
    EXPECT_EQ(documentOf(R"("sub":"alice","scope":"ravok_login ravok_configure",)"),
              R"({"AUTHNZ_USER": ["alice"],"USER_PRIV": ["3"],"singleUse": ["false"]})");
    EXPECT_EQ(documentOf(""), R"({"AUTHNZ_USER": [""],"USER_PRIV": ["0"],"singleUse": ["false"]})");
    // Other alphabets are ordinary.
    EXPECT_EQ(documentOf("\"sub\":\"J\xc3\xb6rg \xe2\x82\xac / 'x' \x7f\","),
              "{\"AUTHNZ_USER\": [\"J\xc3\xb6rg \xe2\x82\xac / 'x' \x7f\"],"
              "\"USER_PRIV\": [\"0\"],\"singleUse\": [\"false\"]}");
    EXPECT_EQ(documentOf(R"("sub":"a\"b\\c\n",)"), R"({"AUTHNZ_USER": ["a\"b\\c\u000a"],)"
                                                   R"("USER_PRIV": ["0"],"singleUse": ["false"]})");
    // Structured scopes are left alone.
    EXPECT_EQ(documentOf(R"("scope":{"a":["1"]},)"), "untouched");
}

TEST_F(ValidateJwtDelegated, LetsNoSubjectWriteRights)
{
    const std::vector<std::string> subjects = {
        R"(x"],"USER_PRIV":["511"]} )",
        R"(x"],"USER_PRIV":["511"],"singleUse":["false"]})",
        R"(x","511)",
        R"(\)",
        R"(\"],"USER_PRIV":["511"]} )",
        R"(\\"],"USER_PRIV":["511"]} )",
        R"(\u0022],"USER_PRIV":["511"]} )",
        "\"",
        "a\nb\tc\rd\be\ff\x01\x1f",
        "/* x */ // y",
        "J\xc3\xb6rg",
        "\xff\xfe",
        "%s%n%u",
        std::string(20000, '"'),
    };
    for (const std::string& subject : subjects)
    {
        SCOPED_TRACE(subject.substr(0, 40));
        std::string quoted;
        for (const char c : subject)
        {
            quoted += c == '"' || c == '\\' ? std::string{'\\', c} : std::string{c};
        }
        const Judgement judgement =
            judge(es256Token(claims(R"("sub":")" + quoted + R"(",)")), {.keys = {pem()}});
        EXPECT_EQ(judgement.verdict, 1);
        ASSERT_TRUE(judgement.hasRecords());
        EXPECT_EQ(judgement.payload->sub, subject);
        EXPECT_EQ(entriesOf(judgement), rightsOf(subject, "0"));
    }
}

TEST_F(ValidateJwtDelegated, GivesForgedTokensTheirClaimedRightsButNoVerdict)
{
    // The records are there for the caller to look at; the result tells that they mean nothing.
    const Judgement judgement = judge(es256Token(claims(R"("sub":"eve","scope":"ravok_login",)")),
                                      {.keys = {issuer::otherP256Key().pem()}});
    EXPECT_EQ(judgement.rule, "token.signature");
    EXPECT_EQ(judgement.verified, -1);
    EXPECT_EQ(entriesOf(judgement), rightsOf("eve", "1"));
}

TEST_F(ValidateJwtDelegated, TakesHugeTokens)
{
    const std::string padding(60000, 'x');
    const std::string token = es256Token(claims(R"("sub":")" + padding + R"(",)"));
    const Judgement judgement = judge(token, {.keys = {pem()}});
    EXPECT_EQ(judgement.verdict, 1);
    EXPECT_EQ(entriesOf(judgement), rightsOf(padding, "0"));
}

TEST_F(ValidateJwtDelegated, NeverAcceptsAForgeryWhicheverAllocationFails)
{
    // Some of these end the process, as those of the token records do; so each runs in another one.
    const std::string token = es256Token();
    const std::vector<std::string> keys = {jwkOf(issuer::otherP256Key(), {{"kty", "EC"}}),
                                           unselected, issuer::otherP256Key().pem()};
    std::vector<const char*> list;
    list.reserve(keys.size() + 1);
    for (const std::string& key : keys)
    {
        list.push_back(key.c_str());
    }
    list.push_back(nullptr);
    constexpr int notReached = 10;
    constexpr int ended = 255;
    int status = 0;
    for (unsigned int nth = 1; status != notReached; nth += faultStep())
    {
        SCOPED_TRACE(nth);
        status = exitStatusOf([&] {
            JWTHeader* header = nullptr;
            JWTPayload* payload = nullptr;
            int verified = 0;
            FailAllocation failure{nth};
            const int verdict = validateJWT_Delegated(token.c_str(), list.data(), 0, &header,
                                                      &payload, 0, nullptr, nullptr, &verified);
            const bool reached = failure.reached();
            free_jwt_header(header);
            free_jwt_payload(payload);
            _exit(verdict + 4 * verified + (reached ? 0 : notReached));
        });
        ASSERT_TRUE(status == 0 || status == ended || status == notReached) << status;
        ASSERT_LT(nth, 5000U);
    }
}

TEST_F(ValidateJwtDelegated, NeverGrantsLessThanTheTokenWhicheverAllocationFails)
{
    const std::string token = es256Token(claims(R"("sub":"alice","xidp":{"*":["L","CD"]},)"));
    const std::string key = pem();
    const std::array<const char*, 2> list{key.c_str(), nullptr};
    constexpr int less = 9;
    constexpr int notReached = 10;
    constexpr int ended = 255;
    int status = 0;
    for (unsigned int nth = 1; status != notReached; ++nth)
    {
        SCOPED_TRACE(nth);
        status = exitStatusOf([&] {
            JWTHeader* header = nullptr;
            JWTPayload* payload = nullptr;
            int verified = 0;
            auto keys = list;
            FailAllocation failure{nth};
            const int verdict = validateJWT_Delegated(token.c_str(), keys.data(), 0, &header,
                                                      &payload, 0, nullptr, nullptr, &verified);
            const bool reached = failure.reached();
            const bool whole = verdict == 0 || (payload->scopes_count == 3 &&
                                                std::string{payload->scopes[1].values[0]} == "3");
            free_jwt_header(header);
            free_jwt_payload(payload);
            // The last run is the one without a failure, and must accept.
            _exit(!whole ? less : reached ? verdict : notReached * verdict);
        });
        ASSERT_TRUE(status == 0 || status == 1 || status == ended || status == notReached)
            << status;
        ASSERT_LT(nth, 5000U);
    }
}

TEST_F(ValidateJwtDelegated, KeepsErrnoAndTheErrorQueue)
{
    ERR_clear_error();
    ERR_raise(ERR_LIB_USER, 42);
    errno = EDOM;
    const std::vector<std::string> keys(40, "no key");
    const Judgement judgement = judge(es256Token(), {.keys = keys});
    EXPECT_EQ(errno, EDOM);
    EXPECT_EQ(ERR_GET_REASON(ERR_get_error()), 42);
    EXPECT_EQ(ERR_get_error(), 0U);
    EXPECT_EQ(judgement.rule, "token.key-not-imported");
}

} // namespace
