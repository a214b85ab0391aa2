// SPDX-License-Identifier: Apache-2.0
#include "show.hpp"

namespace faults
{

namespace
{

const Table rows{
    {"bmcoauth_rule_name", "a rule", failsOnly,
     [](Attempt& attempt) {
         return got(attempt.call([] { return bmcoauth_rule_name(BMCOAUTH_RULE_TOKEN_EXPIRED); }));
     }},
    {"bmcoauth_last_refusal", "after a refusal", failsOnly,
     [](Attempt& attempt) {
         bool value = false;
         static_cast<void>(get_value_bool("{}", "absent", &value));
         bmcoauth_refusal refusal{};
         const int told =
             attempt.call([&] { return bmcoauth_last_refusal(&refusal, sizeof refusal); });
         return told == 1 ? got(static_cast<const char*>(refusal.subject)) : failed();
     }},
    {"oauthErro_toStr", "a code", failsOnly,
     [](Attempt& attempt) {
         return got(attempt.call([] { return oauthErro_toStr(OAUTH_INVALID_SCOPE); }));
     }},
    {"write_oauth_error", "the code alone", failsOnly,
     [](Attempt& attempt) {
         return made<HeapText>(attempt.call(
             [] { return write_oauth_error(OAUTH_INVALID_GRANT, nullptr, nullptr, nullptr); }));
     }},
    {"write_oauth_error", "all texts", failsOnly,
     [](Attempt& attempt) {
         return made<HeapText>(attempt.call([] {
             return write_oauth_error(OAUTH_INVALID_TOKEN, "a description that is longer",
                                      "a resolution", "https://controller/errors");
         }));
     }},
};

} // namespace

} // namespace faults
