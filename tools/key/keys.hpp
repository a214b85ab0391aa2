// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "cli/documents.hpp"

#include <string>

namespace bmcoauth::tool
{

/** Stops the command unless @p path is a file that can be read. A key comes from no pipe. */
void requireKeyFile(const std::string& path);

/** The P-256 private key in the file @p path; stops the command when there is none. */
[[nodiscard]] PrivateKey readPrivateKey(const std::string& path);

} // namespace bmcoauth::tool
