// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/owners.hpp"

#include <json/value.h>

namespace bmcoauth::internal::keys
{

/** The PEM text of the EC key with these coordinates (Base64url) on the curve that a JSON Web Key
 *  calls @p curve, which may be null; null unless they are a point of it. */
[[nodiscard]] HeapText ecPublicKeyPem(const char* x, const char* y, const char* curve);

/** The PEM text of the RSA key with this modulus and exponent (Base64url); null where one of
 * them does not decode. */
[[nodiscard]] HeapText rsaPublicKeyPem(const char* n, const char* e);

/** The PEM text of the EC or RSA key that the members of the JSON Web Key @p key describe. */
[[nodiscard]] HeapText publicKeyPem(const Json::Value& key);

} // namespace bmcoauth::internal::keys
