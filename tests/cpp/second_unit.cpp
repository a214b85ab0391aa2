// SPDX-License-Identifier: Apache-2.0
#include "second_unit.hpp"

#include <bmcoauth.hpp>

// A header-only interface is included by several sources of one program.
std::size_t lengthOfToken(unsigned int count)
{
    const bmcoauth::Expected<bmcoauth::Text> token = bmcoauth::randomToken(count);
    return token ? token->view().size() : 0;
}
