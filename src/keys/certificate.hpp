// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/owners.hpp"
#include "crypto/openssl.hpp"
#include "crypto/pem.hpp"

#include <bmcoauth/handshake_payload.h>
#include <bmcoauth/x509.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace bmcoauth::internal::keys
{

struct CertificateFields;

void releaseFields(CertificateFields* fields) noexcept;

/** A certificate whose name and key are wanted. It takes a tenth of the time that an X509 takes,
 *  which decodes its public key at once, and is readable exactly when an X509 is. */
class Certificate
{
public:
    /** Reads the first certificate of the PEM text @p pem; nothing if it holds none. */
    [[nodiscard]] static std::optional<Certificate> read(std::string_view pem) noexcept;

    /** The bytes of the subject's first common name as they are encoded, zero bytes included;
     *  nothing if there is none. They live as long as the certificate. */
    [[nodiscard]] std::optional<std::string_view> commonName() const noexcept;

    /** The public key; null unless it is an EC key, of whatever curve. */
    [[nodiscard]] crypto::EcKeyPtr ecKey() const noexcept;

private:
    using FieldsPtr = std::unique_ptr<CertificateFields, Releaser<releaseFields>>;

    Certificate(crypto::DerBytes bytes, FieldsPtr decoded) noexcept;

    crypto::DerBytes der;
    FieldsPtr fields;
};

/** Reads the first certificate of @p pem into an X509, for what only that can do. */
[[nodiscard]] crypto::X509Ptr readX509(std::string_view pem) noexcept;

/** The PEM text of the certificate whose bare Base64 text is @p body; throws std::bad_alloc. */
[[nodiscard]] HeapText certificatePem(std::string_view body);

/** The value array of the first "x5c" parameter of @p certificate, which may be null; null if there
 *  is none or it holds no value. The one place where a chain is looked up: the name check and the
 *  verification must not look at different ones. */
[[nodiscard]] char** chainValues(const HandshakePayload* certificate);

/** The PEM text of the first "x5c" value of @p certificate, which may be null; null if it has
 *  none. Throws std::bad_alloc. */
[[nodiscard]] HeapText firstCertificatePem(const HandshakePayload* certificate);

/** Whether @p pem is a certificate with the name @p commonName, or with any name if that is null:
 *  see validateX509. */
[[nodiscard]] bool isNamed(std::string_view pem, const char* commonName) noexcept;

/** Verifies the last "x5c" value of @p certificate: see chainVerify. */
[[nodiscard]] bmcoauth_chain_result verifyChain(const HandshakePayload* certificate);

} // namespace bmcoauth::internal::keys
