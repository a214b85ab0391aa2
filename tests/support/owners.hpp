// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bmcoauth.h>

#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

/** Owners of what the library hands out, each releasing by the function that the interface names,
 *  and shorthands to look into it. */
namespace support
{

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

using HeapText = std::unique_ptr<char, Releaser<releaseHeap>>;
using HeapBytes = std::unique_ptr<unsigned char, Releaser<releaseHeap>>;
using StringArray = std::unique_ptr<char*, Releaser<free_char_array>>;
using PayloadPtr = std::unique_ptr<HandshakePayload, Releaser<free_handshake_payload>>;

/** The texts of a null-ended array; none for a null array. */
[[nodiscard]] inline std::vector<std::string> texts(const char* const* array)
{
    std::vector<std::string> copies;
    for (; array != nullptr && *array != nullptr; ++array)
    {
        copies.emplace_back(*array);
    }
    return copies;
}

/** Equal text, and neither of them null: for expectations on texts that may be null. */
[[nodiscard]] inline std::string orNull(const char* text)
{
    return text == nullptr ? "(null)" : text;
}

/** A text of the C heap, as functions expect it that replace or release their argument. */
[[nodiscard]] inline HeapText heapText(const std::string& text)
{
    return HeapText{strdup(text.c_str())};
}

/** A null-ended array to pass to functions that take `char**`; its texts live as long as it does.
 */
class TextList
{
public:
    TextList(std::initializer_list<std::string> list) : kept{list}
    {
        for (std::string& text : kept)
        {
            pointers.push_back(text.data());
        }
        pointers.push_back(nullptr);
    }
    TextList(const TextList&) = delete;
    TextList& operator=(const TextList&) = delete;
    ~TextList() = default;

    operator char**() // not explicit: it stands for the array
    {
        return pointers.data();
    }

private:
    std::vector<std::string> kept;
    std::vector<char*> pointers;
};

} // namespace support
