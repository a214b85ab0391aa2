// SPDX-License-Identifier: Apache-2.0
#include "handshake_rules.hpp"

#include "documents.hpp"
#include "keys.hpp"
#include "payloads.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <utility>
#include <vector>

namespace bmcoauth::tool
{

namespace
{

constexpr unsigned int numberTextSize = 25;

std::vector<std::string> valuesOf(HandshakePayload* list, const char* name)
{
    char** raw = nullptr;
    getChallengeValueArray(list, name, &raw);
    const StringArray owned{raw};
    std::vector<std::string> values;
    for (char** value = raw; value != nullptr && *value != nullptr; ++value)
    {
        values.emplace_back(*value);
    }
    return values;
}

std::optional<std::string> numberText(HandshakePayload* list, const char* name)
{
    std::array<char, numberTextSize> text{};
    if (!getChallengeValue(list, name, text.data(), numberTextSize))
    {
        return std::nullopt;
    }
    return text.data();
}

std::optional<std::uint64_t> counter(const std::string& text)
{
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = error == std::errc{} && end == text.data() + text.size();
    return whole && number != 0 && number != UINT64_MAX ? std::optional{number} : std::nullopt;
}

/** What the rules work out on their way. */
struct Walk
{
    const HandshakeMaterial& given;
    std::vector<std::string> types;
    bool certificateOnly = false;
    std::string signedText; /**< empty without a token to sign */
    std::string pem;        /**< the first certificate */
    std::optional<std::string> selector;
    std::optional<std::string> movingFactor;
    Json::Value secrets;
};

Refusal challengeRules(Walk& walk)
{
    walk.types = valuesOf(walk.given.challenge, "T");
    if (walk.types.empty())
    {
        return refused("T", "a challenge without types", "a type in T at least");
    }
    walk.certificateOnly =
        walk.types.size() == 1 && compareSoftwareCertTag(walk.types.front().c_str());
    std::string token;
    if (!get_handshake_payload_paramValue(walk.given.challenge, "V", token))
    {
        return walk.certificateOnly ? refused("V", "no V in the challenge",
                                              "a token V, which the certificate proof "
                                              "signs")
                                    : Refusal{};
    }
    if (walk.given.certificate == nullptr)
    {
        return refused("certificate", "a challenge with V, and no certificate",
                       "the client's certificate", "give --certificate");
    }
    unsigned int length = 0;
    const RawText pem{decode_x509_jwk(walk.given.certificate, &length)};
    const RawText name{pem ? get_x509_CN(pem.get()) : nullptr};
    if (!name)
    {
        return refused("certificate",
                       pem ? "a first certificate that cannot be read, or has no common name"
                           : "a certificate key without certificates",
                       "a certificate with a common name");
    }
    walk.pem = pem.get();
    walk.signedText = token + ":" + name.get();
    return std::nullopt;
}

Refusal numberRules(Walk& walk)
{
    for (HandshakePayload* list : {walk.given.challenge, walk.given.response})
    {
        walk.selector = numberText(list, "M");
        walk.movingFactor = numberText(list, "C");
        if (walk.selector.has_value() != walk.movingFactor.has_value())
        {
            const char* which = walk.selector ? "M without C" : "C without M";
            return refused("M and C",
                           std::string{which} + (list == walk.given.challenge ? " in the challenge"
                                                                              : " in the response"),
                           "both or neither");
        }
        if (walk.selector)
        {
            break;
        }
    }
    if (walk.certificateOnly || !walk.selector)
    {
        return std::nullopt;
    }
    for (const auto& [name, text] : {std::pair{"M", *walk.selector}, {"C", *walk.movingFactor}})
    {
        if (!counter(text))
        {
            return refused(name, std::string{name} + " " + brief(text),
                           "a decimal number from 1 to 18446744073709551614");
        }
    }
    return std::nullopt;
}

Refusal secretRules(Walk& walk)
{
    if (walk.certificateOnly)
    {
        return std::nullopt;
    }
    if (walk.given.keys.empty())
    {
        return refused("keys", "no key document", "the key document with the shared secrets",
                       "give --keys");
    }
    std::optional<Json::Value> tree = parsedObject(walk.given.keys);
    if (!tree)
    {
        return refused("keys", "a key document that cannot be read", "a JSON object");
    }
    walk.secrets = std::move(*tree);
    return std::nullopt;
}

/** The one-time password of @p type as the library makes it; nothing where it makes none. */
std::optional<std::string> password(const Walk& walk, const std::string& type,
                                    std::uint64_t selector, std::uint64_t movingFactor)
{
    Json::Value document;
    document["T"] = type;
    document["M"] = std::to_string(selector);
    document["C"] = std::to_string(movingFactor);
    const PayloadPtr challenge{parse_handshake_payload(json_fastWriter(document).c_str())};
    HandshakePayload* raw = nullptr;
    generateHandshakeResponse(challenge.get(), walk.given.keys.c_str(),
                              static_cast<unsigned int>(walk.given.keys.size()), nullptr, &raw,
                              nullptr, 0);
    const PayloadPtr response{raw};
    std::string proof;
    return get_handshake_payload_paramValue(raw, "R", proof) ? std::optional{proof} : std::nullopt;
}

/** What a wrong password would have been right for. */
std::string passwordHint(const Walk& walk, const std::string& type, const std::string& proof,
                         std::uint64_t count)
{
    constexpr std::uint64_t searched = 8;
    const std::uint64_t m = *counter(*walk.selector);
    const std::uint64_t c = *counter(*walk.movingFactor);
    for (std::uint64_t away = 1; away <= searched; ++away)
    {
        if (c < UINT64_MAX - away && password(walk, type, m, c + away) == proof)
        {
            return "it is right for C + " + std::to_string(away) + ": there is no window";
        }
        if (c > away && password(walk, type, m, c - away) == proof)
        {
            return "it is right for C - " + std::to_string(away) + ": there is no window";
        }
    }
    for (std::uint64_t other = 1; other <= std::min(count, searched); ++other)
    {
        if (password(walk, type, other, c) == proof)
        {
            return "it is right for secret " + std::to_string(other % count + 1) +
                   ": the secret is the one at M modulo their number, counted from 0";
        }
    }
    return proof.size() == 8 ? "the two sides have other secrets, or other M and C"
                             : "a one-time password has 8 digits";
}

Refusal passwordRules(const Walk& walk, const std::string& type, const std::string& proof)
{
    const std::string rule = "one-time password of " + brief(type);
    if (!walk.selector)
    {
        return refused(rule, "neither M nor C, in the challenge or in the response",
                       "both in one of them");
    }
    const Json::Value& secrets = std::as_const(walk.secrets)[type];
    if (!secrets.isArray() || secrets.empty())
    {
        return refused(rule,
                       walk.secrets.isMember(type)
                           ? brief(type) + " in the key document without a list of secrets"
                           : "no " + brief(type) + " in the key document",
                       "an array of secrets under the name of the type");
    }
    const std::uint64_t count = secrets.size();
    const std::uint64_t index = *counter(*walk.selector) % count;
    const std::string which =
        "secret " + std::to_string(index + 1) + " of " + std::to_string(count);
    if (!secrets[static_cast<Json::ArrayIndex>(index)].isString())
    {
        return refused(rule, which + " is no string", "a string");
    }
    const std::optional<std::string> right =
        password(walk, type, *counter(*walk.selector), *counter(*walk.movingFactor));
    if (right && *right == proof)
    {
        return std::nullopt;
    }
    // Not the password itself: with it anybody could answer.
    return refused(rule, brief(proof),
                   "the 8 digits of " + which + " (M " + *walk.selector + ") and counter " +
                       *walk.movingFactor,
                   passwordHint(walk, type, proof, count));
}

bool signatureVerifies(const Walk& walk, const std::string& proof)
{
    const EcKeyPtr key{get_EC_pubKey(walk.pem.c_str())};
    std::string text = proof;
    return key && verifyHRSignature(walk.signedText, text.data(),
                                    static_cast<unsigned int>(text.size()), key.get()) == 1;
}

Refusal certificateRules(const Walk& walk, const std::string& proof)
{
    const EcKeyPtr key{get_EC_pubKey(walk.pem.c_str())};
    if (!key)
    {
        return refused("certificate proof", "a certificate without an EC key", "an EC key");
    }
    if (signatureVerifies(walk, proof))
    {
        return std::nullopt;
    }
    return refused("certificate proof",
                   "a signature of " + std::to_string(proof.size()) +
                       " characters that does not verify with the first certificate's key",
                   "a signature of " + brief(walk.signedText),
                   "another key signed, or another challenge, or the common names differ");
}

Refusal proofRules(const Walk& walk)
{
    const std::vector<std::string> proofs = valuesOf(walk.given.response, "R");
    if (proofs.empty())
    {
        return refused("R", "a response without proofs", "a proof in R for each type in T");
    }
    Refusal last;
    for (std::size_t i = 0; i < std::min(proofs.size(), walk.types.size()); ++i)
    {
        if (!compareSoftwareCertTag(walk.types[i].c_str()))
        {
            last = passwordRules(walk, walk.types[i], proofs[i]);
            if (last)
            {
                return last;
            }
            continue;
        }
        if (walk.signedText.empty())
        {
            return refused("V", "no V in the challenge",
                           "a token V, which the certificate proof signs");
        }
        // Not the end: the last proof that was given decides.
        last = certificateRules(walk, proofs[i]);
    }
    return last;
}

} // namespace

Explanation explainResponse(const HandshakeMaterial& handshake)
{
    Walk walk{.given = handshake,
              .types = {},
              .signedText = {},
              .pem = {},
              .selector = {},
              .movingFactor = {},
              .secrets = {}};
    for (const auto rules : {challengeRules, numberRules, secretRules})
    {
        if (Refusal refusal = rules(walk))
        {
            return *refusal;
        }
    }
    return proofRules(walk).value_or(Explanation{});
}

} // namespace bmcoauth::tool
