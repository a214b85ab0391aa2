// SPDX-License-Identifier: Apache-2.0
#pragma once

/* What an issuer of tokens gives. */

#include <bmcoauth/cpp/text.hpp>

#include <chrono>
#include <string>

namespace bmcoauth
{
inline namespace v1
{

/** An access token, and what the service keeps of it. */
struct IssuedToken
{
    /** What goes to the client. */
    Text token;
    /** The claim "jti", by which the token can be revoked. */
    std::string id;
    /** The claim "exp". */
    std::chrono::sys_seconds expiresAt;
};

} // namespace v1
} // namespace bmcoauth
