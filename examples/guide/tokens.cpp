// SPDX-License-Identifier: Apache-2.0
//
// guide-tokens KEY: issues an access token with the key in a file, which is made if no file is
// there, and judges what a client presents.
#include <bmcoauth.hpp>

#include <syslog.h>

#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

using bmcoauth::Expected;
using bmcoauth::PrivateKey;
using bmcoauth::Privilege;
using bmcoauth::Privileges;
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

    return bmcoauth::issueTokens({.state = request->state().value_or(""),
                                  .subject = "admin",
                                  .issuer = "controller",
                                  .lifetimeSeconds = 600,
                                  .privileges = Privilege::login | Privilege::configure},
                                 key);
}
// [issue]

// [judge]
/** Whose token it is, and what this user may do; "nobody" unless it is valid. */
std::string holderOf(std::string_view token, const PrivateKey& key)
{
    const bmcoauth::Verdict verdict = bmcoauth::validateToken(token, key);
    const bmcoauth::VerifiedToken* const valid = verdict.verified();
    if (valid == nullptr)
    {
        // For the log, never for the client.
        syslog(LOG_NOTICE, "token refused: %s", verdict.refusal()->describe().c_str());
        return "nobody";
    }
    std::string holder{valid->claims().subject().value_or("")};
    for (const Privilege privilege : bmcoauth::userPrivileges(*valid).value_or(Privileges{}))
    {
        holder += ' ' + std::string{bmcoauth::nameOf(privilege)};
    }
    return holder;
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
    const Expected<PrivateKey> key = PrivateKey::loadOrCreate(argv[1]);
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
    std::cout << "valid for: " << holderOf(token, *key) << '\n';

    char& middle = token[token.size() / 2];
    middle = middle == 'A' ? 'B' : 'A';
    std::cout << "altered, valid for: " << holderOf(token, *key) << '\n';
    return EXIT_SUCCESS;
}
