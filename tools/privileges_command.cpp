// SPDX-License-Identifier: Apache-2.0
#include "command.hpp"
#include "documents.hpp"
#include "privileges.hpp"

#include <array>
#include <cstdio>

namespace bmcoauth::tool
{

namespace
{

struct Options
{
};

void listPrivileges(const Options& /*options*/)
{
    print("bit  mask   scope name                          claim code");
    for (unsigned int bit = 0; bit < privilegeCount; ++bit)
    {
        std::array<char, 96> line{};
        static_cast<void>(std::snprintf(line.data(), line.size(), "%3u  0x%03x  %-34s  %s", bit,
                                        1U << bit, ravok_scope_privileges[bit],
                                        xidp_claim_privileges[bit]));
        print(line.data());
    }
}

} // namespace

Json::Value privilegeNames(unsigned int mask)
{
    Json::Value names{Json::arrayValue};
    for (unsigned int bit = 0; bit < privilegeCount; ++bit)
    {
        if ((mask & (1U << bit)) != 0)
        {
            names.append(ravok_scope_privileges[bit]);
        }
    }
    return names;
}

std::optional<unsigned int> privilegeMask(const std::string& name)
{
    for (unsigned int bit = 0; bit < privilegeCount; ++bit)
    {
        if (name == ravok_scope_privileges[bit])
        {
            return 1U << bit;
        }
    }
    return std::nullopt;
}

void addPrivilegesCommand(const Command& root)
{
    const Command verb =
        root.verb("privileges", "List the privileges of the controller", "privileges");
    verb.runs(listPrivileges);
}

} // namespace bmcoauth::tool
