// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

/** The main function of every test program. The device's local zone is UTC, so the tests' is. */
int main(int argc, char** argv)
{
    setenv("TZ", "UTC", 1);
    tzset();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
