// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "crypto/openssl.hpp"

#include <array>
#include <span>
#include <string_view>

namespace bmcoauth::internal::crypto
{

using Sha256Digest = std::array<unsigned char, 32>;

/** SHA-256 of @p text; false when memory runs out. */
[[nodiscard]] bool sha256(std::string_view text, std::span<unsigned char, 32> digest) noexcept;

/** Signs the SHA-256 digest of @p text with @p key (ECDSA), verifies the fresh signature once with
 *  the same key, and gives its DER form as Base64url without padding; null when a step fails. */
[[nodiscard]] HeapText signText(std::string_view text, EC_KEY& key) noexcept;

/** Whether @p der is a valid ECDSA signature (DER) of the SHA-256 digest of @p text; one that is not
 *  is refused by @p wrong. */
[[nodiscard]] bool verifyText(std::string_view text, std::span<const unsigned char> der,
                              EC_KEY& key, bmcoauth_rule wrong) noexcept;

} // namespace bmcoauth::internal::crypto
