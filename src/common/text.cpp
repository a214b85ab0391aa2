// SPDX-License-Identifier: Apache-2.0
#include "common/text.hpp"

#include <algorithm>

namespace bmcoauth::internal
{

bool equalIgnoringCase(std::string_view left, std::string_view right) noexcept
{
    constexpr auto lower = [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    };
    return std::ranges::equal(left, right, {}, lower, lower);
}

std::string decimal(std::uint64_t number)
{
    return std::to_string(number);
}

} // namespace bmcoauth::internal
