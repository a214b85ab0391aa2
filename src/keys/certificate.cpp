// SPDX-License-Identifier: Apache-2.0
#include "keys/certificate.hpp"

#include "common/parameter_list.hpp"
#include "common/text.hpp"
#include "crypto/ec_key.hpp"

#include <openssl/asn1t.h>
#include <openssl/pem.h>

#include <new>

namespace bmcoauth::internal::keys
{

namespace
{

/** The longest common name that is compared, in bytes. */
constexpr std::size_t comparedName = 17;

/** SubjectPublicKeyInfo, left undecoded. */
struct KeyInfo
{
    ASN1_ENCODING encoding;
    X509_ALGOR* algorithm;
    ASN1_BIT_STRING* key;
};

/** TBSCertificate. */
struct SignedFields
{
    ASN1_INTEGER* version;
    ASN1_INTEGER* serialNumber;
    X509_ALGOR* algorithm;
    X509_NAME* issuer;
    X509_VAL* validity;
    X509_NAME* subject;
    KeyInfo* keyInfo;
    ASN1_BIT_STRING* issuerId;
    ASN1_BIT_STRING* subjectId;
    STACK_OF(X509_EXTENSION) * extensions;
};

} // namespace

struct CertificateFields
{
    SignedFields* content;
    X509_ALGOR* algorithm;
    ASN1_BIT_STRING* signature;
};

namespace
{

// RFC 5280, section 4.1, out of the very pieces that an X509 is decoded with, so that both accept
// the same bytes.

// clang-format off
ASN1_SEQUENCE_enc(KeyInfo, encoding, nullptr) = {
    ASN1_SIMPLE(KeyInfo, algorithm, X509_ALGOR),
    ASN1_SIMPLE(KeyInfo, key, ASN1_BIT_STRING),
} ASN1_SEQUENCE_END_enc(KeyInfo, KeyInfo)

ASN1_SEQUENCE(SignedFields) = {
    ASN1_EXP_OPT(SignedFields, version, ASN1_INTEGER, 0),
    ASN1_SIMPLE(SignedFields, serialNumber, ASN1_INTEGER),
    ASN1_SIMPLE(SignedFields, algorithm, X509_ALGOR),
    ASN1_SIMPLE(SignedFields, issuer, X509_NAME),
    ASN1_SIMPLE(SignedFields, validity, X509_VAL),
    ASN1_SIMPLE(SignedFields, subject, X509_NAME),
    ASN1_SIMPLE(SignedFields, keyInfo, KeyInfo),
    ASN1_IMP_OPT(SignedFields, issuerId, ASN1_BIT_STRING, 1),
    ASN1_IMP_OPT(SignedFields, subjectId, ASN1_BIT_STRING, 2),
    ASN1_EXP_SEQUENCE_OF_OPT(SignedFields, extensions, X509_EXTENSION, 3),
} ASN1_SEQUENCE_END(SignedFields)

ASN1_SEQUENCE(CertificateFields) = {
    ASN1_SIMPLE(CertificateFields, content, SignedFields),
    ASN1_SIMPLE(CertificateFields, algorithm, X509_ALGOR),
    ASN1_SIMPLE(CertificateFields, signature, ASN1_BIT_STRING),
} ASN1_SEQUENCE_END(CertificateFields)
// clang-format on

} // namespace

void releaseFields(CertificateFields* fields) noexcept
{
    ASN1_item_free(reinterpret_cast<ASN1_VALUE*>(fields), ASN1_ITEM_rptr(CertificateFields));
}

Certificate::Certificate(crypto::DerBytes bytes, FieldsPtr decoded) noexcept
    : der{std::move(bytes)}, fields{std::move(decoded)}
{
}

std::optional<Certificate> Certificate::read(std::string_view pem) noexcept
{
    crypto::DerBytes der = crypto::readPem(pem, PEM_STRING_X509);
    if (!der)
    {
        return refuse(BMCOAUTH_RULE_CERTIFICATE_ENCODING);
    }
    const unsigned char* position = der.data.get();
    FieldsPtr fields{reinterpret_cast<CertificateFields*>(
        ASN1_item_d2i(nullptr, &position, der.length, ASN1_ITEM_rptr(CertificateFields)))};
    if (!fields)
    {
        return refuse(BMCOAUTH_RULE_CERTIFICATE_ENCODING);
    }
    return Certificate{std::move(der), std::move(fields)};
}

std::optional<std::string_view> Certificate::commonName() const noexcept
{
    const X509_NAME* subject = fields->content->subject;
    const int index = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
    if (index < 0)
    {
        return std::nullopt;
    }
    const ASN1_STRING* name = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, index));
    return asText(
        {ASN1_STRING_get0_data(name), static_cast<std::size_t>(ASN1_STRING_length(name))});
}

crypto::EcKeyPtr Certificate::ecKey() const noexcept
{
    const ASN1_ENCODING& info = fields->content->keyInfo->encoding;
    if (const std::optional<crypto::UsualPoint> point =
            crypto::usualPoint({info.enc, static_cast<std::size_t>(info.len)}))
    {
        return crypto::publicKeyAt(*point);
    }
    // Other curves, compressed points and spelt-out parameters are rare: libcrypto sorts them out.
    const unsigned char* position = der.data.get();
    const crypto::X509Ptr certificate{d2i_X509(nullptr, &position, der.length)};
    const crypto::PkeyPtr key{certificate ? X509_get_pubkey(certificate.get()) : nullptr};
    if (!key)
    {
        return refuse(BMCOAUTH_RULE_KEY_ENCODING);
    }
    crypto::EcKeyPtr ecKey{EVP_PKEY_get1_EC_KEY(key.get())};
    if (!ecKey)
    {
        // libcrypto reads a key at infinity, but does not hand it out.
        return refuse(EVP_PKEY_get_base_id(key.get()) == EVP_PKEY_EC ? BMCOAUTH_RULE_KEY_POINT
                                                                     : BMCOAUTH_RULE_KEY_KIND);
    }
    return ecKey;
}

crypto::X509Ptr readX509(std::string_view pem) noexcept
{
    const crypto::DerBytes der = crypto::readPem(pem, PEM_STRING_X509);
    const unsigned char* position = der.data.get();
    crypto::X509Ptr certificate{der ? d2i_X509(nullptr, &position, der.length) : nullptr};
    if (!certificate)
    {
        return refuse(BMCOAUTH_RULE_CERTIFICATE_ENCODING);
    }
    return certificate;
}

HeapText certificatePem(std::string_view body)
{
    return required(crypto::pemText(PEM_STRING_X509, body));
}

char** chainValues(const HandshakePayload* certificate)
{
    char** values = findValues(certificate, "x5c");
    if (values == nullptr || *values == nullptr)
    {
        return refuse(BMCOAUTH_RULE_CERTIFICATE_MISSING).about("x5c");
    }
    return values;
}

HeapText firstCertificatePem(const HandshakePayload* certificate)
{
    char** values = chainValues(certificate);
    return values == nullptr ? nullptr : certificatePem(*values);
}

bool isNamed(std::string_view pem, const char* commonName) noexcept
{
    const std::optional<Certificate> certificate = Certificate::read(pem);
    if (!certificate)
    {
        return false;
    }
    const std::optional<std::string_view> name = certificate->commonName();
    if (name && name->empty())
    {
        return refuse(BMCOAUTH_RULE_CERTIFICATE_NAME_EMPTY);
    }
    // The whole compared part counts, zero bytes included: a certificate for "corp\0evil" must not
    // pass for "corp".
    return commonName == nullptr ||
           (name && equalIgnoringCase(name->substr(0, comparedName), commonName)) ||
           refuse(BMCOAUTH_RULE_CERTIFICATE_NAME).saw(name.value_or("")).wanted(commonName);
}

} // namespace bmcoauth::internal::keys
