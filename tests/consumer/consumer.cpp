// SPDX-License-Identifier: Apache-2.0
//
// Somebody else's program in C++, which may do without exceptions.
#include <bmcoauth.hpp>

#include <cstdio>
#include <cstdlib>

int main()
{
    const auto text = bmcoauth::errorDocument(OAUTH_INVALID_TOKEN, "ended");
    return text && std::puts(text->c_str()) >= 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
