// SPDX-License-Identifier: Apache-2.0
//
// guide-delegated JWK TOKEN: judges another issuer's token, a file, by its published key.
#include <bmcoauth.hpp>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>

using bmcoauth::Document;
using bmcoauth::Expected;
using bmcoauth::Privilege;
using bmcoauth::Privileges;
using bmcoauth::Role;
using bmcoauth::TrustedKeys;
using bmcoauth::Verdict;
using bmcoauth::VerifiedToken;

namespace
{

// [import]
/** The key as the service stores it: with "kest_decoded_key", by which tokens are verified. Once,
 *  when the key is trusted; an error for a key of no use. */
Expected<Document> imported(std::string_view jwk)
{
    Expected<Document> key = Document::parse(jwk);
    if (key)
    {
        if (const Expected<void> added = key->addPublicKey(); !added)
        {
            return added.error();
        }
    }
    return key;
}
// [import]

// [judge]
/** The user's privileges by a token of an issuer whom the service trusts; none if it is refused. */
Privileges privileges(std::string_view token, const TrustedKeys& keys)
{
    const Role roles[] = {{.name = "operator", .privileges = Privilege::configure}};
    const std::string_view providers[] = {"corp"};
    const Verdict verdict = bmcoauth::validateDelegatedToken(
        token, keys, {.skewSeconds = 30, .roles = roles, .providers = providers});
    const VerifiedToken* const valid = verdict.verified();
    if (valid == nullptr)
    {
        return {};
    }
    // The library has checked neither the issuer nor, if the token names one, the audience.
    if (valid->claims().issuer() != "corp")
    {
        return {};
    }
    // Not by userPrivileges: where "scope" is an object, that number is what the issuer wrote.
    const Expected<Privileges> ofRoles = bmcoauth::rolePrivileges(*valid, roles);
    const Expected<Privileges> ofProviders = bmcoauth::providerPrivileges(*valid, providers);
    if (!ofRoles || !ofProviders)
    {
        return {};
    }
    return bmcoauth::scopePrivileges(*valid) | *ofRoles | *ofProviders;
}
// [judge]

std::string contentsOf(const char* path)
{
    std::ifstream file{path, std::ios::binary};
    return {std::istreambuf_iterator<char>{file}, {}};
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        return EXIT_FAILURE;
    }
    const Expected<Document> key = imported(contentsOf(argv[1]));
    if (!key)
    {
        std::cerr << "this key cannot be imported\n";
        return EXIT_FAILURE;
    }
    const std::string_view trusted[] = {key->view()};
    const Expected<TrustedKeys> keys = TrustedKeys::of(trusted);
    if (!keys)
    {
        return EXIT_FAILURE;
    }
    std::string token = contentsOf(argv[2]);
    token.erase(token.find_last_not_of('\n') + 1);
    std::cout << "mask: 0x" << std::hex << privileges(token, *keys).bits() << '\n';
    return EXIT_SUCCESS;
}
