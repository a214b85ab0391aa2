/* SPDX-License-Identifier: Apache-2.0 */

/* What most sources of the tool include, for the compiler to read once. Every source still includes
 * what it uses: a build with -Db_pch=false does without this file. */

#include <bmcoauth.hpp>

#include <json/value.h>
#include <json/writer.h>

#include <algorithm>
#include <array>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>
