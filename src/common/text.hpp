// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <string_view>

namespace bmcoauth
{

/** Compares two texts without regard to the case of ASCII letters, in every locale. */
[[nodiscard]] constexpr bool equalIgnoringCase(std::string_view left, std::string_view right)
{
    constexpr auto lower = [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    };
    return std::ranges::equal(left, right, {}, lower, lower);
}

} // namespace bmcoauth
