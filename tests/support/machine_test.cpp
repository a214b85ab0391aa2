// SPDX-License-Identifier: Apache-2.0
#include "support/machine.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

using namespace support;

TEST(TemporaryDirectory, IsNewAndGoneAfterwards)
{
    std::string path;
    {
        const TemporaryDirectory directory;
        const TemporaryDirectory other;
        path = directory / "file";
        EXPECT_NE(path, other / "file");
        writeFile(path, "contents\n");
        EXPECT_EQ(contentsOf(path), "contents\n");
    }
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::path{path}.parent_path()));
    EXPECT_THROW(static_cast<void>(contentsOf(path)), std::system_error);
    EXPECT_THROW(writeFile(path, ""), std::system_error);
}

TEST(ExitStatusOf, TellsHowTheChildEnded)
{
    EXPECT_EQ(exitStatusOf([] {}), 0);
    EXPECT_EQ(exitStatusOf([] { _exit(-1); }), 255);
    EXPECT_EQ(exitStatusOf([] { std::abort(); }), -SIGABRT);
}

TEST(OpenDescriptors, CountsThem)
{
    const std::size_t before = openDescriptors();
    const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(openDescriptors(), before + 1);
    close(descriptor);
    EXPECT_EQ(openDescriptors(), before);
}
