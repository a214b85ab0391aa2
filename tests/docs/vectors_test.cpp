// SPDX-License-Identifier: Apache-2.0
#include "support/certificates.hpp"
#include "support/fake_device.hpp"
#include "support/records.hpp"
#include "support/vectors.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <vector>

// The vectors that are published for those who write clients: the library does what they say.

using namespace support;

namespace
{

constexpr const char* productionPath = "/etc/default/certs/FactorycertProdRoot.pem";
constexpr const char* developmentPath = "/etc/default/certs/FactorycertDevRoot.pem";

/** Runs `check` on each row of a list in which some are valid and some are not. */
void forEach(const Json::Value& rows, const std::function<void(const Json::Value&)>& check)
{
    ASSERT_TRUE(rows.isArray());
    std::size_t valid = 0;
    for (const Json::Value& row : rows)
    {
        SCOPED_TRACE(row["name"].asString());
        valid += row["valid"].asBool() ? 1U : 0U;
        check(row);
    }
    EXPECT_GE(valid, 2U);
    EXPECT_LT(valid, rows.size());
}

/** The text of a member, or null where it is null or missing. */
std::optional<std::string> textOf(const Json::Value& row, const char* member)
{
    return row[member].isString() ? std::optional{row[member].asString()} : std::nullopt;
}

const char* orNullPointer(const std::optional<std::string>& text)
{
    return text ? text->c_str() : nullptr;
}

struct PrivateKey
{
    explicit PrivateKey(const Json::Value& owner) : bytes{fromHex(owner["der"].asString())}
    {
    }

    [[nodiscard]] const unsigned char* data() const
    {
        return reinterpret_cast<const unsigned char*>(bytes.data());
    }

    [[nodiscard]] int size() const
    {
        return static_cast<int>(bytes.size());
    }

    std::string bytes;
};

/** A null-ended array of the texts of a JSON array, null for none. */
class Texts
{
public:
    explicit Texts(const Json::Value& array)
    {
        for (const Json::Value& text : array)
        {
            kept.push_back(text.asString());
        }
        for (std::string& text : kept)
        {
            pointers.push_back(text.data());
            constPointers.push_back(text.data());
        }
        pointers.push_back(nullptr);
        constPointers.push_back(nullptr);
    }
    Texts(const Texts&) = delete;
    Texts& operator=(const Texts&) = delete;
    ~Texts() = default;

    [[nodiscard]] char** data()
    {
        return kept.empty() ? nullptr : pointers.data();
    }

    [[nodiscard]] const char** constData()
    {
        return constPointers.data();
    }

private:
    std::vector<std::string> kept;
    std::vector<char*> pointers;
    std::vector<const char*> constPointers;
};

PayloadPtr parameters(const Json::Value& document)
{
    return PayloadPtr{
        document.isObject() ? parse_handshake_payload(json_fastWriter(document).c_str()) : nullptr};
}

/** What a scope entry holds, for comparison. */
std::vector<std::string> valuesOf(const JWTscopes& entry)
{
    return {entry.values, entry.values + entry.count};
}

// Clients filter their tests by this mark.
TEST(PublishedVectors, MarkWhatAWriterMustNotSend)
{
    for (const char* name :
         {"authorize.json", "base64url.json", "certificate_proof.json", "certificates.json",
          "delegated.json", "ecies.json", "jwk.json", "otp.json", "register.json", "tokens.json"})
    {
        SCOPED_TRACE(name);
        std::size_t count = 0;
        for (const Json::Value& group : vectorsOfManual(name))
        {
            for (const Json::Value& row : group.isArray() ? group : Json::Value{Json::arrayValue})
            {
                SCOPED_TRACE(row["name"].asString());
                const bool isUnexpected =
                    row["valid"].asBool() && row["why"].asString().starts_with("NOTE: ");
                if (isUnexpected || row.isMember("send"))
                {
                    EXPECT_TRUE(row["valid"].asBool());
                    EXPECT_EQ(row["send"], Json::Value{false});
                    ++count;
                }
            }
        }
        EXPECT_GE(count, 1U);
    }
}

TEST(PublishedVectors, Base64Url)
{
    forEach(vectorsOfManual("base64url.json")["tests"], [](const Json::Value& row) {
        char* raw = nullptr;
        int length = -1;
        const int result = base64URIdecode(row["text"].asCString(), &raw, &length);
        const HeapText owned{raw};
        ASSERT_EQ(result, row["valid"].asBool() ? 1 : 0);
        if (result == 1)
        {
            EXPECT_EQ(std::string(raw, static_cast<std::size_t>(length)),
                      fromHex(row["bytes"].asString()));
        }
    });
}

TEST(PublishedVectors, Tokens)
{
    const Json::Value document = vectorsOfManual("tokens.json");
    const PrivateKey key{document["key"]};
    const FakeClock clock{static_cast<std::time_t>(document["now"].asInt64())};
    forEach(document["tests"], [&key](const Json::Value& row) {
        JWTHeader* rawHeader = nullptr;
        JWTPayload* rawPayload = nullptr;
        EXPECT_EQ(
            validateJWT(row["token"].asCString(), key.data(), key.size(), &rawHeader, &rawPayload),
            row["result"].asInt());
        const HeaderPtr header{rawHeader};
        const TokenPayloadPtr payload{rawPayload};
        if (const auto records = textOf(row, "records"))
        {
            EXPECT_EQ(header != nullptr, *records != "none");
            EXPECT_EQ(payload != nullptr, *records == "both");
        }
        if (!row["valid"].asBool())
        {
            return;
        }
        const Json::Value& claims = row["claims"];
        ASSERT_TRUE(payload);
        EXPECT_EQ(payload->sub, claims["sub"].asString());
        EXPECT_EQ(payload->iss, claims["iss"].asString());
        EXPECT_EQ(payload->jti, claims["jti"].asString());
        EXPECT_EQ(payload->iat, claims["iat"].asString());
        EXPECT_EQ(payload->nbf, claims["nbf"].asString());
        EXPECT_EQ(payload->exp, claims["exp"].asString());
        ASSERT_EQ(payload->scopes_count, static_cast<int>(row["scopes"].size()));
        for (int i = 0; i < payload->scopes_count; ++i)
        {
            const JWTscopes& entry = payload->scopes[i];
            EXPECT_EQ(valuesOf(entry), texts(Texts{row["scopes"][entry.name]}.constData()));
        }
    });
}

TEST(PublishedVectors, DelegatedTokens)
{
    const Json::Value document = vectorsOfManual("delegated.json");
    const FakeClock clock{static_cast<std::time_t>(document["now"].asInt64())};
    forEach(document["tests"], [](const Json::Value& row) {
        Texts keys{row["keys"]};
        Texts providers{row["providers"]};
        const std::vector<std::string> names = row["roles"].getMemberNames();
        std::vector<userRole_s> roles;
        roles.reserve(names.size() + 1);
        for (const std::string& name : names)
        {
            roles.push_back({name.c_str(), row["roles"][name].asUInt()});
        }
        roles.push_back({nullptr, 0});
        JWTHeader* rawHeader = nullptr;
        JWTPayload* rawPayload = nullptr;
        int verified = 0;
        EXPECT_EQ(validateJWT_Delegated(row["token"].asCString(), keys.constData(), 0, &rawHeader,
                                        &rawPayload, row["skew"].asUInt(), roles.data(),
                                        providers.constData(), &verified),
                  row["result"].asInt());
        const HeaderPtr header{rawHeader};
        const TokenPayloadPtr payload{rawPayload};
        EXPECT_EQ(verified, row["verified"].asInt());
        if (!row["valid"].asBool())
        {
            return;
        }
        ASSERT_TRUE(payload);
        ASSERT_EQ(payload->scopes_count, static_cast<int>(row["scopes"].size()));
        for (int i = 0; i < payload->scopes_count; ++i)
        {
            const JWTscopes& entry = payload->scopes[i];
            EXPECT_EQ(valuesOf(entry), std::vector{row["scopes"][entry.name].asString()});
        }
    });
}

TEST(PublishedVectors, JsonWebKeys)
{
    forEach(vectorsOfManual("jwk.json")["tests"], [](const Json::Value& row) {
        char* text = heapText(row["jwk"].asString()).release();
        const int result = appendPublicKey(&text);
        const HeapText owned{text};
        EXPECT_EQ(result, row["valid"].asBool() ? 1 : 0);
        EXPECT_EQ(text, row[result == 1 ? "written" : "jwk"].asString());
        if (result == 1)
        {
            Json::Value written;
            ASSERT_TRUE(loadJsonDoc(text, written));
            EXPECT_EQ(written["kest_decoded_key"].asString() + '\n', row["pem"].asString());
        }
    });
}

TEST(PublishedVectors, OneTimePasswords)
{
    forEach(vectorsOfManual("otp.json")["tests"], [](const Json::Value& row) {
        const std::string keys = row["keys"].asString();
        const auto length = static_cast<unsigned int>(keys.size());
        const PayloadPtr challenge = parameters(row["challenge"]);
        const PayloadPtr response = parameters(row["response"]);
        HandshakePayload* certificate = nullptr;
        EXPECT_EQ(validateHandshakeResponse(challenge.get(), keys.c_str(), length, &certificate,
                                            response.get()),
                  row["valid"].asBool());
        if (!row["valid"].asBool() || !row["response"]["M"].isNull() ||
            !row["response"]["C"].isNull())
        {
            return;
        }
        // The client's side, where nothing is left to chance.
        HandshakePayload* made = nullptr;
        ASSERT_TRUE(generateHandshakeResponse(challenge.get(), keys.c_str(), length, &certificate,
                                              &made, nullptr, 0));
        const PayloadPtr answer{made};
        char** ours = nullptr;
        char** theirs = nullptr;
        ASSERT_TRUE(getChallengeValueArray(answer.get(), "R", &ours));
        const StringArray ownedOurs{ours};
        ASSERT_TRUE(getChallengeValueArray(response.get(), "R", &theirs));
        const StringArray ownedTheirs{theirs};
        EXPECT_EQ(texts(ours), texts(theirs));
        std::vector<std::string> passwords;
        for (const Json::Value& step : row["intermediate"])
        {
            passwords.push_back(step["password"].asString());
        }
        EXPECT_EQ(texts(ours), passwords);
    });
}

TEST(PublishedVectors, CertificateProofs)
{
    const Json::Value document = vectorsOfManual("certificate_proof.json");
    const PrivateKey key{document["key"]};
    const std::string keys = document["keys"].asString();
    const auto length = static_cast<unsigned int>(keys.size());
    forEach(document["tests"], [&](const Json::Value& row) {
        const PayloadPtr certificate =
            parameters(row.isMember("certificate") ? row["certificate"] : document["certificate"]);
        const PayloadPtr challenge = parameters(row["challenge"]);
        const PayloadPtr response = parameters(row["response"]);
        HandshakePayload* pointer = certificate.get();
        EXPECT_EQ(validateHandshakeResponse(challenge.get(), keys.c_str(), length, &pointer,
                                            response.get()),
                  row["valid"].asBool());
        // The private key is that of the certificate.
        HandshakePayload* made = nullptr;
        ASSERT_TRUE(generateHandshakeResponse(challenge.get(), keys.c_str(), length, &pointer,
                                              &made, key.data(),
                                              static_cast<unsigned int>(key.size())));
        const PayloadPtr answer{made};
        EXPECT_TRUE(validateHandshakeResponse(challenge.get(), keys.c_str(), length, &pointer,
                                              answer.get()));
    });
}

TEST(PublishedVectors, CertificateChains)
{
    const Json::Value document = vectorsOfManual("certificates.json");
    FakeFiles files;
    files.put(productionPath, document["production_root"].asString());
    files.put(developmentPath, document["development_root"].asString());
    forEach(document["chains"], [](const Json::Value& row) {
        std::optional<MarkerFile> marker;
        if (row["marked"].asBool())
        {
            marker.emplace();
        }
        Json::Value key{Json::objectValue};
        key["x5c"] = row["x5c"];
        EXPECT_EQ(chainVerify(parameters(key).get()), row["result"].asInt());
        EXPECT_EQ(row["result"].asInt() == 1, row["valid"].asBool());
    });
}

TEST(PublishedVectors, CertificateNames)
{
    forEach(vectorsOfManual("certificates.json")["names"], [](const Json::Value& row) {
        const auto name = textOf(row, "common_name");
        EXPECT_EQ(validateX509(row["pem"].asCString(), orNullPointer(name)),
                  row["valid"].asBool() ? 1 : 0);
    });
}

TEST(PublishedVectors, CertificateKeys)
{
    forEach(vectorsOfManual("certificates.json")["encoded"], [](const Json::Value& row) {
        const std::string pem = row["pem"].asString();
        const PayloadPtr key{encode_x509_jwk(pem.c_str(), static_cast<unsigned int>(pem.size()))};
        ASSERT_EQ(key != nullptr, row["valid"].asBool());
        if (key)
        {
            char** bodies = nullptr;
            ASSERT_TRUE(getChallengeValueArray(key.get(), "x5c", &bodies));
            const StringArray owned{bodies};
            EXPECT_EQ(texts(bodies), texts(Texts{row["x5c"]}.constData()));
        }
    });
}

TEST(PublishedVectors, Envelopes)
{
    const Json::Value document = vectorsOfManual("ecies.json");
    const PrivateKey receiver{document["receiver"]};
    const PayloadPtr sender = certificateRecord({document["sender"]["x5c"].asString()});
    forEach(document["tests"], [&](const Json::Value& row) {
        std::optional<MarkerFile> marker;
        if (row["marked"].asBool())
        {
            marker.emplace();
        }
        const auto mac = textOf(row, "mac");
        const auto iv = textOf(row, "iv");
        HandshakePayload* peer = sender.get();
        unsigned int length = 12345;
        const HeapText plaintext{ecies_decrypt(row["ciphertext"].asCString(), &length,
                                               receiver.data(), receiver.size(), orNullPointer(mac),
                                               &peer, orNullPointer(iv))};
        ASSERT_EQ(plaintext != nullptr, row["valid"].asBool());
        if (plaintext)
        {
            EXPECT_EQ(std::string(plaintext.get(), length), row["plaintext"].asString());
            const Json::Value& steps = row["intermediate"];
            const std::string secret = fromHex(steps["shared_secret"].asString());
            std::string material(32, '\0');
            std::size_t size = material.size();
            EXPECT_EQ(ecies_key_derivation(secret.data(), secret.size(), material.data(), &size),
                      material.data());
            EXPECT_EQ(material, fromHex(steps["key_material"].asString()));
        }
    });
}

TEST(PublishedVectors, RegisterRequests)
{
    forEach(vectorsOfManual("register.json")["requests"], [](const Json::Value& row) {
        const RegisterRequestPtr request{parse_register_request(row["document"].asCString())};
        ASSERT_EQ(request != nullptr, row["valid"].asBool());
        if (request)
        {
            const HeapText written{write_register_request(request.get())};
            EXPECT_EQ(orNull(written.get()), row["written"].asString());
        }
    });
}

TEST(PublishedVectors, RegisterResponses)
{
    forEach(vectorsOfManual("register.json")["responses"], [](const Json::Value& row) {
        const Json::Value& members = row["members"];
        Texts grantTypes{members["grant_types"]};
        Texts policyTypes{members["kest_policy_auth_types"]};
        Texts policies{members["kest_policy_auth_req"]};
        const PayloadPtr challenge = parameters(members["handshake_challenge"]);
        const PayloadPtr answer = parameters(members["handshake_response"]);
        const PayloadPtr certificate = parameters(
            members["software_id_cert"].isArray() ? members["software_id_cert"][0] : Json::Value{});
        const auto sealed = textOf(members, "ssl_cert_cryptex");
        std::vector<HandshakePayload*> certificates{certificate.get(), nullptr};
        const RegisterResponsePtr response{create_register_response(
            members["client_secret"].asCString(), members["client_id"].asCString(),
            members["client_secret_expires_in"].asCString(), grantTypes.data(), nullptr,
            policyTypes.data(), policies.data(), challenge.get(), answer.get(),
            orNullPointer(sealed), certificate ? certificates.data() : nullptr)};
        ASSERT_TRUE(response);
        const HeapText written{write_register_response(response.get())};
        EXPECT_EQ(orNull(written.get()),
                  row["valid"].asBool() ? row["written"].asString() : "(null)");
    });
}

TEST(PublishedVectors, OidcAnswers)
{
    forEach(vectorsOfManual("register.json")["answers"], [](const Json::Value& row) {
        const OidcResponsePtr answer{parse_oidc_register_response(row["document"].asCString())};
        ASSERT_EQ(answer != nullptr, row["valid"].asBool());
        if (!answer)
        {
            return;
        }
        const auto expected = [&row](const char* field) {
            return orNull(orNullPointer(textOf(row["fields"], field)));
        };
        EXPECT_EQ(orNull(answer->client_id), expected("client_id"));
        EXPECT_EQ(orNull(answer->client_secret), expected("client_secret"));
        EXPECT_EQ(orNull(answer->registration_access_token), expected("registration_access_token"));
        EXPECT_EQ(orNull(answer->registration_client_uri), expected("registration_client_uri"));
        EXPECT_EQ(orNull(answer->client_id_issued_at), expected("client_id_issued_at"));
        EXPECT_EQ(orNull(answer->client_secret_expires_at), expected("client_secret_expires_at"));
    });
}

TEST(PublishedVectors, AuthorizeRequests)
{
    forEach(vectorsOfManual("authorize.json")["requests"], [](const Json::Value& row) {
        const AuthorizeRequestPtr request{parse_authorize_request(row["document"].asCString())};
        ASSERT_EQ(request != nullptr, row["valid"].asBool());
        if (request)
        {
            const HeapText written{write_authorize_request(request.get())};
            EXPECT_EQ(orNull(written.get()), row["written"].asString());
        }
    });
}

TEST(PublishedVectors, AuthorizeResponses)
{
    forEach(vectorsOfManual("authorize.json")["responses"], [](const Json::Value& row) {
        const AuthorizeResponsePtr response{parse_authorize_response(row["document"].asCString())};
        ASSERT_EQ(response != nullptr, row["valid"].asBool());
        if (response)
        {
            const HeapText written{write_authorize_response(response.get())};
            EXPECT_EQ(orNull(written.get()), row["written"].asString());
        }
    });
}

} // namespace
