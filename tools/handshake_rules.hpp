// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "explanation.hpp"

#include <bmcoauth.hpp>

#include <string>

namespace bmcoauth::tool
{

/** Walks the rules for the response to a challenge, in the library's order. */
[[nodiscard]] Explanation explainResponse(const ParameterList& challenge,
                                          const ParameterList& response, std::string_view secrets,
                                          const CertificateKey* certificate);

/** Walks the rules for answering a challenge, in the library's order. Stops the command where the
 *  client draws M and that alone decides: what the library says then is not the same twice. */
[[nodiscard]] Explanation explainAnswer(const ParameterList& challenge, const Credentials& given);

} // namespace bmcoauth::tool
