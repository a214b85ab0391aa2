// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/refusal.hpp"

#include <json/value.h>

#include <cerrno>
#include <new>
#include <type_traits>

namespace bmcoauth
{

/** Puts errno back to what it was: a caller's next look at it must not see ours, and ours, from 0
 *  on, must not see the caller's. Inside, for a call that leaves an error in errno where it does not
 *  matter: refuse looks for exhausted memory there. */
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

/** Runs @p body. Exhausted memory becomes @p failed, and when the result is @p failed, what was noted
 *  becomes the thread's last refusal. jsoncpp reports its own failed allocations as
 *  Json::RuntimeError. Every other error passes: this is the guard of the field readers, whose
 *  callers are promised jsoncpp's Json::LogicError for a document that is neither object nor
 *  null. */
template <typename Body, typename Result = std::invoke_result_t<const Body&>>
Result guardedMemory(std::type_identity_t<Result> failed, const Body& body)
{
    const ErrnoKeeper keeper;
    const auto run = [&]() -> Result {
        try
        {
            return body();
        }
        catch (const std::bad_alloc&)
        {
            refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED);
        }
        catch (const Json::RuntimeError&)
        {
            refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED);
        }
        return failed;
    };
    Result result = run();
    if (result == failed)
    {
        publishRefusal();
    }
    return result;
}

/** guardedMemory that also turns an error of jsoncpp into @p failed. What else is thrown passes: the
 *  record writers' std::logic_error is meant for the caller. */
template <typename Body, typename Result = std::invoke_result_t<const Body&>>
Result guarded(std::type_identity_t<Result> failed, const Body& body)
{
    return guardedMemory(failed, [&]() -> Result {
        try
        {
            return body();
        }
        catch (const Json::LogicError&)
        {
            refuse(BMCOAUTH_RULE_JSON_SYNTAX);
            return failed;
        }
    });
}

} // namespace bmcoauth
