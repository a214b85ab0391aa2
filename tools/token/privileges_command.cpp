// SPDX-License-Identifier: Apache-2.0
#include "cli/command.hpp"
#include "cli/documents.hpp"
#include "token/privileges.hpp"

#include <array>
#include <cstdio>

namespace bmcoauth::tool
{

namespace
{

struct Options
{
    bool json = false;
};

void listPrivileges(const Options& options)
{
    if (options.json)
    {
        Json::Value list{Json::arrayValue};
        for (unsigned int bit = 0; bit < privilegeCount; ++bit)
        {
            Json::Value entry;
            entry["bit"] = bit;
            entry["mask"] = 1U << bit;
            entry["scope"] = ravok_scope_privileges[bit];
            entry["claim"] = xidp_claim_privileges[bit];
            list.append(entry);
        }
        printJson(list);
        return;
    }
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

Json::Value namesOf(Privileges privileges)
{
    Json::Value names{Json::arrayValue};
    for (const Privilege privilege : privileges)
    {
        names.append(std::string{nameOf(privilege)});
    }
    return names;
}

void addPrivilegesCommand(const Command& root)
{
    const Command verb =
        root.verb("privileges", "List the privileges of the controller", "privileges");
    Options& options = verb.runs(listPrivileges);
    verb.json(options.json);
}

} // namespace bmcoauth::tool
