// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/owners.hpp"

#include <string_view>

namespace bmcoauth::internal::jwt
{

/** Signs @p signingInput with the ECPrivateKey structure @p der, or with a throwaway key where it
 *  is null: the signature's DER form as Base64url without padding. Null when a step fails. */
[[nodiscard]] HeapText signToken(std::string_view signingInput, const unsigned char* der,
                                 int derLength);

/** Whether @p signature (DER) signs @p signingInput by the key of the ECPrivateKey structure
 *  @p der. */
[[nodiscard]] bool verifySignature(std::string_view signingInput, std::string_view signature,
                                   const unsigned char* der, int derLength);

} // namespace bmcoauth::internal::jwt
