// SPDX-License-Identifier: Apache-2.0
#include "faults/inputs.hpp"
#include "faults/show.hpp"
#include "secrets/secrets.hpp"
#include "support/lists.hpp"

#include <gtest/gtest.h>
#include <openssl/ec.h>
#include <openssl/sha.h>

#include <array>
#include <cstring>

using faults::KeyList;
using faults::KeyPtr;
using support::certificateRecord;
using support::EcKeyPtr;
using support::HeapBytes;
using support::HeapText;
using support::PairList;
using support::PayloadPtr;

namespace secrets
{

namespace
{

const std::string secret = someSecret;

const unsigned char* bytesOf(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

/** The Base64 text of the secret. */
const std::string encodedSecret = "WnE3LWtub3duLnRvX3RoZS50d28ub2YtdXMub25seS44MXhX";

/** What both sides derive from their keys. */
Secrets derivedKeys()
{
    const unsigned char* position = faults::deviceKey().data();
    const EcKeyPtr own{d2i_ECPrivateKey(nullptr, &position, faults::deviceKey().size())};
    const EcKeyPtr peer{EVP_PKEY_get1_EC_KEY(&faults::stranger().key())};
    std::string agreed(32, '\0');
    std::string derived(32, '\0');
    EXPECT_EQ(ECDH_compute_key(agreed.data(), agreed.size(), EC_KEY_get0_public_key(peer.get()),
                               own.get(), nullptr),
              32);
    SHA256(bytesOf(agreed), agreed.size(), reinterpret_cast<unsigned char*>(derived.data()));
    return {agreed, derived};
}

Secrets andKeys(Secrets secrets, const faults::Der& key)
{
    secrets.push_back(scalarOf(faults::deviceKey().bytes));
    static_cast<void>(key);
    const Secrets derived = derivedKeys();
    secrets.insert(secrets.end(), derived.begin(), derived.end());
    return secrets;
}

Secrets seals(Watch& watch, const faults::Der& key)
{
    const PayloadPtr record = certificateRecord({faults::stranger().body()});
    HandshakePayload* peer = record.get();
    char* mac = nullptr;
    const HeapText body{watch.call([&] {
        return ecies_encrypt(secret.c_str(), static_cast<unsigned int>(secret.size()), &peer, &mac,
                             key.data(), key.size(), faults::someIv);
    })};
    const HeapText macOwner{mac};
    EXPECT_NE(body, nullptr);
    return andKeys({secret}, key);
}

Secrets opens(Watch& watch, const std::string& data, bool lengthFits)
{
    const PayloadPtr record = certificateRecord({faults::stranger().body()});
    HandshakePayload* peer = record.get();
    const faults::Der& key = faults::deviceKey();
    char* mac = nullptr;
    const HeapText body{ecies_encrypt(data.c_str(), static_cast<unsigned int>(data.size()), &peer,
                                      &mac, key.data(), key.size(), faults::someIv)};
    const HeapText macOwner{mac};
    unsigned int length = 0;
    const HeapText text{watch.call([&] {
        return ecies_decrypt(body.get(), &length, key.data(), key.size(), mac, &peer,
                             faults::someIv);
    })};
    EXPECT_EQ(text != nullptr, lengthFits);
    return andKeys({secret}, key);
}

Secrets decodes(Watch& watch, const std::string& text, bool valid)
{
    char* bytes = nullptr;
    int length = 0;
    EXPECT_EQ(watch.call([&] { return base64URIdecode(text.c_str(), &bytes, &length); }),
              valid ? 1 : 0);
    const HeapText owner{bytes};
    return {secret, encodedSecret};
}

Secrets decodesKey(Watch& watch, const std::string& text, bool valid)
{
    PairList<jwk> key{{"kty", "DFS"}, {"dfs", text}};
    int length = 0;
    const HeapBytes bytes{watch.call([&] { return decode_dfs_jwk(key, &length); })};
    EXPECT_EQ(bytes != nullptr, valid);
    return {secret, encodedSecret};
}

jwk* sharedKey()
{
    return encode_dfs_jwk(bytesOf(secret), static_cast<int>(secret.size()));
}

Secrets readsKey(Watch& watch, const faults::Der& key)
{
    const EcKeyPtr read{watch.call([&] { return get_EC_privKey(key.data(), key.size()); })};
    EXPECT_NE(read, nullptr);
    return {scalarOf(faults::deviceKey().bytes)};
}

const Table rows{
    {"ecies_encrypt", "a key in the usual encoding",
     [](Watch& watch) {
         return seals(watch, faults::deviceKey());
     }},
    {"ecies_encrypt", "a key without its point",
     [](Watch& watch) {
         return seals(watch, faults::keyWithoutPoint());
     }},
    {"ecies_decrypt", "a text",
     [](Watch& watch) {
         return opens(watch, secret, true);
     }},
    {"ecies_decrypt", "a zero byte in the text",
     [](Watch& watch) {
         return opens(watch, secret + '\0' + "more", false);
     }},
    {"ecies_key_derivation", "a secret",
     [](Watch& watch) {
         std::string key(32, '\0');
         std::size_t length = key.size();
         EXPECT_NE(watch.call([&] {
             return ecies_key_derivation(secret.data(), secret.size(), key.data(), &length);
         }),
                   nullptr);
         return Secrets{secret, key};
     }},
    {"base64encode", "a secret",
     [](Watch& watch) {
         char* text = nullptr;
         EXPECT_EQ(watch.call([&] {
             return base64encode(secret.data(), &text, static_cast<int>(secret.size()));
         }),
                   1);
         const HeapText owner{text};
         EXPECT_EQ(text, encodedSecret);
         return Secrets{secret, encodedSecret};
     }},
    {"base64URIencode", "a secret",
     [](Watch& watch) {
         const HeapText text = support::heapText(encodedSecret);
         watch.call([&] { return base64URIencode(text.get()); });
         return Secrets{encodedSecret};
     }},
    {"base64URIdecode", "a secret",
     [](Watch& watch) {
         return decodes(watch, encodedSecret, true);
     }},
    {"base64URIdecode", "a character that is none",
     [](Watch& watch) {
         return decodes(watch, encodedSecret + "*", false);
     }},
    {"base64URIdecode", "lines",
     [](Watch& watch) {
         return decodes(watch, encodedSecret + "\n", true);
     }},
    {"issueRandomToken", "16 bytes",
     [](Watch& watch) {
         char* text = nullptr;
         watch.call([&] { issueRandomToken(&text, 16); });
         const HeapText owner{text};
         EXPECT_NE(text, nullptr);
         return Secrets{text, fromBase64(text)};
     }},
    {"issueRandomBytesInHex", "16 bytes",
     [](Watch& watch) {
         std::array<char, 35> text{};
         EXPECT_EQ(watch.call([&] { return issueRandomBytesInHex(text.data(), 16); }), 1);
         return Secrets{text.data()};
     }},
    {"encode_cert_jwk", "a secret",
     [](Watch& watch) {
         const KeyPtr key{watch.call([] {
             return encode_cert_jwk("oct", "id", "k", bytesOf(secret),
                                    static_cast<int>(secret.size()));
         })};
         EXPECT_NE(key, nullptr);
         return Secrets{secret, encodedSecret};
     }},
    {"encode_dfs_jwk", "a secret",
     [](Watch& watch) {
         const KeyPtr key{watch.call([] { return sharedKey(); })};
         EXPECT_NE(key, nullptr);
         return Secrets{secret, encodedSecret};
     }},
    {"decode_dfs_jwk", "a secret",
     [](Watch& watch) {
         return decodesKey(watch, encodedSecret, true);
     }},
    {"decode_dfs_jwk", "a character that is none",
     [](Watch& watch) {
         return decodesKey(watch, encodedSecret + "*", false);
     }},
    {"decode_dfs_jwk", "lines",
     [](Watch& watch) {
         return decodesKey(watch, encodedSecret + "\n", true);
     }},
    {"free_jwk", "a secret",
     [](Watch& watch) {
         jwk* key = sharedKey();
         watch.call([&] { free_jwk(&key); });
         return Secrets{encodedSecret};
     }},
    {"set_jwk_list", "a secret",
     [](Watch& watch) {
         const KeyPtr key{sharedKey()};
         std::array<jwk*, 2> list{key.get(), nullptr};
         const KeyList copy{watch.call([&] { return set_jwk_list(list.data()); })};
         EXPECT_NE(copy, nullptr);
         return Secrets{encodedSecret};
     }},
    {"set_jwk_list", "a key that cannot be copied behind a secret",
     [](Watch& watch) {
         const KeyPtr key{sharedKey()};
         jwk empty{};
         std::array<jwk*, 3> list{key.get(), &empty, nullptr};
         EXPECT_EQ(watch.call([&] { return set_jwk_list(list.data()); }), nullptr);
         return Secrets{encodedSecret};
     }},
    {"free_jwk_list", "a secret",
     [](Watch& watch) {
         const KeyPtr key{sharedKey()};
         std::array<jwk*, 2> list{key.get(), nullptr};
         jwk** const copy = set_jwk_list(list.data());
         watch.call([&] { free_jwk_list(copy); });
         return Secrets{encodedSecret};
     }},
    {"oauth2_parse_jwk", "a secret",
     [](Watch& watch) {
         const std::string text = R"({"k":")" + secret + R"(","kty":"oct"})";
         const KeyPtr key{watch.call([&] { return oauth2_parse_jwk(text.c_str()); })};
         EXPECT_NE(key, nullptr);
         return Secrets{secret};
     }},
    {"get_EC_privKey", "the usual encoding",
     [](Watch& watch) {
         return readsKey(watch, faults::deviceKey());
     }},
    {"get_EC_privKey", "no point",
     [](Watch& watch) {
         return readsKey(watch, faults::keyWithoutPoint());
     }},
    {"get_EC_privKey", "no curve",
     [](Watch& watch) {
         return readsKey(watch, faults::keyWithoutCurve());
     }},
};

} // namespace

} // namespace secrets
