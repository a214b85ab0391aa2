// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The replacement of src/common/machine.hpp in libbmcoauth-testing: the same functions, but each
 * gives the value that a test has set. */

#include <climits>

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <ctime>

namespace bmcoauth::internal::machine
{

/** A path by value: the test may set another one while the library opens this one. */
struct Path
{
    std::array<char, PATH_MAX> text; /**< ends with a zero byte */

    operator const char*() const noexcept
    {
        return text.data();
    }
};

[[nodiscard]] std::time_t now() noexcept;
[[nodiscard]] ssize_t readRandom(int device, void* bytes, std::size_t size) noexcept;
[[nodiscard]] const char* marker() noexcept;
[[nodiscard]] Path productionRoot() noexcept;
[[nodiscard]] Path developmentRoot() noexcept;

} // namespace bmcoauth::internal::machine
