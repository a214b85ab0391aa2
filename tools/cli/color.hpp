// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace bmcoauth::tool
{

/** When to write colors: "always", "never", or "auto", for terminals only and unless the environment
 *  variable NO_COLOR is set. */
void useColor(const std::string& when);

/** What a color says. */
enum class Shade
{
    good,
    doubtful,
    bad
};

/** @p text in a color, if colors are written to the file descriptor @p stream. */
[[nodiscard]] std::string colored(Shade shade, std::string_view text, int stream);

} // namespace bmcoauth::tool
