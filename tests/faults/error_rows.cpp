// SPDX-License-Identifier: Apache-2.0
#include "show.hpp"

namespace faults
{

namespace
{

const Table rows{
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
