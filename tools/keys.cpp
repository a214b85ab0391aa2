// SPDX-License-Identifier: Apache-2.0
#include "keys.hpp"

#include "command.hpp"

#include <openssl/crypto.h>
#include <openssl/obj_mac.h>

namespace bmcoauth::tool
{

PrivateKey readPrivateKey(const std::string& path)
{
    if (path == "-")
    {
        throw Stop{Exit::usage, "a private key is read from a file, not from standard input"};
    }
    requireReadable(path);
    Expected<PrivateKey> key = PrivateKey::fromFile(path);
    // A file may hold a key on another curve, by which nothing is signed or opened.
    return orStop(key && ecKeyOf(*key) ? std::move(key) : Error::refused,
                  path + " does not hold an unencrypted P-256 private key in PEM form",
                  Exit::invalid);
}

PrivateKeyBytes::PrivateKeyBytes(const std::string& path)
{
    requireReadable(path);
    const EcKeyPtr key{getECKeyFromFile(path.c_str())};
    if (!key || EC_GROUP_get_curve_name(EC_KEY_get0_group(key.get())) != NID_X9_62_prime256v1)
    {
        throw Stop{Exit::invalid,
                   path + " does not hold an unencrypted P-256 private key in PEM form"};
    }
    const int length = i2d_ECPrivateKey(key.get(), nullptr);
    if (length <= 0)
    {
        throw Stop{Exit::failure, "cannot encode the key of " + path};
    }
    der.resize(static_cast<std::size_t>(length));
    unsigned char* position = der.data();
    i2d_ECPrivateKey(key.get(), &position);
}

PrivateKeyBytes::~PrivateKeyBytes()
{
    OPENSSL_cleanse(der.data(), der.size());
}

} // namespace bmcoauth::tool
