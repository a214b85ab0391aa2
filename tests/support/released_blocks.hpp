// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string_view>

namespace support
{

/** ReleasedBlocks copies every block that this thread releases or moves during its lifetime,
 *  just before that happens. So a test can search for secrets that only the call has made. A
 *  program can have one at a time. */
class ReleasedBlocks
{
public:
    ReleasedBlocks();
    ReleasedBlocks(const ReleasedBlocks&) = delete;
    ReleasedBlocks& operator=(const ReleasedBlocks&) = delete;
    ~ReleasedBlocks();

    /** Ends the keeping. */
    void stop();

    /** How many blocks there were. */
    [[nodiscard]] std::size_t count() const;

    /** How many of them held `bytes`. */
    [[nodiscard]] std::size_t holding(std::string_view bytes) const;

    // What the replaced calls tell.

    /** What an earlier call has left in `block` is overwritten: it would count again where a
     *  function writes only a part of it. */
    static void onAllocated(void* block);
    void onReleased(void* block);

    /** The block that was released last is still in use after all. */
    void takeBack();

private:
    std::size_t used = 0;
    std::size_t last = 0;
};

} // namespace support
