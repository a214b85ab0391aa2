// SPDX-License-Identifier: Apache-2.0
//
// guide-certificates CHAIN NAME: whether a PEM chain, a file, proves that its holder is the device
// of that name.
#include <bmcoauth.hpp>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

using bmcoauth::CertificateKey;
using bmcoauth::Expected;

namespace
{

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
    const std::string pem = contentsOf(argv[1]);
    // [encode]
    const Expected<CertificateKey> key = CertificateKey::fromPem(pem);
    // [encode]
    // [check]
    const bool trusted = key && key->isValid(argv[2]);
    // [check]
    std::cout << (trusted ? "trusted" : "not trusted") << '\n';
    return EXIT_SUCCESS;
}
