// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>

#include <cerrno>

using namespace support;

TEST(IsDeviceVorn, TellsWhetherTheMarkerExists)
{
    EXPECT_EQ(isDeviceVorn(), 0);
    const MarkerFile marker;
    EXPECT_EQ(isDeviceVorn(), 1);
}

TEST(IsDeviceVorn, LooksAfreshEachTime)
{
    {
        const MarkerFile marker;
        EXPECT_EQ(isDeviceVorn(), 1);
    }
    EXPECT_EQ(isDeviceVorn(), 0);
}

TEST(IsDeviceVorn, LooksAtNoOtherFile)
{
    FakeFiles files;
    files.put("/etc/vorn_fw2", "");
    EXPECT_EQ(isDeviceVorn(), 0);
    files.put("/etc/vorn_fw", "");
    EXPECT_EQ(isDeviceVorn(), 1);
}

TEST(IsDeviceVorn, DoesNotOpenTheMarker)
{
    const MarkerFile marker;
    const FakeFiles files;
    EXPECT_EQ(isDeviceVorn(), 1);
    EXPECT_TRUE(files.openings().empty());
}

TEST(IsDeviceVorn, TakesAMarkerThatCannotBeReachedAsAbsent)
{
    FakeFiles files;
    files.fail("/etc/vorn_fw", EACCES);
    EXPECT_EQ(isDeviceVorn(), 0);
}

TEST(IsDeviceVorn, LeavesErrnoAlone)
{
    errno = 77;
    EXPECT_EQ(isDeviceVorn(), 0);
    EXPECT_EQ(errno, 77);
}
