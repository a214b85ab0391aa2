// SPDX-License-Identifier: Apache-2.0
//
// guide-service-tokens KEY ISSUER TOKEN: issues tokens with the key in a file, which is made if no
// file is there, and judges them and the token of another issuer, whose key set is in a file.
#include <bmcoauth/service.hpp>

#include <syslog.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <set>
#include <string>

using bmcoauth::Claims;
using bmcoauth::DelegatedValidator;
using bmcoauth::Expected;
using bmcoauth::IssuedToken;
using bmcoauth::Privilege;
using bmcoauth::SigningKeys;
using bmcoauth::TokenIssuer;
using bmcoauth::TokenValidator;
using bmcoauth::ValidToken;
using bmcoauth::VerificationKeys;

namespace
{

/** The "jti" of what has been revoked; a service keeps it as long as those tokens live, and behind a
 *  mutex if it has several threads. */
using RevokedIds = std::set<std::string, std::less<>>;

// [issuer]
/** Issues tokens for the console of this controller. */
Expected<TokenIssuer> consoleIssuer(const SigningKeys& keys)
{
    return TokenIssuer::of(keys,
                           {.issuer = "controller",
                            .audience = "console",
                            .lifetime = std::chrono::minutes{10},
                            .longestLifetime = std::chrono::hours{1}},
                           bmcoauth::systemClock());
}
// [issuer]

// [validator]
/** Judges them with the public keys alone. */
Expected<TokenValidator> consoleValidator(const VerificationKeys& keys, const RevokedIds& revoked)
{
    return TokenValidator::of(keys,
                              {.issuer = "controller",
                               .audience = "console",
                               .longestLifetime = std::chrono::hours{1},
                               .revoked =
                                   [&revoked](const Claims& claims) {
                                       return revoked.contains(claims.id().value_or(""));
                                   }},
                              bmcoauth::systemClock());
}
// [validator]

// [judge]
/** Whose token it is; "nobody" unless it is valid. */
std::string holderOf(const Expected<ValidToken>& token)
{
    if (!token)
    {
        // For the log, never for the client.
        syslog(LOG_NOTICE, "token refused: %s", token.error().describe().c_str());
        return "nobody (" + std::string{token.error().name()} + ")";
    }
    return std::string{token->claims().subject().value_or("")};
}
// [judge]

// [delegated]
/** Judges the tokens of a company's login service. `jwks` is the text of its key set. */
Expected<DelegatedValidator> companyValidator(std::string jwks)
{
    return DelegatedValidator::of({{.name = "corp",
                                    .jwks = std::move(jwks),
                                    .algorithms = {"ES256"},
                                    .audience = bmcoauth::ignored,
                                    .longestLifetime = bmcoauth::ignored,
                                    .type = bmcoauth::ignored,
                                    .roles = {{"operator", Privilege::login}},
                                    .mostPrivileges = Privilege::login | Privilege::clearLogs,
                                    .skew = std::chrono::seconds{30}}},
                                  {.revoked = bmcoauth::ignored}, bmcoauth::systemClock());
}
// [delegated]

/** The file `path`. */
std::string contentsOf(const char* path)
{
    std::ifstream file{path};
    return {std::istreambuf_iterator<char>{file}, {}};
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4)
    {
        return EXIT_FAILURE;
    }
    // [keys]
    Expected<SigningKeys> keys = SigningKeys::loadOrCreate(argv[1]);
    if (!keys)
    {
        return EXIT_FAILURE;
    }
    // [keys]
    RevokedIds revoked;
    const Expected<TokenIssuer> issuer = consoleIssuer(*keys);
    const Expected<TokenValidator> validator = consoleValidator(keys->verificationKeys(), revoked);
    const Expected<DelegatedValidator> company = companyValidator(contentsOf(argv[2]));
    if (!issuer || !validator || !company)
    {
        return EXIT_FAILURE;
    }

    // [use]
    const Expected<IssuedToken> token = issuer->issue("admin", Privilege::login);
    if (!token)
    {
        return EXIT_FAILURE;
    }
    std::cout << "issued: " << holderOf(validator->validate(token->token)) << '\n';

    if (!keys->rotate())
    {
        return EXIT_FAILURE;
    }
    std::cout << "after a rotation: " << holderOf(validator->validate(token->token)) << '\n';

    revoked.insert(token->id);
    std::cout << "revoked: " << holderOf(validator->validate(token->token)) << '\n';
    // [use]

    std::string other = contentsOf(argv[3]);
    other.erase(other.find_last_not_of('\n') + 1);
    std::cout << "of the company: " << holderOf(company->validate(other)) << '\n';
    return EXIT_SUCCESS;
}
