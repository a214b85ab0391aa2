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
    std::vector<std::vector<std::string>> rows{{"bit", "mask", "scope name", "claim code"}};
    for (unsigned int bit = 0; bit < privilegeCount; ++bit)
    {
        std::array<char, 8> mask{};
        static_cast<void>(std::snprintf(mask.data(), mask.size(), "0x%03x", 1U << bit));
        rows.push_back({std::to_string(bit), mask.data(), ravok_scope_privileges[bit],
                        xidp_claim_privileges[bit]});
    }
    printTable(rows);
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
