// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "cli/documents.hpp"

#include <string>
#include <vector>

namespace bmcoauth::tool
{

/** The keys in the files @p paths, JSON Web Keys or PEM texts, as the library takes them. A key that
 *  cannot be imported is skipped in a set, where keys of other kinds are usual, and refused if it is alone. */
[[nodiscard]] std::vector<std::string> trustedKeys(const std::vector<std::string>& paths);

/** Judges by one key after the other, of which there is one at least. In one list the outcome would
 *  depend on their order: a key in PEM form that verifies is forgotten when the next one fails. */
[[nodiscard]] Verdict judgeByAll(const std::string& token, const std::vector<std::string>& keys,
                                 const DelegationRules& rules);

} // namespace bmcoauth::tool
