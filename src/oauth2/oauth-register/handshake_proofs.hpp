// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/secret.hpp"
#include "keys/certificate.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace bmcoauth::internal::registration
{

/** The handshake type that asks for a certificate proof. */
inline constexpr std::string_view certificateType = "software_id_cert-1.0";

/** The shared secrets of one side, by handshake type; wiped when they go. */
class KeyDocument
{
public:
    /** Reads @p text, of exactly @p length bytes; false when it is null, empty, of another length
     *  or no JSON object. */
    [[nodiscard]] bool read(const char* text, unsigned int length);

    /** The secret of @p type at index @p selector modulo the number of its secrets; nothing
     *  when there is none. It lives as long as the document. */
    [[nodiscard]] std::optional<std::string_view> secret(std::string_view type,
                                                         std::uint64_t selector) const;

private:
    SecretTree tree;
};

/** The one-time password of @p secret for @p movingFactor: HOTP (RFC 4226) of 8 digits, without
 *  checksum, by dynamic truncation; null when it cannot be computed. */
[[nodiscard]] HeapText oneTimePassword(std::string_view secret, std::uint64_t movingFactor);

/** Whether @p proof is the one-time password for exactly @p movingFactor; constant in time. */
[[nodiscard]] bool isOneTimePassword(std::string_view proof, std::string_view secret,
                                     std::uint64_t movingFactor);

/** What the certificate proof signs, and with the key of which certificate. */
struct CertificateClaim
{
    keys::Certificate certificate;
    std::string signedText; /**< the challenge's token, ":" and the common name */
};

/** The certificate of @p list and the text that its key signs for @p token. */
[[nodiscard]] std::optional<CertificateClaim> claimOf(const HandshakePayload* list,
                                                      std::string_view token);

/** The private key of the one who answers. */
struct SigningKey
{
    const unsigned char* der;
    unsigned int derLength;
};

/** The signature of @p claim; null when there is no usable key. At most 96 characters long. */
[[nodiscard]] HeapText certificateProof(const CertificateClaim& claim, const SigningKey& signer);

/** Whether @p proof is the signature of @p claim by the key of its certificate. */
[[nodiscard]] bool isCertificateProof(const char* proof, const CertificateClaim& claim);

} // namespace bmcoauth::internal::registration
