// SPDX-License-Identifier: Apache-2.0
#include <openssl/err.h>

namespace
{

/** Has OpenSSL initialize itself when this library is loaded. If memory runs out while version 3.5
 *  does so, it waits for itself forever, which no call of ours may do. */
[[gnu::constructor]] void initializeOpenSsl() noexcept
{
    ERR_set_mark();
    ERR_pop_to_mark();
}

} // namespace
