// SPDX-License-Identifier: Apache-2.0
#include "crypto/openssl.hpp"

#include <cerrno>

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
    // The failed allocation is the first error, or the last where a caller had errors before. Some
    // are not queued, just as an empty PEM body is not; the system tells the two apart.
    const unsigned long last = ERR_peek_last_error();
    const bool memory =
        isMemory(last) || isMemory(ERR_peek_error()) || (last == 0 && errno == ENOMEM);
    return refuse(memory ? BMCOAUTH_RULE_MEMORY_EXHAUSTED : rule);
}

} // namespace bmcoauth::crypto
