// SPDX-License-Identifier: Apache-2.0
#include "certificate/pki.hpp"

#include "cli/command.hpp"

#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <initializer_list>
#include <utility>

namespace bmcoauth::tool
{

namespace
{

using ExtensionPtr = std::unique_ptr<X509_EXTENSION, Releaser<X509_EXTENSION_free>>;

/** Distinguishes these certificates from those of a factory. */
constexpr const char* organization = "DEVELOPMENT ONLY, no factory";

// Chains are judged as of 1 January 2035, so that day must be inside; TLS judges as of today.
constexpr const char* notBefore = "20200101000000Z";
constexpr const char* notAfter = "20491231235959Z";

void require(bool success)
{
    if (!success)
    {
        throw Stop{Exit::failure, "a certificate could not be made"};
    }
}

void addName(X509_NAME* name, const char* field, const std::string& text)
{
    require(X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(text.data()),
                                       static_cast<int>(text.size()), -1, 0) == 1);
}

void addExtension(X509* certificate, X509* issuer, int extension, const char* value)
{
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const ExtensionPtr made{X509V3_EXT_conf_nid(nullptr, &context, extension, value)};
    require(made && X509_add_ext(certificate, made.get(), -1) == 1);
}

using Extensions = std::initializer_list<std::pair<int, const char*>>;

Identity make(const std::string& name, EvpKeyPtr key, const Identity* issuer, Extensions extensions)
{
    Identity identity{std::move(key), Certificate{X509_new()}};
    X509* certificate = identity.certificate.get();
    const Identity& signer = issuer != nullptr ? *issuer : identity;
    const BignumPtr serial{BN_new()};
    require(certificate != nullptr && identity.key && serial &&
            X509_set_version(certificate, X509_VERSION_3) == 1 &&
            BN_rand(serial.get(), 127, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) == 1 &&
            BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(certificate)) != nullptr &&
            ASN1_TIME_set_string_X509(X509_getm_notBefore(certificate), notBefore) == 1 &&
            ASN1_TIME_set_string_X509(X509_getm_notAfter(certificate), notAfter) == 1 &&
            X509_set_pubkey(certificate, identity.key.get()) == 1);
    // The common name first: it is the name that the library reads.
    addName(X509_get_subject_name(certificate), "CN", name);
    addName(X509_get_subject_name(certificate), "O", organization);
    require(X509_set_issuer_name(certificate, X509_get_subject_name(signer.certificate.get())) ==
            1);
    for (const auto& [extension, value] : extensions)
    {
        addExtension(certificate, signer.certificate.get(), extension, value);
    }
    require(X509_sign(certificate, signer.key.get(), EVP_sha256()) > 0);
    return identity;
}

} // namespace

Identity makeAuthority(const std::string& name, const Identity* issuer)
{
    return make(name, EvpKeyPtr{EVP_EC_gen("P-256")}, issuer,
                {{NID_basic_constraints, "critical,CA:TRUE"},
                 {NID_key_usage, "critical,keyCertSign,cRLSign"},
                 {NID_subject_key_identifier, "hash"},
                 {NID_authority_key_identifier, "keyid"}});
}

Identity makeDevice(const std::string& name, EvpKeyPtr key, const Identity& issuer)
{
    return make(name, std::move(key), &issuer,
                {{NID_basic_constraints, "critical,CA:FALSE"},
                 {NID_key_usage, "critical,digitalSignature,keyAgreement"},
                 {NID_subject_key_identifier, "hash"},
                 {NID_authority_key_identifier, "keyid"}});
}

std::string pemOf(const X509& certificate)
{
    const BioPtr memory{BIO_new(BIO_s_mem())};
    require(memory && PEM_write_bio_X509(memory.get(), &certificate) == 1);
    return contents(memory);
}

} // namespace bmcoauth::tool
