// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "explanation.hpp"
#include "payloads.hpp"

#include <bmcoauth.h>

namespace bmcoauth::tool
{

/** Walks the rules for opening an envelope, in the library's order; @p der is a P-256 private
 *  key. */
[[nodiscard]] Explanation explainEnvelope(const SealedDocument& sealed, const unsigned char* der,
                                          int derLength, HandshakePayload* peer);

} // namespace bmcoauth::tool
