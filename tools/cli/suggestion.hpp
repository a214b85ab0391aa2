// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "cli/manual.hpp"

#include <string>
#include <vector>

namespace bmcoauth::tool
{

/** The options and commands below @p command, as they are typed behind it, that somebody may have
 *  meant who typed @p word. */
[[nodiscard]] std::vector<std::string> meant(const std::string& word,
                                             const CommandDescription& command);

} // namespace bmcoauth::tool
