// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <json/value.h>

#include <string>
#include <string_view>

namespace support
{

/** The path of `name`, a file or folder of the project that the tests read: in the source tree, where
 *  installed tests have it, or in the folder that the variable BMCOAUTH_TEST_DATA names. */
[[nodiscard]] std::string testData(const std::string& name);

/** The JSON document `name` of tests/vectors; throws when it cannot be read. */
[[nodiscard]] Json::Value vectors(const std::string& name);

/** The JSON document `name` of docs/vectors; throws when it cannot be read. */
[[nodiscard]] Json::Value vectorsOfManual(const std::string& name);

/** The bytes that `hex`, two digits for each, stands for. */
[[nodiscard]] std::string fromHex(std::string_view hex);

} // namespace support
