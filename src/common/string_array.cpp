// SPDX-License-Identifier: Apache-2.0
#include "common/string_array.hpp"

#include "common/guard.hpp"

#include <bmcoauth/support.h>

#include <cstdint>

namespace bmcoauth::internal
{

void releaseStringArray(char** array) noexcept
{
    if (array == nullptr)
    {
        return;
    }
    for (char** text = array; *text != nullptr; ++text)
    {
        std::free(*text);
    }
    std::free(array);
}

std::size_t countStrings(const char* const* array) noexcept
{
    std::size_t count = 0;
    while (array != nullptr && array[count] != nullptr)
    {
        ++count;
    }
    return count;
}

StringArray emptyStringArray(std::size_t count) noexcept
{
    // A caller may ask for as many as there are numbers; on 32 bits the sum would then be 0.
    if (count == SIZE_MAX)
    {
        return refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED);
    }
    return StringArray{zeroedBlock<char*>(count + 1).release()};
}

StringArray copyStringArray(const char* const* array) noexcept
{
    if (array == nullptr)
    {
        return nullptr;
    }
    const std::size_t count = countStrings(array);
    StringArray copy = emptyStringArray(count);
    for (std::size_t i = 0; copy && i < count; ++i)
    {
        copy.get()[i] = heapText(array[i]).release();
        if (copy.get()[i] == nullptr)
        {
            return nullptr;
        }
    }
    return copy;
}

StringArray copyFilledArray(const char* const* array) noexcept
{
    if (countStrings(array) == 0)
    {
        return refuse(BMCOAUTH_RULE_DOCUMENT_EMPTY);
    }
    return copyStringArray(array);
}

} // namespace bmcoauth::internal

extern "C" char** set_char_array(char** array)
{
    if (bmcoauth::internal::refusesNull("array", array))
    {
        return bmcoauth::internal::refused();
    }
    return bmcoauth::internal::guardedMemory(
        [=] { return bmcoauth::internal::copyFilledArray(array).release(); });
}

extern "C" void free_char_array(void* array)
{
    bmcoauth::internal::releaseStringArray(static_cast<char**>(array));
}
