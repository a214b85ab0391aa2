// SPDX-License-Identifier: Apache-2.0
#include "common/guard.hpp"

#include <json/value.h>

#include <new>

namespace bmcoauth
{

namespace
{

/** A step and what it works on. */
struct Work
{
    Step step;
    const void* captured;
};

Carried runLogic(const void* context)
{
    const auto& work = *static_cast<const Work*>(context);
    try
    {
        return work.step(work.captured);
    }
    catch (const Json::LogicError&)
    {
        refuse(BMCOAUTH_RULE_JSON_SYNTAX);
        return 0;
    }
}

Carried runAllocating(Step step, const void* captured)
{
    try
    {
        return step(captured);
    }
    catch (const std::bad_alloc&)
    {
        refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED);
    }
    catch (const Json::RuntimeError&)
    {
        refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED);
    }
    return 0;
}

} // namespace

Carried runMemory(Step step, const void* captured)
{
    const ErrnoKeeper keeper;
    const Carried result = runAllocating(step, captured);
    if (result == 0)
    {
        publishRefusal();
    }
    return result;
}

Carried runGuarded(Step step, const void* captured)
{
    const Work work{step, captured};
    return runMemory(runLogic, &work);
}

} // namespace bmcoauth
