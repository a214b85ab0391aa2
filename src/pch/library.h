/* SPDX-License-Identifier: Apache-2.0 */

/* What most sources of the library include, for the compiler to read once. Every source still
 * includes what it uses: optimised builds, and those with -Db_pch=false, do without this file. */

#include <json/value.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>
