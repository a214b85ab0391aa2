// SPDX-License-Identifier: Apache-2.0
#include "support/tokens.hpp"

#include <openssl/ec.h>
#include <openssl/evp.h>

#include <stdexcept>

namespace tokens
{

namespace
{

using Key = std::unique_ptr<EVP_PKEY, support::Releaser<EVP_PKEY_free>>;
using Context = std::unique_ptr<EVP_MD_CTX, support::Releaser<EVP_MD_CTX_free>>;

void require(bool condition)
{
    if (!condition)
    {
        throw std::runtime_error("OpenSSL failed");
    }
}

Key load(const PrivateKey& key)
{
    const unsigned char* position = key.data();
    Key loaded{d2i_PrivateKey(EVP_PKEY_EC, nullptr, &position, key.length())};
    require(loaded != nullptr);
    return loaded;
}

const unsigned char* bytesOf(std::string_view text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

unsigned char* bytesOf(std::string& text)
{
    return reinterpret_cast<unsigned char*>(text.data());
}

} // namespace

// Both: openssl ecparam -name prime256v1 -genkey -noout -outform DER | xxd -i
const PrivateKey& serviceKey()
{
    static const PrivateKey key{{
        0x30, 0x77, 0x02, 0x01, 0x01, 0x04, 0x20, 0x19, 0xa7, 0x54, 0xe0, 0xce, 0x1d, 0x4c,
        0x08, 0xaf, 0x48, 0x2b, 0x1e, 0x7d, 0x73, 0xdd, 0x48, 0x46, 0x30, 0xc5, 0xbe, 0x5b,
        0xba, 0x9d, 0xd9, 0x82, 0x71, 0xc7, 0x62, 0x68, 0xa1, 0xe7, 0xad, 0xa0, 0x0a, 0x06,
        0x08, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 0x07, 0xa1, 0x44, 0x03, 0x42, 0x00,
        0x04, 0x71, 0xfe, 0xad, 0xf3, 0x40, 0x10, 0x71, 0xd4, 0x74, 0x01, 0x4b, 0x2a, 0x8c,
        0xd6, 0xfa, 0x0c, 0xb8, 0x31, 0x33, 0x9a, 0x15, 0xc3, 0xaa, 0xaa, 0xbb, 0x4e, 0x39,
        0xdd, 0xde, 0x01, 0xe3, 0xb6, 0x6a, 0xbe, 0x78, 0x9c, 0xe2, 0x10, 0xac, 0x13, 0x3d,
        0xd5, 0x4d, 0x16, 0x7f, 0x0c, 0xb2, 0x53, 0xde, 0xf4, 0x1c, 0xb5, 0xb4, 0x90, 0x06,
        0xe8, 0x46, 0x0e, 0xd3, 0x1c, 0x68, 0xf9, 0xed, 0xc8,
    }};
    return key;
}

const PrivateKey& otherKey()
{
    static const PrivateKey key{{
        0x30, 0x77, 0x02, 0x01, 0x01, 0x04, 0x20, 0x86, 0x48, 0x07, 0x97, 0x78, 0xda, 0xbe,
        0xe2, 0x99, 0xb5, 0xb8, 0x3b, 0xb5, 0xa1, 0xbf, 0x09, 0xd5, 0x39, 0x3b, 0x12, 0x55,
        0x45, 0x44, 0x57, 0x5b, 0xc5, 0xf9, 0x92, 0xf9, 0x75, 0x95, 0xa7, 0xa0, 0x0a, 0x06,
        0x08, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 0x07, 0xa1, 0x44, 0x03, 0x42, 0x00,
        0x04, 0xf5, 0xa6, 0x57, 0x7d, 0xf0, 0x34, 0xba, 0x0e, 0xb5, 0x14, 0x3c, 0xfd, 0x3e,
        0xc8, 0xc5, 0xde, 0xa9, 0x45, 0x43, 0xce, 0xa3, 0xf1, 0xdd, 0xe1, 0xc8, 0x64, 0x05,
        0x6c, 0x5b, 0xdd, 0x28, 0x73, 0xd2, 0x74, 0xef, 0xf9, 0xfd, 0x6d, 0xd9, 0xbb, 0x3a,
        0xb6, 0xa1, 0x58, 0xec, 0xd9, 0xaf, 0x9e, 0x2d, 0x85, 0x62, 0xd0, 0x7b, 0xc9, 0x6f,
        0x73, 0xe7, 0x4a, 0x5f, 0xb1, 0x0f, 0x72, 0x55, 0xc7,
    }};
    return key;
}

std::string fromBase64Url(std::string_view text)
{
    std::string padded{text};
    for (char& c : padded)
    {
        require(c != '+' && c != '/' && c != '=');
        c = c == '-' ? '+' : c == '_' ? '/' : c;
    }
    const std::size_t missing = (4 - padded.size() % 4) % 4;
    padded.append(missing, '=');
    std::string bytes(padded.size() / 4 * 3, '\0');
    require(EVP_DecodeBlock(bytesOf(bytes), bytesOf(std::string_view{padded}),
                            static_cast<int>(padded.size())) >= 0);
    bytes.resize(bytes.size() - missing);
    return bytes;
}

std::string sign(std::string_view text, const PrivateKey& key)
{
    const Key loaded = load(key);
    const Context context{EVP_MD_CTX_new()};
    std::string signature(128, '\0');
    std::size_t length = signature.size();
    require(EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, loaded.get()) == 1 &&
            EVP_DigestSign(context.get(), bytesOf(signature), &length, bytesOf(text),
                           text.size()) == 1);
    signature.resize(length);
    return signature;
}

bool verifies(std::string_view text, std::string_view signature, const PrivateKey& key)
{
    const Key loaded = load(key);
    const Context context{EVP_MD_CTX_new()};
    require(EVP_DigestVerifyInit(context.get(), nullptr, EVP_sha256(), nullptr, loaded.get()) == 1);
    return EVP_DigestVerify(context.get(), bytesOf(signature), signature.size(), bytesOf(text),
                            text.size()) == 1;
}

std::string json(const Members& members)
{
    std::string object = "{";
    for (const auto& [name, value] : members)
    {
        object.append(object.size() == 1 ? "\"" : ",\"").append(name).append("\":").append(value);
    }
    return object + "}";
}

Members plainClaims()
{
    return {{"sub", R"("user")"},       {"iss", R"("issuer")"},     {"jti", R"("id-1")"},
            {"iat", R"("1699999999")"}, {"nbf", R"("1699999999")"}, {"exp", R"("1700003600")"}};
}

std::string with(const std::string& name, const std::string& value)
{
    Members claims = plainClaims();
    claims[name] = value;
    return json(claims);
}

std::string handmade(std::string_view header, std::string_view payload, const PrivateKey& key)
{
    const std::string signingInput = base64Url(header) + "." + base64Url(payload);
    return signingInput + "." + base64Url(sign(signingInput, key));
}

std::string hostilePartRule(const support::HostileText& text)
{
    constexpr std::size_t longestPart = 98304;
    return text.text.empty()                           ? "base64.malformed"
           : base64Url(text.text).size() > longestPart ? "base64.length"
                                                       : support::hostileRule(text.name);
}

std::vector<std::string> partsOf(std::string_view token)
{
    std::vector<std::string> parts{""};
    for (const char c : token)
    {
        if (c == '.')
        {
            parts.emplace_back();
        }
        else
        {
            parts.back().push_back(c);
        }
    }
    return parts;
}

} // namespace tokens
