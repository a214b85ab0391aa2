// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bmcoauth/privileges.h>

#include <optional>

namespace bmcoauth::internal::jwt
{

[[nodiscard]] unsigned int scopePrivileges(const JWTPayload& payload);

/** The privileges of the payload's roles; @p roles may be null. */
[[nodiscard]] unsigned int rolesPrivileges(const JWTPayload& payload, const userRole_s* roles);

/** As get_xidp_privileges, but nothing where the claim is not an object, and exhausted memory is
 *  thrown: a token must not pass with less than it grants. */
[[nodiscard]] std::optional<unsigned int> xidpPrivileges(const JWTPayload& payload,
                                                         const char* const* providers);

} // namespace bmcoauth::internal::jwt
