// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/owners.hpp"

#include <cstdio>

namespace bmcoauth::internal
{

void closeFile(std::FILE* file) noexcept;

using FilePtr = std::unique_ptr<std::FILE, Releaser<closeFile>>;

/** Opens @p path for reading; close-on-exec. Null when it cannot be opened. */
[[nodiscard]] FilePtr openForReading(const char* path) noexcept;

/** Opens @p path for writing a private key: emptied or created, with mode 0600 in both cases,
 *  and close-on-exec. Null when it cannot be opened or its mode cannot be set. */
[[nodiscard]] FilePtr openPrivateForWriting(const char* path) noexcept;

/** Whether something exists at @p path. */
[[nodiscard]] bool exists(const char* path) noexcept;

} // namespace bmcoauth::internal
