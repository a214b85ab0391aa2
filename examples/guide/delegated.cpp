// SPDX-License-Identifier: Apache-2.0
//
// guide-delegated JWK TOKEN: judges another issuer's token, a file, by its published key.
#include "owners.hpp"

#include <cstring>
#include <iostream>
#include <utility>

namespace
{

// [import]
/** The key as the service stores it: with "kest_decoded_key", by which tokens are verified. Once,
 *  when the key is trusted; null for a key of no use. */
Text imported(const std::string& jwk)
{
    char* text = strdup(jwk.c_str());
    const int added = appendPublicKey(&text);
    Text owned{text};
    return added == 1 ? std::move(owned) : nullptr;
}
// [import]

// [judge]
/** The user's privileges by a token of an issuer whom the service trusts; none if it is refused. */
unsigned int privileges(const char* token, const char* key)
{
    const char* keys[] = {key, nullptr};
    const char* providers[] = {"corp", nullptr};
    userRole_s roles[] = {{"operator", 0x002}, {nullptr, 0}};
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    int verified = 0;
    const int verdict =
        validateJWT_Delegated(token, keys, 0, &header, &payload, 30, roles, providers, &verified);
    const TokenHeader ownedHeader{header};
    const TokenPayload ownedPayload{payload};
    if (verdict != 1)
    {
        return 0;
    }
    // Whose token it is, the library has not looked; nor for whom (payload->aud), where it says so.
    if (payload->iss == nullptr || std::strcmp(payload->iss, "corp") != 0)
    {
        return 0;
    }
    // Not from payload->scopes: where "scope" is an object, these entries are what the issuer wrote.
    return get_scope_privileges(payload) | get_roles_privileges(payload, roles) |
           get_xidp_privileges(payload, providers);
}
// [judge]

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        return EXIT_FAILURE;
    }
    const Text key = imported(contentsOf(argv[1]));
    if (!key)
    {
        std::cerr << "this key cannot be imported\n";
        return EXIT_FAILURE;
    }
    std::string token = contentsOf(argv[2]);
    token.erase(token.find_last_not_of('\n') + 1);
    std::cout << "mask: 0x" << std::hex << privileges(token.c_str(), key.get()) << '\n';
    return EXIT_SUCCESS;
}
