// SPDX-License-Identifier: Apache-2.0
#include "common/guard.hpp"
#include "common/json.hpp"

#include <bmcoauth/error.h>

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

const char* textOf(oauthError code)
{
    return code < errorTexts.size() ? errorTexts.at(code) : "";
}

} // namespace

const char* oauthErro_toStr(oauthError code)
{
    return textOf(code);
}

extern "C" char* write_oauth_error(oauthError code, const char* description, const char* resolution,
                                   const char* uri)
{
    return guarded(nullptr, [&]() -> char* {
        const std::initializer_list<std::pair<const char*, const char*>> members = {
            {"error", textOf(code)},
            {"error_description", description},
            {"error_uri", uri},
            {"error_resolution", resolution},
        };
        Json::Value document{Json::objectValue};
        for (const auto& [name, value] : members)
        {
            if (value != nullptr)
            {
                document[name] = borrowed(value);
            }
        }
        return heapJsonText(document).release();
    });
}
