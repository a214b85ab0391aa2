// SPDX-License-Identifier: Apache-2.0
//
// Issues an access token and judges it, as a controller's login service does.
#include <bmcoauth.hpp>

#include <cstdlib>
#include <iostream>

int main()
{
    // A service keeps its key in a file (PrivateKey::loadOrCreate); here it lives in memory.
    const auto keys = bmcoauth::KeyPair::generate();
    if (!keys)
    {
        return EXIT_FAILURE;
    }

    // Signed for ten minutes.
    const auto response = bmcoauth::issueTokens(
        {.state = "any state", .subject = "admin", .lifetimeSeconds = 600}, keys->privateKey);
    if (!response)
    {
        return EXIT_FAILURE;
    }
    std::cout << "issued: " << *response->accessToken() << '\n';

    // There are claims to act upon only if the token is valid.
    const bmcoauth::Verdict verdict =
        bmcoauth::validateToken(*response->accessToken(), keys->privateKey);
    const bmcoauth::VerifiedToken* token = verdict.verified();
    if (token == nullptr)
    {
        return EXIT_FAILURE;
    }
    std::cout << "valid for: " << *token->claims().subject() << " until "
              << *token->claims().expiresAt() << '\n';
    return EXIT_SUCCESS;
}
