/* SPDX-License-Identifier: Apache-2.0 */
#ifndef BMCOAUTH_EXPORT_H
#define BMCOAUTH_EXPORT_H

/** BMCOAUTH_API marks what the shared library exports; everything else in it is hidden. */
#if defined(__GNUC__)
#define BMCOAUTH_API __attribute__((visibility("default")))
#else
#define BMCOAUTH_API
#endif

/** BMCOAUTH_PLAIN_BEGIN and BMCOAUTH_PLAIN_END enclose declarations with C linkage. */
#ifdef __cplusplus
#define BMCOAUTH_PLAIN_BEGIN                                                                       \
    extern "C"                                                                                     \
    {
#define BMCOAUTH_PLAIN_END }
#else
#define BMCOAUTH_PLAIN_BEGIN
#define BMCOAUTH_PLAIN_END
#endif

#endif
