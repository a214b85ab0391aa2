// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string_view>

namespace bmcoauth::internal
{

constexpr std::string_view lowerCaseDigits = "0123456789abcdef";
constexpr std::string_view upperCaseDigits = "0123456789ABCDEF";

/** Writes two of the hexadecimal @p digits for each of @p bytes to @p out, without a terminator;
 *  gives the end of what it wrote. */
inline char* writeHex(std::span<const unsigned char> bytes, std::string_view digits,
                      char* out) noexcept
{
    for (const unsigned char byte : bytes)
    {
        *out++ = digits[byte >> 4U];
        *out++ = digits[byte & 0x0FU];
    }
    return out;
}

} // namespace bmcoauth::internal
