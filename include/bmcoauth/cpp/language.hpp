// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The compiler features that these headers need. Every other one includes this first. */

// GCC 10 calls its C++20 201709.
#if __cplusplus <= 201703L
#error "bmcoauth.hpp needs C++20: compile with -std=c++20 or later"
// Compilers go on after #error, but not without a header: nothing else is reported.
#include <bmcoauth.hpp needs C++20>
#endif

/** BMCOAUTH_LIFETIMEBOUND marks what a result looks into: compilers that know it warn if that is
 *  gone before the result is. */
#if defined(__has_cpp_attribute)
#if __has_cpp_attribute(clang::lifetimebound)
#define BMCOAUTH_LIFETIMEBOUND [[clang::lifetimebound]]
#endif
#endif
#ifndef BMCOAUTH_LIFETIMEBOUND
#define BMCOAUTH_LIFETIMEBOUND
#endif
