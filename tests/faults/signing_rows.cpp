// SPDX-License-Identifier: Apache-2.0
#include "inputs.hpp"
#include "show.hpp"
#include "support/machine.hpp"
#include "support/tokens.hpp"

#include <openssl/ec.h>
#include <openssl/ecdsa.h>
#include <openssl/pem.h>
#include <openssl/sha.h>

#include <array>

using support::EcKeyPtr;

namespace faults
{

namespace
{

constexpr const char* signedText = "header.payload";

tokens::PrivateKey ownKey()
{
    const std::string& der = deviceKey().bytes;
    return {{der.begin(), der.end()}};
}

/** What a signature as Base64url is worth by the key of the device. */
Outcome signatureOf(const HeapText& signature)
{
    if (!signature)
    {
        return failed();
    }
    const std::string der = tokens::fromBase64Url(signature.get());
    return tokens::verifies(signedText, der, ownKey()) ? got("a signature") : wrong("no signature");
}

/** A made key pair: both parts belong together. */
Outcome pairOf(const unsigned char* publicKey, int publicLength, const unsigned char* privateKey,
               int privateLength)
{
    const unsigned char* position = privateKey;
    const EcKeyPtr key{d2i_ECPrivateKey(nullptr, &position, privateLength)};
    unsigned char* point = nullptr;
    const int length = key ? i2o_ECPublicKey(key.get(), &point) : 0;
    const bool belongs = length == publicLength &&
                         std::equal(point, point + length, publicKey, publicKey + publicLength);
    OPENSSL_free(point);
    return belongs ? got("a pair") : wrong("no pair");
}

const std::string& deviceSignature()
{
    static const std::string signature = tokens::sign(signedText, ownKey());
    return signature;
}

int verifies(const std::string& text)
{
    const std::string& signature = deviceSignature();
    return verifySignature(text, reinterpret_cast<const unsigned char*>(signature.data()),
                           static_cast<int>(signature.size()), deviceKey().data(),
                           deviceKey().size());
}

const Table rows{
    {"generateECKey", "new buffers", getsBy,
     [](Attempt& attempt) {
         unsigned char* publicKey = nullptr;
         unsigned char* privateKey = nullptr;
         int publicLength = -1;
         int privateLength = -1;
         const int generated = attempt.call(
             [&] { return generateECKey(&publicKey, &privateKey, &publicLength, &privateLength); });
         const HeapBytes publicOwner{publicKey};
         const HeapBytes privateOwner{privateKey};
         if (generated == 0)
         {
             return failedLeaving(publicKey == nullptr && privateKey == nullptr &&
                                  publicLength == -1 && privateLength == -1);
         }
         return pairOf(publicKey, publicLength, privateKey, privateLength);
     }},
    {"generateECKey", "the caller's buffers", getsBy,
     [](Attempt& attempt) {
         std::array<unsigned char, 65> publicBuffer{};
         std::array<unsigned char, 128> privateBuffer{};
         unsigned char* publicKey = publicBuffer.data();
         unsigned char* privateKey = privateBuffer.data();
         int publicLength = -1;
         int privateLength = -1;
         const int generated = attempt.call(
             [&] { return generateECKey(&publicKey, &privateKey, &publicLength, &privateLength); });
         if (generated == 0)
         {
             return failedLeaving(publicKey == publicBuffer.data() &&
                                  privateKey == privateBuffer.data() && publicLength == -1 &&
                                  privateLength == -1);
         }
         return pairOf(publicBuffer.data(), publicLength, privateBuffer.data(), privateLength);
     }},
    {"generateECPrivateKey", "a new file", getsBy,
     [](Attempt& attempt) {
         static const support::TemporaryDirectory directory;
         static const std::string path = directory / "key.pem";
         const int generated = attempt.call([] { return generateECPrivateKey(path.c_str()); });
         // On failure the file may be there, empty or cut short.
         return generated == 0                            ? failed()
                : validateECPrivateKey(path.c_str()) == 1 ? got("a key")
                                                          : wrong("no key");
     }},
    {"validateECPrivateKey", "a key file", getsBy,
     [](Attempt& attempt) {
         const DeviceFiles files;
         return said(attempt.call([] { return validateECPrivateKey(keyPath); }));
     }},
    {"getECPublicKey", "a new buffer", getsBy,
     [](Attempt& attempt) {
         const DeviceFiles files;
         unsigned char* point = nullptr;
         int length = -1;
         const int read = attempt.call([&] { return getECPublicKey(keyPath, &point, &length); });
         const HeapBytes owner{point};
         return read == 1 ? got(hexOf(point, static_cast<std::size_t>(length)))
                          : failedLeaving(point == nullptr && length == -1);
     }},
    {"getECPublicKey", "the caller's buffer", getsBy,
     [](Attempt& attempt) {
         const DeviceFiles files;
         std::array<unsigned char, 65> buffer{};
         unsigned char* point = buffer.data();
         int length = -1;
         const int read = attempt.call([&] { return getECPublicKey(keyPath, &point, &length); });
         return read == 1 ? got(hexOf(buffer.data(), static_cast<std::size_t>(length)))
                          : failedLeaving(point == buffer.data() && length == -1);
     }},
    {"getECKeyFromFile", "a key file", getsBy,
     [](Attempt& attempt) {
         const DeviceFiles files;
         return made<EcKeyPtr>(attempt.call([] { return getECKeyFromFile(keyPath); }));
     }},
    {"signToken", "a key", getsBy,
     [](Attempt& attempt) {
         return signatureOf(HeapText{attempt.call(
             [] { return signToken(signedText, deviceKey().data(), deviceKey().size()); })});
     }},
    {"signToken", "no key", getsBy,
     [](Attempt& attempt) {
         const HeapText signature{attempt.call([] { return signToken(signedText, nullptr, 0); })};
         return signature ? got(tokens::fromBase64Url(signature.get()).substr(0, 1)) : failed();
     }},
    {"verifySignature", "a signature", getsBy,
     [](Attempt& attempt) {
         const std::string text = signedText;
         return said(attempt.call([&] { return verifies(text); }));
     }},
    {"verifySignature", "another text", getsBy | isRefused,
     [](Attempt& attempt) {
         const std::string text = "header.another";
         return gave(attempt.call([&] { return verifies(text); }));
     }},
};

} // namespace

} // namespace faults
