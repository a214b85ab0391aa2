// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "documents.hpp"

#include <openssl/ec.h>

#include <string>
#include <vector>

namespace bmcoauth::tool
{

using EcKeyPtr = EcKey;

/** The P-256 private key in the file @p path; stops the command when there is none. */
[[nodiscard]] PrivateKey readPrivateKey(const std::string& path);

/** Private key bytes as the library takes them: an ECPrivateKey structure, wiped when it goes. */
class PrivateKeyBytes
{
public:
    /** Reads the key file @p path; stops the command when it holds no P-256 private key. */
    explicit PrivateKeyBytes(const std::string& path);
    PrivateKeyBytes(const PrivateKeyBytes&) = delete;
    PrivateKeyBytes& operator=(const PrivateKeyBytes&) = delete;
    PrivateKeyBytes(PrivateKeyBytes&&) = delete;
    PrivateKeyBytes& operator=(PrivateKeyBytes&&) = delete;
    ~PrivateKeyBytes();

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

} // namespace bmcoauth::tool
