// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace bmcoauth::internal
{

/** Sends @p message to the system journal as one entry of priority 3 (error), with the fields
 *  MESSAGE, PRIORITY and TRANSACTION_ID and the code location that readers of the journal filter
 *  by. A journal that is not there is no failure. */
void logError(const char* message) noexcept;

} // namespace bmcoauth::internal
