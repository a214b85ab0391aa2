// SPDX-License-Identifier: Apache-2.0
#include "faults/inputs.hpp"
#include "secrets/secrets.hpp"

#include <gtest/gtest.h>

using support::certificateRecord;
using support::EcKeyPtr;
using support::HeapText;
using support::PayloadPtr;

namespace secrets
{

namespace
{

const std::string secret = someSecret;

const unsigned char* bytes()
{
    return reinterpret_cast<const unsigned char*>(secret.data());
}

/** An envelope with a MAC that is not its own; the right one is a secret, too. */
Secrets refusesMac(Watch& watch)
{
    const PayloadPtr record = certificateRecord({faults::device().body()});
    HandshakePayload* peer = record.get();
    const faults::Der& key = faults::deviceKey();
    char* mac = nullptr;
    const HeapText body{ecies_encrypt(secret.c_str(), static_cast<unsigned int>(secret.size()),
                                      &peer, &mac, key.data(), key.size(), faults::someIv)};
    const HeapText macOwner{mac};
    std::string altered = mac;
    altered.front() = altered.front() == 'A' ? 'B' : 'A';
    unsigned int length = 0;
    EXPECT_EQ(watch.call([&] {
        return ecies_decrypt(body.get(), &length, key.data(), key.size(), altered.c_str(), &peer,
                             faults::someIv);
    }),
              nullptr);
    return {secret, std::string{mac}.substr(1), scalarOf(key.bytes)};
}

/** What is refused, although it held a secret: the reason must not hold it. */
const Table rows{
    {"signToken", "a text where a key should be",
     [](Watch& watch) {
         EXPECT_EQ(watch.call([] {
             return signToken("header.payload", bytes(), static_cast<int>(secret.size()));
         }),
                   nullptr);
         return Secrets{secret};
     }},
    {"get_EC_privKey", "a text where a key should be",
     [](Watch& watch) {
         const EcKeyPtr key{
             watch.call([] { return get_EC_privKey(bytes(), static_cast<int>(secret.size())); })};
         EXPECT_EQ(key, nullptr);
         return Secrets{secret};
     }},
    {"ecies_decrypt", "a wrong MAC", refusesMac},
    {"get_value_bool", "a secret",
     [](Watch& watch) {
         bool value = false;
         const std::string text = R"({"client_secret":")" + secret + R"("})";
         EXPECT_EQ(
             watch.call([&] { return get_value_bool(text.c_str(), "client_secret", &value); }), 0);
         return Secrets{secret};
     }},
};

} // namespace

} // namespace secrets
