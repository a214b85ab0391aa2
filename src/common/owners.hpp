// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/refusal.hpp"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace bmcoauth::internal
{

/** The deleter of every owner in the library: hands the object to its release function. */
template <auto Release>
struct Releaser
{
    template <typename T>
    void operator()(T* object) const noexcept
    {
        Release(object);
    }
};

inline void releaseHeap(void* block) noexcept
{
    std::free(block);
}

/** Owns one block of the C heap. */
template <typename T>
using HeapBlock = std::unique_ptr<T, Releaser<releaseHeap>>;

/** Owns a text of the C heap, as it crosses the interface. */
using HeapText = HeapBlock<char>;

/** A NUL-terminated copy of @p text; null when memory runs out. */
[[nodiscard]] inline HeapText heapText(std::string_view text) noexcept
{
    HeapText copy{static_cast<char*>(std::malloc(text.size() + 1))};
    if (!copy)
    {
        return refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED);
    }
    text.copy(copy.get(), text.size());
    copy.get()[text.size()] = '\0';
    return copy;
}

/** A copy of @p text; null when it is null or memory runs out. */
[[nodiscard]] inline HeapText copyText(const char* text) noexcept
{
    return text == nullptr ? nullptr : heapText(text);
}

/** A zeroed block of @p count elements; null when memory runs out or the size does not fit. */
template <typename T>
[[nodiscard]] HeapBlock<T> zeroedBlock(std::size_t count) noexcept
{
    // NOLINTNEXTLINE(bugprone-sizeof-expression): the elements may be pointers, as in a list
    HeapBlock<T> block{static_cast<T*>(std::calloc(count, sizeof(T)))};
    if (!block)
    {
        return refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED);
    }
    return block;
}

/** Throws std::bad_alloc. */
[[noreturn, gnu::cold]] void raiseExhausted();

/** Passes @p owner on; throws std::bad_alloc if it is null. For code that runs inside a guard. */
template <typename Owner>
[[nodiscard]] Owner required(Owner owner)
{
    if (!owner)
    {
        raiseExhausted();
    }
    return owner;
}

/** The message that record writers promise for a missing mandatory text: the words of one standard
 *  library, on every standard library. */
[[noreturn]] inline void raiseNullText()
{
    throw std::logic_error("basic_string: construction from null is not valid");
}

/** Returns @p text; raises the logic error of raiseNullText for null. */
[[nodiscard]] inline const char* mandatory(const char* text)
{
    if (text == nullptr)
    {
        raiseNullText();
    }
    return text;
}

} // namespace bmcoauth::internal
