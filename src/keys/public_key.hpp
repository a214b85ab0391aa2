// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <json/value.h>

#include <optional>
#include <string>
#include <string_view>

namespace bmcoauth::internal::keys
{

/** The PEM text of the EC key with these coordinates (Base64url) on the curve that a JSON Web Key
 *  calls @p curve, which may be null; nothing unless they are a point of it. */
[[nodiscard]] std::optional<std::string> ecPublicKeyPem(const char* x, const char* y,
                                                        const char* curve);

/** The PEM text of the RSA key with this modulus and exponent (Base64url); nothing where one of
 * them does not decode. */
[[nodiscard]] std::optional<std::string> rsaPublicKeyPem(const char* n, const char* e);

/** The PEM text of the EC or RSA key that the members of the JSON Web Key @p key describe. */
[[nodiscard]] std::optional<std::string> publicKeyPem(const Json::Value& key);

} // namespace bmcoauth::internal::keys
