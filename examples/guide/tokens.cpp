// SPDX-License-Identifier: Apache-2.0
//
// guide-tokens KEY: issues an access token with the key in a file, which is made if it is not
// there, and judges what a client presents.
#include <bmcoauth.hpp>

#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

using bmcoauth::Expected;
using bmcoauth::PrivateKey;
using bmcoauth::ScopeEntry;
using bmcoauth::Text;
using bmcoauth::TokenRequest;
using bmcoauth::TokenResponse;

namespace
{

// [issue]
/** The answer to an authorize request. */
Expected<TokenResponse> answer(std::string_view text, const PrivateKey& key)
{
    const Expected<TokenRequest> request = TokenRequest::parse(text);
    if (!request)
    {
        return request.error();
    }
    // Here the service looks up request->clientId(), and compares request->clientSecret() and
    // request->refreshToken() with what it has stored. The library does not.

    const std::string_view granted[] = {"login"};
    const ScopeEntry scopes[] = {{.name = "privileges", .values = granted}};
    return bmcoauth::issueTokens({.state = request->state().value_or(""),
                                  .subject = "admin",
                                  .issuer = "controller",
                                  .lifetimeSeconds = 600,
                                  .scopes = scopes},
                                 key);
}
// [issue]

// [judge]
/** Whose token it is; nobody's ("") unless it is valid. */
std::string subjectOf(std::string_view token, const PrivateKey& key)
{
    const bmcoauth::Verdict verdict = bmcoauth::validateToken(token, key);
    const bmcoauth::VerifiedToken* const valid = verdict.verified();
    return valid == nullptr ? "" : std::string{valid->claims().subject().value_or("")};
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
    const std::string_view path = argv[1];
    if (!bmcoauth::keyFileIsSound(path) && !bmcoauth::generateKeyFile(path))
    {
        return EXIT_FAILURE;
    }
    const Expected<PrivateKey> key = PrivateKey::fromFile(path);
    if (!key)
    {
        return EXIT_FAILURE;
    }
    // [start]

    const Expected<TokenResponse> response =
        answer(R"({"client_id":"c","client_secret":"s","state":"xyz","refresh_token":"r"})", *key);
    // What goes to the client.
    const Expected<Text> written = response ? response->write() : response.error();
    if (!written)
    {
        return EXIT_FAILURE;
    }
    std::string token{response->accessToken().value_or("")};
    std::cout << "valid for: " << subjectOf(token, *key) << '\n';

    char& middle = token[token.size() / 2];
    middle = middle == 'A' ? 'B' : 'A';
    std::cout << "altered, valid for: '" << subjectOf(token, *key) << "'\n";
    return EXIT_SUCCESS;
}
