# SPDX-License-Identifier: Apache-2.0
#
# The reference of the interface for C++, which lies in a folder of the C
# headers' and refers to them; ./dev docs adds the version and the directory.

@INCLUDE               = docs/Doxyfile

PROJECT_NAME           = "bmcoauth for C++"
INPUT                  = include/bmcoauth.hpp include/bmcoauth/cpp \
                         include/bmcoauth/service.hpp include/bmcoauth/service
FILE_PATTERNS          = *.hpp
FILTER_PATTERNS        = *.hpp=scripts/cpp-reference

# Here all is documented, and what has no comment is an error.
EXTRACT_ALL            = NO
EXTRACT_STATIC         = YES

# What all owners have is told at each of them.
INLINE_INHERITED_MEMB  = YES
HIDE_SCOPE_NAMES       = NO
SHOW_NAMESPACES        = YES
OPTIMIZE_OUTPUT_FOR_C  = NO
