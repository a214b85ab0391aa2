/* SPDX-License-Identifier: Apache-2.0 */

/* What most sources of tests/faults include, for the compiler to read once. Every source still
 * includes what it uses: a build with -Db_pch=false does without this file. */

#include "faults/show.hpp"
#include "support/lists.hpp"

#include <array>
#include <string>
