// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "crypto/openssl.hpp"

#include <array>
#include <optional>
#include <span>

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

/** How the SubjectPublicKeyInfo (DER, RFC 5480) of an uncompressed P-256 key begins; the 65 bytes
 * of the point follow. */
inline constexpr std::array<unsigned char, 26> p256Prefix{
    0x30, 0x59, 0x30, 0x13, 0x06, 0x07, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x02, 0x01,
    0x06, 0x08, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 0x07, 0x03, 0x42, 0x00};

inline constexpr unsigned char uncompressedPoint = 0x04;

/** A point of P-256 as SEC 1, section 2.3.3, writes it: the mark above and two coordinates. */
using P256Point = std::span<const unsigned char, 65>;

/** The point in the SubjectPublicKeyInfo @p info when that is the one usual encoding of a P-256
 *  key; nothing for any other, which may well be a key of that curve all the same. */
[[nodiscard]] std::optional<P256Point> usualPoint(std::span<const unsigned char> info) noexcept;

/** The key with the public point @p point, without a private part; null when the point is off the
 *  curve or memory runs out. */
[[nodiscard]] EcKeyPtr publicKeyAt(P256Point point) noexcept;

/** Whether @p key, not null, lies on P-256. */
[[nodiscard]] bool isP256(const EC_KEY& key) noexcept;

} // namespace bmcoauth::crypto
