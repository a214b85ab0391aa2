// SPDX-License-Identifier: Apache-2.0
#include <bmcoauth/testing.h>

#include <cstdlib>

namespace
{

/** Before `main`: the factory roots are those in the folder that the environment names. */
// NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread yet.
[[maybe_unused]] const int set = bmcoauth_testing_set_roots(std::getenv("FACTORY_ROOTS"));

} // namespace
