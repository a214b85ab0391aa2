// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/secret.hpp"
#include "crypto/openssl.hpp"

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace bmcoauth::internal::crypto
{

using Iv = std::array<unsigned char, 16>;

/** The IV that @p hex carries in exactly 32 digits. Null stands for zeros, and only on a device
 *  that carries the marker: nothing everywhere else. */
[[nodiscard]] std::optional<Iv> ivOf(const char* hex) noexcept;

/** An envelope as it travels, in standard Base64. */
struct Envelope
{
    HeapText body;
    HeapText mac;
};

/** Seals @p data, not empty, between two keys on P-256, @p own with its private part. */
[[nodiscard]] std::optional<Envelope> sealEnvelope(std::string_view data, const EC_KEY& own,
                                                   const EC_KEY& peer, const Iv& iv) noexcept;

/** The plaintext of an envelope; the block holds a zero byte more than `length`. */
struct Plaintext
{
    SecretBlock bytes;
    std::size_t length = 0;
};

/** Opens the ciphertext @p body. Without @p mac nothing is checked but the padding. */
[[nodiscard]] std::optional<Plaintext> openEnvelope(std::string_view body,
                                                    std::optional<std::string_view> mac,
                                                    const EC_KEY& own, const EC_KEY& peer,
                                                    const Iv& iv) noexcept;

} // namespace bmcoauth::internal::crypto
