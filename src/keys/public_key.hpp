// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <json/value.h>

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace bmcoauth::keys
{

/** How the SubjectPublicKeyInfo (DER, RFC 5480) of an uncompressed P-256 key begins; the 65 bytes
 * of the point follow. */
inline constexpr std::array<unsigned char, 26> p256Prefix{
    0x30, 0x59, 0x30, 0x13, 0x06, 0x07, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x02, 0x01,
    0x06, 0x08, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 0x07, 0x03, 0x42, 0x00};

inline constexpr unsigned char uncompressedPoint = 0x04;

/** The PEM text of the EC key with these coordinates (Base64url) on the curve that a JSON Web Key
 *  calls @p curve, which may be null; nothing unless they are a point of it. */
[[nodiscard]] std::optional<std::string> ecPublicKeyPem(const char* x, const char* y,
                                                        const char* curve);

/** The PEM text of the RSA key with this modulus and exponent (Base64url); nothing where one of
 * them does not decode. */
[[nodiscard]] std::optional<std::string> rsaPublicKeyPem(const char* n, const char* e);

/** The PEM text of the EC or RSA key that the members of the JSON Web Key @p key describe. */
[[nodiscard]] std::optional<std::string> publicKeyPem(const Json::Value& key);

} // namespace bmcoauth::keys
