// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "cli/documents.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace bmcoauth::tool
{

/** Reads a parameter list: the document @p path, or the object @p member of a document that holds
 *  one, such as a register response with its "handshake_challenge". */
[[nodiscard]] ParameterList readParameters(const std::string& path, const std::string& member);

/** Prints the document of @p list. */
void printParameters(const ParameterList& list);

/** Copies of the texts of @p range. */
[[nodiscard]] std::vector<std::string> copiesOf(TextRange range);

/** The values of the parameter @p name of @p list; none if it is not there. */
[[nodiscard]] std::vector<std::string> valuesOf(const ParameterList& list, std::string_view name);

} // namespace bmcoauth::tool
