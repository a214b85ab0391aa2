/* SPDX-License-Identifier: Apache-2.0 */
/* Somebody else's test of such a program, in C: on a device that is as the test says. */
#include <bmcoauth.h>
#include <bmcoauth/testing.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int zeros(void* context, unsigned char* bytes, size_t count)
{
    (void)context;
    memset(bytes, 0, count);
    return 1;
}

int main(void)
{
    char text[7];
    bmcoauth_testing_set_marker(1);
    bmcoauth_testing_set_random(zeros, NULL);
    if (!isDeviceVorn() || !issueRandomBytesInHex(text, 2) || strcmp(text, "0x0000") != 0)
    {
        return EXIT_FAILURE;
    }
    puts("tested on a device of its own");
    return EXIT_SUCCESS;
}
