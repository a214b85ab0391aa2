// SPDX-License-Identifier: Apache-2.0
#include "common/journal.hpp"

#include <gtest/gtest.h>
#include <phosphor-logging/log.hpp>

#include <cerrno>

TEST(LogErrorOnDevices, HandsTheMessageOverAsAnError)
{
    using phosphor::logging::level;
    errno = EXDEV;
    bmcoauth::internal::logError("first %s");
    bmcoauth::internal::logError("");
    EXPECT_EQ(errno, EXDEV);
    ASSERT_EQ(phosphor::logging::logged.size(), 2U);
    EXPECT_EQ(phosphor::logging::logged[0], std::pair(level::ERR, std::string{"first %s"}));
    EXPECT_EQ(phosphor::logging::logged[1], std::pair(level::ERR, std::string{}));
}
