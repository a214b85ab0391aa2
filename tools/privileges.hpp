// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <json/value.h>

#include <optional>
#include <string>

namespace bmcoauth::tool
{

/** The number of the controller's privileges, each a bit of a mask. */
constexpr unsigned int privilegeCount = 9;

/** The scope names of the privileges in @p mask, as a JSON array. */
[[nodiscard]] Json::Value privilegeNames(unsigned int mask);

/** The mask of the privilege with the scope name @p name; nothing if there is none. */
[[nodiscard]] std::optional<unsigned int> privilegeMask(const std::string& name);

} // namespace bmcoauth::tool
