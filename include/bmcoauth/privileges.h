/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_PRIVILEGES_H
#define BMCOAUTH_PRIVILEGES_H

/* What a token entitles to on the controller: a mask of nine bits, one for each privilege. The
 * functions do not check a payload: take it from a token that has been found valid. */

#include <bmcoauth/export.h>
#include <bmcoauth/token.h>

/** userRole_s is one role of the caller's table. The table ends with an entry whose name is null.
 */
typedef struct userRole_s
{
    const char* name;        /**< the role's name in "ravok_roles" */
    unsigned int privileges; /**< the mask that it grants */
} userRole_s;

BMCOAUTH_PLAIN_BEGIN

/* NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables): callers declare them so. */

/** ravok_scope_privileges holds the names of the privileges in a "scope" claim, with a null pointer
 *  at the end. The position is the number of the privilege's bit, from ravok_login (0x001) to
 *  ravok_executediagnosticcommands (0x100). */
BMCOAUTH_API extern const char* ravok_scope_privileges[10];

/** xidp_claim_privileges holds the codes of the same privileges in an "xidp" claim, in the same
 *  order. */
BMCOAUTH_API extern const char* xidp_claim_privileges[10];

/* NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables) */

BMCOAUTH_PLAIN_END

#ifdef __cplusplus

/** get_scope_privileges returns the privileges of the names in the payload's `scope`. The entries
 *  of `scopes` are ignored, and so are names that are not in ravok_scope_privileges. Case matters.
 *
 *  Returns 0 if there are none or `payload` is null. */
BMCOAUTH_API unsigned int get_scope_privileges(JWTPayload* payload);

/** get_roles_privileges returns the privileges of the payload's `ravok_roles`: the masks of all
 *  entries of `roles` that have one of these names, together. Case matters.
 *
 *  Returns 0 if there are none or an argument is null. */
BMCOAUTH_API unsigned int get_roles_privileges(JWTPayload* payload, userRole_s* roles);

/** get_xidp_privileges returns the privileges that the payload's `xidp` grants for identity
 *  providers.
 *
 *  `xidp` is the text of a JSON object. Its member names are providers, and its values are arrays
 *  of codes of xidp_claim_privileges. Case matters. Only the members named in `providers`, a
 *  null-terminated array that may be null, count, and always the one named "*". Names are compared
 *  over all their bytes.
 *
 *  Returns 0 if there are none, if the text is not a JSON object, if `payload` is null, or if
 *  memory runs out. */
BMCOAUTH_API unsigned int get_xidp_privileges(JWTPayload* payload, const char** providers);

#endif

#endif
