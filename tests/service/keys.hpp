// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/issuer.hpp"
#include "support/tokens.hpp"

#include <bmcoauth/service.hpp>

#include <openssl/core_names.h>
#include <openssl/pem.h>

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace bmcoauth
{

/** A clock that a test sets; its copies share the time. */
class TestClock
{
public:
    std::chrono::sys_seconds operator()() const
    {
        return *now;
    }
    void set(std::int64_t seconds) const
    {
        *now = std::chrono::sys_seconds{std::chrono::seconds{seconds}};
    }

private:
    // Far from now: nothing may ask the machine's clock.
    std::shared_ptr<std::chrono::sys_seconds> now =
        std::make_shared<std::chrono::sys_seconds>(std::chrono::seconds{1000000});
};

/** The number `name` of a public key, in Base64url. */
[[nodiscard]] inline std::string numberOf(const issuer::Key& key, const char* name)
{
    const std::string pem = key.pem();
    const std::unique_ptr<BIO, support::Releaser<BIO_free_all>> text{
        BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()))};
    const std::unique_ptr<EVP_PKEY, support::Releaser<EVP_PKEY_free>> pair{
        PEM_read_bio_PUBKEY(text.get(), nullptr, nullptr, nullptr)};
    BIGNUM* number = nullptr;
    EVP_PKEY_get_bn_param(pair.get(), name, &number);
    const std::unique_ptr<BIGNUM, support::Releaser<BN_free>> owned{number};
    std::string bytes(static_cast<std::size_t>(BN_num_bytes(number)), '\0');
    BN_bn2bin(number, reinterpret_cast<unsigned char*>(bytes.data()));
    return tokens::base64Url(bytes);
}

/** A JSON Web Key with these members besides its numbers. */
[[nodiscard]] inline std::string rsaJwk(const issuer::Key& key, tokens::Members members = {})
{
    members.insert({{"kty", "\"RSA\""},
                    {"n", '"' + numberOf(key, OSSL_PKEY_PARAM_RSA_N) + '"'},
                    {"e", '"' + numberOf(key, OSSL_PKEY_PARAM_RSA_E) + '"'}});
    return tokens::json(members);
}
[[nodiscard]] inline std::string ecJwk(const issuer::Key& key, tokens::Members members = {})
{
    members.insert({{"kty", "\"EC\""},
                    {"crv", "\"P-256\""},
                    {"x", '"' + numberOf(key, OSSL_PKEY_PARAM_EC_PUB_X) + '"'},
                    {"y", '"' + numberOf(key, OSSL_PKEY_PARAM_EC_PUB_Y) + '"'}});
    return tokens::json(members);
}

/** A set of the keys in `keys`, which are texts with commas between them. */
[[nodiscard]] inline std::string jwks(const std::string& keys)
{
    return "{\"keys\":[" + keys + "]}";
}

/** A signer whose key is OpenSSL's. */
struct TestSigner
{
    explicit TestSigner(const char* curve = "P-256")
        : key{EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", curve), EVP_PKEY_free}
    {
    }

    [[nodiscard]] Expected<Bytes> sign(const Sha256Digest& digest) const
    {
        if (fails)
        {
            return Error{BMCOAUTH_RULE_RANDOM_DEVICE};
        }
        const std::unique_ptr<EVP_PKEY_CTX, support::Releaser<EVP_PKEY_CTX_free>> context{
            EVP_PKEY_CTX_new(key.get(), nullptr)};
        std::array<unsigned char, 80> der{};
        std::size_t length = der.size();
        EVP_PKEY_sign_init(context.get());
        EVP_PKEY_sign(context.get(), der.data(), &length, digest.data(), digest.size());
        if (spoils)
        {
            der[length / 2] ^= 1U;
        }
        return Bytes::copy({der.data(), length});
    }
    [[nodiscard]] Expected<Bytes> publicPoint() const
    {
        std::array<unsigned char, 140> point{};
        std::size_t length = 0;
        EVP_PKEY_get_octet_string_param(key.get(), OSSL_PKEY_PARAM_PUB_KEY, point.data(),
                                        point.size(), &length);
        return Bytes::copy({point.data(), length});
    }

    std::shared_ptr<EVP_PKEY> key;
    bool fails = false;
    bool spoils = false;
};
static_assert(Signer<TestSigner> && !Signer<PrivateKey>);

} // namespace bmcoauth
