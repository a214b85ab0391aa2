// SPDX-License-Identifier: Apache-2.0
#pragma once

/* SHA-256, as the service layer needs it. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/text.hpp>

#include <openssl/sha.h>

#include <array>
#include <string_view>

namespace bmcoauth
{
inline namespace v1
{

/** The bytes of a SHA-256 digest. */
using Sha256Digest = std::array<unsigned char, SHA256_DIGEST_LENGTH>;

namespace detail
{

// Marked deprecated. What replaces them allocates memory at each call.
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif

/** The digest of `text`. Takes no memory of the heap. */
[[nodiscard]] inline Sha256Digest sha256(std::string_view text) noexcept
{
    const ByteSpan bytes = bytesOf(text);
    Sha256Digest digest{};
    SHA256_CTX state{};
    SHA256_Init(&state);
    SHA256_Update(&state, bytes.data(), bytes.size());
    SHA256_Final(digest.data(), &state);
    return digest;
}

#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

} // namespace detail

} // namespace v1
} // namespace bmcoauth
