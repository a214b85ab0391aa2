// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bmcoauth.h>

#include <openssl/crypto.h>
#include <openssl/ec.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

// What every program of the guide begins with: an owner for each thing that the library hands out.

// [owners]
template <auto Release>
struct Releaser
{
    void operator()(auto* object) const
    {
        Release(object);
    }
};

using Text = std::unique_ptr<char, Releaser<std::free>>;
using StringArray = std::unique_ptr<char*, Releaser<free_char_array>>;
using Payload = std::unique_ptr<HandshakePayload, Releaser<free_handshake_payload>>;
using TokenHeader = std::unique_ptr<JWTHeader, Releaser<free_jwt_header>>;
using TokenPayload = std::unique_ptr<JWTPayload, Releaser<free_jwt_payload>>;
// [owners]

// [key]
/** The private key in a key file as the library takes it, wiped when it goes. Empty if the file
 *  holds none. */
class KeyBytes
{
public:
    explicit KeyBytes(const char* path)
    {
        const std::unique_ptr<EC_KEY, Releaser<EC_KEY_free>> key{getECKeyFromFile(path)};
        const int length = key ? i2d_ECPrivateKey(key.get(), nullptr) : 0;
        if (length > 0)
        {
            der.resize(static_cast<std::size_t>(length));
            unsigned char* end = der.data();
            i2d_ECPrivateKey(key.get(), &end);
        }
    }
    KeyBytes(const KeyBytes&) = delete;
    KeyBytes& operator=(const KeyBytes&) = delete;
    KeyBytes(KeyBytes&&) = delete;
    KeyBytes& operator=(KeyBytes&&) = delete;
    ~KeyBytes()
    {
        OPENSSL_cleanse(der.data(), der.size());
    }

    [[nodiscard]] const unsigned char* data() const
    {
        return der.data();
    }

    [[nodiscard]] int size() const
    {
        return static_cast<int>(der.size());
    }

private:
    std::vector<unsigned char> der;
};
// [key]

/** The bytes of a file; none if it cannot be read. */
inline std::string contentsOf(const char* path)
{
    std::ifstream file{path, std::ios::binary};
    return {std::istreambuf_iterator<char>{file}, {}};
}
