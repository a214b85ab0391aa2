// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "cli/command.hpp"

#include <string>
#include <vector>

namespace bmcoauth::tool
{

/** The state of one thing that the library depends on: Exit::success, Exit::doubtful, or
 *  Exit::invalid if something will not work. */
struct Finding
{
    Exit level = Exit::success;
    std::string subject;
    std::string text;
};

/** Looks at everything on this device that the library's verdicts depend on, and at the private
 *  key files @p keys. */
[[nodiscard]] std::vector<Finding> examineDevice(const std::vector<std::string>& keys);

/** Looks at what can be seen in the image of a device whose files are in the folder @p root: the
 *  time zone, the roots, the marker and the private key files @p keys of the image. */
[[nodiscard]] std::vector<Finding> examineImage(const std::string& root,
                                                const std::vector<std::string>& keys);

/** The worst of @p findings. */
[[nodiscard]] Exit worstOf(const std::vector<Finding>& findings);

} // namespace bmcoauth::tool
