// SPDX-License-Identifier: Apache-2.0
//
// Issues an access token and judges it, as a controller's login service does.
#include <bmcoauth/service.hpp>

#include <chrono>
#include <cstdlib>
#include <iostream>

int main(int argc, char** argv)
{
    // The key is made at the first start, and read at all others.
    const auto keys = bmcoauth::SigningKeys::loadOrCreate(argc > 1 ? argv[1] : "signing.pem");
    if (!keys)
    {
        std::cerr << keys.error().describe().view() << '\n';
        return EXIT_FAILURE;
    }
    const auto issuer = bmcoauth::TokenIssuer::of(*keys, {.issuer = "login", .audience = "console"},
                                                  bmcoauth::systemClock());
    const auto validator = bmcoauth::TokenValidator::of(keys->verificationKeys(),
                                                        {.issuer = "login",
                                                         .audience = "console",
                                                         .longestLifetime = std::chrono::hours{1},
                                                         .revoked = bmcoauth::ignored},
                                                        bmcoauth::systemClock());
    if (!issuer || !validator)
    {
        return EXIT_FAILURE;
    }

    // For ten minutes, unless something else is said.
    const auto issued = issuer->issue("admin", bmcoauth::Privilege::login);
    if (!issued)
    {
        return EXIT_FAILURE;
    }
    std::cout << "issued: " << issued->token.view() << '\n';

    // There are claims to act upon only if the token is valid.
    const auto token = validator->validate(issued->token);
    if (!token)
    {
        return EXIT_FAILURE;
    }
    std::cout << "valid for: " << *token->claims().subject() << '\n';
    return EXIT_SUCCESS;
}
