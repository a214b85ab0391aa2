// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>

namespace bmcoauth::tool
{

/** The mode of the file @p path, such as "0600". */
[[nodiscard]] std::string modeOf(const std::string& path);

/** The name of the owner of the file @p path, or the number of one without a name. */
[[nodiscard]] std::string ownerOf(const std::string& path);

/** What the mode of the file @p path lets others do that is @p forbidden: empty, or "lets others
 *  read it". */
[[nodiscard]] std::string openTo(const std::string& path, mode_t forbidden);

/** The file that the library @p name was loaded from, or "linked in". */
[[nodiscard]] std::string loadedFrom(const std::string& name);

} // namespace bmcoauth::tool
