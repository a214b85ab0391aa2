// SPDX-License-Identifier: Apache-2.0
#include "oauth2/oauth-register/handshake_proofs.hpp"

#include "common/json.hpp"
#include "crypto/base64.hpp"
#include "crypto/ec_key.hpp"
#include "crypto/openssl.hpp"
#include "crypto/signature.hpp"

#include <bmcoauth/handshake.h>

#include <climits>
#include <liboath/oath.h>

#include <cstring>

namespace bmcoauth::internal::registration
{

namespace
{

constexpr unsigned int passwordDigits = 8;

/** A password and its terminator. */
class Password : SecretBytes<passwordDigits + 1>
{
public:
    bool compute(std::string_view secret, std::uint64_t movingFactor)
    {
        return oath_hotp_generate(secret.data(), secret.size(), movingFactor, passwordDigits, false,
                                  OATH_HOTP_DYNAMIC_TRUNCATION,
                                  reinterpret_cast<char*>(data())) == OATH_OK ||
               refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED);
    }

    [[nodiscard]] std::string_view digits() const noexcept
    {
        return asText({data(), passwordDigits});
    }
};

/** The subject's common name as a text: the bytes before a zero byte, cut to 24 bytes, as both
 *  sides cut it; nothing if the certificate has no name. */
std::optional<std::string_view> commonName(const keys::Certificate& certificate)
{
    constexpr std::size_t longestCommonName = 24;
    std::optional<std::string_view> name = certificate.commonName();
    if (!name)
    {
        return refuse(BMCOAUTH_RULE_CERTIFICATE_NAME);
    }
    name = name->substr(0, longestCommonName);
    name = name->substr(0, name->find('\0'));
    if (name->empty())
    {
        return refuse(BMCOAUTH_RULE_CERTIFICATE_NAME_EMPTY);
    }
    return name;
}

} // namespace

bool KeyDocument::read(const char* text, unsigned int length)
{
    if (text == nullptr || *text == '\0')
    {
        return refuse(BMCOAUTH_RULE_HANDSHAKE_KEYS).about("keys");
    }
    if (std::strlen(text) != length)
    {
        return refuse(BMCOAUTH_RULE_ARGUMENT_LENGTH).about("keysLength");
    }
    return parseSecretObject({text, length}, tree) || refused().within("keys");
}

std::optional<std::string_view> KeyDocument::secret(std::string_view type,
                                                    std::uint64_t selector) const
{
    const Json::Value* secrets = member(tree.root, type);
    if (secrets != nullptr && secrets->isArray() && !secrets->empty())
    {
        if (const std::optional<std::string_view> secret =
                stringBytes((*secrets)[static_cast<Json::ArrayIndex>(selector % secrets->size())]))
        {
            return secret;
        }
    }
    return refuse(BMCOAUTH_RULE_HANDSHAKE_SECRET);
}

HeapText oneTimePassword(std::string_view secret, std::uint64_t movingFactor)
{
    Password password;
    return password.compute(secret, movingFactor) ? heapText(password.digits()) : nullptr;
}

bool isOneTimePassword(std::string_view proof, std::string_view secret, std::uint64_t movingFactor)
{
    // The length first, and the whole of it: liboath's own check takes the number of digits from
    // the text and would be content with the last six.
    if (proof.size() != passwordDigits)
    {
        return refuse(BMCOAUTH_RULE_HANDSHAKE_PROOF_WRONG).wanted("8 digits");
    }
    Password password;
    return password.compute(secret, movingFactor) &&
           (CRYPTO_memcmp(proof.data(), password.digits().data(), passwordDigits) == 0 ||
            refuse(BMCOAUTH_RULE_HANDSHAKE_PROOF_WRONG));
}

std::optional<CertificateClaim> claimOf(const HandshakePayload* list, std::string_view token)
{
    const HeapText pem = keys::firstCertificatePem(list);
    if (!pem)
    {
        return refuse(BMCOAUTH_RULE_HANDSHAKE_CERTIFICATE).about("x5c");
    }
    std::optional<keys::Certificate> certificate = keys::Certificate::read(pem.get());
    const std::optional<std::string_view> name =
        certificate ? commonName(*certificate) : std::nullopt;
    if (!name)
    {
        return refused().within("x5c");
    }
    std::string signedText{token};
    signedText += ':';
    signedText += *name;
    return CertificateClaim{std::move(*certificate), std::move(signedText)};
}

HeapText certificateProof(const CertificateClaim& claim, const SigningKey& signer)
{
    if (signer.derLength > INT_MAX)
    {
        return refuse(BMCOAUTH_RULE_ARGUMENT_LENGTH).about("derLength");
    }
    const crypto::EcKeyPtr key =
        crypto::decodePrivateKey(signer.der, static_cast<int>(signer.derLength));
    return key ? crypto::signText(claim.signedText, *key) : refused().within("der");
}

bool isCertificateProof(const char* proof, const CertificateClaim& claim)
{
    const crypto::EcKeyPtr key = claim.certificate.ecKey();
    if (!key)
    {
        return refused().within("x5c");
    }
    const std::optional<crypto::DecodedBytes> signature = crypto::decodeEitherBase64(proof);
    return signature && crypto::verifyText(claim.signedText, signature->bytes(), *key,
                                           BMCOAUTH_RULE_HANDSHAKE_PROOF_WRONG);
}

} // namespace bmcoauth::internal::registration

using namespace bmcoauth::internal;
using namespace bmcoauth::internal::registration;

char* generateSignedResponseValue(const std::string& text, EC_KEY* key)
{
    if (refusesNull("key", key))
    {
        return refused();
    }
    return crypto::guardedCrypto([&] { return crypto::signText(text, *key).release(); });
}

int verifyHRSignature(const std::string& text, char* signature, unsigned int signatureLength,
                      EC_KEY* key)
{
    if (refusesNull("signature key", signature, key))
    {
        return refused();
    }
    if (std::strlen(signature) != signatureLength)
    {
        return refuseCall(BMCOAUTH_RULE_ARGUMENT_LENGTH, "signatureLength");
    }
    return crypto::guardedCrypto([&]() -> int {
        crypto::toUrlAlphabet(signature);
        const std::optional<crypto::DecodedBytes> der = crypto::decodeBase64Url(signature);
        return der ? int{crypto::verifyText(text, der->bytes(), *key,
                                            BMCOAUTH_RULE_HANDSHAKE_PROOF_WRONG)}
                   : refused().within("signature");
    });
}

extern "C" char* get_x509_CN(const char* pem)
{
    if (refusesNull("pem", pem))
    {
        return refused();
    }
    return crypto::guardedCrypto([=]() -> char* {
        const std::optional<keys::Certificate> certificate = keys::Certificate::read(pem);
        const std::optional<std::string_view> name =
            certificate ? commonName(*certificate) : std::nullopt;
        return name ? heapText(*name).release() : nullptr;
    });
}
