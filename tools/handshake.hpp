// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "payloads.hpp"

#include <string>
#include <vector>

namespace bmcoauth::tool
{

/** The member of a register response that holds the server's challenge. */
constexpr const char* challengeMember = "handshake_challenge";

/** The server's challenge for a client that supports @p types, or a stop. */
[[nodiscard]] PayloadPtr serverChallenge(const std::vector<std::string>& types, unsigned int mode);

} // namespace bmcoauth::tool
