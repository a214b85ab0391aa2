// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/secret.hpp"

#include <bmcoauth/authorize.h>

#include <cstdint>

namespace bmcoauth::internal::authorize
{

using PolicyList = std::unique_ptr<KestPolicyAuth, Releaser<free_kest_policy_response>>;
using Request = std::unique_ptr<AuthorizeRequest, Releaser<free_authorize_request>>;
using Response = std::unique_ptr<AuthorizeResponse, Releaser<free_authorize_response>>;

/** The request in @p text; null, with the reason noted, if it is not a request. Throws
 *  std::bad_alloc. */
[[nodiscard]] Request readRequest(const char* text);

/** The text form of @p response. Throws std::bad_alloc, and std::logic_error where a text is null. */
[[nodiscard]] HeapText writtenResponse(const AuthorizeResponse& response);

/** A record of five texts that are not null, issued now; null, with the reason noted, when the clock
 *  cannot be read or memory runs out. Throws std::bad_alloc. */
[[nodiscard]] Response createResponse(const char* state, const char* accessToken,
                                      const char* refreshToken, const char* expiresIn,
                                      const char* tokenType);

/** createResponse for a caller that has read the clock: a record issued at @p now. The tokens are
 *  handed over, so that no copy of a secret is left in the heap. */
[[nodiscard]] Response makeResponse(const char* state, SecretText accessToken,
                                    SecretText refreshToken, const char* expiresIn,
                                    const char* tokenType, std::uint64_t now);

} // namespace bmcoauth::internal::authorize
