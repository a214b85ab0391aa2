// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <set>
#include <string>

namespace support
{

/** The functions in the lists of exported symbols. */
[[nodiscard]] std::set<std::string> exportedFunctions();

} // namespace support
