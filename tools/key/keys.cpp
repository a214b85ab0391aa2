// SPDX-License-Identifier: Apache-2.0
#include "key/keys.hpp"

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
    return orStop(PrivateKey::fromFile(path),
                  path + " does not hold an unencrypted P-256 private key in PEM form",
                  Exit::invalid);
}

} // namespace bmcoauth::tool
