// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/secret.hpp"

#include <span>

namespace bmcoauth::internal::crypto
{

/** Fills @p bytes from the kernel's random device with one read, and does not try again: false on
 *  a short read or an error. The one place where the device is read. */
[[nodiscard]] bool fillRandom(std::span<unsigned char> bytes) noexcept;

/** Standard Base64 of @p count random bytes; null on failure. */
[[nodiscard]] SecretText randomToken(unsigned int count) noexcept;

} // namespace bmcoauth::internal::crypto
