// SPDX-License-Identifier: Apache-2.0
#include "support/heap_ledger.hpp"

#include "support/interposed.hpp"

#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace support
{

namespace
{

enum class State : unsigned char
{
    older, /**< than the ledger, which sees it now for the first time */
    other, /**< seen, but not entered */
    live,
    released,
};

struct Slot
{
    const void* block = nullptr;
    /** The ledger that has filled this slot; to all others it is empty. */
    unsigned int ledger = 0;
    State state = State::older;
};

/** Blocks by their address. Not on the heap, whose calls come here. */
constexpr std::size_t slotCount = std::size_t{1} << 17U;
std::array<Slot, slotCount> slots;
unsigned int ledgers = 0;

/** The state of @p block in the ledger that is open. */
State& stateOf(const void* block)
{
    // Addresses are multiples of 16; the multiplication spreads what is left of them.
    const auto hash = (reinterpret_cast<std::uintptr_t>(block) >> 4U) * std::uintptr_t{2654435761U};
    for (std::size_t tried = 0; tried < slotCount; ++tried)
    {
        Slot& slot = slots.at((hash + tried) % slotCount);
        if (slot.ledger != ledgers)
        {
            slot = {block, ledgers, State::older};
        }
        if (slot.block == block)
        {
            return slot.state;
        }
    }
    constexpr std::string_view message = "HeapLedger: more blocks than it has room for\n";
    static_cast<void>(write(STDERR_FILENO, message.data(), message.size()));
    std::abort();
}

} // namespace

HeapLedger::HeapLedger()
{
    ++ledgers;
    interposed::books.ledger = this;
}

HeapLedger::~HeapLedger()
{
    interposed::books.ledger = nullptr;
}

void HeapLedger::open()
{
    entering = true;
}

void HeapLedger::close()
{
    entering = false;
}

std::size_t HeapLedger::kept() const
{
    return live;
}

std::size_t HeapLedger::olderReleased() const
{
    return older;
}

std::size_t HeapLedger::releasedTwice() const
{
    return twice;
}

void HeapLedger::onAllocated(const void* block, bool quietly)
{
    const bool entered = entering && !quietly;
    stateOf(block) = entered ? State::live : State::other;
    live += entered ? 1 : 0;
}

void HeapLedger::onResized(const void* block, const void* resized)
{
    State& before = stateOf(block);
    const State moved = before;
    before = State::released;
    if (resized != nullptr)
    {
        stateOf(resized) = moved;
    }
    else if (moved == State::live)
    {
        --live;
    }
}

bool HeapLedger::onReleased(const void* block)
{
    State& state = stateOf(block);
    if (state == State::released)
    {
        ++twice;
        return false;
    }
    live -= state == State::live ? 1 : 0;
    older += entering && state == State::older ? 1 : 0;
    state = State::released;
    return true;
}

} // namespace support
