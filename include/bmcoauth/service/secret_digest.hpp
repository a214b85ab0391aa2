// SPDX-License-Identifier: Apache-2.0
#pragma once

/* What a service keeps of a secret instead of the secret. */

#include <bmcoauth/cpp/expected.hpp>

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <array>
#include <cstddef>
#include <span>
#include <string_view>

namespace bmcoauth
{
inline namespace v1
{

/** SecretDigest is the SHA-256 digest of a secret of 16 random bytes or more: nobody finds such a secret
 *  by trying, so a digest without salt and repetition is enough. A password that a person has
 *  chosen needs more. */
class SecretDigest
{
public:
    /** In bytes. */
    static constexpr std::size_t size = 32;

    /** All zeros: there is no secret that has this digest. */
    SecretDigest() noexcept = default;
    /** The bytes that `bytes` gave. */
    explicit SecretDigest(const std::array<unsigned char, size>& bytes) noexcept : value{bytes}
    {
    }

    /** The digest of `secret`. */
    [[nodiscard]] static Expected<SecretDigest> of(std::string_view secret)
    {
        SecretDigest digest;
        if (EVP_Digest(secret.data(), secret.size(), digest.value.data(), nullptr, EVP_sha256(),
                       nullptr) != 1)
        {
            return Error{BMCOAUTH_RULE_MEMORY_EXHAUSTED};
        }
        return digest;
    }

    /** For the store. */
    [[nodiscard]] const std::array<unsigned char, size>&
    bytes() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return value;
    }
    /** Takes equally long whether they are equal or not. */
    [[nodiscard]] bool operator==(const SecretDigest& other) const noexcept
    {
        return CRYPTO_memcmp(value.data(), other.value.data(), size) == 0;
    }

private:
    std::array<unsigned char, size> value{};
};

} // namespace v1
} // namespace bmcoauth
