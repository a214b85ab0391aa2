// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "cli/manual.hpp"

#include <string>
#include <vector>

namespace bmcoauth::tool
{

/** The options and commands below @p command, as they are typed after it, that @p word may be a
 *  slip of. */
[[nodiscard]] std::vector<std::string> meant(const std::string& word,
                                             const CommandDescription& command);

} // namespace bmcoauth::tool
