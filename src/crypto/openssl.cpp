// SPDX-License-Identifier: Apache-2.0
#include "crypto/openssl.hpp"

namespace bmcoauth::crypto
{

Carried runCrypto(Step step, const void* body)
{
    const ErrnoKeeper keeper;
    const ErrorMark mark;
    return runGuarded(step, body);
}

} // namespace bmcoauth::crypto
