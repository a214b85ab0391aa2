// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace bmcoauth::tool
{

/** Where the file @p path of a device is, whose files are in the folder @p root. Symbolic links lead
 *  where they would on the device, never out of the folder. */
[[nodiscard]] std::string pathInImage(const std::string& root, const std::string& path);

} // namespace bmcoauth::tool
