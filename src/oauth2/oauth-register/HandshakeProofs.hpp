// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/secret.hpp"

#include <cstdint>
#include <optional>
#include <string_view>

namespace bmcoauth::registration
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

} // namespace bmcoauth::registration
