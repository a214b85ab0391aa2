// SPDX-License-Identifier: Apache-2.0
#include "crypto/openssl.hpp"

namespace bmcoauth::internal::crypto
{

Carried runCrypto(Step step, const void* captured)
{
    const ErrnoKeeper keeper;
    const ErrorMark mark;
    return runGuarded(step, captured);
}

} // namespace bmcoauth::internal::crypto
