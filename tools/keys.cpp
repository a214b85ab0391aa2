// SPDX-License-Identifier: Apache-2.0
#include "keys.hpp"

namespace bmcoauth::tool
{

void requireKeyFile(const std::string& path)
{
    if (path == "-")
    {
        throw Stop{Exit::usage, "a private key is read from a file, not from standard input"};
    }
    requireReadable(path);
}

PrivateKey readPrivateKey(const std::string& path)
{
    requireKeyFile(path);
    Expected<PrivateKey> key = PrivateKey::fromFile(path);
    // A file may hold a key on another curve, by which nothing is signed or opened.
    return orStop(key && ecKeyOf(*key) ? std::move(key) : Error::refused,
                  path + " does not hold an unencrypted P-256 private key in PEM form",
                  Exit::invalid);
}

} // namespace bmcoauth::tool
