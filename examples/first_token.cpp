// SPDX-License-Identifier: Apache-2.0
//
// Issues an access token and judges it, as a controller's login service does.
#include <bmcoauth.h>

#include <cstdlib>
#include <iostream>
#include <memory>

template <auto Release>
struct Releaser
{
    void operator()(auto* object) const
    {
        Release(object);
    }
};

int main()
{
    // A service keeps its key in a file (generateECPrivateKey); here it lives in memory.
    unsigned char* publicKey = nullptr;
    unsigned char* privateKey = nullptr;
    int publicLength = 0;
    int privateLength = 0;
    if (generateECKey(&publicKey, &privateKey, &publicLength, &privateLength) != 1)
    {
        return EXIT_FAILURE;
    }
    const std::unique_ptr<unsigned char, Releaser<std::free>> ownedPublicKey{publicKey};
    const std::unique_ptr<unsigned char, Releaser<std::free>> ownedPrivateKey{privateKey};

    // Signed for ten minutes.
    char subject[] = "admin";
    AuthorizeClaims claims{
        .subject = subject, .issuer = nullptr, .scopes = nullptr, .scope_count = 0};
    const std::unique_ptr<AuthorizeResponse, Releaser<free_authorize_response>> settings{
        configure_auth_response("600", "bearer")};
    const std::unique_ptr<AuthorizeResponse, Releaser<free_authorize_response>> response{
        authorize_client("any state", privateKey, static_cast<unsigned int>(privateLength),
                         settings.get(), &claims)};
    if (!response)
    {
        return EXIT_FAILURE;
    }
    std::cout << "issued: " << response->access_token << '\n';

    // Both records may be there even when the token is refused: trust them only on 1.
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    const int verdict =
        validateJWT(response->access_token, privateKey, privateLength, &header, &payload);
    const std::unique_ptr<JWTHeader, Releaser<free_jwt_header>> ownedHeader{header};
    const std::unique_ptr<JWTPayload, Releaser<free_jwt_payload>> ownedPayload{payload};
    if (verdict != 1)
    {
        return EXIT_FAILURE;
    }
    std::cout << "valid for: " << payload->sub << " until " << payload->exp << '\n';
    return EXIT_SUCCESS;
}
