// SPDX-License-Identifier: Apache-2.0
#include "common/guard.hpp"
#include "common/json.hpp"

#include <bmcoauth/error.h>

#include <array>

using namespace bmcoauth::internal;

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
    return guarded([=]() -> char* {
        Json::Value document{Json::objectValue};
        setText(document, "error", textOf(code));
        setText(document, "error_description", description);
        setText(document, "error_uri", uri);
        setText(document, "error_resolution", resolution);
        return heapJsonText(document).release();
    });
}
