// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "cli/documents.hpp"

#include <optional>
#include <string>
#include <vector>

namespace bmcoauth::tool
{

/** The JSON Web Keys in @p document: the elements of its "keys" (a JWK Set, RFC 7517, section 5)
 *  that are objects, or the document itself. */
[[nodiscard]] std::vector<Json::Value> keysOf(const Json::Value& document);

/** The text of the JSON Web Key @p key with its public key in PEM form, without which the library
 *  verifies nothing by it; the reason if it cannot be imported. */
[[nodiscard]] Expected<std::string> importedKey(const Json::Value& key);

} // namespace bmcoauth::tool
