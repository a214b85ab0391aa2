// SPDX-License-Identifier: Apache-2.0
#pragma once

/* Who a client is by its certificate, and whether it has proven that.
 *
 * Names are std::string: where memory for one runs out, it does what it always does. */

#include <bmcoauth/cpp/certificates.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/handshake.hpp>
#include <bmcoauth/cpp/parameters.hpp>
#include <bmcoauth/cpp/text.hpp>

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace bmcoauth
{
inline namespace v1
{

namespace detail
{

/** Whether `name`, whole, is the only common name. CertificateKey::isValid compares 17 bytes. */
[[nodiscard]] inline Expected<void> requireCommonName(const X509& certificate,
                                                      std::string_view name)
{
    const X509_NAME* const subject = X509_get_subject_name(&certificate);
    const int place = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
    const bool isOnly =
        place >= 0 && X509_NAME_get_index_by_NID(subject, NID_commonName, place) < 0;
    unsigned char* text = nullptr;
    const int size =
        isOnly ? ASN1_STRING_to_UTF8(&text,
                                     X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, place)))
               : 0;
    const Bytes owned{text, size > 0 ? static_cast<std::size_t>(size) : 0};
    return owned.view() == name && name.find('\0') == std::string_view::npos
               ? Expected<void>{}
               : Error{BMCOAUTH_RULE_CERTIFICATE_NAME, "CN"};
}

/** Whether the public key is on P-256, where alone proofs are made. */
[[nodiscard]] inline Expected<void> requireCurve(const X509& certificate) noexcept
{
    std::array<char, 32> group{};
    std::size_t length = 0;
    const EVP_PKEY* const key = X509_get0_pubkey(&certificate);
    if (key == nullptr || EVP_PKEY_is_a(key, "EC") != 1)
    {
        return Error{BMCOAUTH_RULE_KEY_KIND, "x5c", 0};
    }
    return EVP_PKEY_get_group_name(key, group.data(), group.size(), &length) == 1 &&
                   std::string_view{group.data(), length} == "prime256v1"
               ? Expected<void>{}
               : Error{BMCOAUTH_RULE_KEY_CURVE, "x5c", 0};
}

} // namespace detail

/** DeviceIdentity is a certificate chain that means one device: its first certificate is its last,
 *  bears the name that was asked for, whole and alone, has a key on P-256, and leads to a root of
 *  the factory. There is no other way to make one, and checkProofs takes nothing else. */
class DeviceIdentity
{
public:
    /** The identity of the device `name`, which must not be empty; case matters. */
    [[nodiscard]] static Expected<DeviceIdentity> of(CertificateKey key, std::string_view name)
    {
        if (name.empty())
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, "name"};
        }
        const Expected<Certificate> certificate =
            key.isValid().and_then([&] { return key.pem(); }).and_then([](const Text& pem) {
                return readCertificate(pem);
            });
        if (!certificate)
        {
            return certificate.error();
        }
        // What these look up may leave errors for the next user of OpenSSL.
        ERR_set_mark();
        const Expected<void> good = detail::requireCurve(**certificate).and_then([&] {
            return detail::requireCommonName(**certificate, name);
        });
        ERR_pop_to_mark();
        return good.transform([&] { return DeviceIdentity{std::move(key), std::string{name}}; });
    }

    /** The device's name. */
    [[nodiscard]] std::string_view name() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return commonName;
    }
    [[nodiscard]] std::string_view name() const&& = delete;
    /** The chain. */
    [[nodiscard]] const CertificateKey& certificate() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return key;
    }
    [[nodiscard]] const CertificateKey& certificate() const&& = delete;

private:
    DeviceIdentity(CertificateKey chain, std::string name) noexcept
        : key{std::move(chain)}, commonName{std::move(name)}
    {
    }

    CertificateKey key;
    std::string commonName;
};

/** Whether `response` gives every proof that `challenge` asks for: isProven, for a device that has been
 *  identified, or for none, where the challenge asks for passwords alone. */
[[nodiscard]] inline Expected<void> checkProofs(const ParameterList& challenge,
                                                const ParameterList& response,
                                                std::string_view secrets,
                                                const std::optional<DeviceIdentity>& device)
{
    return isProven(challenge, response, secrets, device ? &device->certificate() : nullptr);
}

} // namespace v1
} // namespace bmcoauth
