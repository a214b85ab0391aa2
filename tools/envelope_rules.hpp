// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "explanation.hpp"

#include <bmcoauth.hpp>

namespace bmcoauth::tool
{

/** Walks the rules for opening an envelope of @p peer, in the library's order; @p key is on
 *  P-256. */
[[nodiscard]] Explanation explainEnvelope(const EnvelopeView& sealed, const CertificateKey& peer,
                                          const PrivateKey& key);

} // namespace bmcoauth::tool
