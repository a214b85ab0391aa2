// SPDX-License-Identifier: Apache-2.0
#include "show.hpp"

#include <array>

using support::TextList;

namespace faults
{

namespace
{

const Table rows{
    {"get_scope_privileges", "two names", failsOnly,
     [](Attempt& attempt) {
         TextList names{"ravok_login", "ravok_testalerts"};
         JWTPayload payload{};
         payload.scope = names;
         return gave(attempt.call([&] { return get_scope_privileges(&payload); }));
     }},
    {"get_roles_privileges", "a role", failsOnly,
     [](Attempt& attempt) {
         TextList names{"operator"};
         JWTPayload payload{};
         payload.ravok_roles = names;
         std::array<userRole_s, 2> roles{{{"operator", 0x41}, {nullptr, 0}}};
         return gave(attempt.call([&] { return get_roles_privileges(&payload, roles.data()); }));
     }},
    {"get_xidp_privileges", "codes of two providers", failsOnly,
     [](Attempt& attempt) {
         std::string claim =
             R"({"*":["L"],"a provider with a name that is long":["CD","TA"],"other":["CU"]})";
         JWTPayload payload{};
         payload.xidp = claim.data();
         std::array<const char*, 2> providers{"a provider with a name that is long", nullptr};
         const unsigned int mask =
             attempt.call([&] { return get_xidp_privileges(&payload, providers.data()); });
         return mask == 0 ? failed() : gave(mask);
     }},
};

} // namespace

} // namespace faults
