// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/hostile.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <type_traits>

using namespace support;

namespace
{

struct Privilege
{
    unsigned int mask;
    const char* scope;
    const char* code;
};

constexpr std::array<Privilege, 9> privileges{{
    {0x001, "ravok_login", "L"},
    {0x002, "ravok_configure", "CD"},
    {0x004, "ravok_configureusers", "CU"},
    {0x008, "ravok_clearlogs", "CL"},
    {0x010, "ravok_executeservercontrolcommands", "SC"},
    {0x020, "ravok_accessconsoleredirection", "AR"},
    {0x040, "ravok_accessvirtualmedia", "VM"},
    {0x080, "ravok_testalerts", "TA"},
    {0x100, "ravok_executediagnosticcommands", "DC"},
}};

/** The mask of a payload whose `scope` holds these names. */
unsigned int ofScope(TextList names)
{
    JWTPayload payload{};
    payload.scope = names;
    return get_scope_privileges(&payload);
}

unsigned int ofRoles(TextList names, userRole_s* roles)
{
    JWTPayload payload{};
    payload.ravok_roles = names;
    return get_roles_privileges(&payload, roles);
}

unsigned int ofXidp(std::string claim, const char** providers = nullptr)
{
    JWTPayload payload{};
    payload.xidp = claim.data();
    return get_xidp_privileges(&payload, providers);
}

/** A claim that is judged leaves the last refusal alone, also where it grants nothing. */
unsigned int ofSoundXidp(std::string claim, const char** providers = nullptr)
{
    plantRefusal();
    const unsigned int mask = ofXidp(std::move(claim), providers);
    EXPECT_TRUE(isPlantedRefusal());
    return mask;
}

std::array<const char*, 3> corpAndLab()
{
    return {"corp", "lab", nullptr};
}

} // namespace

TEST(PrivilegeTables, HoldNineNamesAndANull)
{
    static_assert(std::is_same_v<decltype(ravok_scope_privileges), const char* [10]>);
    static_assert(std::is_same_v<decltype(xidp_claim_privileges), const char* [10]>);
    for (std::size_t bit = 0; bit < privileges.size(); ++bit)
    {
        EXPECT_STREQ(ravok_scope_privileges[bit], privileges.at(bit).scope);
        EXPECT_STREQ(xidp_claim_privileges[bit], privileges.at(bit).code);
    }
    EXPECT_EQ(ravok_scope_privileges[9], nullptr);
    EXPECT_EQ(xidp_claim_privileges[9], nullptr);
}

TEST(PrivilegeTables, CanBeWritten)
{
    ravok_scope_privileges[1] = "renamed";
    xidp_claim_privileges[1] = "RN";
    const unsigned int scope = ofScope({"renamed", "ravok_configure"});
    const unsigned int claim = ofXidp(R"({"*":["RN"]})");
    const unsigned int old = ofXidp(R"({"*":["CD"]})");
    ravok_scope_privileges[1] = "ravok_configure";
    xidp_claim_privileges[1] = "CD";
    EXPECT_EQ(scope, 0x002U);
    EXPECT_EQ(claim, 0x002U);
    EXPECT_EQ(old, 0U);
}

TEST(PrivilegeTables, AreWalkedToTheirEndAtMost)
{
    ravok_scope_privileges[9] = "tenth";
    const unsigned int scope = ofScope({"tenth", "eleventh"});
    ravok_scope_privileges[9] = nullptr;
    EXPECT_EQ(scope, 0x200U);
}

TEST(GetScopePrivileges, GivesTheBitOfEachName)
{
    for (const Privilege& privilege : privileges)
    {
        EXPECT_EQ(ofScope({privilege.scope}), privilege.mask) << privilege.scope;
    }
}

TEST(GetScopePrivileges, JoinsTheBits)
{
    EXPECT_EQ(ofScope({"ravok_login", "ravok_testalerts"}), 0x081U);
    EXPECT_EQ(ofScope({"ravok_testalerts", "unknown", "ravok_login", "ravok_login"}), 0x081U);
}

TEST(GetScopePrivileges, GivesNothingForOtherNames)
{
    EXPECT_EQ(ofScope({"ravok_login"}), 0x001U);
    for (const char* name : {"unknown", "", "ravok_logi", "ravok_login ", "RAVOK_LOGIN", "L"})
    {
        EXPECT_EQ(ofScope({name}), 0U) << name;
    }
    EXPECT_EQ(ofScope({}), 0U);
}

TEST(GetScopePrivileges, GivesNothingWithoutNames)
{
    EXPECT_REFUSED("argument.null", get_scope_privileges(nullptr));
    JWTPayload payload{};
    EXPECT_REFUSED("nothing noted", get_scope_privileges(&payload));
}

TEST(GetScopePrivileges, DoesNotLookAtScopeEntries)
{
    JWTPayload payload{};
    std::string name = "ravok_login";
    char* value = name.data();
    JWTscopes entry{name.data(), &value, 1};
    payload.scopes = &entry;
    payload.scopes_count = 1;
    EXPECT_EQ(get_scope_privileges(&payload), 0U);
}

TEST(GetRolesPrivileges, GivesTheMaskOfTheRole)
{
    std::array<userRole_s, 3> roles{{{"admin", 0x1FF}, {"guest", 0x80000001}, {nullptr, 0}}};
    EXPECT_EQ(ofRoles({"admin"}, roles.data()), 0x1FFU);
    EXPECT_EQ(ofRoles({"guest"}, roles.data()), 0x80000001U);
    EXPECT_EQ(ofRoles({"admin", "guest"}, roles.data()), 0x800001FFU);
}

TEST(GetRolesPrivileges, JoinsEveryEntryOfTheRole)
{
    std::array<userRole_s, 4> roles{
        {{"ops", 0x001}, {"admin", 0x1F0}, {"ops", 0x080}, {nullptr, 0}}};
    EXPECT_EQ(ofRoles({"ops"}, roles.data()), 0x081U);
}

TEST(GetRolesPrivileges, ComparesTheWholeNameAndItsCase)
{
    std::array<userRole_s, 2> roles{{{"admin", 0x1FF}, {nullptr, 0}}};
    EXPECT_EQ(ofRoles({"admin"}, roles.data()), 0x1FFU);
    for (const char* name : {"Admin", "admi", "admin ", ""})
    {
        EXPECT_EQ(ofRoles({name}, roles.data()), 0U) << name;
    }
}

TEST(GetRolesPrivileges, EndsAtTheFirstNamelessRole)
{
    std::array<userRole_s, 3> roles{{{"guest", 0x001}, {nullptr, 0x1FF}, {"admin", 0x1FF}}};
    EXPECT_EQ(ofRoles({"admin", "guest"}, roles.data()), 0x001U);
}

TEST(GetRolesPrivileges, GivesNothingWithoutRolesOrTable)
{
    std::array<userRole_s, 2> roles{{{"admin", 0x1FF}, {nullptr, 0}}};
    EXPECT_REFUSED("argument.null", ofRoles({"admin"}, nullptr));
    EXPECT_STREQ(lastRefusal().subject, "roles");
    EXPECT_REFUSED("nothing noted", ofRoles({}, roles.data()));
    EXPECT_REFUSED("argument.null", get_roles_privileges(nullptr, roles.data()));
    EXPECT_STREQ(lastRefusal().subject, "payload");
    JWTPayload payload{};
    EXPECT_REFUSED("nothing noted", get_roles_privileges(&payload, roles.data()));
    EXPECT_REFUSED("argument.null", get_roles_privileges(&payload, nullptr));
}

TEST(GetXidpPrivileges, GivesTheBitOfEachCode)
{
    for (const Privilege& privilege : privileges)
    {
        EXPECT_EQ(ofSoundXidp(std::string{R"({"*":[")"} + privilege.code + R"("]})"),
                  privilege.mask)
            << privilege.code;
    }
}

TEST(GetXidpPrivileges, TakesTheAsteriskWhateverIsAccepted)
{
    std::array<const char*, 3> accepted = corpAndLab();
    EXPECT_EQ(ofSoundXidp(R"({"*": ["L", "VM"]})"), 0x041U);
    EXPECT_EQ(ofSoundXidp(R"({"*": ["L", "VM"]})", accepted.data()), 0x041U);
}

TEST(GetXidpPrivileges, TakesOtherProvidersOnlyWhenAccepted)
{
    std::array<const char*, 3> accepted = corpAndLab();
    std::array<const char*, 2> others{"lab", nullptr};
    std::array<const char*, 1> none{nullptr};
    EXPECT_EQ(ofSoundXidp(R"({"corp":["CU"]})", accepted.data()), 0x004U);
    EXPECT_EQ(ofSoundXidp(R"({"corp":["CU"]})", others.data()), 0U);
    EXPECT_EQ(ofSoundXidp(R"({"corp":["CU"]})", none.data()), 0U);
    EXPECT_EQ(ofSoundXidp(R"({"corp":["CU"]})"), 0U);
}

TEST(GetXidpPrivileges, JoinsTheBitsOfAllProvidersTaken)
{
    std::array<const char*, 3> accepted = corpAndLab();
    EXPECT_EQ(ofSoundXidp(R"({"*":["L"],"corp":["CU","unknown"],"evil":["DC"],"lab":["TA","TA"]})",
                          accepted.data()),
              0x085U);
}

TEST(GetXidpPrivileges, ComparesTheWholeNameOfTheProvider)
{
    std::array<const char*, 3> accepted = corpAndLab();
    EXPECT_EQ(ofSoundXidp(R"({"corp":["DC"]})", accepted.data()), 0x100U);
    for (const char* name :
         {"Corp", "cor", "corp ", "", "**", "corp\\u0000evil", "*\\u0000", "\\u0000"})
    {
        EXPECT_EQ(ofSoundXidp(std::string{"{\""} + name + R"(":["DC"]})", accepted.data()), 0U)
            << name;
    }
}

TEST(GetXidpPrivileges, TakesAnEmptyNameOnlyWhenAccepted)
{
    std::array<const char*, 2> accepted{"", nullptr};
    EXPECT_EQ(ofSoundXidp(R"({"":["DC"]})", accepted.data()), 0x100U);
    EXPECT_EQ(ofSoundXidp(R"({"":["DC"]})"), 0U);
}

TEST(GetXidpPrivileges, ComparesTheWholeCodeAndItsCase)
{
    EXPECT_EQ(ofSoundXidp(R"({"*":["CD"]})"), 0x002U);
    for (const char* code : {"cd", "C", "CD ", "", "CD\\u0000", "CD\\u0000evil", "ravok_login"})
    {
        EXPECT_EQ(ofSoundXidp(std::string{R"({"*":[")"} + code + R"("]})"), 0U) << code;
    }
}

TEST(GetXidpPrivileges, TakesOnlyStringsInArrays)
{
    for (const std::string& value : jsonValuesOfEveryType())
    {
        EXPECT_EQ(ofSoundXidp(R"({"*":)" + value + "}"), 0U) << value;
        EXPECT_EQ(ofSoundXidp(R"({"*":[)" + value + R"(,"L"]})"), 0x001U) << value;
    }
    EXPECT_EQ(ofSoundXidp(R"({"*":"L"})"), 0U);
    EXPECT_EQ(ofSoundXidp(R"({"*":{"L":"L"}})"), 0U);
    EXPECT_EQ(ofSoundXidp(R"({"*":[["L"],{"L":"L"}]})"), 0U);
}

TEST(GetXidpPrivileges, RefusesWhatIsNoObject)
{
    EXPECT_REFUSED("argument.null", get_xidp_privileges(nullptr, nullptr));
    JWTPayload payload{};
    EXPECT_REFUSED("nothing noted", get_xidp_privileges(&payload, nullptr));
    EXPECT_REFUSED("nothing noted", ofXidp("{}"));
    for (const char* claim : {"", R"(["L"])", R"({"*":["L"])"})
    {
        EXPECT_REFUSED("privileges.claim", ofXidp(claim)) << claim;
        EXPECT_STREQ(lastRefusal().subject, "xidp");
    }
    for (const HostileText& hostile : hostileTexts())
    {
        EXPECT_REFUSED("privileges.claim", ofXidp(hostile.text)) << hostile.name;
    }
    for (const HostileText& odd : oddObjects())
    {
        EXPECT_REFUSED("nothing noted", ofXidp(odd.text)) << odd.name;
    }
}

TEST(GetXidpPrivileges, GivesNothingWhenMemoryRunsOut)
{
    std::string claim = R"({"*":["L"],"an identity provider with a long name":["DC"]})";
    JWTPayload payload{};
    payload.xidp = claim.data();
    std::array<const char*, 2> accepted{"an identity provider with a long name", nullptr};
    EXPECT_EQ(get_xidp_privileges(&payload, accepted.data()), 0x101U);
    plantRefusal();
    withEachAllocationFailing([&](FailAllocation& failure) {
        const unsigned int mask = get_xidp_privileges(&payload, accepted.data());
        const bool failed = failure.reached();
        failure.stop();
        EXPECT_EQ(mask, failed ? 0U : 0x101U);
        EXPECT_EQ(lastRule(), failed ? "memory.exhausted" : "nothing noted");
        plantRefusal();
    });
}
