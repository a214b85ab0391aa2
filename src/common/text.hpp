// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
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

/** @p number as a text, as the records carry it. */
[[nodiscard]] std::string decimal(std::uint64_t number);

} // namespace bmcoauth::internal
