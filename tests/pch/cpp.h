/* SPDX-License-Identifier: Apache-2.0 */

/* What most sources of tests/cpp include, for the compiler to read once. Every source still
 * includes what it uses: a build with -Db_pch=false does without this file. */

#include "support/certificates.hpp"
#include "support/fake_device.hpp"
#include "support/refusals.hpp"

#include <bmcoauth.hpp>

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>
