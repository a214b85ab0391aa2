// SPDX-License-Identifier: Apache-2.0
#include <bmcoauth/support.h>

#include <unistd.h>

#include <cstdlib>
#include <cstring>

/* The wrappers ignore the caller's name and line. Calls from inside this library pass fixed
 * tags, such as "da_parseJwtPayload" and 812, for programs that define the wrappers themselves
 * to trace allocations. The numbers are not lines of this tree: a tag stays with its allocation
 * when the code around it moves. */

namespace
{

/** Ends the process, without clean-up and without a message, where memory has run out. */
template <typename T>
T* orExit(T* block)
{
    if (block == nullptr)
    {
        _exit(-1); // GCOVR_EXCL_LINE: the process ends, its counters too
    }
    return block;
}

} // namespace

extern "C" void* o2_ff_malloc(std::size_t size, const char* /*caller*/, unsigned int /*line*/)
{
    return orExit(std::malloc(size));
}

extern "C" void* o2_ff_calloc(std::size_t count, std::size_t size, const char* /*caller*/,
                              unsigned int /*line*/)
{
    return orExit(std::calloc(count, size));
}

extern "C" void* o2_ff_realloc(void* pointer, std::size_t size, const char* /*caller*/,
                               unsigned int /*line*/)
{
    return orExit(std::realloc(pointer, size));
}

extern "C" char* o2_ff_strdup(const char* text, const char* /*caller*/, unsigned int /*line*/)
{
    return text == nullptr ? nullptr : orExit(strdup(text));
}
