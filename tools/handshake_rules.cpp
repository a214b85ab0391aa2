// SPDX-License-Identifier: Apache-2.0
#include "handshake_rules.hpp"

#include "documents.hpp"
#include "payloads.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>
#include <vector>

namespace bmcoauth::tool
{

namespace
{

/** The text of a number, of which the library reads so many characters. */
std::optional<std::string> numberText(const ParameterList& list, const char* name)
{
    constexpr std::size_t most = 24;
    const Expected<std::string> text = list.value(name);
    return text ? std::optional{text->substr(0, most)} : std::nullopt;
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
    const ParameterList& challenge;
    const ParameterList* response; /**< null when the challenge is to be answered */
    const Credentials& given;
    std::vector<std::string> types = {};
    bool certificateOnly = false;
    std::string signedText = {}; /**< empty without a token to sign */
    std::string pem = {};        /**< the first certificate */
    std::optional<std::string> selector = {};
    std::optional<std::string> movingFactor = {};
    Json::Value secrets = {};
};

Explanation noToken()
{
    return refused("V", "no V in the challenge", "a token V, which the certificate proof signs");
}

Refusal challengeRules(Walk& walk)
{
    walk.types = valuesOf(walk.challenge, "T");
    if (walk.types.empty())
    {
        return refused("T", "a challenge without types", "a type in T at least");
    }
    walk.certificateOnly = walk.types.size() == 1 && isCertificateType(walk.types.front());
    const Expected<std::string> token = walk.challenge.value("V");
    if (!token)
    {
        return walk.certificateOnly ? noToken() : Refusal{};
    }
    if (walk.given.certificate == nullptr)
    {
        return refused("certificate", "a challenge with V, and no certificate",
                       "the client's certificate", "give --certificate");
    }
    const Expected<Text> pem = walk.given.certificate->pem();
    const Expected<Text> name = pem ? commonName(*pem) : Error::refused;
    if (!name)
    {
        return refused("certificate",
                       pem ? "a first certificate that cannot be read, or has no common name"
                           : "a certificate key without certificates",
                       "a certificate with a common name");
    }
    walk.pem = pem->view();
    walk.signedText = *token + ":" + name->c_str();
    return std::nullopt;
}

Refusal numberRules(Walk& walk)
{
    for (const ParameterList* list : {&walk.challenge, walk.response})
    {
        if (list == nullptr || walk.selector)
        {
            break;
        }
        walk.selector = numberText(*list, "M");
        walk.movingFactor = numberText(*list, "C");
        if (walk.selector.has_value() != walk.movingFactor.has_value())
        {
            const char* which = walk.selector ? "M without C" : "C without M";
            return refused("M and C",
                           std::string{which} +
                               (list == &walk.challenge ? " in the challenge" : " in the response"),
                           "both or neither");
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

Refusal documentRules(Walk& walk)
{
    if (walk.certificateOnly)
    {
        return std::nullopt;
    }
    if (walk.given.secrets.empty())
    {
        return refused("keys", "no key document", "the key document with the shared secrets",
                       "give --keys");
    }
    std::optional<Json::Value> tree = parsedObject(walk.given.secrets);
    if (!tree)
    {
        return refused("keys", "a key document that cannot be read", "a JSON object");
    }
    walk.secrets = std::move(*tree);
    return std::nullopt;
}

std::string passwordRule(const std::string& type)
{
    return "one-time password of " + brief(type);
}

/** The list of the secrets of @p type; null if there is none. */
const Json::Value* secretsOf(const Walk& walk, const std::string& type)
{
    const Json::Value& secrets = walk.secrets[type];
    return secrets.isArray() && !secrets.empty() ? &secrets : nullptr;
}

/** Speaks of the secret at @p index, counted from 0. */
std::string secretName(const Json::Value& secrets, Json::ArrayIndex index)
{
    return "secret " + std::to_string(index + 1) + " of " + std::to_string(secrets.size());
}

/** The place of the secret that M means. */
Json::ArrayIndex indexOf(const Walk& walk, const Json::Value& secrets)
{
    return static_cast<Json::ArrayIndex>(*counter(*walk.selector) % secrets.size());
}

/** Where the client draws M, every secret may be the one that is meant. */
Refusal drawnSecretRules(const std::string& type, const Json::Value& secrets)
{
    const auto isText = [](const Json::Value& secret) {
        return secret.isString();
    };
    if (std::ranges::all_of(secrets, isText))
    {
        return std::nullopt;
    }
    if (std::ranges::none_of(secrets, isText))
    {
        return refused(passwordRule(type), "no secret that is a string", "strings");
    }
    throw Stop{Exit::invalid, "not every secret of " + brief(type) +
                                  " is a string, and the challenge leaves it to chance which one "
                                  "is meant"};
}

Refusal secretRules(const Walk& walk, const std::string& type)
{
    const bool drawn = walk.response == nullptr && walk.signedText.empty();
    if (!walk.selector && !drawn)
    {
        return walk.response == nullptr
                   ? refused(passwordRule(type), "V in the challenge, and neither M nor C", "both",
                             "the client draws them where there is no V")
                   : refused(passwordRule(type),
                             "neither M nor C, in the challenge or in the response",
                             "both in one of them");
    }
    const Json::Value* const secrets = secretsOf(walk, type);
    if (secrets == nullptr)
    {
        return refused(passwordRule(type),
                       walk.secrets.isMember(type)
                           ? brief(type) + " in the key document without a list of secrets"
                           : "no " + brief(type) + " in the key document",
                       "an array of secrets under the name of the type");
    }
    if (!walk.selector)
    {
        return drawnSecretRules(type, *secrets);
    }
    const Json::ArrayIndex index = indexOf(walk, *secrets);
    if (!(*secrets)[index].isString())
    {
        return refused(passwordRule(type), secretName(*secrets, index) + " is no string",
                       "a string");
    }
    return std::nullopt;
}

/** The one-time password of @p type as the library makes it; nothing where it makes none. */
std::optional<std::string> password(const Walk& walk, const std::string& type,
                                    std::uint64_t selector, std::uint64_t movingFactor)
{
    const std::string m = std::to_string(selector);
    const std::string c = std::to_string(movingFactor);
    const std::array<std::string_view, 3> values{type, m, c};
    const TextSpan texts{values};
    const std::array<Parameter, 3> parameters{Parameter{"T", texts.subspan(0, 1)},
                                              {"M", texts.subspan(1, 1)},
                                              {"C", texts.subspan(2, 1)}};
    const Expected<ParameterList> challenge = ParameterList::of(parameters);
    const Expected<ParameterList> response =
        challenge ? respond(*challenge, {.secrets = walk.given.secrets}) : Error::refused;
    const Expected<std::string> proof = response ? response->value("R") : Error::refused;
    return proof ? std::optional{*proof} : std::nullopt;
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
    if (Refusal refusal = secretRules(walk, type))
    {
        return refusal;
    }
    const std::optional<std::string> right =
        password(walk, type, *counter(*walk.selector), *counter(*walk.movingFactor));
    if (right && *right == proof)
    {
        return std::nullopt;
    }
    const Json::Value& secrets = *secretsOf(walk, type);
    // Not the password itself: with it anybody could answer.
    return refused(passwordRule(type), brief(proof),
                   "the 8 digits of " + secretName(secrets, indexOf(walk, secrets)) + " (M " +
                       *walk.selector + ") and counter " + *walk.movingFactor,
                   passwordHint(walk, type, proof, secrets.size()));
}

Refusal certificateRules(const Walk& walk, const std::string& proof)
{
    const Expected<EcKey> key = ecKeyOfCertificate(walk.pem);
    if (!key)
    {
        return refused("certificate proof", "a certificate without an EC key", "an EC key");
    }
    if (isProof(walk.signedText, proof, *key))
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
    const std::vector<std::string> proofs = valuesOf(*walk.response, "R");
    if (proofs.empty())
    {
        return refused("R", "a response without proofs", "a proof in R for each type in T");
    }
    Refusal last;
    for (std::size_t i = 0; i < std::min(proofs.size(), walk.types.size()); ++i)
    {
        if (!isCertificateType(walk.types[i]))
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
            return noToken();
        }
        // Not the end: the last proof that was given decides.
        last = certificateRules(walk, proofs[i]);
    }
    return last;
}

/** Whether the certificate proof can be made. That the key is the certificate's nobody asks before
 *  the server does. */
Refusal signingRules(const Walk& walk)
{
    if (walk.signedText.empty())
    {
        return noToken();
    }
    if (walk.given.key == nullptr)
    {
        return refused("key", "a challenge that asks for the certificate proof, and no private key",
                       "the certificate's private key", "give --key");
    }
    if (!ecKeyOf(*walk.given.key))
    {
        return refused("key",
                       std::to_string(walk.given.key->der().size()) +
                           " bytes that are no private key on P-256",
                       "an ECPrivateKey structure on P-256");
    }
    return std::nullopt;
}

Refusal answerRules(const Walk& walk)
{
    for (const std::string& type : walk.types)
    {
        if (Refusal refusal =
                isCertificateType(type) ? signingRules(walk) : secretRules(walk, type))
        {
            return refusal;
        }
    }
    return std::nullopt;
}

/** The rules that hold for both sides, and then those of one, @p proofs. */
Explanation explain(Walk walk, Refusal (*proofs)(const Walk&))
{
    for (const auto rules : {challengeRules, numberRules, documentRules})
    {
        if (Refusal refusal = rules(walk))
        {
            return *refusal;
        }
    }
    return proofs(walk).value_or(Explanation{});
}

} // namespace

Explanation explainResponse(const ParameterList& challenge, const ParameterList& response,
                            std::string_view secrets, const CertificateKey* certificate)
{
    const Credentials given{.secrets = secrets, .certificate = certificate};
    return explain({.challenge = challenge, .response = &response, .given = given}, proofRules);
}

Explanation explainAnswer(const ParameterList& challenge, const Credentials& given)
{
    return explain({.challenge = challenge, .response = nullptr, .given = given}, answerRules);
}

} // namespace bmcoauth::tool
