// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <json/value.h>

#include <string>
#include <string_view>

namespace support
{

/** The JSON document `name` of tests/vectors; throws when it cannot be read. */
[[nodiscard]] Json::Value vectors(const std::string& name);

/** The JSON document `name` of docs/vectors; throws when it cannot be read. */
[[nodiscard]] Json::Value vectorsOfManual(const std::string& name);

/** The bytes that `hex`, two digits for each, stands for. */
[[nodiscard]] std::string fromHex(std::string_view hex);

} // namespace support
