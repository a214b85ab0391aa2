/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_H
#define BMCOAUTH_H

/* The whole interface. Unless a function's comment says otherwise:
 *
 * - A text is NUL-terminated. The caller frees a text that a function returns or stores with
 *   `free`.
 * - A string array is a heap array of texts that ends with a null pointer. An empty one is a null
 *   pointer. The caller frees it with `free_char_array`.
 * - A `create_*`, `set_*` or `parse_*` function creates a record and copies its arguments. The
 *   matching `free_*` function frees it.
 * - A result of type `int` is 1 for success and 0 for failure. A null pointer is failure.
 * - On failure, out parameters are unchanged and nothing is leaked.
 * - No exception leaves a function, except the errors that its comment names.
 * - A call that fails has a reason: `bmcoauth_last_refusal`.
 * - No other state is kept between calls. Any thread may call any function at any time, as long as
 *   no other thread changes the same argument. If a process forks while other threads work, the
 *   child must not call anything here before it calls exec: locks of OpenSSL may be held.
 * - errno and OpenSSL's error queue do not change.
 * - A call needs at most 192 KiB of stack, whatever text it is given. This includes a Json::Value
 *   that a caller passes, if it nests at most 256 levels; a deeper one needs more.
 * - If a JSON object becomes a record or a list of names, members whose name holds a zero byte are
 *   skipped: cut there, the name would look like another one.
 *
 * Functions inside BMCOAUTH_PLAIN_BEGIN and BMCOAUTH_PLAIN_END have C linkage. Those outside have
 * C++ linkage and are hidden from C. */

#include <bmcoauth/authorize.h>
#include <bmcoauth/document.h>
#include <bmcoauth/ecies.h>
#include <bmcoauth/encoding.h>
#include <bmcoauth/error.h>
#include <bmcoauth/export.h>
#include <bmcoauth/handshake.h>
#include <bmcoauth/handshake_payload.h>
#include <bmcoauth/json.h>
#include <bmcoauth/jwk.h>
#include <bmcoauth/jwt.h>
#include <bmcoauth/privileges.h>
#include <bmcoauth/refusal.h>
#include <bmcoauth/register.h>
#include <bmcoauth/signing.h>
#include <bmcoauth/support.h>
#include <bmcoauth/token.h>
#include <bmcoauth/x509.h>

#endif
