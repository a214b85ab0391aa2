// SPDX-License-Identifier: Apache-2.0
#include "common/text.hpp"

#include <algorithm>
#include <array>

namespace bmcoauth::internal
{

bool equalIgnoringCase(std::string_view left, std::string_view right) noexcept
{
    constexpr auto lower = [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    };
    return std::ranges::equal(left, right, {}, lower, lower);
}

std::optional<std::uint64_t> readDecimal(std::string_view text) noexcept
{
    std::uint64_t number = 0;
    for (const char c : text)
    {
        if (c < '0' || c > '9' || __builtin_mul_overflow(number, 10U, &number) ||
            __builtin_add_overflow(number, static_cast<unsigned char>(c - '0'), &number))
        {
            return std::nullopt;
        }
    }
    return text.empty() ? std::nullopt : std::optional{number};
}

char* writeDecimal(std::uint64_t number, char* end) noexcept
{
    do
    {
        *--end = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number != 0);
    return end;
}

std::string decimal(std::uint64_t number)
{
    std::array<char, mostDigits> digits{};
    char* const end = digits.data() + digits.size();
    return {writeDecimal(number, end), end};
}

} // namespace bmcoauth::internal
