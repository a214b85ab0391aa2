// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace bmcoauth::internal
{

/** The bytes that @p text is made of. */
[[nodiscard]] inline std::span<const unsigned char> bytesOf(std::string_view text) noexcept
{
    return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

/** @p bytes as a text, which may hold zero bytes. */
[[nodiscard]] inline std::string_view asText(std::span<const unsigned char> bytes) noexcept
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/** Compares two texts without regard to the case of ASCII letters, in every locale. */
[[nodiscard]] bool equalIgnoringCase(std::string_view left, std::string_view right) noexcept;

/** The decimal number @p text; nothing for an empty text, a character that is not a digit, or a
 *  number beyond 64 bits. Smaller than std::from_chars, which brings tables for every base. */
[[nodiscard]] std::optional<std::uint64_t> readDecimal(std::string_view text) noexcept;

/** The most digits that a number has. */
constexpr std::size_t mostDigits = 20;

/** Writes the digits of @p number before @p end, at most mostDigits; gives where they begin. */
[[nodiscard]] char* writeDecimal(std::uint64_t number, char* end) noexcept;

/** @p number as a text, as the records carry it. */
[[nodiscard]] std::string decimal(std::uint64_t number);

} // namespace bmcoauth::internal
