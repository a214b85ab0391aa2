// SPDX-License-Identifier: Apache-2.0
#include "faults/inputs.hpp"
#include "faults/show.hpp"
#include "secrets/secrets.hpp"
#include "support/machine.hpp"

#include <gtest/gtest.h>
#include <openssl/ec.h>

#include <algorithm>
#include <fstream>
#include <iterator>

using faults::HeaderPtr;
using faults::TokenPtr;
using support::EcKeyPtr;
using support::HeapBytes;
using support::HeapText;

namespace secrets
{

namespace
{

const faults::Der& key()
{
    return faults::deviceKey();
}

Secrets scalar()
{
    return {scalarOf(key().bytes)};
}

HeapText signedToken()
{
    const HeaderPtr header{create_jwt_header("JWT", "ES256", nullptr)};
    const TokenPtr payload{
        create_jwt_payload("sub", "id", "iss", nullptr, nullptr, "4102444800", nullptr, 0)};
    return HeapText{generateJWT(header.get(), payload.get(), key().data(), key().size())};
}

template <typename Validate>
Secrets validates(Watch& watch, const Validate& validate)
{
    const HeapText token = signedToken();
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    EXPECT_EQ(watch.call([&] { return validate(token.get(), &header, &payload); }), 1);
    const HeaderPtr headerOwner{header};
    const TokenPtr payloadOwner{payload};
    return scalar();
}

/** The body of the PEM block @p pem and the scalar in it. */
Secrets secretsOfFile(const std::string& pem)
{
    const std::string body =
        pem.substr(pem.find('\n') + 1, pem.rfind("\n-----END") - pem.find('\n') - 1);
    std::string digits = body;
    std::erase(digits, '\n');
    const std::string der = fromBase64(digits);
    // The ECPrivateKey structure ends the PKCS #8 structure; the scalar follows its own mark.
    const std::string mark{"\x02\x01\x01\x04\x20", 5};
    const std::size_t at = der.find(mark);
    EXPECT_NE(at, std::string::npos);
    return {body.substr(65, 64), der.substr(at + mark.size(), 32)};
}

std::string contentsOf(const std::string& path)
{
    std::ifstream file{path};
    return {std::istreambuf_iterator<char>{file}, {}};
}

/** A file with a key and what is secret of it. */
class KeyFile
{
public:
    KeyFile() : path{directory / "key.pem"}
    {
        EXPECT_EQ(generateECPrivateKey(path.c_str()), 1);
    }

    [[nodiscard]] const char* name() const
    {
        return path.c_str();
    }

    [[nodiscard]] Secrets secrets() const
    {
        return secretsOfFile(contentsOf(path));
    }

private:
    support::TemporaryDirectory directory;
    std::string path;
};

const Table rows{
    {"generateECKey", "new buffers",
     [](Watch& watch) {
         unsigned char* publicKey = nullptr;
         unsigned char* privateKey = nullptr;
         int publicLength = 0;
         int privateLength = 0;
         EXPECT_EQ(watch.call([&] {
             return generateECKey(&publicKey, &privateKey, &publicLength, &privateLength);
         }),
                   1);
         const HeapBytes publicOwner{publicKey};
         const HeapBytes privateOwner{privateKey};
         return Secrets{scalarOf(
             {reinterpret_cast<const char*>(privateKey), static_cast<std::size_t>(privateLength)})};
     }},
    {"generateECPrivateKey", "a new file",
     [](Watch& watch) {
         const support::TemporaryDirectory directory;
         const std::string path = directory / "key.pem";
         EXPECT_EQ(watch.call([&] { return generateECPrivateKey(path.c_str()); }), 1);
         return secretsOfFile(contentsOf(path));
     }},
    {"validateECPrivateKey", "a key",
     [](Watch& watch) {
         const KeyFile file;
         EXPECT_EQ(watch.call([&] { return validateECPrivateKey(file.name()); }), 1);
         return file.secrets();
     }},
    {"getECPublicKey", "a key",
     [](Watch& watch) {
         const KeyFile file;
         unsigned char* point = nullptr;
         int length = 0;
         EXPECT_EQ(watch.call([&] { return getECPublicKey(file.name(), &point, &length); }), 1);
         const HeapBytes owner{point};
         return file.secrets();
     }},
    {"getECKeyFromFile", "a key",
     [](Watch& watch) {
         const KeyFile file;
         const EcKeyPtr read{watch.call([&] { return getECKeyFromFile(file.name()); })};
         EXPECT_NE(read, nullptr);
         return file.secrets();
     }},
    {"signToken", "a key",
     [](Watch& watch) {
         const HeapText signature{
             watch.call([] { return signToken("header.payload", key().data(), key().size()); })};
         EXPECT_NE(signature, nullptr);
         return scalar();
     }},
    {"verifySignature", "a key",
     [](Watch& watch) {
         const HeapText text{signToken("header.payload", key().data(), key().size())};
         const std::string signature = fromBase64(text.get());
         EXPECT_EQ(watch.call([&] {
             return verifySignature("header.payload",
                                    reinterpret_cast<const unsigned char*>(signature.data()),
                                    static_cast<int>(signature.size()), key().data(), key().size());
         }),
                   1);
         return scalar();
     }},
    {"generateSignedResponseValue", "a key",
     [](Watch& watch) {
         const EcKeyPtr own{get_EC_privKey(key().data(), key().size())};
         const HeapText value{
             watch.call([&] { return generateSignedResponseValue("token:name", own.get()); })};
         EXPECT_NE(value, nullptr);
         return scalar();
     }},
    {"generateJWT", "a key",
     [](Watch& watch) {
         const HeapText token{watch.call([] { return signedToken().release(); })};
         EXPECT_NE(token, nullptr);
         return scalar();
     }},
    {"validateJWT", "a key",
     [](Watch& watch) {
         return validates(watch, [](const char* token, JWTHeader** header, JWTPayload** payload) {
             return validateJWT(token, key().data(), key().size(), header, payload);
         });
     }},
    {"parseJWT", "a key",
     [](Watch& watch) {
         return validates(watch, [](const char* token, JWTHeader** header, JWTPayload** payload) {
             return parseJWT(token, key().data(), key().size(), header, payload);
         });
     }},
};

} // namespace

} // namespace secrets
