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
    const void* body;
};

Carried runLogic(const void* context)
{
    const auto& work = *static_cast<const Work*>(context);
    try
    {
        return work.step(work.body);
    }
    catch (const Json::LogicError&)
    {
        refuse(BMCOAUTH_RULE_JSON_SYNTAX);
        return 0;
    }
}

Carried runAllocating(Step step, const void* body)
{
    try
    {
        return step(body);
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

Carried runMemory(Step step, const void* body)
{
    const ErrnoKeeper keeper;
    const Carried result = runAllocating(step, body);
    if (result == 0)
    {
        publishRefusal();
    }
    return result;
}

Carried runGuarded(Step step, const void* body)
{
    const Work work{step, body};
    return runMemory(runLogic, &work);
}

} // namespace bmcoauth
