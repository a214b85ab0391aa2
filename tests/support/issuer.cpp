// SPDX-License-Identifier: Apache-2.0
#include "support/issuer.hpp"

#include "support/certificates.hpp"
#include "support/tokens.hpp"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/ecdsa.h>
#include <openssl/encoder.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <stdexcept>

namespace issuer
{

namespace
{

using support::Releaser;

/** Every step here succeeds, or the machine is broken. */
void require(bool succeeded)
{
    if (!succeeded)
    {
        throw std::runtime_error("OpenSSL failed");
    }
}

const unsigned char* bytesOf(std::string_view text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

unsigned char* bytesOf(std::string& text)
{
    return reinterpret_cast<unsigned char*>(text.data());
}

std::string written(EVP_PKEY* key, int selection, const char* structure)
{
    const std::unique_ptr<OSSL_ENCODER_CTX, Releaser<OSSL_ENCODER_CTX_free>> encoder{
        OSSL_ENCODER_CTX_new_for_pkey(key, selection, "PEM", structure, nullptr)};
    unsigned char* data = nullptr;
    std::size_t length = 0;
    require(OSSL_ENCODER_to_data(encoder.get(), &data, &length) == 1);
    std::string text{reinterpret_cast<const char*>(data), length};
    OPENSSL_free(data);
    return text;
}

} // namespace

std::string sideBySide(std::string_view der, std::size_t half)
{
    const unsigned char* position = bytesOf(der);
    const std::unique_ptr<ECDSA_SIG, Releaser<ECDSA_SIG_free>> signature{
        d2i_ECDSA_SIG(nullptr, &position, static_cast<long>(der.size()))};
    require(signature != nullptr);
    std::string both(2 * half, '\0');
    const int length = static_cast<int>(half);
    require(BN_bn2binpad(ECDSA_SIG_get0_r(signature.get()), bytesOf(both), length) == length &&
            BN_bn2binpad(ECDSA_SIG_get0_s(signature.get()), bytesOf(both) + half, length) ==
                length);
    return both;
}

Key::Key(EVP_PKEY* made) : pair{made}
{
    require(pair != nullptr);
}

Key Key::rsa(unsigned int bits)
{
    return Key{EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", std::size_t{bits})};
}

Key Key::writtenDown()
{
    return Key{support::makeKey("RSA").release()};
}

Key Key::ec(const std::string& curve)
{
    return Key{EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", curve.c_str())};
}

std::string Key::pem() const
{
    return written(pair.get(), EVP_PKEY_PUBLIC_KEY, "SubjectPublicKeyInfo");
}

std::string Key::explicitPem() const
{
    const std::unique_ptr<EC_KEY, Releaser<EC_KEY_free>> key{EVP_PKEY_get1_EC_KEY(pair.get())};
    const std::unique_ptr<BIO, Releaser<BIO_free_all>> memory{BIO_new(BIO_s_mem())};
    require(key != nullptr && memory != nullptr);
    EC_KEY_set_asn1_flag(key.get(), OPENSSL_EC_EXPLICIT_CURVE);
    require(PEM_write_bio_EC_PUBKEY(memory.get(), key.get()) == 1);
    char* data = nullptr;
    const long length = BIO_get_mem_data(memory.get(), &data);
    return {data, static_cast<std::size_t>(length)};
}

std::string Key::pkcs1Pem() const
{
    return written(pair.get(), EVP_PKEY_PUBLIC_KEY, "pkcs1");
}

std::string Key::privatePem() const
{
    return written(pair.get(), EVP_PKEY_KEYPAIR, "PrivateKeyInfo");
}

std::string Key::sign(std::string_view text, const char* digest, Padding padding) const
{
    const std::unique_ptr<EVP_MD_CTX, Releaser<EVP_MD_CTX_free>> context{EVP_MD_CTX_new()};
    EVP_PKEY_CTX* options = nullptr;
    require(EVP_DigestSignInit_ex(context.get(), &options, digest, nullptr, nullptr, pair.get(),
                                  nullptr) == 1);
    if (padding.pss)
    {
        require(EVP_PKEY_CTX_set_rsa_padding(options, RSA_PKCS1_PSS_PADDING) == 1 &&
                EVP_PKEY_CTX_set_rsa_pss_saltlen(options, padding.saltLength) == 1 &&
                (padding.maskDigest == nullptr ||
                 EVP_PKEY_CTX_set_rsa_mgf1_md_name(options, padding.maskDigest, nullptr) == 1));
    }
    std::string signature(static_cast<std::size_t>(EVP_PKEY_get_size(pair.get())), '\0');
    std::size_t length = signature.size();
    require(EVP_DigestSign(context.get(), bytesOf(signature), &length, bytesOf(text),
                           text.size()) == 1);
    signature.resize(length);
    return signature;
}

const Key& rsaKey()
{
    static const Key key = Key::writtenDown();
    return key;
}

const Key& otherRsaKey()
{
    static const Key key = Key::rsa(2048);
    return key;
}

const Key& p256Key()
{
    static const Key key = Key::ec("P-256");
    return key;
}

const Key& otherP256Key()
{
    static const Key key = Key::ec("P-256");
    return key;
}

const Key& p384Key()
{
    static const Key key = Key::ec("P-384");
    return key;
}

const Key& p521Key()
{
    static const Key key = Key::ec("P-521");
    return key;
}

std::string signingInput(std::string_view header, std::string_view payload)
{
    return tokens::base64Url(header) + "." + tokens::base64Url(payload);
}

std::string token(std::string_view signingInput, std::string_view signature)
{
    return std::string{signingInput} + "." + tokens::base64Url(signature);
}

} // namespace issuer
