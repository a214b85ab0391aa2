// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "explanation.hpp"

#include <bmcoauth.hpp>

#include <optional>
#include <string>

namespace bmcoauth::tool
{

/** Walks the rules for a certificate key, in the library's order: the name of the first
 *  certificate, the factory roots, and the chain from the last one to them. */
[[nodiscard]] Explanation explainCertificate(const CertificateKey& certificate,
                                             const std::optional<std::string>& name);

} // namespace bmcoauth::tool
