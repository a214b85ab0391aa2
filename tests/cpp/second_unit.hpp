// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

/** What bmcoauth::randomToken gives in another source. */
[[nodiscard]] std::size_t lengthOfToken(unsigned int count);
