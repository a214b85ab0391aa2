// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <json/value.h>

#include <optional>
#include <string>

namespace bmcoauth::tool
{

/** The compact token in @p path: its whole text, or the "access_token" of a response document. */
[[nodiscard]] std::string readToken(const std::string& path);

/** The three parts of a compact token. */
struct TokenParts
{
    std::string header;
    std::string payload;
    std::string signature;

    /** The signed text: the first two parts, unchanged. */
    [[nodiscard]] std::string signingInput() const
    {
        return header + "." + payload;
    }
};

/** The parts of @p token: further dots belong to the signature. Nothing without two dots. */
[[nodiscard]] std::optional<TokenParts> partsOf(const std::string& token);

/** The JSON object in one part of a token, which is called @p name if it is not one. */
[[nodiscard]] Json::Value decodePart(const std::string& part, const std::string& name);

/** The claims of @p token, which has two dots. */
[[nodiscard]] Json::Value claimsOf(const std::string& token);

} // namespace bmcoauth::tool
