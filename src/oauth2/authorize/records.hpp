// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/secret.hpp"

#include <bmcoauth/authorize.h>

#include <cstdint>

namespace bmcoauth::authorize
{

using PolicyList = std::unique_ptr<KestPolicyAuth, Releaser<free_kest_policy_response>>;
using Request = std::unique_ptr<AuthorizeRequest, Releaser<free_authorize_request>>;
using Response = std::unique_ptr<AuthorizeResponse, Releaser<free_authorize_response>>;

/** create_authorize_response for a caller that has read the clock: a record issued at @p now. The
 *  tokens are handed over, so that no copy of a secret is left in the heap. */
[[nodiscard]] Response makeResponse(const char* state, SecretText accessToken,
                                    SecretText refreshToken, const char* expiresIn,
                                    const char* tokenType, std::uint64_t now);

} // namespace bmcoauth::authorize
