// SPDX-License-Identifier: Apache-2.0
#include "fuzz/support.hpp"

#include <array>

/** An envelope that somebody else made. One is the peer's. */
namespace
{

constexpr auto openingRules = std::to_array<std::string_view>(
    {"base64.malformed", "base64.length", "envelope.iv", "envelope.mac-missing",
     "envelope.mac-wrong", "envelope.padding", "envelope.text"});

constexpr const char* sealedText = "jthDmDKzcUxq3U9WYOxCXvsOZtYT3TaeUeRJ8Cr4z54=";
constexpr const char* sealedMac = "KzIZi/ToxtjXPBMGXh7ZPel5VyFWNtkke9NP0AmlU3k=";

/** The bytes of a Base64 text in either alphabet; none if it is not Base64. */
std::string bytesOf(std::string text)
{
    base64URIencode(text.data());
    char* out = nullptr;
    int length = 0;
    if (base64URIdecode(text.c_str(), &out, &length) == 0)
    {
        return {};
    }
    const support::HeapText owner{out};
    return {out, static_cast<std::size_t>(length)};
}

support::HeapText open(const char* text, const char* mac, const char* iv, unsigned int* length)
{
    support::PayloadPtr sender = fuzz::certificateOf(fuzz::peer());
    HandshakePayload* certificate = sender.get();
    const fuzz::PrivateKey& key = fuzz::device().key;
    return support::HeapText{fuzz::judged(openingRules, [&] {
        return ecies_decrypt(text, length, key.data(), key.length(), mac, &certificate, iv);
    })};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input{data, size};
    const std::string text = fuzz::nextText(input);
    const std::string mac = fuzz::nextText(input);
    const std::string iv = fuzz::nextText(input);

    unsigned int length = 12345;
    const support::HeapText asText = open(text.c_str(), mac.c_str(), iv.c_str(), &length);
    if (asText)
    {
        fuzz::require(std::string_view{asText.get()}.size() == length, "a text is as long as told");
    }
    else
    {
        fuzz::require(length == 12345, "a refusal tells no length");
    }
    const support::HeapText asBytes = open(text.c_str(), mac.c_str(), iv.c_str(), nullptr);
    fuzz::require(asText == nullptr || asBytes != nullptr, "every text is bytes");
    if (asBytes)
    {
        fuzz::require(iv.size() == 32, "an IV has 32 digits");
        fuzz::require(bytesOf(text) == bytesOf(sealedText) && bytesOf(mac) == bytesOf(sealedMac),
                      "only the one envelope opens");
    }
    fuzz::require(open(text.c_str(), nullptr, iv.c_str(), nullptr) == nullptr,
                  "an envelope without MAC stays closed");
    return 0;
}
