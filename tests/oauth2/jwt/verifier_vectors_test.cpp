// SPDX-License-Identifier: Apache-2.0
#include "oauth2/jwt/pem_verifier.hpp"
#include "support/owners.hpp"
#include "support/vectors.hpp"

#include <gtest/gtest.h>
#include <json/json.h>

#include <optional>
#include <set>
#include <string>
#include <string_view>

// The verifier is not exported, and the messages of most vectors are not tokens: it is compiled
// into this program.
using bmcoauth::internal::jwt::verifyWithPem;

using namespace support;

namespace
{

/** Drives every case of a file of signatures; `lenient` are the cases, by number, that the verifier
 *  accepts against the file's word. Gives the number of cases. */
int verifyAll(const std::string& file, const char* algorithm, const std::set<int>& lenient = {})
{
    int cases = 0;
    const Json::Value document = vectors("wycheproof/" + file);
    for (const Json::Value& group : document["testGroups"])
    {
        const std::string pem = group["publicKeyPem"].asString();
        for (const Json::Value& test : group["tests"])
        {
            SCOPED_TRACE(test["tcId"].asString() + " " + test["comment"].asString());
            const bool expected =
                test["result"] == "valid" || lenient.contains(test["tcId"].asInt());
            EXPECT_EQ(verifyWithPem(fromHex(test["msg"].asString()),
                                    fromHex(test["sig"].asString()), pem, algorithm),
                      expected);
            ++cases;
        }
    }
    return cases;
}

// Project Wycheproof: see tests/vectors/README.md.
TEST(VerifierVectors, EcdsaInDer)
{
    EXPECT_EQ(verifyAll("ecdsa_secp256r1_sha256_test.json", "ES256"), 484);
}

TEST(VerifierVectors, EcdsaSideBySide)
{
    EXPECT_EQ(verifyAll("ecdsa_secp256r1_sha256_p1363_test.json", "ES256"), 262);
}

TEST(VerifierVectors, RsaPkcs1)
{
    EXPECT_EQ(verifyAll("rsa_signature_2048_sha256_test.json", "RS256"), 259);
}

TEST(VerifierVectors, RsaPss)
{
    // The salt's length is taken from the signature: these have one of 0, 1, 20, 31, 33 and 222
    // bytes where the file expects 32, and are genuine otherwise.
    EXPECT_EQ(verifyAll("rsa_pss_2048_sha256_mgf1_32_test.json", "PS256", {67, 68, 69, 70, 71, 72}),
              108);
}

/** The bytes of a Base64url text; nothing when it does not decode. */
std::optional<std::string> decoded(const std::string& text)
{
    char* bytes = nullptr;
    int length = 0;
    if (base64URIdecode(text.c_str(), &bytes, &length) == 0)
    {
        return std::nullopt;
    }
    const HeapText owned{bytes};
    return std::string{bytes, static_cast<std::size_t>(length)};
}

/** The PEM form of a JWK; empty when it has none. */
std::string pemOf(const Json::Value& key)
{
    char* text = heapText(Json::writeString(Json::StreamWriterBuilder{}, key)).release();
    Json::Value completed;
    const bool appended = appendPublicKey(&text) == 1;
    const HeapText owned{text};
    return appended && loadJsonDoc(text, completed) ? completed["kest_decoded_key"].asString()
                                                    : std::string{};
}

/** Whether the compact form `token` is signed by the key in `pem`. */
bool verifies(const std::string& token, const std::string& pem)
{
    const std::size_t first = token.find('.');
    const std::size_t second = first == std::string::npos ? first : token.find('.', first + 1);
    if (second == std::string::npos)
    {
        return false;
    }
    const std::optional<std::string> header = decoded(token.substr(0, first));
    const std::optional<std::string> signature = decoded(token.substr(second + 1));
    Json::Value object;
    return header && signature && loadJsonDoc(header->c_str(), object) && object.isObject() &&
           object["alg"].isString() &&
           verifyWithPem(token.substr(0, second), *signature, pem, object["alg"].asString());
}

TEST(VerifierVectors, JsonWebSignatures)
{
    const std::set<int> lenient = {
        // Salts of other lengths than the digest's.
        281, 282, 283, 284, 285, 286,
        // Genuine signatures of another algorithm than the JWK's own "alg" names: the token's names
        // it, since keys are selected by more than that.
        332, 334, 336, 338, 340,
        // Genuine signatures of keys whose "use" or "key_ops" is encryption: what the caller lists
        // is trusted, and these members are not looked at.
        353, 354, 355, 356};
    const Json::Value document = vectors("wycheproof/json_web_signature_test.json");
    int cases = 0;
    for (const Json::Value& group : document["testGroups"])
    {
        // The others hold secrets of HMAC, which no trusted key can be.
        if (!group.isMember("public"))
        {
            continue;
        }
        const std::string pem = pemOf(group["public"]);
        EXPECT_FALSE(pem.empty());
        for (const Json::Value& test : group["tests"])
        {
            SCOPED_TRACE(test["tcId"].asString() + " " + test["comment"].asString());
            const bool expected =
                test["result"] == "valid" || lenient.contains(test["tcId"].asInt());
            EXPECT_EQ(verifies(test["jws"].asString(), pem), expected);
            ++cases;
        }
    }
    EXPECT_EQ(cases, 361);
}

TEST(VerifierVectors, EcdsaWithSha512OfRfc7515)
{
    // RFC 7515, A.4: not a token, since its payload is not JSON.
    Json::Value key{Json::objectValue};
    key["kty"] = "EC";
    key["crv"] = "P-521";
    key["x"] =
        "AekpBQ8ST8a8VcfVOTNl353vSrDCLLJXmPk06wTjxrrjcBpXp5EOnYG_NjFZ6OvLFV1jSfS9tsz4qUxcWceq"
        "wQGk";
    key["y"] =
        "ADSmRA43Z1DSNx_RvcLI87cdL07l6jQyyBXMoxVg_l2Th-x3S1WDhjDly79ajL4Kkd0AZMaZmh9ubmf63e3k"
        "yMj2";
    const std::string pem = pemOf(key);
    const std::string token = "eyJhbGciOiJFUzUxMiJ9.UGF5bG9hZA"
                              ".AdwMgeerwtHoh-l192l60hp9wAHZFVJbLfD_UxMi70cwnZOYaRI1bKPWROc-mZZq"
                              "wqT2SI-KGDKB34XO0aw_7XdtAG8GaSwFKdCAPZgoXD2YBJZCPEX3xKpRwcdOO8Kp"
                              "EHwJjyqOgzDO7iKvU8vcnwNrmxYbSW9ERBXukOXolLzeO_Jn";
    EXPECT_TRUE(verifies(token, pem));
    std::string forged = token;
    forged[25] = 'Z';
    EXPECT_FALSE(verifies(forged, pem));
}

} // namespace
