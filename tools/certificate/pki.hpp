// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "cli/openssl.hpp"

#include <string>

namespace bmcoauth::tool
{

/** A certificate and its private key, made for development. */
struct Identity
{
    EvpKeyPtr key;
    Certificate certificate;
};

/** A certificate authority with a fresh P-256 key; @p issuer is null for a root. */
[[nodiscard]] Identity makeAuthority(const std::string& name, const Identity* issuer);

/** A device's certificate for @p key. */
[[nodiscard]] Identity makeDevice(const std::string& name, EvpKeyPtr key, const Identity& issuer);

/** The PEM text of @p certificate. */
[[nodiscard]] std::string pemOf(const X509& certificate);

} // namespace bmcoauth::tool
