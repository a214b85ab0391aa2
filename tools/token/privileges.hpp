// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bmcoauth.hpp>

#include <json/value.h>

namespace bmcoauth::tool
{

/** The number of the controller's privileges, each a bit of a mask. */
constexpr unsigned int privilegeCount = 9;

/** The scope names of @p privileges, as a JSON array. */
[[nodiscard]] Json::Value namesOf(Privileges privileges);

} // namespace bmcoauth::tool
