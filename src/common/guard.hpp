// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <json/value.h>

#include <cerrno>
#include <new>
#include <type_traits>

namespace bmcoauth
{

/** Puts errno back to what it was: a caller's next look at it must not see ours. */
class ErrnoKeeper
{
public:
    ErrnoKeeper() noexcept = default;
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

/** Runs @p body; exhausted memory becomes @p failed. jsoncpp reports its own failed allocations as
 *  Json::RuntimeError. Every other error passes: this is the guard of the field readers, whose
 *  callers are promised jsoncpp's Json::LogicError for a document that is neither object nor
 *  null. */
template <typename Body, typename Result = std::invoke_result_t<const Body&>>
Result guardedMemory(std::type_identity_t<Result> failed, const Body& body)
{
    const ErrnoKeeper keeper;
    try
    {
        return body();
    }
    catch (const std::bad_alloc&)
    {
        return failed;
    }
    catch (const Json::RuntimeError&)
    {
        return failed;
    }
}

/** Runs @p body; exhausted memory or an error of jsoncpp becomes @p failed. What else is thrown
 *  passes: the record writers' std::logic_error is meant for the caller. */
template <typename Body, typename Result = std::invoke_result_t<const Body&>>
Result guarded(std::type_identity_t<Result> failed, const Body& body)
{
    try
    {
        return guardedMemory(failed, body);
    }
    catch (const Json::Exception&)
    {
        return failed;
    }
}

} // namespace bmcoauth
