// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "explanation.hpp"
#include "trust.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace bmcoauth::tool
{

/** Walks the rules for a token of ours, in the library's order. @p now is in seconds by the
 *  library's clock, or nothing where that cannot be read; @p key is a P-256 key. */
[[nodiscard]] Explanation explainOwnToken(const std::string& token, const PrivateKey& key,
                                          std::optional<std::uint64_t> now);

/** Walks the rules for a token of another issuer, for one key after the other. */
[[nodiscard]] Explanation explainDelegatedToken(const std::string& token,
                                                const std::vector<TrustedKey>& keys,
                                                std::uint32_t skewSeconds,
                                                std::optional<std::uint64_t> now);

/** The status of one of the library's verdicts on a token. */
[[nodiscard]] Exit exitOf(Judgement judgement);

} // namespace bmcoauth::tool
