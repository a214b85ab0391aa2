/* SPDX-License-Identifier: Apache-2.0 */
/* A service written in C: what the plain half of the interface needs is a C compiler. */
#include "record_layout.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(void)
{
    char* document = write_oauth_error(OAUTH_INVALID_SCOPE, "not yours", NULL, NULL);
    const char* expected = "{\"error\":\"invalid_scope\",\"error_description\":\"not yours\"}";
    const int same = document != NULL && strcmp(document, expected) == 0;
    printf("%s\n", document != NULL ? document : "(null)");
    free(document);

    bool value = true;
    const int read = get_value_bool("{\"active\":false}", "active", &value);
    printf("%d %d\n", read, value);

    const char* last = ravok_scope_privileges[9];
    return same && read == 1 && !value && last == NULL ? EXIT_SUCCESS : EXIT_FAILURE;
}
