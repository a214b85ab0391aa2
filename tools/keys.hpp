// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "documents.hpp"

#include <string>

namespace bmcoauth::tool
{

/** The P-256 private key in the file @p path; stops the command when there is none. */
[[nodiscard]] PrivateKey readPrivateKey(const std::string& path);

} // namespace bmcoauth::tool
