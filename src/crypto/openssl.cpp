// SPDX-License-Identifier: Apache-2.0
#include "crypto/openssl.hpp"

namespace bmcoauth::crypto
{

namespace
{

bool isMemory(unsigned long error) noexcept
{
    return ERR_GET_REASON(error) == ERR_R_MALLOC_FAILURE;
}

} // namespace

Refused refuseCrypto(bmcoauth_rule rule) noexcept
{
    // The failed allocation is the first error, or the last where a caller had errors before. A
    // refusal of the data is always queued: where nothing is, there was no memory for the queue.
    const unsigned long last = ERR_peek_last_error();
    const bool memory = last == 0 || isMemory(last) || isMemory(ERR_peek_error());
    return refuse(memory ? BMCOAUTH_RULE_MEMORY_EXHAUSTED : rule);
}

} // namespace bmcoauth::crypto
