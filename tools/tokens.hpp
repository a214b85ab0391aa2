// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <json/value.h>

#include <string>

namespace bmcoauth::tool
{

/** The library's verdicts on a token. */
enum Verdict : int
{
    invalid = 0,
    valid = 1,
    expired = 2,
    failed = 3,
};

/** The compact token in @p path: its whole text, or the "access_token" of a response document. */
[[nodiscard]] std::string readToken(const std::string& path);

/** The JSON object in one part of a token, which is called @p name if it is not one. */
[[nodiscard]] Json::Value decodePart(const std::string& part, const std::string& name);

/** The claims of @p token, which has two dots, as they stand in it. */
[[nodiscard]] Json::Value claimsOf(const std::string& token);

} // namespace bmcoauth::tool
