// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The clock, SHA-256, and objects that their copies share. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/text.hpp>

#include <openssl/sha.h>

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <string_view>
#include <utility>

namespace bmcoauth
{
inline namespace v1
{

/** Returns the current time. Any thread may call it. Tests pass their own. */
using Clock = std::function<std::chrono::sys_seconds()>;

/** The clock of the machine. */
[[nodiscard]] inline Clock systemClock()
{
    return [] {
        return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    };
}

/** The bytes of a SHA-256 digest. */
using Sha256Digest = std::array<unsigned char, SHA256_DIGEST_LENGTH>;

namespace detail
{

/** Owns an object together with its copies. Moving copies: a moved-from object stays usable. */
template <typename T>
struct Shared : std::shared_ptr<T>
{
    /** Shares `object`. */
    explicit Shared(std::shared_ptr<T> object) noexcept : std::shared_ptr<T>{std::move(object)}
    {
    }
    /** Owns the same object. */
    Shared(const Shared&) noexcept = default;
    /** Owns the same object. */
    Shared& operator=(const Shared&) noexcept = default;
    ~Shared() = default;
};

// These functions are marked deprecated. Their replacements allocate memory at each call.
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif

/** The digest of `text`. Allocates no memory. */
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
