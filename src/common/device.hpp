// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace bmcoauth::internal
{

/** Whether the device carries the marker file: see isDeviceVorn. */
[[nodiscard]] bool isMarkedDevice() noexcept;

} // namespace bmcoauth::internal
