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
#include <string_view>

using bmcoauth::CertificateKey;
using bmcoauth::Expected;
using bmcoauth::Texts;

namespace
{

// [check]
/** Whether the certificate key is that of the device `name`, made by the factory. */
bool trusted(const CertificateKey& key, std::string_view name)
{
    // Names, public keys and proofs are those of the first certificate; the factory's root is
    // sought for the last. Only where they are the same one does this say something about it.
    const Expected<Texts> bodies = key.parameters().values("x5c");
    if (!bodies)
    {
        return false;
    }
    const std::string_view first = *bodies->begin();
    std::string_view last;
    for (const std::string_view body : *bodies)
    {
        last = body;
    }
    return first == last && key.isValid(name);
}
// [check]

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
    std::cout << (key && trusted(*key, argv[2]) ? "trusted" : "not trusted") << '\n';
    return EXIT_SUCCESS;
}
