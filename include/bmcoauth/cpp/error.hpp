// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The errors that are reported to a client, over <bmcoauth/error.h>. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/owners.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/error.h>

#include <optional>
#include <string_view>

namespace bmcoauth
{
inline namespace v1
{

/** The document that tells a client of an error: write_oauth_error. */
[[nodiscard]] inline Expected<Text> errorDocument(oauthError code,
                                                  std::optional<std::string_view> description = {},
                                                  std::optional<std::string_view> resolution = {},
                                                  std::optional<std::string_view> uri = {})
{
    detail::Arguments in;
    const char* const descriptionText = in.maybe("description", description);
    const char* const resolutionText = in.maybe("resolution", resolution);
    const char* const uriText = in.maybe("uri", uri);
    if (in.failed())
    {
        return in.failure();
    }
    return detail::ownedOrRefused<Text>(
        ::write_oauth_error(code, descriptionText, resolutionText, uriText));
}

/** The OAuth error text of `code`, "" outside the enumeration: oauthErro_toStr. */
[[nodiscard]] inline std::string_view errorText(oauthError code)
{
    return ::oauthErro_toStr(code);
}

} // namespace v1
} // namespace bmcoauth
