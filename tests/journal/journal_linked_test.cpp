// SPDX-License-Identifier: Apache-2.0
//
// A process that holds libsystemd anyway: here this program takes its place.
#include "common/journal.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdarg>
#include <string>
#include <vector>

namespace
{

// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables): C functions keep them
std::vector<std::string> sent;
int librariesAskedFor = 0;
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)

} // namespace

extern "C" int sd_journal_send_with_location(const char* file, const char* line,
                                             const char* function, const char* format, ...)
{
    std::va_list values;
    va_start(values, format);
    sent = {file, line, function, format, va_arg(values, const char*)};
    va_end(values);
    errno = EIO;
    return -EIO;
}

extern "C" void* dlopen(const char* /*file*/, int /*mode*/)
{
    ++librariesAskedFor;
    return nullptr;
}

TEST(LogErrorWithTheLibraryLoaded, LoadsNothing)
{
    errno = EXDEV;
    bmcoauth::internal::logError("first %s");
    EXPECT_EQ(errno, EXDEV);
    EXPECT_EQ(librariesAskedFor, 0);
    EXPECT_EQ(sent, (std::vector<std::string>{"CODE_FILE=phosphor-logging/log.hpp", "CODE_LINE=77",
                                              "helper_log", "MESSAGE=%s", "first %s"}));
}
