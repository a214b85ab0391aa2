// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/owners.hpp"

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/** Keys and certificates for the tests, made with OpenSSL directly. Whatever cannot be made throws.
 */
namespace support
{

using PkeyPtr = std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>>;
using X509Ptr = std::unique_ptr<X509, Releaser<X509_free>>;
using EcKeyPtr = std::unique_ptr<EC_KEY, Releaser<EC_KEY_free>>;

/** The group of an EC key by OpenSSL's name for it, or "RSA" for the one RSA key of 2048 bits that
 *  the tests share, since making one takes long. */
[[nodiscard]] PkeyPtr makeKey(const std::string& group);

/** The uncompressed point of an EC key. */
[[nodiscard]] std::string publicPoint(EVP_PKEY& key);

/** What a certificate is made of. */
struct CertificatePlan
{
    /** The bytes of the subject's common name, whatever they are; none at all for nothing. */
    std::optional<std::string> commonName = "device";
    std::string group = "prime256v1";
    /** Whether it may issue others. */
    bool authority = false;
    /** RFC 5280's UTCTime or GeneralizedTime. */
    std::string notBefore = "20200101000000Z";
    std::string notAfter = "20491231235959Z";
    /** The encoding of the common name: an OpenSSL V_ASN1 number. */
    int nameEncoding = V_ASN1_UTF8STRING;
};

/** A certificate and the private key to it. */
class Identity
{
public:
    /** A certificate that signs itself; a root unless told otherwise. */
    [[nodiscard]] static Identity selfSigned(const CertificatePlan& plan);

    /** A self-signed authority with this common name. */
    [[nodiscard]] static Identity root(const std::string& commonName);

    /** A certificate that this one signs. */
    [[nodiscard]] Identity issue(const CertificatePlan& plan) const;

    /** An authority below this one. */
    [[nodiscard]] Identity issueAuthority(const std::string& commonName) const;

    /** The certificate as PEM text, as OpenSSL writes it: with a line feed at the end. */
    [[nodiscard]] std::string pem() const;

    /** The certificate as DER bytes. */
    [[nodiscard]] std::string der() const;

    /** The certificate as bare Base64 without line feeds, as it is in "x5c". */
    [[nodiscard]] std::string body() const;

    /** The private key as the DER bytes of an ECPrivateKey structure. */
    [[nodiscard]] std::string privateKeyDer() const;

    [[nodiscard]] EVP_PKEY& key() const
    {
        return *pair;
    }

    [[nodiscard]] X509& certificate() const
    {
        return *issued;
    }

private:
    Identity(PkeyPtr keyPair, X509Ptr certificate);

    PkeyPtr pair;
    X509Ptr issued;
};

/** Standard Base64 with padding, in one line. */
[[nodiscard]] std::string base64(std::string_view bytes);

/** Base64url without padding. */
[[nodiscard]] std::string base64Url(std::string_view bytes);

/** The PEM text of @p der between these markers, with a line feed at the end. */
[[nodiscard]] std::string pemOf(const std::string& label, const std::string& der);

/** A certificate key with these "x5c" values and nothing else. */
[[nodiscard]] PayloadPtr certificateRecord(std::initializer_list<std::string> bodies);

} // namespace support
