// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/owners.hpp"

#include <json/value.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <string>

namespace bmcoauth::internal
{

/** Frees @p text after wiping it; does nothing if it is null. */
inline void releaseSecret(char* text) noexcept
{
    if (text != nullptr)
    {
        explicit_bzero(text, std::strlen(text));
        std::free(text);
    }
}

/** Owns a text of the C heap that is wiped before it is freed. */
using SecretText = std::unique_ptr<char, Releaser<releaseSecret>>;

/** Takes over @p text. */
[[nodiscard]] inline SecretText secretText(HeapText text) noexcept
{
    return SecretText{text.release()};
}

/** Wipes every block before it is freed, also those that a growing text leaves behind. */
template <typename T>
struct WipingAllocator
{
    using value_type = T; // NOLINT(readability-identifier-naming): the standard library's name

    [[nodiscard]] T* allocate(std::size_t count)
    {
        return std::allocator<T>{}.allocate(count);
    }

    void deallocate(T* block, std::size_t count) noexcept
    {
        explicit_bzero(block, count * sizeof(T));
        std::allocator<T>{}.deallocate(block, count);
    }

    bool operator==(const WipingAllocator& /*other*/) const noexcept = default;
};

/** A string whose heap blocks are wiped. */
using SecretString = std::basic_string<char, std::char_traits<char>, WipingAllocator<char>>;

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
        explicit_bzero(this->data(), Size);
    }
};

struct WipingRelease
{
    std::size_t size = 0;

    void operator()(unsigned char* block) const noexcept
    {
        explicit_bzero(block, size);
        std::free(block);
    }
};

/** Owns a block of the C heap that is wiped before it is freed. */
using SecretBlock = std::unique_ptr<unsigned char, WipingRelease>;

/** A zeroed block of @p size bytes; null when memory runs out. */
[[nodiscard]] inline SecretBlock secretBlock(std::size_t size) noexcept
{
    return {zeroedBlock<unsigned char>(size).release(), WipingRelease{size}};
}

/** Wipes every text of @p tree; names of members stay. @p tree must own its texts. */
void wipeTexts(const Json::Value& tree) noexcept;

/** Owns a JSON tree whose texts are wiped before they are freed.
 *
 *  The tree must own its texts: one made of a Json::StaticString belongs to a caller, and would be
 *  wiped there. */
struct SecretTree
{
    SecretTree() = default;
    SecretTree(const SecretTree&) = delete;
    SecretTree& operator=(const SecretTree&) = delete;
    SecretTree(SecretTree&&) = delete;
    SecretTree& operator=(SecretTree&&) = delete;
    ~SecretTree()
    {
        wipeTexts(root);
    }

    Json::Value root;
};

} // namespace bmcoauth::internal
