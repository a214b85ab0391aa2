// SPDX-License-Identifier: Apache-2.0
#include "common/parameter_list.hpp"
#include "common/string_array.hpp"
#include "common/text.hpp"
#include "crypto/openssl.hpp"
#include "oauth2/oauth-register/handshake_challenge.hpp"
#include "oauth2/oauth-register/handshake_proofs.hpp"

#include <bmcoauth/handshake.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <span>

namespace bmcoauth::internal::registration
{

namespace
{

/** What both sides are given. */
struct Given
{
    const HandshakePayload* challenge;
    const char* keys;
    unsigned int keysLength;
    HandshakePayload* const* certificate;
};

/** What a challenge asks for. It refers to the challenge. */
struct Handshake
{
    std::span<char* const> types;
    KeyDocument secrets;
    std::optional<CertificateClaim> claim;
    std::optional<Counters> counters;

    [[nodiscard]] bool asksCertificateOnly() const
    {
        return types.size() == 1 && types.front() == certificateType;
    }
};

/** The values of the first parameter of @p list that is named @p name in whatever case. */
std::span<char* const> valuesOf(const HandshakePayload* list, const char* name)
{
    const HandshakePayload* found = findParameter(list, name);
    return found == nullptr ? std::span<char* const>{}
                            : std::span<char* const>{found->values, countStrings(found->values)};
}

/** The first of valuesOf; null where there is none. */
const char* valueOf(const HandshakePayload* list, const char* name)
{
    const std::span<char* const> values = valuesOf(list, name);
    return values.empty() ? nullptr : values.front();
}

/** The decimal number @p text, the value of @p name; nothing for a sign, other characters, no digit
 *  at all, and for the two values that no challenge carries: 0 and the largest. */
std::optional<std::uint64_t> counter(const char* name, std::string_view text)
{
    // Longer than any number that is sent: peers cut a value there.
    constexpr std::size_t longestText = 24;
    const std::optional<std::uint64_t> number = readDecimal(text.substr(0, longestText));
    if (!number || *number == 0 || *number == UINT64_MAX)
    {
        return refuse(BMCOAUTH_RULE_HANDSHAKE_COUNTERS).about(name).saw(text);
    }
    return number;
}

bool hasCounter(const HandshakePayload* list)
{
    return valueOf(list, "M") != nullptr || valueOf(list, "C") != nullptr;
}

/** Takes the counters from @p list, which may have none. One alone is refused: neither number means
 *  anything without the other. */
bool takeCounters(const HandshakePayload* list, Handshake& handshake)
{
    const char* const selector = valueOf(list, "M");
    const char* const movingFactor = valueOf(list, "C");
    if ((selector == nullptr) != (movingFactor == nullptr))
    {
        return refuse(BMCOAUTH_RULE_HANDSHAKE_COUNTERS).about(selector == nullptr ? "M" : "C");
    }
    if (selector == nullptr || handshake.asksCertificateOnly())
    {
        return true;
    }
    const std::optional<std::uint64_t> m = counter("M", selector);
    const std::optional<std::uint64_t> c = m ? counter("C", movingFactor) : std::nullopt;
    if (!c)
    {
        return false;
    }
    handshake.counters = {*m, *c};
    return true;
}

/** Reads what proofs are asked for; false when the challenge cannot be answered at all. */
bool readChallenge(const Given& given, Handshake& handshake)
{
    handshake.types = valuesOf(given.challenge, "T");
    if (handshake.types.empty())
    {
        return refuse(BMCOAUTH_RULE_HANDSHAKE_TYPES).about("T");
    }
    const char* const token = valueOf(given.challenge, "V");
    if (token == nullptr)
    {
        return !handshake.asksCertificateOnly() || refuse(BMCOAUTH_RULE_HANDSHAKE_TOKEN).about("V");
    }
    if (given.certificate == nullptr || *given.certificate == nullptr)
    {
        return refuse(BMCOAUTH_RULE_HANDSHAKE_CERTIFICATE).about("certificate");
    }
    handshake.claim = claimOf(*given.certificate, token);
    return handshake.claim.has_value();
}

/** Reads the shared secrets where one is needed. */
bool readSecrets(const Given& given, Handshake& handshake)
{
    return handshake.asksCertificateOnly() || handshake.secrets.read(given.keys, given.keysLength);
}

/** The claim that a certificate proof is about; null where the challenge has no token. */
const CertificateClaim* claimIn(const Handshake& handshake)
{
    if (!handshake.claim)
    {
        return refuse(BMCOAUTH_RULE_HANDSHAKE_TOKEN).about("V");
    }
    return &*handshake.claim;
}

/** The secret that the one-time password of @p type is made with; nothing without counters. */
std::optional<std::string_view> secretOf(const Handshake& handshake, const char* type)
{
    if (!handshake.counters)
    {
        return refuse(BMCOAUTH_RULE_HANDSHAKE_COUNTERS).about("M");
    }
    return handshake.secrets.secret(type, handshake.counters->selector);
}

HeapText proofFor(const char* type, const Handshake& handshake, const SigningKey& signer)
{
    if (type == certificateType)
    {
        const CertificateClaim* const claim = claimIn(handshake);
        return claim == nullptr ? nullptr : certificateProof(*claim, signer);
    }
    const std::optional<std::string_view> secret = secretOf(handshake, type);
    return secret ? oneTimePassword(*secret, handshake.counters->movingFactor) : nullptr;
}

/** One proof for each type of @p handshake. */
StringArray proofsFor(const Handshake& handshake, const SigningKey& signer)
{
    StringArray proofs = emptyStringArray(handshake.types.size());
    for (std::size_t i = 0; proofs && i < handshake.types.size(); ++i)
    {
        char*& proof = proofs.get()[i];
        proof = proofFor(handshake.types[i], handshake, signer).release();
        if (proof == nullptr)
        {
            return refused().within(handshake.types[i]).at(i);
        }
    }
    return proofs;
}

/** The answer to the challenge; the counters are drawn where it has neither these nor a token to
 *  sign. */
ParameterList makeAnswer(const Given& given, const SigningKey& signer)
{
    Handshake handshake;
    if (!readChallenge(given, handshake) || !takeCounters(given.challenge, handshake))
    {
        return nullptr;
    }
    const bool draws = !handshake.counters && !handshake.claim;
    if (draws)
    {
        handshake.counters = drawCounters();
        if (!handshake.counters)
        {
            return nullptr;
        }
    }
    StringArray proofs = readSecrets(given, handshake) ? proofsFor(handshake, signer) : nullptr;
    if (!proofs)
    {
        return nullptr;
    }
    ParameterListWriter writer{3};
    if (draws)
    {
        putCounters(writer, *handshake.counters);
    }
    writer.put("R", std::move(proofs));
    return writer.take();
}

bool isProof(const char* proof, const char* type, const Handshake& handshake)
{
    if (type == certificateType)
    {
        const CertificateClaim* const claim = claimIn(handshake);
        return claim != nullptr && isCertificateProof(proof, *claim);
    }
    const std::optional<std::string_view> secret = secretOf(handshake, type);
    return secret && isOneTimePassword(proof, *secret, handshake.counters->movingFactor);
}

/** Whether @p answer answers the challenge; its counters count where the challenge has none. */
bool acceptAnswer(const Given& given, const HandshakePayload* answer)
{
    Handshake handshake;
    if (!readChallenge(given, handshake) ||
        !takeCounters(hasCounter(given.challenge) ? given.challenge : answer, handshake) ||
        !readSecrets(given, handshake))
    {
        return false;
    }
    const std::span<char* const> proofs = valuesOf(answer, "R");
    if (proofs.empty())
    {
        return refuse(BMCOAUTH_RULE_HANDSHAKE_PROOF_MISSING).about("R");
    }
    // The last proof decides: a wrong signature is carried on, and a proof that is missing ends
    // the walk. A server that wants all of them says so by the order of its types.
    bool accepted = false;
    for (std::size_t i = 0; i < std::min(handshake.types.size(), proofs.size()); ++i)
    {
        const char* const type = handshake.types[i];
        accepted = isProof(proofs[i], type, handshake);
        if (!accepted)
        {
            refused().within(type).at(i);
            if (type != certificateType || !handshake.claim)
            {
                return false;
            }
        }
    }
    return accepted;
}

/** Stores the answer to the challenge through @p response. */
int answer(const Given& given, HandshakePayload** response, const SigningKey& signer)
{
    if (refusesNull("challenge response", given.challenge, response))
    {
        return refused();
    }
    return crypto::guardedCrypto([&] {
        ParameterList made = makeAnswer(given, signer);
        if (!made)
        {
            return 0;
        }
        *response = made.release();
        return 1;
    });
}

int check(const Given& given, const HandshakePayload* response)
{
    if (refusesNull("challenge response", given.challenge, response))
    {
        return refused();
    }
    return crypto::guardedCrypto([&] { return int{acceptAnswer(given, response)}; });
}

} // namespace

} // namespace bmcoauth::internal::registration

using namespace bmcoauth::internal;
using namespace bmcoauth::internal::registration;

extern "C" int generateHandshakeResponseForChallenge(HandshakePayload* challenge, const char* keys,
                                                     unsigned int keysLength,
                                                     HandshakePayload** certificate,
                                                     HandshakePayload** response,
                                                     const unsigned char* der,
                                                     unsigned int derLength, int validate)
{
    const Given given{challenge, keys, keysLength, certificate};
    return validate == 0 ? answer(given, response, {der, derLength})
                         : check(given, response == nullptr ? nullptr : *response);
}

extern "C" bool generateHandshakeResponse(HandshakePayload* challenge, const char* keys,
                                          unsigned int keysLength, HandshakePayload** certificate,
                                          HandshakePayload** response, const unsigned char* der,
                                          unsigned int derLength)
{
    return answer({challenge, keys, keysLength, certificate}, response, {der, derLength}) != 0;
}

extern "C" bool validateHandshakeResponse(HandshakePayload* challenge, const char* keys,
                                          unsigned int keysLength, HandshakePayload** certificate,
                                          HandshakePayload* response)
{
    return check({challenge, keys, keysLength, certificate}, response) != 0;
}

extern "C" int appendSSLCertToResponse(HandshakePayload** response, const char* certificate,
                                       const char* hmac, const char* iv)
{
    constexpr std::size_t ivDigits = 32;
    if (refusesNull("response certificate hmac", response, certificate, hmac))
    {
        return refused();
    }
    const bool ivFits = iv != nullptr && std::strlen(iv) == ivDigits;
    if (*response == nullptr && !ivFits)
    {
        return refuseCall(BMCOAUTH_RULE_HANDSHAKE_IV, "iv");
    }
    return guarded([=]() -> int {
        ParameterListWriter writer{3};
        writer.put("encrypted_sslcert", certificate);
        writer.put("HMAC", hmac);
        if (ivFits)
        {
            writer.put("iv", iv);
        }
        if (!appendParameters(*response, writer.take()))
        {
            return 0;
        }
        // Without its IV the certificate cannot be opened; an existing answer
        // keeps the two parameters anyway.
        return ivFits ? 1 : int{refuse(BMCOAUTH_RULE_HANDSHAKE_IV).about("iv")};
    });
}
