// SPDX-License-Identifier: Apache-2.0
//
// guide-certificates CHAIN NAME: whether a PEM chain, a file, proves that its holder is the device
// of that name.
#include "owners.hpp"

#include <cstring>
#include <iostream>

namespace
{

// [check]
/** Whether the certificate key is that of the device `name`, made by the factory. */
bool trusted(HandshakePayload* key, const char* name)
{
    // Names, public keys and proofs are those of the first certificate; the factory's root is
    // sought for the last. Only where they are the same one does this say something about it.
    char** bodies = nullptr;
    getChallengeValueArray(key, "x5c", &bodies);
    const StringArray owned{bodies};
    if (bodies == nullptr)
    {
        return false;
    }
    char** last = bodies;
    while (last[1] != nullptr)
    {
        ++last;
    }
    return std::strcmp(*bodies, *last) == 0 && validate_x509_jwk(key, name) == 1;
}
// [check]

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        return EXIT_FAILURE;
    }
    const std::string pem = contentsOf(argv[1]);
    // [encode]
    const Payload key{encode_x509_jwk(pem.c_str(), static_cast<unsigned int>(pem.size()))};
    // [encode]
    std::cout << (key && trusted(key.get(), argv[2]) ? "trusted" : "not trusted") << '\n';
    return EXIT_SUCCESS;
}
