// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/parameter_list.hpp"

#include <cstdint>
#include <optional>

namespace bmcoauth::internal::registration
{

/** The numbers behind "M" and "C": which secret is used, and for which one-time password. */
struct Counters
{
    std::uint64_t selector = 0;
    std::uint64_t movingFactor = 0;
};

/** Draws both numbers; nothing when one is 0, which is also what a failing device gives. */
[[nodiscard]] std::optional<Counters> drawCounters();

/** Adds "M" and "C". */
void putCounters(ParameterListWriter& writer, const Counters& counters);

} // namespace bmcoauth::internal::registration
