// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/owners.hpp"

#include <bmcoauth/jwk.h>

namespace bmcoauth::keys
{

inline void releaseKey(jwk* record) noexcept
{
    free_jwk(&record);
}

/** Owns a key held as pairs. */
using KeyRecord = std::unique_ptr<jwk, Releaser<releaseKey>>;

/** Owns a list of keys held as pairs. */
using KeyList = std::unique_ptr<jwk*, Releaser<free_jwk_list>>;

/** Owns a list of certificate keys; a single one is a ParameterList. */
using CertificateKeyList = std::unique_ptr<HandshakePayload*, Releaser<free_jwk_certs>>;

} // namespace bmcoauth::keys
