// SPDX-License-Identifier: Apache-2.0
#include "fuzz/support.hpp"

#include <array>

/** Another party's token: the header, the payload and one of the trusted keys are the input, the
 *  signature is that of the peer. */
namespace
{

constexpr auto delegatedRules = std::to_array<std::string_view>(
    {"token.parts", "base64.malformed", "base64.length", "json.syntax", "json.nesting", "json.root",
     "token.member", "token.scope", "token.not-yet-valid", "token.expired", "token.signature",
     "token.algorithm", "token.key-not-selected", "token.key-not-imported"});

struct Verdict
{
    int result = 0;
    int verified = 0;
};

Verdict validate(const std::string& token, const std::string& key, unsigned int skew)
{
    std::array<const char*, 2> keys{key.c_str(), nullptr};
    std::array<userRole_s, 3> roles{{{"Administrator", 0x1ff}, {"ReadOnly", 0x1}, {}}};
    std::array<const char*, 2> providers{"fleet", nullptr};
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    Verdict verdict;
    verdict.result = fuzz::judged(delegatedRules, [&] {
        return validateJWT_Delegated(token.c_str(), keys.data(), 0, &header, &payload, skew,
                                     roles.data(), providers.data(), &verdict.verified);
    });
    const fuzz::Header headerOwner{header};
    const fuzz::Payload payloadOwner{payload};
    fuzz::require(verdict.verified == 1 || verdict.result == 0,
                  "without a trusted signature nothing is valid, nor expired");
    fuzz::require(verdict.result != 1 || (header != nullptr && payload != nullptr),
                  "a valid token has both records");
    return verdict;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr unsigned int longestSkew = 1'000'000;
    FuzzedDataProvider input{data, size};
    const auto skew = input.ConsumeIntegralInRange<unsigned int>(0, longestSkew);
    const std::string header = fuzz::nextText(input);
    const std::string payload = fuzz::nextText(input);
    const std::string key = fuzz::nextText(input);
    const std::string token = tokens::handmade(header, payload, fuzz::peer().key);

    fuzz::require(validate(token, fuzz::device().publicKey, skew).verified == 0,
                  "a wrong key never verifies");

    // No seed and no dictionary holds the peer's key.
    fuzz::require(validate(token, key, skew).verified == 0, "a key made up never verifies");
    support::HeapText completed = support::heapText(key);
    char* text = completed.release();
    appendPublicKey(&text);
    completed.reset(text);
    fuzz::require(validate(token, completed.get(), skew).verified == 0,
                  "a key made up never verifies when it is completed");

    const Verdict verdict = validate(token, fuzz::peer().publicKey, skew);
    fuzz::require(verdict.result != 1 ||
                      validate(token, fuzz::peer().publicKey, skew + 1).result != 0,
                  "what is valid does not become invalid by more allowance");
    return 0;
}
