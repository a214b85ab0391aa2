// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "documents.hpp"

#include <string>
#include <vector>

namespace bmcoauth::tool
{

/** A key by which a token of another issuer may be verified. */
struct TrustedKey
{
    std::string name; /**< where it stands */
    std::string text; /**< a JSON Web Key or a PEM text, as the library takes it */
    /** Whether it can be used: PEM, or a JSON Web Key that was imported. */
    bool usable = true;
};

/** Every key in the file @p path: JSON Web Keys imported where that is possible and @p import is
 *  asked for. Stops the command where there is nothing that might be a key. */
[[nodiscard]] std::vector<TrustedKey> keysIn(const std::string& path, bool import);

/** The keys in the files @p paths that can be used; what cannot be imported is left out of a set,
 *  where other keys are usual, and refused where it stands alone. */
[[nodiscard]] std::vector<TrustedKey> usableKeys(const std::vector<std::string>& paths);

/** Has the library judge @p token by the key @p key alone. */
[[nodiscard]] Verdict judge(const std::string& token, std::string_view key,
                            const DelegationRules& rules = {});

/** Judges by one key after the other, of which there is one at least. In one list the outcome would
 *  depend on their order: a key in PEM form that verifies is forgotten when the next one fails. */
[[nodiscard]] Verdict judgeByAll(const std::string& token, const std::vector<TrustedKey>& keys,
                                 const DelegationRules& rules);

} // namespace bmcoauth::tool
