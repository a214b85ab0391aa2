// SPDX-License-Identifier: Apache-2.0
#include "refusals.hpp"

#include <bmcoauth/document.h>

namespace support
{

namespace
{

constexpr const char* planted = "planted by the test";

} // namespace

void plantRefusal()
{
    bool value = false;
    // The member that is not there is the name by which it is known again.
    static_cast<void>(get_value_bool("{}", planted, &value));
    if (!isPlantedRefusal())
    {
        ADD_FAILURE() << "the refusal of a missing member does not name it";
    }
}

bool isPlanted(std::string_view subject)
{
    return subject == planted;
}

bool isPlantedRefusal()
{
    return isPlanted(lastRefusal().subject);
}

bmcoauth_refusal lastRefusal()
{
    bmcoauth_refusal refusal{};
    static_cast<void>(bmcoauth_last_refusal(&refusal, sizeof refusal));
    return refusal;
}

std::string lastRule()
{
    if (isPlantedRefusal())
    {
        return "nothing noted";
    }
    const char* const name = bmcoauth_rule_name(lastRefusal().rule);
    return name == nullptr ? "no rule" : name;
}

} // namespace support
