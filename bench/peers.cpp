// SPDX-License-Identifier: Apache-2.0
#include "peers.hpp"

#include <openssl/bio.h>
#include <openssl/pem.h>

#include <array>

namespace bench
{

const SigningKey& signingKey()
{
    static const SigningKey made = [] {
        EVP_PKEY& key = fixtures().own.key();
        const std::unique_ptr<BIO, support::Releaser<BIO_free>> memory{BIO_new(BIO_s_mem())};
        require(PEM_write_bio_PrivateKey(memory.get(), &key, nullptr, nullptr, 0, nullptr,
                                         nullptr) == 1,
                "private PEM");
        char* data = nullptr;
        const long length = BIO_get_mem_data(memory.get(), &data);
        BIGNUM* number = nullptr;
        require(EVP_PKEY_get_bn_param(&key, "priv", &number) == 1, "scalar");
        std::string scalar(32, '\0');
        BN_bn2binpad(number, bytesOf(scalar), 32);
        BN_free(number);
        const std::string point = support::publicPoint(key);
        return SigningKey{.pem = {data, static_cast<std::size_t>(length)},
                          .jwk = R"({"kty":"EC","crv":"P-256","x":")" +
                                 support::base64Url(point.substr(1, 32)) + R"(","y":")" +
                                 support::base64Url(point.substr(33)) + R"(","d":")" +
                                 support::base64Url(scalar) + R"("})"};
    }();
    return made;
}

std::vector<Peer> peers()
{
    return {
#ifdef BENCH_LIBJWT
        libjwt(),
#endif
#ifdef BENCH_CJOSE
        cjose(),
#endif
#ifdef BENCH_RHONABWY
        rhonabwy(),
#endif
    };
}

} // namespace bench
