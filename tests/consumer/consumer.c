/* SPDX-License-Identifier: Apache-2.0 */
/* Somebody else's program in C. */
#include <bmcoauth.h>

#include <stdio.h>
#include <stdlib.h>

int main(void)
{
    char* text = write_oauth_error(OAUTH_INVALID_TOKEN, "ended", NULL, NULL);
    if (text == NULL)
    {
        return EXIT_FAILURE;
    }
    puts(text);
    free(text);
    return EXIT_SUCCESS;
}
