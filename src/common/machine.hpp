// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The requests to the machine that a test can redirect. libbmcoauth-testing is compiled with
 * testing/common/machine.hpp instead of this file. The include path decides, so nothing here
 * can be changed while a program runs. */

#include <unistd.h>

#include <cstddef>
#include <ctime>

namespace bmcoauth::internal::machine
{

/** The clock, in seconds since the epoch. */
[[nodiscard]] inline std::time_t now() noexcept
{
    return std::time(nullptr);
}

/** Reads from the random device, which is open as @p device. */
[[nodiscard]] inline ssize_t readRandom(int device, void* bytes, std::size_t size) noexcept
{
    return read(device, bytes, size);
}

/** The file whose existence marks a development device. */
[[nodiscard]] constexpr const char* marker() noexcept
{
    return "/etc/vorn_fw";
}

/** The factory root that every device trusts. */
[[nodiscard]] constexpr const char* productionRoot() noexcept
{
    return "/etc/default/certs/FactorycertProdRoot.pem";
}

/** The factory root that marked devices trust, too. */
[[nodiscard]] constexpr const char* developmentRoot() noexcept
{
    return "/etc/default/certs/FactorycertDevRoot.pem";
}

} // namespace bmcoauth::internal::machine
