// SPDX-License-Identifier: Apache-2.0
#include "fuzz/support.hpp"

#include <array>

/** A client's answer to a challenge: as the client makes it, altered, and made up. */
namespace
{

constexpr auto proofRules = std::to_array<std::string_view>(
    {"argument.null", "handshake.types", "handshake.proof-missing", "handshake.proof-wrong",
     "handshake.counters", "handshake.keys", "handshake.secret", "handshake.token",
     "base64.malformed", "json.syntax", "json.nesting", "json.root"});
constexpr auto answerRules = std::to_array<std::string_view>(
    {"argument.null", "handshake.types", "handshake.counters", "handshake.keys", "handshake.secret",
     "handshake.token", "base64.malformed", "json.syntax", "json.nesting", "json.root"});

bool accepted(HandshakePayload* challenge, const std::string& keys, HandshakePayload* response)
{
    support::PayloadPtr certificate = fuzz::certificateOf(fuzz::device());
    HandshakePayload* claimed = certificate.get();
    return fuzz::judged(proofRules, [&] {
        return validateHandshakeResponse(
            challenge, keys.c_str(), static_cast<unsigned int>(keys.size()), &claimed, response);
    });
}

support::PayloadPtr answer(HandshakePayload* challenge, const std::string& keys)
{
    support::PayloadPtr certificate = fuzz::certificateOf(fuzz::device());
    HandshakePayload* claimed = certificate.get();
    const fuzz::PrivateKey& key = fuzz::device().key;
    HandshakePayload* response = nullptr;
    const bool made = fuzz::judged(answerRules, [&] {
        return generateHandshakeResponse(
            challenge, keys.c_str(), static_cast<unsigned int>(keys.size()), &claimed, &response,
            key.data(), static_cast<unsigned int>(key.length()));
    });
    support::PayloadPtr owner{response};
    fuzz::require(made == (response != nullptr), "an answer is handed out on success");
    return owner;
}

/** The values of the first parameter of this name, which are the list's; null if there are none. */
char** valuesOf(HandshakePayload* list, std::string_view name)
{
    for (; list->name != nullptr; ++list)
    {
        if (name == list->name)
        {
            return list->values;
        }
    }
    return nullptr;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input{data, size};
    const std::string challengeText = fuzz::nextText(input);
    const std::string keys = fuzz::nextText(input);
    const std::string responseText = fuzz::nextText(input);

    const support::PayloadPtr challenge{parse_handshake_payload(challengeText.c_str())};
    const support::PayloadPtr madeUp{parse_handshake_payload(responseText.c_str())};
    // Nothing is to be known about the outcome: a challenge may ask for nothing.
    static_cast<void>(accepted(challenge.get(), keys, madeUp.get()));

    const support::PayloadPtr response = answer(challenge.get(), keys);
    if (!response)
    {
        return 0;
    }
    fuzz::require(accepted(challenge.get(), keys, response.get()), "a right answer is accepted");

    char** proofs = valuesOf(response.get(), "R");
    fuzz::require(proofs != nullptr, "an answer has proofs");
    const std::size_t count = support::texts(proofs).size();
    if (count == 0)
    {
        return 0;
    }
    // A wrong one-time password ends the check; of certificate proofs the last one counts.
    char& digit = proofs[count - 1][0];
    digit = digit == '1' ? '2' : '1';
    fuzz::require(!accepted(challenge.get(), keys, response.get()), "an altered answer is refused");
    return 0;
}
