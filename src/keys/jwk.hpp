// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/owners.hpp"

#include <bmcoauth/jwk.h>

#include <string_view>

namespace bmcoauth::internal::keys
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

/** The record of the JSON Web Key @p text, as oauth2_parse_jwk makes it; null when it is refused.
 *  Throws std::bad_alloc. */
[[nodiscard]] KeyRecord parseKey(std::string_view text);

/** The value of the first pair named @p name; null if there is none or it has no value. */
[[nodiscard]] char* findValue(const jwk* record, std::string_view name) noexcept;

/** A copy of each record of @p list, which may be null; null when there is none or one cannot be
 *  copied. */
[[nodiscard]] KeyList copyKeys(const jwk* const* list) noexcept;
[[nodiscard]] CertificateKeyList copyCertificateKeys(const HandshakePayload* const* list) noexcept;

} // namespace bmcoauth::internal::keys
