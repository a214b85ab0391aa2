/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_H
#define BMCOAUTH_H

/* The whole interface. What holds everywhere, unless a function's comment says otherwise:
 *
 * - A text is NUL-terminated; a text that a function returns or stores is released with `free`.
 * - A string array is a heap array of texts that ends with a null pointer; an empty one is a null
 *   pointer. It is released with `free_char_array`.
 * - A record is made by a `create_*`, `set_*` or `parse_*` function, which copies its arguments,
 *   and released by the matching `free_*` function.
 * - A result of type `int` is 1 for success and 0 for failure; a null pointer is failure.
 * - On failure out parameters stay as they were, and nothing is left allocated.
 * - No exception leaves a function but the errors that its comment names.
 * - A call that fails says why: `bmcoauth_last_refusal`.
 * - No other state is kept between calls, and no argument. Any thread may call any function at any time,
 *   as long as no other one changes the same argument. A process that forks while other threads
 *   work must call nothing here in the child before it calls exec: locks of OpenSSL may be held.
 * - errno and OpenSSL's error queue are left as they were found.
 * - A call needs at most 192 KiB of stack, whatever text it is given. A Json::Value that a caller
 *   passes counts as a text if it nests at most 256 levels; a deeper one needs more.
 * - Where a JSON object becomes a record or a list of names, members whose name holds a zero byte
 *   are left out: cut there, such a name would pass for another one.
 *
 * Functions inside BMCOAUTH_PLAIN_BEGIN and BMCOAUTH_PLAIN_END have C linkage; those outside have
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
