// SPDX-License-Identifier: Apache-2.0
#include "common/guard.hpp"
#include "common/parameter_list.hpp"

#include <bmcoauth/error.h>

#include <strutil.h>

#include <array>
#include <initializer_list>
#include <utility>

using namespace bmcoauth;

namespace
{

constexpr std::array<const char*, 14> errorTexts = {
    "success",        "server_error",          "invalid_request",
    "invalid_client", "invalid_client_secret", "invalid_grant",
    "invalid_param",  "unauthorized_client",   "unsupported_grant_type",
    "invalid_scope",  "token_expired",         "invalid_token",
    "access_denied",  "network_error",
};

} // namespace

const char* oauthErro_toStr(oauthError code)
{
    return code < errorTexts.size() ? errorTexts.at(code) : "";
}

extern "C" char* write_oauth_error(oauthError code, const char* description, const char* resolution,
                                   const char* uri)
{
    return guarded(nullptr, [&]() -> char* {
        const std::initializer_list<std::pair<const char*, const char*>> members = {
            {"error", oauthErro_toStr(code)},
            {"error_description", description},
            {"error_uri", uri},
            {"error_resolution", resolution},
        };
        const ParameterList document = emptyParameterList(members.size());
        HandshakePayload* next = document.get();
        for (const auto& [name, value] : members)
        {
            if (value == nullptr)
            {
                continue;
            }
            copyReplace(&next->name, name);
            copyAppendArray(&next->values, value);
            if (next->name == nullptr || next->values == nullptr)
            {
                // Without its name the owner of the list does not see the slot.
                freeStrArray(&next->values);
                return nullptr;
            }
            ++next;
        }
        return write_handshake_payload(document.get());
    });
}
