/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_PRIVILEGES_H
#define BMCOAUTH_PRIVILEGES_H

/* What a token entitles to on the controller: a mask of nine bits, one for each privilege. A
 * payload is not checked here: take it from a token that has been found valid. */

#include <bmcoauth/export.h>
#include <bmcoauth/token.h>

/** userRole_s is one role of the caller's table, which ends with an entry whose name is null. */
typedef struct userRole_s
{
    const char* name;        /**< the role's name in "ravok_roles" */
    unsigned int privileges; /**< the mask that it grants */
} userRole_s;

BMCOAUTH_PLAIN_BEGIN

/* NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables): callers declare them so. */

/** ravok_scope_privileges holds the names of the privileges in a "scope" claim, and a null pointer
 *  behind them. The position is the number of the privilege's bit, from ravok_login (0x001) to
 *  ravok_executediagnosticcommands (0x100). */
BMCOAUTH_API extern const char* ravok_scope_privileges[10];

/** xidp_claim_privileges holds the codes of the same privileges in an "xidp" claim, in the same
 *  order. */
BMCOAUTH_API extern const char* xidp_claim_privileges[10];

/* NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables) */

BMCOAUTH_PLAIN_END

#ifdef __cplusplus

/** get_scope_privileges gives the privileges that the names in `scope` stand for. The entries of
 *  `scopes` are not looked at.
 *
 *  Names that are not in ravok_scope_privileges, case included, count for nothing. 0 where there
 *  are none, or `payload` is null. */
BMCOAUTH_API unsigned int get_scope_privileges(JWTPayload* payload);

/** get_roles_privileges gives the privileges of the payload's `ravok_roles`: the masks of all the
 *  entries of `roles` that bear one of the names, case included.
 *
 *  0 where there are none, or an argument is null. */
BMCOAUTH_API unsigned int get_roles_privileges(JWTPayload* payload, userRole_s* roles);

/** get_xidp_privileges gives the privileges of the codes that the payload's `xidp` holds for an
 *  identity provider.
 *
 *  `xidp` is the text of a JSON object that names providers; each holds an array of codes out of
 *  xidp_claim_privileges, case included. Only the providers in the array `providers`, which ends
 *  with a null pointer and may be null, are taken, and one named "*" always. Names are compared
 *  over all their bytes.
 *
 *  0 where nothing is taken, the text is no JSON object, `payload` is null or memory runs out. */
BMCOAUTH_API unsigned int get_xidp_privileges(JWTPayload* payload, const char** providers);

#endif

#endif
