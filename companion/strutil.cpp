// SPDX-License-Identifier: Apache-2.0
#include "strutil.h"

#include <cstdlib>
#include <cstring>
#include <string_view>

namespace
{

/** Appends @p text, which is taken over, at position @p count; false when memory runs out. */
bool append(char*** array, std::size_t count, char* text)
{
    if (text == nullptr)
    {
        return false;
    }
    auto* grown = static_cast<char**>(std::realloc(*array, (count + 2) * sizeof(char*)));
    if (grown == nullptr)
    {
        std::free(text);
        return false;
    }
    grown[count] = text;
    grown[count + 1] = nullptr;
    *array = grown;
    return true;
}

} // namespace

extern "C" void copyReplace(char** destination, const char* text)
{
    if (destination == nullptr)
    {
        return;
    }
    // Copied before the release: the text may be part of the old one.
    char* copy = text == nullptr ? nullptr : strdup(text);
    std::free(*destination);
    *destination = copy;
}

extern "C" void copyAppendArray(char*** array, const char* text)
{
    if (array == nullptr || text == nullptr)
    {
        return;
    }
    std::size_t count = 0;
    while (*array != nullptr && (*array)[count] != nullptr)
    {
        ++count;
    }
    append(array, count, strdup(text));
}

extern "C" void freeStrArray(char*** array)
{
    if (array == nullptr || *array == nullptr)
    {
        return;
    }
    for (char** text = *array; *text != nullptr; ++text)
    {
        std::free(*text);
    }
    std::free(*array);
    *array = nullptr;
}

extern "C" char** splitString(const char* text, const char* separator)
{
    if (text == nullptr || separator == nullptr)
    {
        return nullptr;
    }
    char** pieces = nullptr;
    std::size_t count = 0;
    const std::string_view mark = separator;
    std::string_view rest = text;
    while (!rest.empty())
    {
        const std::size_t end = mark.empty() ? std::string_view::npos : rest.find(mark);
        const std::string_view piece = rest.substr(0, end);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + mark.size());
        if (piece.empty())
        {
            continue;
        }
        if (!append(&pieces, count, strndup(piece.data(), piece.size())))
        {
            freeStrArray(&pieces);
            return nullptr;
        }
        ++count;
    }
    return pieces;
}

extern "C" void cleanPrint(char* /*text*/)
{
}
