// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/owners.hpp"

#include <bmcoauth/token.h>

namespace bmcoauth::internal::jwt
{

/** The signed compact token of the two records, as generateJWT gives it; null on failure. Throws
 *  std::bad_alloc. */
[[nodiscard]] HeapText makeToken(const JWTHeader& header, const JWTPayload& payload,
                                 const unsigned char* der, int derLength);

} // namespace bmcoauth::internal::jwt
