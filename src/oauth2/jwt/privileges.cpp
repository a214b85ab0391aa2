// SPDX-License-Identifier: Apache-2.0
#include "oauth2/jwt/privileges.hpp"

#include "common/guard.hpp"
#include "common/json.hpp"
#include "oauth2/jwt/token_records.hpp"

#include <iterator>
#include <string_view>

using namespace bmcoauth::internal;

// Writable, as the services that bind them expect; in the order of the privilege bits.
// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables)
const char* ravok_scope_privileges[10] = {
    "ravok_login",
    "ravok_configure",
    "ravok_configureusers",
    "ravok_clearlogs",
    "ravok_executeservercontrolcommands",
    "ravok_accessconsoleredirection",
    "ravok_accessvirtualmedia",
    "ravok_testalerts",
    "ravok_executediagnosticcommands",
    nullptr,
};
const char* xidp_claim_privileges[10] = {
    "L", "CD", "CU", "CL", "SC", "AR", "VM", "TA", "DC", nullptr,
};
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)

namespace
{

using PrivilegeTable = const char* [10];

/** The bits of the entries of @p table that are @p name. */
unsigned int bitsOf(const PrivilegeTable& table, std::string_view name)
{
    static_assert(std::size(PrivilegeTable{}) <= 32);
    unsigned int mask = 0;
    for (unsigned int bit = 0; bit < std::size(table) && table[bit] != nullptr; ++bit)
    {
        if (name == table[bit])
        {
            mask |= 1U << bit;
        }
    }
    return mask;
}

bool isAccepted(std::string_view provider, const char* const* providers)
{
    if (provider == "*")
    {
        return true;
    }
    for (; providers != nullptr && *providers != nullptr; ++providers)
    {
        if (provider == *providers)
        {
            return true;
        }
    }
    return false;
}

} // namespace

unsigned int jwt::scopePrivileges(const JWTPayload& payload)
{
    unsigned int mask = 0;
    for (char** name = payload.scope; name != nullptr && *name != nullptr; ++name)
    {
        mask |= bitsOf(ravok_scope_privileges, *name);
    }
    return mask;
}

unsigned int jwt::rolesPrivileges(const JWTPayload& payload, const userRole_s* roles)
{
    unsigned int mask = 0;
    for (char** name = payload.ravok_roles; name != nullptr && *name != nullptr; ++name)
    {
        for (const userRole_s* role = roles; role != nullptr && role->name != nullptr; ++role)
        {
            if (std::string_view{*name} == role->name)
            {
                mask |= role->privileges;
            }
        }
    }
    return mask;
}

std::optional<unsigned int> jwt::xidpPrivileges(const JWTPayload& payload,
                                                const char* const* providers)
{
    if (payload.xidp == nullptr)
    {
        return 0;
    }
    Json::Value claim;
    if (!parseJsonObject(payload.xidp, claim))
    {
        throwExhaustedMemory();
        return refuse(BMCOAUTH_RULE_PRIVILEGES_CLAIM).about("xidp");
    }
    unsigned int mask = 0;
    for (auto provider = claim.begin(); provider != claim.end(); ++provider)
    {
        if (!provider->isArray() || !isAccepted(provider.name(), providers))
        {
            continue;
        }
        for (const Json::Value& code : *provider)
        {
            mask |= bitsOf(xidp_claim_privileges, stringBytes(code).value_or(""));
        }
    }
    return mask;
}

unsigned int get_scope_privileges(JWTPayload* payload)
{
    if (refusesNull("payload", payload))
    {
        return 0;
    }
    return jwt::scopePrivileges(*payload);
}

unsigned int get_roles_privileges(JWTPayload* payload, userRole_s* roles)
{
    if (refusesNull("payload roles", payload, roles))
    {
        return 0;
    }
    return jwt::rolesPrivileges(*payload, roles);
}

unsigned int get_xidp_privileges(JWTPayload* payload, const char** providers)
{
    if (refusesNull("payload", payload))
    {
        return 0;
    }
    // A mask without a bit is an answer; only nothing is a refusal.
    std::optional<unsigned int> mask;
    guarded([&] {
        mask = jwt::xidpPrivileges(*payload, providers);
        return mask.has_value();
    });
    return mask.value_or(0);
}
