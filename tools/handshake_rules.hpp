// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "explanation.hpp"

#include <bmcoauth.h>

#include <string>

namespace bmcoauth::tool
{

/** What is judged of a handshake. */
struct HandshakeMaterial
{
    HandshakePayload* challenge = nullptr;
    HandshakePayload* response = nullptr;
    std::string keys;                        /**< the key document; empty for none */
    HandshakePayload* certificate = nullptr; /**< the client's; null for none */
};

/** Walks the rules for the response to a challenge, in the library's order. */
[[nodiscard]] Explanation explainResponse(const HandshakeMaterial& handshake);

} // namespace bmcoauth::tool
