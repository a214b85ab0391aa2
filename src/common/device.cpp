// SPDX-License-Identifier: Apache-2.0
#include "common/device.hpp"

#include "common/files.hpp"
#include "common/guard.hpp"
#include "common/machine.hpp"

#include <bmcoauth/support.h>

bool bmcoauth::internal::isMarkedDevice() noexcept
{
    const ErrnoKeeper keeper;
    return exists(machine::marker());
}

extern "C" int isDeviceVorn(void)
{
    return bmcoauth::internal::isMarkedDevice() ? 1 : 0;
}
