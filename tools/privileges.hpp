// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bmcoauth.hpp>

#include <json/value.h>

#include <optional>
#include <string_view>

namespace bmcoauth::tool
{

/** The number of the controller's privileges, each a bit of a mask. */
constexpr unsigned int privilegeCount = 9;

/** The scope names of @p privileges, as a JSON array. */
[[nodiscard]] Json::Value namesOf(Privileges privileges);

/** The privilege with the scope name @p name; nothing if there is none. */
[[nodiscard]] std::optional<Privilege> privilegeCalled(std::string_view name);

} // namespace bmcoauth::tool
