// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace support
{

/** A text that no parser may crash on. */
struct HostileText
{
    /** What is wrong with it, for SCOPED_TRACE. */
    const char* name;
    std::string text;
};

/** Texts for every function that reads JSON: nested thousands deep, of another root, cut off,
 *  garbage, huge. None has a NUL, and none is a JSON object: every reader must fail for each. */
[[nodiscard]] const std::vector<HostileText>& hostileTexts();

/** The rule by which a reader of JSON objects refuses the hostile text called @p name. */
[[nodiscard]] std::string hostileRule(std::string_view name);

/** Texts that are objects, but hardly those that a function expects: what they make of them is
 *  theirs to say, as long as they come back. */
[[nodiscard]] const std::vector<HostileText>& oddObjects();

/** An object whose one member `name` holds arrays nested `depth` deep. Parsing must succeed up to
 *  255, since the object is a level too, and fail beyond. */
[[nodiscard]] std::string nestedMember(std::string_view name, int depth);

/** The member `name` with the JSON text `value`, as it follows other members in an object's text.
 */
[[nodiscard]] std::string nextMember(std::string_view name, std::string_view value);

/** Values of every JSON type, as JSON texts, to put where another type is expected. */
[[nodiscard]] const std::vector<std::string>& jsonValuesOfEveryType();

} // namespace support
