// SPDX-License-Identifier: Apache-2.0
#pragma once

/* Certificates and chains of them, over <bmcoauth/x509.h>. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/keys.hpp>
#include <bmcoauth/cpp/owners.hpp>
#include <bmcoauth/cpp/parameters.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/handshake.h>
#include <bmcoauth/handshake_payload.h>
#include <bmcoauth/jwk.h>
#include <bmcoauth/support.h>
#include <bmcoauth/x509.h>

#include <openssl/err.h>
#include <openssl/x509.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

namespace bmcoauth
{
inline namespace v1
{

/** Owns an X509 of OpenSSL. */
using Certificate = std::unique_ptr<X509, detail::Releaser<X509_free>>;

/** The PEM text of a certificate's bare Base64: recreate_x509_cert. */
[[nodiscard]] inline Expected<Text> certificatePem(std::string_view body)
{
    return detail::made<Text>(::recreate_x509_cert, {{"body", body}});
}

/** The first certificate of a PEM text: getX509Cert. */
[[nodiscard]] inline Expected<Certificate> readCertificate(std::string_view pem)
{
    return detail::made<Certificate>(::getX509Cert, {{"pem", pem}});
}

namespace detail
{

/** The certificate of this bare Base64. */
[[nodiscard]] inline Expected<Certificate> certificateOf(std::string_view body)
{
    return certificatePem(body).and_then([](const Text& pem) { return readCertificate(pem); });
}

/** Whether both texts are the same, or else the bare Base64 of the same certificate. */
[[nodiscard]] inline Expected<void> requireSame(std::string_view left, std::string_view right)
{
    if (left == right)
    {
        return {};
    }
    const Expected<Certificate> first = certificateOf(left);
    const Expected<Certificate> second = certificateOf(right);
    if (!first || !second)
    {
        return first ? second.error() : first.error();
    }
    // The comparison may leave errors that the next user of OpenSSL would take for its own.
    ERR_set_mark();
    const bool same = X509_cmp(first->get(), second->get()) == 0;
    ERR_pop_to_mark();
    if (!same)
    {
        return Error{BMCOAUTH_RULE_CHAIN_ENDS, "x5c"};
    }
    return {};
}

} // namespace detail

/** CertificateKey owns a certificate key, a parameter list whose "x5c" values are a chain.
 *
 *  NOTE: names, public keys and proofs are those of the first certificate, and verifyChain verifies
 *  the last one. Anybody can put a certificate of his own before a device's chain; isValid alone
 *  notices it. */
class CertificateKey
{
public:
    /** A key of the PEM chain `chain`: encode_x509_jwk. */
    [[nodiscard]] static Expected<CertificateKey> fromPem(std::string_view chain)
    {
        detail::Arguments in;
        const char* const pem = in.text("chain", chain);
        const auto length = in.length<unsigned int>("chain", chain.size());
        if (in.failed())
        {
            return in.failure();
        }
        return detail::ownedOrRefused<ParameterList>(::encode_x509_jwk(pem, length)).and_then(made);
    }
    /** A key that is this list, which must not be empty. */
    [[nodiscard]] static Expected<CertificateKey> of(ParameterList parameters)
    {
        if (!parameters)
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, "parameters"};
        }
        return made(std::move(parameters));
    }
    /** A key of its JSON text: parse_handshake_payload. */
    [[nodiscard]] static Expected<CertificateKey> parse(std::string_view text)
    {
        return ParameterList::parse(text).and_then(made);
    }

    /** The list itself, with "kty", "x5c" and what else there is. */
    [[nodiscard]] const ParameterList& parameters() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return list;
    }

    /** The first certificate in PEM form: decode_x509_jwk. */
    [[nodiscard]] Expected<Text> pem() const
    {
        unsigned int length = 0;
        return detail::ownedOrRefused<Text>(::decode_x509_jwk(list.get(), &length));
    }
    /** Whether the key belongs to a device that the factory made and that has the common name.
     *  Without a `commonName`, any name is accepted. Calls firstIsLast and isValidRaw. */
    [[nodiscard]] Expected<void> isValid(std::optional<std::string_view> commonName = {}) const
    {
        return firstIsLast().and_then([&] { return isValidRaw(commonName); });
    }
    /** validate_x509_jwk as it is: whether the first certificate has the common name, and the chain
     *  of the last one verifies. NOTE: the two may belong to different parties; use isValid to
     *  decide about anybody. */
    [[nodiscard]] Expected<void> isValidRaw(std::optional<std::string_view> commonName = {}) const
    {
        detail::Arguments in;
        const char* const name = in.maybe("commonName", commonName);
        if (in.failed())
        {
            return in.failure();
        }
        return detail::doneOrRefused(::validate_x509_jwk(list.get(), name));
    }
    /** Whether the first certificate and the last one are the same, so that name, public key and
     *  chain belong to one party. If the texts differ, both are decoded; refused if one of them
     *  cannot be. */
    [[nodiscard]] Expected<void> firstIsLast() const
    {
        const TextRange certificates{chain()};
        std::string_view last;
        for (const std::string_view certificate : certificates)
        {
            last = certificate;
        }
        if (certificates.empty())
        {
            return Error{BMCOAUTH_RULE_CERTIFICATE_MISSING, "x5c"};
        }
        return detail::requireSame(*certificates.begin(), last);
    }
    /** Whether the last certificate of the chain leads to a factory root: chainVerify. It says
     *  nothing of the first, whose name and public key count. */
    [[nodiscard]] Expected<void> verifyChain() const
    {
        return detail::doneOrRefused(::chainVerify(list.get()));
    }

private:
    explicit CertificateKey(ParameterList parameters) noexcept : list{std::move(parameters)}
    {
    }
    [[nodiscard]] static Expected<CertificateKey> made(ParameterList parameters)
    {
        return CertificateKey{std::move(parameters)};
    }
    /** The chain as the library finds it: the first parameter "x5c", this spelling alone, of which
     *  ParameterList::values would take another. Null if there is none. */
    [[nodiscard]] char** chain() const noexcept
    {
        const HandshakePayload* entry = list.get();
        while (entry != nullptr && entry->name != nullptr && entry->values != nullptr)
        {
            if (std::string_view{entry->name} == "x5c")
            {
                return entry->values;
            }
            ++entry;
        }
        return nullptr;
    }

    ParameterList list;
};

/** CertificateKeyList owns a list of certificate keys. */
class CertificateKeyList : public detail::Owned<HandshakePayload*, free_jwk_certs>
{
public:
    using Owned::Owned;

    /** Copies of these keys: set_jwk_certs. */
    [[nodiscard]] static Expected<CertificateKeyList> of(std::span<const CertificateKey> keys)
    {
        detail::Arguments in;
        HandshakePayload** const list = in.array<HandshakePayload*>("keys", keys.size());
        if (in.failed())
        {
            return in.failure();
        }
        for (std::size_t i = 0; i < keys.size(); ++i)
        {
            list[i] = keys[i].parameters().get();
        }
        return detail::ownedOrRefused<CertificateKeyList>(::set_jwk_certs(list));
    }
};

/** The certificate's common name, cut to 24 bytes: get_x509_CN. */
[[nodiscard]] inline Expected<Text> commonName(std::string_view pem)
{
    return detail::made<Text>(::get_x509_CN, {{"pem", pem}});
}

/** Whether the certificate is readable and, where one is given, bears the common name:
 *  validateX509. */
[[nodiscard]] inline Expected<void> isCertificate(std::string_view pem,
                                                  std::optional<std::string_view> commonName = {})
{
    detail::Arguments in;
    const char* const pemText = in.text("pem", pem);
    const char* const name = in.maybe("commonName", commonName);
    if (in.failed())
    {
        return in.failure();
    }
    return detail::doneOrRefused(::validateX509(pemText, name));
}

/** The EC public key of a certificate, which is not verified: get_EC_pubKey. */
[[nodiscard]] inline Expected<EcKey> ecKeyOfCertificate(std::string_view pem)
{
    return detail::made<EcKey>(::get_EC_pubKey, {{"pem", pem}});
}

/** Whether the device bears the marker under which development roots are trusted: isDeviceVorn. */
[[nodiscard]] inline bool deviceIsMarked()
{
    return ::isDeviceVorn() == 1;
}

} // namespace v1
} // namespace bmcoauth
