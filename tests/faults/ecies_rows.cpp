// SPDX-License-Identifier: Apache-2.0
#include "inputs.hpp"
#include "show.hpp"

#include <array>
#include <cstring>

using support::certificateRecord;
using support::MarkerFile;

namespace faults
{

namespace
{

/** What the device seals for the stranger; the row's random bytes make it the same each time. */
Outcome seals(Attempt& attempt, const Der& key, const support::Identity& peer, const char* iv)
{
    const PayloadPtr record = certificateRecord({peer.body()});
    HandshakePayload* certificate = record.get();
    char* mac = untouched<char>();
    char* const body = attempt.call([&] {
        return ecies_encrypt("a secret", 8, &certificate, &mac, key.data(), key.size(), iv);
    });
    if (body == nullptr)
    {
        return failedLeaving(mac == untouched<char>());
    }
    const HeapText bodyOwner{body};
    const HeapText macOwner{mac};
    return got(show(body) + " " + show(mac));
}

struct Sealed
{
    HeapText body;
    HeapText mac;
};

Sealed sealed()
{
    const support::FakeRandom random{"some bytes"};
    const PayloadPtr record = certificateRecord({stranger().body()});
    HandshakePayload* peer = record.get();
    char* mac = nullptr;
    HeapText body{
        ecies_encrypt("a secret", 8, &peer, &mac, deviceKey().data(), deviceKey().size(), someIv)};
    return {std::move(body), HeapText{mac}};
}

/** Opens what sealed() gave with the keys of the one who sealed it, which agree on the same. */
Outcome opens(Attempt& attempt, bool withMac, bool withLength)
{
    const Sealed envelope = sealed();
    const PayloadPtr record = certificateRecord({stranger().body()});
    HandshakePayload* peer = record.get();
    unsigned int length = 77;
    char* const text = attempt.call([&] {
        return ecies_decrypt(envelope.body.get(), withLength ? &length : nullptr,
                             deviceKey().data(), deviceKey().size(),
                             withMac ? envelope.mac.get() : nullptr, &peer, someIv);
    });
    if (text == nullptr)
    {
        return failedLeaving(length == 77);
    }
    const HeapText owner{text};
    return got(show(text) + " " + std::to_string(length));
}

/** A buffer with areas of 1, 2 and 3 bytes. */
HeapText secureBuffer()
{
    return HeapText{static_cast<char*>(secure_alloc(1, 2, 9, 3))};
}

const Table rows{
    {"ecies_encrypt", "a text and an IV", getsBy,
     [](Attempt& attempt) {
         return seals(attempt, deviceKey(), stranger(), someIv);
     }},
    {"ecies_encrypt", "a key without its point", getsBy,
     [](Attempt& attempt) {
         return seals(attempt, keyWithoutPoint(), stranger(), someIv);
     }},
    {"ecies_encrypt", "no IV on a device with the marker", getsBy,
     [](Attempt& attempt) {
         const MarkerFile marker;
         return seals(attempt, deviceKey(), stranger(), nullptr);
     }},
    {"ecies_decrypt", "a MAC and a length", getsBy,
     [](Attempt& attempt) {
         return opens(attempt, true, true);
     }},
    {"ecies_decrypt", "a MAC and no length", getsBy,
     [](Attempt& attempt) {
         return opens(attempt, true, false);
     }},
    {"ecies_decrypt", "no MAC on a device with the marker", getsBy,
     [](Attempt& attempt) {
         const MarkerFile marker;
         return opens(attempt, false, true);
     }},
    {"ecies_decrypt", "a wrong MAC", getsBy | isRefused,
     [](Attempt& attempt) {
         const Sealed envelope = sealed();
         envelope.mac.get()[3] = envelope.mac.get()[3] == 'A' ? 'B' : 'A';
         const PayloadPtr record = certificateRecord({stranger().body()});
         HandshakePayload* peer = record.get();
         unsigned int length = 77;
         const HeapText text{attempt.call([&] {
             return ecies_decrypt(envelope.body.get(), &length, deviceKey().data(),
                                  deviceKey().size(), envelope.mac.get(), &peer, someIv);
         })};
         return text == nullptr && length == 77 ? got("refused") : wrong("opened");
     }},
    {"generateRandomIV", "null before", failsOnly,
     [](Attempt& attempt) {
         char* iv = untouched<char>();
         const int generated = attempt.call([&] { return generateRandomIV(&iv); });
         return stored<HeapText>(generated == 1, iv);
     }},
    {"ecies_key_derivation", "a secret", getsBy,
     [](Attempt& attempt) {
         std::array<unsigned char, 40> output{};
         std::size_t length = output.size();
         const void* const key = attempt.call(
             [&] { return ecies_key_derivation("secret", 6, output.data(), &length); });
         if (key == nullptr)
         {
             return failedLeaving(length == 0);
         }
         return key == output.data() ? got(hexOf(key, length)) : wrong("another address");
     }},
    {"secure_alloc", "three areas", failsOnly,
     [](Attempt& attempt) {
         const HeapText buffer{
             static_cast<char*>(attempt.call([] { return secure_alloc(1, 2, 9, 3); }))};
         return buffer ? got(hexOf(buffer.get(), 38)) : failed();
     }},
    {"secure_mac_length", "a buffer", failsOnly,
     [](Attempt& attempt) {
         const HeapText buffer = secureBuffer();
         return gave(attempt.call([&] { return secure_mac_length(buffer.get()); }));
     }},
    {"secure_body_length", "a buffer", failsOnly,
     [](Attempt& attempt) {
         const HeapText buffer = secureBuffer();
         return gave(attempt.call([&] { return secure_body_length(buffer.get()); }));
     }},
    {"secure_mac_data", "a buffer", failsOnly,
     [](Attempt& attempt) {
         const HeapText buffer = secureBuffer();
         const void* const data = attempt.call([&] { return secure_mac_data(buffer.get()); });
         return gave(static_cast<const char*>(data) - buffer.get());
     }},
    {"secure_body_data", "a buffer", failsOnly,
     [](Attempt& attempt) {
         const HeapText buffer = secureBuffer();
         const void* const data = attempt.call([&] { return secure_body_data(buffer.get()); });
         return gave(static_cast<const char*>(data) - buffer.get());
     }},
    {"convertHextoBinary", "32 digits", failsOnly,
     [](Attempt& attempt) {
         std::array<unsigned char, 16> out{};
         const int converted = attempt.call([&] { return convertHextoBinary(someIv, out.data()); });
         return converted == 1 ? got(hexOf(out.data(), out.size())) : failed();
     }},
};

} // namespace

} // namespace faults
