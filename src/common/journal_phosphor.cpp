// SPDX-License-Identifier: Apache-2.0
#include "common/guard.hpp"
#include "common/journal.hpp"

#include <phosphor-logging/log.hpp>

namespace bmcoauth::internal
{

void logError(const char* message) noexcept
{
    const ErrnoKeeper keeper;
    phosphor::logging::log<phosphor::logging::level::ERR>(message);
}

} // namespace bmcoauth::internal
