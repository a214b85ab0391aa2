// SPDX-License-Identifier: Apache-2.0
#include "support/released_blocks.hpp"

#include "support/interposed.hpp"

#include <malloc.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>

#if __has_include(<valgrind/memcheck.h>)
#include <valgrind/memcheck.h>
#endif

namespace support
{

namespace
{

/** The copies, each behind its size. Not on the heap, whose calls come here. */
constexpr std::size_t room = std::size_t{16} << 20U;
std::array<char, room> copies;

std::size_t sizeAt(std::size_t position)
{
    std::size_t size = 0;
    std::memcpy(&size, copies.data() + position, sizeof size);
    return size;
}

/** Reading unwritten bytes of a block is intended here, although memcheck reports it. */
void declareDefined([[maybe_unused]] const char* bytes, [[maybe_unused]] std::size_t size)
{
#ifdef VALGRIND_MAKE_MEM_DEFINED
    static_cast<void>(VALGRIND_MAKE_MEM_DEFINED(bytes, size));
#endif
}

} // namespace

ReleasedBlocks::ReleasedBlocks()
{
    interposed::books.released = this;
}

ReleasedBlocks::~ReleasedBlocks()
{
    stop();
}

void ReleasedBlocks::stop()
{
    interposed::books.released = nullptr;
}

std::size_t ReleasedBlocks::count() const
{
    std::size_t number = 0;
    for (std::size_t at = 0; at < used; at += sizeof(std::size_t) + sizeAt(at))
    {
        ++number;
    }
    return number;
}

std::size_t ReleasedBlocks::holding(std::string_view bytes) const
{
    std::size_t number = 0;
    for (std::size_t at = 0; at < used; at += sizeof(std::size_t) + sizeAt(at))
    {
        const std::string_view block{copies.data() + at + sizeof(std::size_t), sizeAt(at)};
        number += block.find(bytes) != std::string_view::npos ? 1U : 0U;
    }
    return number;
}

void ReleasedBlocks::onAllocated(void* block)
{
    constexpr int filler = 0x5a;
    std::memset(block, filler, malloc_usable_size(block));
}

void ReleasedBlocks::onReleased(void* block)
{
    const std::size_t size = malloc_usable_size(block);
    if (room - used < sizeof size + size)
    {
        constexpr std::string_view message = "ReleasedBlocks: more than there is room for\n";
        static_cast<void>(write(STDERR_FILENO, message.data(), message.size()));
        std::abort();
    }
    last = used;
    std::memcpy(copies.data() + used, &size, sizeof size);
    std::memcpy(copies.data() + used + sizeof size, block, size);
    declareDefined(copies.data() + used + sizeof size, size);
    used += sizeof size + size;
}

void ReleasedBlocks::takeBack()
{
    used = last;
}

} // namespace support
