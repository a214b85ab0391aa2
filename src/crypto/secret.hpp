// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/owners.hpp"

#include <openssl/crypto.h>

#include <array>
#include <cstddef>

namespace bmcoauth::crypto
{

/** Bytes that wipe themselves. */
template <std::size_t Size>
struct SecretBytes : std::array<unsigned char, Size>
{
    SecretBytes() noexcept : std::array<unsigned char, Size>{}
    {
    }
    SecretBytes(const SecretBytes&) = delete;
    SecretBytes& operator=(const SecretBytes&) = delete;
    SecretBytes(SecretBytes&&) = delete;
    SecretBytes& operator=(SecretBytes&&) = delete;
    ~SecretBytes()
    {
        OPENSSL_cleanse(this->data(), Size);
    }
};

struct WipingRelease
{
    std::size_t size = 0;

    void operator()(unsigned char* block) const noexcept
    {
        OPENSSL_cleanse(block, size);
        std::free(block);
    }
};

/** Owns a block of the C heap that is wiped before it is released. */
using SecretBlock = std::unique_ptr<unsigned char, WipingRelease>;

/** A zeroed block of @p size bytes; null when memory runs out. */
[[nodiscard]] inline SecretBlock secretBlock(std::size_t size) noexcept
{
    return {zeroedBlock<unsigned char>(size).release(), WipingRelease{size}};
}

} // namespace bmcoauth::crypto
