// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace bmcoauth::internal
{

/** Sends @p message to the system journal as one entry of priority 3 (error), with the fields
 *  MESSAGE, PRIORITY and TRANSACTION_ID and the code location that readers of the journal filter
 *  by. Does nothing if there is no journal, or no library that reaches it. */
void logError(const char* message) noexcept;

} // namespace bmcoauth::internal
