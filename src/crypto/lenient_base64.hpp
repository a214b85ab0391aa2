// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <span>

namespace bmcoauth::internal::crypto
{

/** Decodes @p text, Base64 of either alphabet with complete padding, and returns the number of
 *  bytes at @p out, which must have room for the length of the text. An error ends the decoding;
 *  the bytes of the blocks before it count. May replace the padding of @p text.
 *
 *  For every text, even a malformed one, the result is that of OpenSSL 3.0's Base64 filter. Later
 *  versions accept other texts and count other bytes, so the filter itself is not used. */
[[nodiscard]] std::size_t decodeLeniently(std::span<char> text, unsigned char* out) noexcept;

} // namespace bmcoauth::internal::crypto
