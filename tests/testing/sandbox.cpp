// SPDX-License-Identifier: Apache-2.0
//
// Preloaded behind libbmcoauth-testing into programs that are linked with libbmcoauth. Gives them
// the roots in the directory SANDBOX_ROOTS and, if SANDBOX_MARKER is set, the marker.
#include <bmcoauth/testing.h>

#include <cstdlib>

namespace
{

[[gnu::constructor]] void setUp()
{
    // Without roots there are none, as in the sandbox.
    const char* const roots = std::getenv("SANDBOX_ROOTS");
    bmcoauth_testing_set_roots(roots != nullptr ? roots : "/nonexistent");
    bmcoauth_testing_set_marker(std::getenv("SANDBOX_MARKER") != nullptr ? 1 : 0);
}

} // namespace
