// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/owners.hpp"

#include <optional>
#include <span>
#include <string_view>

namespace bmcoauth::crypto
{

/** Bytes decoded from Base64url: `size` bytes and one zero byte that is not counted. */
struct DecodedBytes
{
    HeapBlock<unsigned char> data;
    int size = 0;

    [[nodiscard]] std::span<const unsigned char> bytes() const noexcept
    {
        return {data.get(), static_cast<std::size_t>(size)};
    }

    [[nodiscard]] std::string_view text() const noexcept
    {
        return {reinterpret_cast<const char*>(data.get()), static_cast<std::size_t>(size)};
    }
};

/** Standard Base64 of @p bytes, in one line; null on failure. */
[[nodiscard]] HeapText encodeBase64(std::string_view bytes) noexcept;

/** Base64url of @p bytes without padding (RFC 7515, section 2); null on failure. */
[[nodiscard]] HeapText encodeBase64Url(std::string_view bytes) noexcept;

/** Decodes Base64url as base64URIdecode does; nothing when that fails. */
[[nodiscard]] std::optional<DecodedBytes> decodeBase64Url(std::string_view text) noexcept;

/** Decodes @p text in either alphabet, padded or not, as the readers of stored Base64 do. */
[[nodiscard]] std::optional<DecodedBytes> decodeEitherBase64(std::string_view text);

} // namespace bmcoauth::crypto
