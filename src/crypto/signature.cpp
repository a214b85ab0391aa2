// SPDX-License-Identifier: Apache-2.0
#include "crypto/signature.hpp"

#include "crypto/base64.hpp"

#include <climits>

namespace bmcoauth::internal::crypto
{

bool sha256(std::string_view text, std::span<unsigned char, 32> digest) noexcept
{
    return EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_sha256(), nullptr) ==
               1 ||
           refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED);
}

HeapText signText(std::string_view text, EC_KEY& key) noexcept
{
    Sha256Digest digest;
    const int largest = ECDSA_size(&key);
    if (largest <= 0)
    {
        return refuse(BMCOAUTH_RULE_KEY_UNSOUND);
    }
    if (!sha256(text, digest))
    {
        return nullptr;
    }
    const HeapBlock<unsigned char> der =
        zeroedBlock<unsigned char>(static_cast<std::size_t>(largest) + 1);
    if (!der)
    {
        return nullptr;
    }
    unsigned int length = 0;
    constexpr int digestLength = static_cast<int>(Sha256Digest{}.size());
    if (ECDSA_sign(0, digest.data(), digestLength, der.get(), &length, &key) != 1 ||
        // A fault can spoil a signature so that it reveals the key: such a signature is not
        // returned.
        ECDSA_verify(0, digest.data(), digestLength, der.get(), static_cast<int>(length), &key) !=
            1)
    {
        return refuse(BMCOAUTH_RULE_KEY_UNSOUND);
    }
    return encodeBase64Url(asText({der.get(), length}));
}

bool verifyText(std::string_view text, std::span<const unsigned char> der, EC_KEY& key,
                bmcoauth_rule wrong) noexcept
{
    Sha256Digest digest;
    if (!sha256(text, digest))
    {
        return false;
    }
    const int result = der.size() > INT_MAX
                           ? 0
                           : ECDSA_verify(0, digest.data(), static_cast<int>(digest.size()),
                                          der.data(), static_cast<int>(der.size()), &key);
    if (result < 0)
    {
        return refuse(wrong);
    }
    return result == 1 || refuse(wrong);
}

} // namespace bmcoauth::internal::crypto
