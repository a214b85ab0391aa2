// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "crypto/openssl.hpp"

namespace bmcoauth::crypto
{

/** The group of P-256. It is made at its first use and kept for the life of the process, since
 * making it takes most of the time that loading a key takes; it never changes, so every thread may
 * use it. Null when memory runs out, until a later call succeeds. */
[[nodiscard]] const EC_GROUP* p256Group() noexcept;

/** A fresh P-256 key pair; null when it cannot be made. */
[[nodiscard]] EcKeyPtr generateKey() noexcept;

/** Decodes an ECPrivateKey structure (RFC 5915, DER) of a P-256 key; a structure that names no
 *  curve is taken as one, and a public part that is left out is computed. Null when it does not
 *  decode, names another curve, or holds a scalar that is zero or not below the order of the
 *  group. */
[[nodiscard]] EcKeyPtr decodePrivateKey(const unsigned char* der, int derLength) noexcept;

/** Whether @p key, not null, lies on P-256. */
[[nodiscard]] bool isP256(const EC_KEY& key) noexcept;

} // namespace bmcoauth::crypto
