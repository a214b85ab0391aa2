// SPDX-License-Identifier: Apache-2.0
#include "oauth2/oauth-register/HandshakeProofs.hpp"

#include "common/json.hpp"

#include <liboath/oath.h>
#include <openssl/crypto.h>

#include <array>
#include <cstring>

namespace bmcoauth::registration
{

namespace
{

constexpr unsigned int passwordDigits = 8;

/** A password and its terminator. */
using Password = std::array<char, passwordDigits + 1>;

bool computePassword(std::string_view secret, std::uint64_t movingFactor, Password& password)
{
    return oath_hotp_generate(secret.data(), secret.size(), movingFactor, passwordDigits, false,
                              OATH_HOTP_DYNAMIC_TRUNCATION, password.data()) == OATH_OK;
}

/** The bytes of @p value where they stand, if it is a string. */
std::optional<std::string_view> bytesOf(const Json::Value& value)
{
    const char* begin = nullptr;
    const char* end = nullptr;
    if (!value.getString(&begin, &end))
    {
        return std::nullopt;
    }
    return std::string_view{begin, static_cast<std::size_t>(end - begin)};
}

} // namespace

bool KeyDocument::read(const char* text, unsigned int length)
{
    return text != nullptr && *text != '\0' && std::strlen(text) == length &&
           parseSecretObject({text, length}, tree);
}

std::optional<std::string_view> KeyDocument::secret(std::string_view type,
                                                    std::uint64_t selector) const
{
    const Json::Value* secrets = member(tree.root, type);
    if (secrets == nullptr || !secrets->isArray() || secrets->empty())
    {
        return std::nullopt;
    }
    return bytesOf((*secrets)[static_cast<Json::ArrayIndex>(selector % secrets->size())]);
}

HeapText oneTimePassword(std::string_view secret, std::uint64_t movingFactor)
{
    Password password{};
    HeapText text;
    if (computePassword(secret, movingFactor, password))
    {
        text = heapText({password.data(), passwordDigits});
    }
    OPENSSL_cleanse(password.data(), password.size());
    return text;
}

bool isOneTimePassword(std::string_view proof, std::string_view secret, std::uint64_t movingFactor)
{
    // The length first, and the whole of it: liboath's own check takes the number of digits from
    // the text and would be content with the last six.
    Password password{};
    const bool equal = proof.size() == passwordDigits &&
                       computePassword(secret, movingFactor, password) &&
                       CRYPTO_memcmp(proof.data(), password.data(), passwordDigits) == 0;
    OPENSSL_cleanse(password.data(), password.size());
    return equal;
}

} // namespace bmcoauth::registration
