// SPDX-License-Identifier: Apache-2.0
#include "secrets/secrets.hpp"

#include "support/certificates.hpp"
#include "support/exports.hpp"
#include "support/refusals.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>
#include <openssl/ec.h>
#include <openssl/evp.h>

#include <algorithm>
#include <set>
#include <stdexcept>

namespace secrets
{

namespace
{

std::set<std::string>& functionsWithRows()
{
    static std::set<std::string> functions;
    return functions;
}

class RowTest : public testing::Test
{
public:
    explicit RowTest(Row tested) : row{std::move(tested)}
    {
    }

    void TestBody() override
    {
        Watch watch;
        const Secrets secrets = row.run(watch);
        EXPECT_FALSE(secrets.empty());
        for (const std::string& secret : secrets)
        {
            ASSERT_GE(secret.size(), 12U);
            EXPECT_FALSE(watch.finds(secret)) << row.function << " (" << row.arguments
                                              << ") leaves " << testing::PrintToString(secret);
            EXPECT_FALSE(Watch::tells(secret)) << row.function << " (" << row.arguments
                                               << ") tells " << testing::PrintToString(secret);
        }
    }

private:
    Row row;
};

/** The functions that neither take nor make a secret: what they are given or make is public, or
 *  stays in the memory of the caller. */
const std::set<std::string> withoutSecrets{
    // Documents of which nothing is known but that they are JSON; see document_rows.cpp for those
    // that make a text or a tree of their own.
    "json_to_bool", "json_to_char", "json_to_char_array", "json_to_obj", "json_to_obj_array",
    "json_to_uint", "json_to_uint64", "update", "getKeyNames",
    // Texts and arrays of texts.
    "cleanPrint", "copyAppendArray", "copyReplace", "freeStrArray", "splitString",
    "free_char_array", "set_char_array", "removeSubStr", "o2_ff_calloc", "o2_ff_malloc",
    "o2_ff_realloc", "o2_ff_strdup",
    // The clock, the marker, errors, and reasons, which name no secret.
    "bmcoauth_last_refusal", "bmcoauth_rule_name", "get_seconds_from_epoch", "isDeviceVorn",
    "oauthErro_toStr", "write_oauth_error",
    // Challenges and proofs, which are sent.
    "_do_random", "appendSSLCertToResponse", "compareSoftwareCertTag", "genRandHexValue",
    "generateClientHandshakeChallenge", "generateServerHandshakeChallenge", "verifyHRSignature",
    "create_handshake_types_copy", "free_handshake_payload", "free_handshake_types_copy",
    "getChallengeValue", "getChallengeValueArray", "get_handshake_payload_paramValue",
    "parse_handshake_payload", "set_handshake_payload", "write_handshake_payload",
    // Envelopes: what is public of them, and the caller's own buffers.
    "convertHextoBinary", "generateRandomIV", "secure_alloc", "secure_body_data",
    "secure_body_length", "secure_mac_data", "secure_mac_length",
    // Certificates and public keys.
    "appendPublicKey", "chainVerify", "createEcPublicKey", "createRsaPublicKey", "decode_x509_jwk",
    "encode_x509_jwk", "free_jwk_certs", "getX509Cert", "get_EC_pubKey", "get_x509_CN",
    "recreate_x509_cert", "set_jwk_certs", "validateKestRootCert", "validateX509",
    "validate_x509_jwk",
    // What tokens say, which everybody can read who sees one.
    "create_jwt_header", "create_jwt_payload", "free_jwt_header", "free_jwt_payload",
    "free_jwt_scopes", "get_jwt_header", "get_jwt_payload", "get_roles_privileges",
    "get_scope_privileges", "get_xidp_privileges", "print_jwt_scopes", "validateJWT_Delegated",
    // Settings, and lists of public texts.
    "configure_auth_response", "configure_reg_response", "free_kest_policy_response",
    "set_kest_policy_response", "jwk_key_value"};

TEST(Secrets, HaveARowForEachFunctionThatHandlesOne)
{
    std::set<std::string> sorted = withoutSecrets;
    for (const std::string& function : functionsWithRows())
    {
        EXPECT_TRUE(sorted.insert(function).second) << function;
    }
    EXPECT_EQ(sorted, support::exportedFunctions());
}

TEST(Secrets, AreFoundInWhatAFunctionLeaves)
{
    Watch watch;
    watch.call([] { std::free(support::heapText(someSecret).release()); });
    EXPECT_TRUE(watch.finds(someSecret));
    EXPECT_FALSE(watch.finds("Zq7-another.secret.altogether.81xWBn"));
    const std::string half = std::string{someSecret}.substr(18);
    watch.call([&] { std::free(support::heapText("..." + half).release()); });
    EXPECT_TRUE(watch.finds(someSecret));
}

TEST(Secrets, AreFoundInTheReasonOfARefusal)
{
    Watch watch;
    bool value = false;
    for (const std::string& asked :
         {std::string{someSecret}, "..." + std::string{someSecret}.substr(20),
          std::string{"5a71372d6b6e6f776e2e746f5f"}})
    {
        EXPECT_EQ(get_value_bool("{}", asked.c_str(), &value), 0);
        EXPECT_TRUE(Watch::tells(someSecret)) << asked;
    }
    EXPECT_EQ(get_value_bool("{}", "another", &value), 0);
    EXPECT_FALSE(Watch::tells(someSecret));
}

} // namespace

bool Watch::finds(std::string_view secret) const
{
    const std::size_t half = secret.size() / 2;
    return blocks->holding(secret.substr(0, half)) + blocks->holding(secret.substr(half)) != 0;
}

bool Watch::tells(std::string_view secret)
{
    const bmcoauth_refusal refusal = support::lastRefusal();
    const std::string told =
        std::string{refusal.subject} + "\n" + refusal.saw + "\n" + refusal.wanted;
    const std::size_t third = secret.size() / 3;
    std::string digits;
    for (const char byte : secret)
    {
        constexpr std::string_view hexadecimal = "0123456789abcdef";
        const auto value = static_cast<unsigned char>(byte);
        digits.append({hexadecimal[value >> 4U], hexadecimal[value & 0x0fU]});
    }
    for (std::size_t start = 0; start + third <= secret.size(); ++start)
    {
        if (told.find(secret.substr(start, third)) != std::string::npos ||
            told.find(digits.substr(2 * start, 2 * third)) != std::string::npos)
        {
            return true;
        }
    }
    return false;
}

Table::Table(std::initializer_list<Row> added)
{
    for (const Row& row : added)
    {
        functionsWithRows().insert(row.function);
        std::string name = row.arguments;
        std::ranges::replace(name, ' ', '_');
        testing::RegisterTest(row.function, name.c_str(), nullptr, nullptr, __FILE__, __LINE__,
                              // GoogleTest releases it.
                              [row]() -> testing::Test* { return new RowTest{row}; });
    }
}

std::string fromBase64(std::string text)
{
    std::ranges::replace(text, '-', '+');
    std::ranges::replace(text, '_', '/');
    text.resize((text.size() + 3) / 4 * 4, '=');
    std::string bytes(text.size(), '\0');
    const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                       reinterpret_cast<const unsigned char*>(text.data()),
                                       static_cast<int>(text.size()));
    // It counts the zeros that the padding stands for.
    bytes.resize(static_cast<std::size_t>(std::max(length, 0)) -
                 static_cast<std::size_t>(std::ranges::count(text, '=')));
    return bytes;
}

std::string scalarOf(std::string_view der)
{
    const auto* position = reinterpret_cast<const unsigned char*>(der.data());
    const support::EcKeyPtr key{
        d2i_ECPrivateKey(nullptr, &position, static_cast<long>(der.size()))};
    if (!key)
    {
        throw std::runtime_error("no key");
    }
    std::string scalar(32, '\0');
    BN_bn2binpad(EC_KEY_get0_private_key(key.get()),
                 reinterpret_cast<unsigned char*>(scalar.data()), static_cast<int>(scalar.size()));
    return scalar;
}

std::string memberOf(const char* text, const char* name)
{
    Json::Value document;
    return text != nullptr && loadJsonDoc(text, document) ? document[name].asString() : "";
}

} // namespace secrets
