// SPDX-License-Identifier: Apache-2.0
#include "fuzz/support.hpp"

#include <algorithm>
#include <array>

/** An envelope goes to the peer and comes back altered, and as it was. */
namespace
{

constexpr auto sealingRules = std::to_array<std::string_view>({"argument.length"});
constexpr auto openingRules =
    std::to_array<std::string_view>({"envelope.mac-wrong", "envelope.text"});

support::HeapText open(const std::string& text, const std::string& mac, const char* iv,
                       unsigned int* length)
{
    support::PayloadPtr sender = fuzz::certificateOf(fuzz::device());
    HandshakePayload* certificate = sender.get();
    const fuzz::PrivateKey& key = fuzz::peer().key;
    return support::HeapText{fuzz::judged(openingRules, [&] {
        return ecies_decrypt(text.c_str(), length, key.data(), key.length(), mac.c_str(),
                             &certificate, iv);
    })};
}

/** Another digit in the place of one that carries six bits: not among the last two before the
 *  padding, of which some bits count for nothing. */
std::string altered(std::string text, std::size_t place)
{
    char& digit = text[place % (text.size() - 4)];
    digit = digit == 'A' ? 'B' : 'A';
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr const char* iv = "000102030405060708090A0B0C0D0E0F";
    constexpr std::size_t longest = 73'710;
    FuzzedDataProvider input{data, size};
    const auto place = input.ConsumeIntegral<std::size_t>();
    const std::string secret = input.ConsumeRemainingBytesAsString().substr(0, longest);

    support::PayloadPtr receiver = fuzz::certificateOf(fuzz::peer());
    HandshakePayload* certificate = receiver.get();
    const fuzz::PrivateKey& key = fuzz::device().key;
    char* macText = nullptr;
    const support::HeapText sealed{fuzz::judged(sealingRules, [&] {
        return ecies_encrypt(secret.data(), static_cast<unsigned int>(secret.size()), &certificate,
                             &macText, key.data(), key.length(), iv);
    })};
    const support::HeapText macOwner{macText};
    fuzz::require((sealed != nullptr) == !secret.empty(), "anything but nothing can be sealed");
    if (!sealed)
    {
        return 0;
    }
    const std::string text = sealed.get();
    const std::string mac = macText;

    const support::HeapText opened = open(text, mac, iv, nullptr);
    fuzz::require(opened != nullptr && std::equal(secret.begin(), secret.end(), opened.get()),
                  "what is sealed comes back");
    unsigned int length = 0;
    const support::HeapText openedText = open(text, mac, iv, &length);
    fuzz::require((openedText != nullptr) == (secret.find('\0') == std::string::npos),
                  "a text is what holds no zero byte");
    fuzz::require(openedText == nullptr || length >= secret.size() + 16, "the padding is there");

    fuzz::require(open(altered(text, place), mac, iv, nullptr) == nullptr,
                  "an altered text stays closed");
    fuzz::require(open(text, altered(mac, place), iv, nullptr) == nullptr,
                  "an altered MAC stays closed");
    return 0;
}
