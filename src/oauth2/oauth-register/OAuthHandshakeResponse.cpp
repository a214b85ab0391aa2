// SPDX-License-Identifier: Apache-2.0
#include "common/json.hpp"
#include "common/parameter_list.hpp"
#include "common/string_array.hpp"
#include "crypto/base64.hpp"
#include "crypto/ec_key.hpp"
#include "crypto/openssl.hpp"
#include "crypto/signature.hpp"
#include "keys/certificate.hpp"
#include "oauth2/oauth-register/HandshakeProofs.hpp"
#include "oauth2/oauth-register/OAuthHandshakeChallenge.hpp"

#include <bmcoauth/encoding.h>
#include <bmcoauth/handshake.h>
#include <bmcoauth/x509.h>

#include <climits>
#include <openssl/obj_mac.h>

#include <array>
#include <charconv>
#include <cstring>
#include <optional>
#include <span>
#include <string>

namespace bmcoauth::registration
{

namespace
{

/** Room for a 64-bit number in decimal, and for every value that a challenge of ours carries. */
constexpr unsigned int numberTextSize = 25;
using NumberText = std::array<char, numberTextSize>;

/** The longest proof, in characters; a certificate proof on P-256 has at most 96. */
constexpr std::size_t longestProof = 99;

/** What the certificate proof signs, and with the key of which certificate. */
struct CertificateClaim
{
    keys::Certificate certificate;
    std::string signedText; /**< the challenge's token, ":" and the common name */
};

/** What one call works on. */
struct Handshake
{
    StringArray types;
    KeyDocument secrets;
    std::optional<CertificateClaim> claim;
    std::optional<Counters> counters;
    bool drawsCounters = false; /**< they were drawn here, and the response carries them */

    [[nodiscard]] bool asksCertificateOnly() const
    {
        return types.get()[1] == nullptr && compareSoftwareCertTag(types.get()[0]);
    }
};

/** The subject's common name as a text: what stands before a zero byte, cut to 24 bytes, at which
 *  both sides cut it; nothing if the certificate has none. */
std::optional<std::string_view> commonName(const keys::Certificate& certificate)
{
    constexpr std::size_t longestName = 24;
    std::optional<std::string_view> name = certificate.commonName();
    if (name)
    {
        name = name->substr(0, longestName);
        name = name->substr(0, name->find('\0'));
    }
    return name && !name->empty() ? name : std::nullopt;
}

/** A decimal number; nothing for a sign, other characters, no digit at all, and for the two values
 *  that no challenge carries: 0 and the largest. */
std::optional<std::uint64_t> counter(std::string_view text)
{
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size() || number == 0 ||
        number == UINT64_MAX)
    {
        return std::nullopt;
    }
    return number;
}

/** The texts of "M" and "C". */
struct CounterTexts
{
    NumberText selector{};
    NumberText movingFactor{};

    [[nodiscard]] std::optional<Counters> numbers() const
    {
        const std::optional<std::uint64_t> m = counter(selector.data());
        const std::optional<std::uint64_t> c = counter(movingFactor.data());
        return m && c ? std::optional{Counters{*m, *c}} : std::nullopt;
    }
};

enum class Found
{
    none,
    one, /**< which is refused: neither number means anything without the other */
    both,
};

Found findCounters(HandshakePayload* list, CounterTexts& texts)
{
    const bool selector = getChallengeValue(list, "M", texts.selector.data(), numberTextSize);
    const bool movingFactor =
        getChallengeValue(list, "C", texts.movingFactor.data(), numberTextSize);
    if (selector != movingFactor)
    {
        return Found::one;
    }
    return selector ? Found::both : Found::none;
}

/** Takes the counters from @p challenge or else from the answer to be checked, @p answer; where
 *  there is no answer yet and no token to sign, draws them. False when the call cannot go on. */
bool readCounters(HandshakePayload* challenge, HandshakePayload* answer, Handshake& handshake)
{
    CounterTexts texts;
    Found found = findCounters(challenge, texts);
    if (found == Found::none && answer != nullptr)
    {
        found = findCounters(answer, texts);
    }
    if (found == Found::one)
    {
        return false;
    }
    if (handshake.asksCertificateOnly())
    {
        return true;
    }
    if (found == Found::both)
    {
        handshake.counters = texts.numbers();
        return handshake.counters.has_value();
    }
    handshake.drawsCounters = answer == nullptr && !handshake.claim;
    if (handshake.drawsCounters)
    {
        handshake.counters = drawCounters();
        return handshake.counters.has_value();
    }
    return true;
}

/** The certificate of @p record and the text that its key signs for @p token. */
std::optional<CertificateClaim> claimOf(const HandshakePayload* record, std::string token)
{
    const std::optional<std::string> pem = keys::firstCertificatePem(record);
    std::optional<keys::Certificate> certificate =
        pem ? keys::Certificate::read(*pem) : std::nullopt;
    const std::optional<std::string_view> name =
        certificate ? commonName(*certificate) : std::nullopt;
    if (!name)
    {
        return std::nullopt;
    }
    token += ':';
    token += *name;
    return CertificateClaim{std::move(*certificate), std::move(token)};
}

/** Reads what proofs are asked for; nothing when the challenge cannot be answered at all. */
bool readChallenge(HandshakePayload* challenge, HandshakePayload** certificate,
                   Handshake& handshake)
{
    char** types = nullptr;
    if (!getChallengeValueArray(challenge, "T", &types))
    {
        return false;
    }
    handshake.types.reset(types);
    std::string token;
    if (!get_handshake_payload_paramValue(challenge, "V", token))
    {
        return !handshake.asksCertificateOnly();
    }
    if (certificate == nullptr || *certificate == nullptr)
    {
        return false;
    }
    handshake.claim = claimOf(*certificate, std::move(token));
    return handshake.claim.has_value();
}

/** The secret that the one-time password of @p type is made with; nothing without counters. */
std::optional<std::string_view> secretOf(const Handshake& handshake, const char* type)
{
    return handshake.counters ? handshake.secrets.secret(type, handshake.counters->selector)
                              : std::nullopt;
}

/** The private key of the one who answers. */
struct SigningKey
{
    const unsigned char* der;
    unsigned int derLength;
};

HeapText certificateProof(const Handshake& handshake, const SigningKey& signer)
{
    if (!handshake.claim || signer.derLength > INT_MAX)
    {
        return nullptr;
    }
    const crypto::EcKeyPtr key =
        crypto::decodePrivateKey(signer.der, static_cast<int>(signer.derLength));
    return key ? crypto::signText(handshake.claim->signedText, *key) : nullptr;
}

HeapText proofFor(const char* type, const Handshake& handshake, const SigningKey& signer)
{
    HeapText proof;
    if (compareSoftwareCertTag(type))
    {
        proof = certificateProof(handshake, signer);
    }
    else if (const std::optional<std::string_view> secret = secretOf(handshake, type))
    {
        proof = oneTimePassword(*secret, handshake.counters->movingFactor);
    }
    return proof && std::strlen(proof.get()) <= longestProof ? std::move(proof) : nullptr;
}

ParameterList respond(const Handshake& handshake, const SigningKey& signer)
{
    const std::size_t count = countStrings(handshake.types.get());
    StringArray proofs = emptyStringArray(count);
    for (std::size_t i = 0; proofs && i < count; ++i)
    {
        proofs.get()[i] = proofFor(handshake.types.get()[i], handshake, signer).release();
        if (proofs.get()[i] == nullptr)
        {
            return nullptr;
        }
    }
    if (!proofs)
    {
        return nullptr;
    }
    ParameterListWriter writer{3};
    if (handshake.drawsCounters)
    {
        putCounters(writer, *handshake.counters);
    }
    writer.put("R", std::move(proofs));
    return writer.take();
}

bool verifyCertificateProof(const Handshake& handshake, const char* proof)
{
    const crypto::EcKeyPtr key = handshake.claim->certificate.ecKey();
    const std::optional<crypto::DecodedBytes> signature = crypto::decodeEitherBase64(proof);
    return key && signature &&
           crypto::verifyText(handshake.claim->signedText, signature->bytes(), *key,
                              BMCOAUTH_RULE_HANDSHAKE_PROOF_WRONG);
}

bool accepts(const Handshake& handshake, HandshakePayload* response)
{
    char** values = nullptr;
    if (!getChallengeValueArray(response, "R", &values))
    {
        return false;
    }
    const StringArray proofs{values};
    // The last proof decides: a wrong signature is carried on, and a proof that is missing ends
    // the walk. A server that wants all of them says so by the order of its types.
    bool accepted = false;
    char** type = handshake.types.get();
    for (char** proof = proofs.get(); *type != nullptr && *proof != nullptr; ++type, ++proof)
    {
        if (compareSoftwareCertTag(*type))
        {
            if (!handshake.claim)
            {
                return false;
            }
            accepted = verifyCertificateProof(handshake, *proof);
            continue;
        }
        const std::optional<std::string_view> secret = secretOf(handshake, *type);
        if (!secret || !isOneTimePassword(*proof, *secret, handshake.counters->movingFactor))
        {
            return false;
        }
        accepted = true;
    }
    return accepted;
}

} // namespace

} // namespace bmcoauth::registration

using namespace bmcoauth;
using namespace bmcoauth::registration;

extern "C" int generateHandshakeResponseForChallenge(HandshakePayload* challenge, const char* keys,
                                                     unsigned int keysLength,
                                                     HandshakePayload** certificate,
                                                     HandshakePayload** response,
                                                     const unsigned char* der,
                                                     unsigned int derLength, int validate)
{
    if (response == nullptr || (validate != 0 && *response == nullptr))
    {
        return 0;
    }
    return crypto::guardedCrypto(0, [&] {
        HandshakePayload* answer = validate == 0 ? nullptr : *response;
        Handshake handshake;
        if (!readChallenge(challenge, certificate, handshake) ||
            !readCounters(challenge, answer, handshake) ||
            (!handshake.asksCertificateOnly() && !handshake.secrets.read(keys, keysLength)))
        {
            return 0;
        }
        if (validate != 0)
        {
            return accepts(handshake, answer) ? 1 : 0;
        }
        ParameterList made = respond(handshake, {der, derLength});
        if (!made)
        {
            return 0;
        }
        *response = made.release();
        return 1;
    });
}

extern "C" bool generateHandshakeResponse(HandshakePayload* challenge, const char* keys,
                                          unsigned int keysLength, HandshakePayload** certificate,
                                          HandshakePayload** response, const unsigned char* der,
                                          unsigned int derLength)
{
    return generateHandshakeResponseForChallenge(challenge, keys, keysLength, certificate, response,
                                                 der, derLength, 0) != 0;
}

extern "C" bool validateHandshakeResponse(HandshakePayload* challenge, const char* keys,
                                          unsigned int keysLength, HandshakePayload** certificate,
                                          HandshakePayload* response)
{
    return generateHandshakeResponseForChallenge(challenge, keys, keysLength, certificate,
                                                 &response, nullptr, 0, 1) != 0;
}

char* generateSignedResponseValue(const std::string& text, EC_KEY* key)
{
    if (key == nullptr)
    {
        return nullptr;
    }
    return crypto::guardedCrypto(nullptr, [&] { return crypto::signText(text, *key).release(); });
}

int verifyHRSignature(const std::string& text, char* signature, unsigned int signatureLength,
                      EC_KEY* key)
{
    if (signature == nullptr || key == nullptr || std::strlen(signature) != signatureLength)
    {
        return 0;
    }
    return crypto::guardedCrypto(0, [&] {
        base64URIencode(signature);
        const std::optional<crypto::DecodedBytes> der = crypto::decodeBase64Url(signature);
        return int{der && crypto::verifyText(text, der->bytes(), *key,
                                              BMCOAUTH_RULE_HANDSHAKE_PROOF_WRONG)};
    });
}

extern "C" char* get_x509_CN(const char* pem)
{
    if (pem == nullptr)
    {
        return nullptr;
    }
    return crypto::guardedCrypto(nullptr, [&]() -> char* {
        const std::optional<keys::Certificate> certificate = keys::Certificate::read(pem);
        const std::optional<std::string_view> name =
            certificate ? commonName(*certificate) : std::nullopt;
        return name ? heapText(*name).release() : nullptr;
    });
}

extern "C" int appendSSLCertToResponse(HandshakePayload** response, const char* certificate,
                                       const char* hmac, const char* iv)
{
    constexpr std::size_t ivDigits = 32;
    if (response == nullptr || certificate == nullptr || hmac == nullptr)
    {
        return 0;
    }
    const bool ivFits = iv != nullptr && std::strlen(iv) == ivDigits;
    if (*response == nullptr && !ivFits)
    {
        return 0;
    }
    return guarded(0, [&] {
        ParameterListWriter writer{3};
        writer.put("encrypted_sslcert", certificate);
        writer.put("HMAC", hmac);
        if (ivFits)
        {
            writer.put("iv", iv);
        }
        ParameterList added = writer.take();
        if (!appendParameters(*response, std::move(added)))
        {
            return 0;
        }
        // Without its IV the certificate cannot be opened; an answer that was there
        // already keeps the two parameters all the same.
        return ivFits ? 1 : 0;
    });
}
