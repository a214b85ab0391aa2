// SPDX-License-Identifier: Apache-2.0
#include "common/device.hpp"

#include "common/files.hpp"
#include "common/guard.hpp"

#include <bmcoauth/support.h>

bool bmcoauth::isMarkedDevice() noexcept
{
    return exists("/etc/vorn_fw");
}

extern "C" int isDeviceVorn(void)
{
    const bmcoauth::ErrnoKeeper keeper;
    return bmcoauth::isMarkedDevice() ? 1 : 0;
}
