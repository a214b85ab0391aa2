// SPDX-License-Identifier: Apache-2.0
//
// guide-tokens KEY: issues an access token with the key in a file, which is made if it is not
// there, and judges what a client presents.
#include "owners.hpp"

#include <iostream>

namespace
{

// [issue]
/** The answer to an authorize request, or null. */
Text answer(const char* request, const KeyBytes& key)
{
    const std::unique_ptr<AuthorizeRequest, Releaser<free_authorize_request>> asked{
        parse_authorize_request(request)};
    if (!asked)
    {
        return nullptr;
    }
    // Here the service looks up asked->client_id, and compares asked->client_secret and
    // asked->refresh_token with what it has stored. The library does not.

    char subject[] = "admin";
    char issuer[] = "controller";
    char entry[] = "privileges";
    char login[] = "login";
    char* values[] = {login};
    JWTscopes scopes[] = {{.name = entry, .values = values, .count = 1}};
    AuthorizeClaims claims{
        .subject = subject, .issuer = issuer, .scopes = scopes, .scope_count = 1};

    const std::unique_ptr<AuthorizeResponse, Releaser<free_authorize_response>> settings{
        configure_auth_response("600", "bearer")};
    const std::unique_ptr<AuthorizeResponse, Releaser<free_authorize_response>> response{
        authorize_client(asked->state, key.data(), static_cast<unsigned int>(key.size()),
                         settings.get(), &claims)};
    return Text{response ? write_authorize_response(response.get()) : nullptr};
}
// [issue]

// [judge]
/** Whose token it is; nobody's ("") unless it is valid. */
std::string subjectOf(const char* token, const KeyBytes& key)
{
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    const int verdict = validateJWT(token, key.data(), key.size(), &header, &payload);
    // Both may be there although the token is refused: own them first, trust them only on 1.
    const TokenHeader ownedHeader{header};
    const TokenPayload ownedPayload{payload};
    return verdict == 1 ? payload->sub : "";
}
// [judge]

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        return EXIT_FAILURE;
    }
    // [start]
    const char* path = argv[1];
    if (validateECPrivateKey(path) != 1 && generateECPrivateKey(path) != 1)
    {
        return EXIT_FAILURE;
    }
    const KeyBytes key{path};
    if (key.size() == 0)
    {
        return EXIT_FAILURE; // a null key would sign with one that nobody keeps
    }
    // [start]

    const Text response = answer(R"({"client_id":"c","client_secret":"s","state":"xyz",)"
                                 R"("refresh_token":"r"})",
                                 key);
    char* token = nullptr;
    if (!response || get_value_char(response.get(), "access_token", &token) != 1)
    {
        return EXIT_FAILURE;
    }
    const Text owned{token};
    std::cout << "valid for: " << subjectOf(token, key) << '\n';

    const std::size_t middle = std::string{token}.size() / 2;
    token[middle] = token[middle] == 'A' ? 'B' : 'A';
    std::cout << "altered, valid for: '" << subjectOf(token, key) << "'\n";
    return EXIT_SUCCESS;
}
