// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/refusal.hpp"

#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace bmcoauth::internal
{

/** Restores errno, so that the caller does not see ours; sets it to 0 first, so that we do not
 *  see the caller's. Also used inside, around a call whose error in errno does not matter:
 *  refuse looks for exhausted memory there. */
class ErrnoKeeper
{
public:
    ErrnoKeeper() noexcept
    {
        errno = 0;
    }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;
    ErrnoKeeper(ErrnoKeeper&&) = delete;
    ErrnoKeeper& operator=(ErrnoKeeper&&) = delete;
    ~ErrnoKeeper()
    {
        errno = saved;
    }

private:
    int saved = errno;
};

/** The result of a body on its way through the one place that catches: a pointer, a number or a
 *  truth value. Its zero is the failure. */
using Carried = std::uintptr_t;

/** Runs a body, whose type it knows, with what it has captured. */
using Step = Carried (*)(const void* captured);

/** Runs @p step. Exhausted memory becomes 0, and when the result is 0, what was noted becomes the
 *  thread's last refusal. jsoncpp reports its own failed allocations as Json::RuntimeError. Every
 *  other error passes. */
[[nodiscard]] Carried runMemory(Step step, const void* captured);

/** runMemory that also turns an error of jsoncpp into 0. Other exceptions pass: the
 *  std::logic_error of the record writers is meant for the caller. */
[[nodiscard]] Carried runGuarded(Step step, const void* captured);

/** The words that a body has captured, to hand them over in registers: what an entry keeps in memory
 *  costs it a canary. */
template <std::size_t count>
struct Captured
{
    Carried word;
    Captured<count - 1> rest;
};

template <>
struct Captured<1>
{
    Carried word;
};

template <typename Body>
using CapturedBy = Captured<sizeof(Body) / sizeof(Carried)>;

/** Runs the body whose words are at @p captured. */
template <typename Body>
Carried runCopy(const void* captured)
{
    const auto again = std::bit_cast<Body>(*static_cast<const CapturedBy<Body>*>(captured));
    if constexpr (std::is_pointer_v<std::invoke_result_t<const Body&>>)
    {
        return std::bit_cast<Carried>(again());
    }
    else
    {
        return static_cast<Carried>(again());
    }
}

template <Carried (*run)(Step, const void*), std::size_t count>
[[gnu::noinline]] Carried runWith(Step step, Captured<count> captured)
{
    return run(step, &captured);
}

/** Runs @p body by @p run, one of the two above or one of their kind: the library has the exception
 *  handlers once, instead of once in each entry. */
template <Carried (*run)(Step, const void*), typename Body>
auto guardedBy(Body body)
{
    static_assert(std::is_trivially_copyable_v<Body>, "[=] has copied more than a pointer");
    using Result = std::invoke_result_t<const Body&>;
    CapturedBy<Body> words{};
    std::memcpy(&words, &body, sizeof body);
    const Carried carried = runWith<run>(runCopy<Body>, words);
    if constexpr (std::is_pointer_v<Result>)
    {
        return std::bit_cast<Result>(carried);
    }
    else
    {
        return static_cast<Result>(carried);
    }
}

/** The guard of the field readers, whose callers are promised jsoncpp's Json::LogicError for a
 *  document that is neither object nor null. */
template <typename Body>
auto guardedMemory(Body body)
{
    return guardedBy<runMemory>(body);
}

/** The guard of all others. */
template <typename Body>
auto guarded(Body body)
{
    return guardedBy<runGuarded>(body);
}

} // namespace bmcoauth::internal
