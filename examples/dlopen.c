/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Loads the library when it runs, as a service does that must start on devices without it:
 *
 *     dlopen libbmcoauth.so.1
 *
 * The program is not linked to the library. It takes the types from the header and binds the
 * functions by name; those with C linkage go by the names that they are declared with. The number
 * in the library's name stands for all of its symbols and records: a library that changed one of
 * them would be called otherwise, so what is bound here fits what was compiled in.
 */
#include <bmcoauth.h>

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* Exactly what is used of it, with the types of the header's functions. */
struct Library
{
    int (*generateECKey)(unsigned char**, unsigned char**, int*, int*);
    AuthorizeResponse* (*configure_auth_response)(const char*, const char*);
    AuthorizeResponse* (*authorize_client)(const char*, const unsigned char*, unsigned int,
                                           AuthorizeResponse*, AuthorizeClaims*);
    void (*free_authorize_response)(AuthorizeResponse*);
    int (*validateJWT)(const char*, const unsigned char*, int, JWTHeader**, JWTPayload**);
    void (*free_jwt_header)(JWTHeader*);
    void (*free_jwt_payload)(JWTPayload*);
};

/* ISO C has no conversion between pointers to objects and to functions; POSIX says that they look
 * alike, so the bytes are copied. */
#define BIND(handle, library, name) bind_to(handle, #name, &(library)->name, sizeof(library)->name)

static void complain(void)
{
    /* NOLINTNEXTLINE(concurrency-mt-unsafe): this program has one thread. */
    (void)fprintf(stderr, "%s\n", dlerror());
}

static int bind_to(void* handle, const char* name, void* function, size_t size)
{
    void* symbol = dlsym(handle, name);
    if (symbol == NULL)
    {
        complain();
        return 0;
    }
    /* Few C libraries have the memcpy_s that is asked for here. */
    /* NOLINTNEXTLINE(clang-analyzer-security.insecureAPI.DeprecatedOrUnsafeBufferHandling) */
    memcpy(function, &symbol, size);
    return 1;
}

static int bind_all(void* handle, struct Library* library)
{
    return BIND(handle, library, generateECKey) && BIND(handle, library, configure_auth_response) &&
           BIND(handle, library, authorize_client) &&
           BIND(handle, library, free_authorize_response) && BIND(handle, library, validateJWT) &&
           BIND(handle, library, free_jwt_header) && BIND(handle, library, free_jwt_payload);
}

/* Issues a token and judges it. Every result of the calls is released, whatever happens: each
 * function that releases does nothing if it gets null. */
static int use_it(const struct Library* library)
{
    unsigned char* public_key = NULL;
    unsigned char* private_key = NULL;
    int public_length = 0;
    int private_length = 0;
    if (library->generateECKey(&public_key, &private_key, &public_length, &private_length) != 1)
    {
        return EXIT_FAILURE;
    }

    char subject[] = "admin";
    AuthorizeClaims claims = {.subject = subject};
    AuthorizeResponse* settings = library->configure_auth_response("600", "bearer");
    AuthorizeResponse* response = library->authorize_client(
        "any state", private_key, (unsigned int)private_length, settings, &claims);

    int status = EXIT_FAILURE;
    if (response != NULL)
    {
        /* Both records may be there even when the token is refused: trust them only on 1. */
        JWTHeader* header = NULL;
        JWTPayload* payload = NULL;
        if (library->validateJWT(response->access_token, private_key, private_length, &header,
                                 &payload) == 1)
        {
            printf("valid for: %s\n", payload->sub);
            status = EXIT_SUCCESS;
        }
        library->free_jwt_header(header);
        library->free_jwt_payload(payload);
    }

    library->free_authorize_response(response);
    library->free_authorize_response(settings);
    free(public_key);
    /* A private key is wiped before its memory goes back; explicit_bzero is not left out by the
     * compiler, as memset would be. */
    explicit_bzero(private_key, (size_t)private_length);
    free(private_key);
    return status;
}

int main(int argc, char** argv)
{
    /* At once, so that a missing symbol shows here and not in the middle of a request; and for this
     * program's eyes only. */
    void* handle = dlopen(argc > 1 ? argv[1] : "libbmcoauth.so.1", RTLD_NOW | RTLD_LOCAL);
    if (handle == NULL)
    {
        complain();
        return EXIT_FAILURE;
    }
    struct Library library;
    const int status = bind_all(handle, &library) ? use_it(&library) : EXIT_FAILURE;
    dlclose(handle);
    return status;
}
