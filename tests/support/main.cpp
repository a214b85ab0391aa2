// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

// Sanitizers ask for their options by these names. By default their allocators end the program if
// there is not enough memory; tests check what the library promises in that case.
extern "C"
{

    const char* __asan_default_options()
    {
        return "allocator_may_return_null=1";
    }

    const char* __tsan_default_options()
    {
        return "allocator_may_return_null=1";
    }

} // extern "C"

/** The main function of every test program. The device's local zone is UTC, so the tests' is. */
int main(int argc, char** argv)
{
    setenv("TZ", "UTC", 1);
    tzset();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
