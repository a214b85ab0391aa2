// SPDX-License-Identifier: Apache-2.0
#include <openssl/err.h>

namespace
{

/** Initializes OpenSSL when this library is loaded. If memory runs out meanwhile, version 3.5 waits
 *  for itself forever; no call of ours may do that. */
[[gnu::constructor]] void initializeOpenSsl() noexcept
{
    ERR_set_mark();
    ERR_pop_to_mark();
}

} // namespace
