// SPDX-License-Identifier: Apache-2.0
#include "common/guard.hpp"

#include "common/owners.hpp"

#include <json/value.h>

#include <new>

namespace bmcoauth::internal
{

namespace
{

/** What @p attempt gives; 0 where memory runs out. */
template <typename Attempt>
Carried published(Attempt attempt)
{
    const ErrnoKeeper keeper;
    Carried result = 0;
    try
    {
        result = attempt();
    }
    catch (const std::bad_alloc&)
    {
        refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED);
    }
    catch (const Json::RuntimeError&)
    {
        refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED);
    }
    if (result == 0)
    {
        publishRefusal();
    }
    return result;
}

} // namespace

void raiseExhausted()
{
    throw std::bad_alloc();
}

Carried runMemory(Step step, const void* captured)
{
    return published([=] { return step(captured); });
}

Carried runGuarded(Step step, const void* captured)
{
    return published([=] {
        try
        {
            return step(captured);
        }
        catch (const Json::LogicError&)
        {
            refuse(BMCOAUTH_RULE_JSON_SYNTAX);
            return Carried{0};
        }
    });
}

} // namespace bmcoauth::internal
