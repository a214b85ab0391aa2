// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bmcoauth/privileges.h>

namespace bmcoauth::jwt
{

/** As get_xidp_privileges, but exhausted memory is thrown: a token must not pass with less than it
 *  grants. */
[[nodiscard]] unsigned int xidpPrivileges(const JWTPayload& payload, const char* const* providers);

} // namespace bmcoauth::jwt
