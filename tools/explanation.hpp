// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "command.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace bmcoauth::tool
{

/** Why the library takes something, or does not: the outcome of walking its rules one by one. */
struct Explanation
{
    /** Exit::success, or the status that the refusal has at the command line. */
    Exit verdict = Exit::success;
    /** The first rule that refuses, in a word or two; nothing else is set where none does. */
    std::string rule;
    std::string saw;
    std::string wanted;
    /** What might be done about it; often nothing. */
    std::string hint;
};

/** What one rule has to say: nothing when it is kept. */
using Refusal = std::optional<Explanation>;

[[nodiscard]] Explanation refused(std::string rule, std::string saw, std::string wanted,
                                  std::string hint = "");

[[nodiscard]] Explanation outOfTime(std::string saw, std::string wanted, std::string hint = "");

/** The begin of @p text, harmless for a terminal: documents of strangers may be long. */
[[nodiscard]] std::string brief(std::string_view text);

/** What the walk and the library have to agree on, in a word. */
[[nodiscard]] std::string verdictName(Exit verdict);

/** Prints @p explanation, as JSON if @p json, and ends the command with its verdict. The walk is a
 *  second telling of the library's rules: where @p library, the library's own verdict on the same,
 *  is another one, that is said instead, with a status of its own. */
void answer(const Explanation& explanation, Exit library, bool json);

} // namespace bmcoauth::tool
