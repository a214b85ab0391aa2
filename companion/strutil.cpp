// SPDX-License-Identifier: Apache-2.0
#include "strutil.h"

#include <cstdlib>
#include <cstring>
#include <string_view>

namespace
{

/** Takes the next piece that is not empty off @p rest; empty when there is none left. */
std::string_view nextPiece(std::string_view& rest, std::string_view separator)
{
    std::string_view piece;
    while (piece.empty() && !rest.empty())
    {
        const std::size_t end = separator.empty() ? std::string_view::npos : rest.find(separator);
        piece = rest.substr(0, end);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + separator.size());
    }
    return piece;
}

std::size_t countPieces(std::string_view text, std::string_view separator)
{
    std::size_t count = 0;
    while (!nextPiece(text, separator).empty())
    {
        ++count;
    }
    return count;
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
    char* copy = strdup(text);
    if (copy == nullptr)
    {
        return;
    }
    auto* grown = static_cast<char**>(std::realloc(*array, (count + 2) * sizeof(char*)));
    if (grown == nullptr)
    {
        std::free(copy);
        return;
    }
    // The end first: the array has one at every moment.
    grown[count + 1] = nullptr;
    grown[count] = copy;
    *array = grown;
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
    const std::size_t count = countPieces(text, separator);
    if (count == 0)
    {
        return nullptr;
    }
    auto** pieces = static_cast<char**>(std::calloc(count + 1, sizeof(char*)));
    std::string_view rest = text;
    for (std::size_t i = 0; pieces != nullptr && i < count; ++i)
    {
        const std::string_view piece = nextPiece(rest, separator);
        pieces[i] = strndup(piece.data(), piece.size());
        if (pieces[i] == nullptr)
        {
            freeStrArray(&pieces);
        }
    }
    return pieces;
}

extern "C" void cleanPrint(char* /*text*/)
{
}
