// SPDX-License-Identifier: Apache-2.0
#include "fixtures.hpp"

#include <openssl/ecdsa.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <stdexcept>

namespace bench
{

namespace
{

using support::base64Url;
using support::Releaser;

constexpr std::size_t otherKeyCount = 99;

std::string publicPem(EVP_PKEY& key)
{
    unsigned char* bytes = nullptr;
    const int length = i2d_PUBKEY(&key, &bytes);
    require(length > 0, "public key");
    std::string der{reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length)};
    OPENSSL_free(bytes);
    return support::pemOf("PUBLIC KEY", der);
}

std::string numberOf(const EVP_PKEY& key, const char* name)
{
    BIGNUM* number = nullptr;
    require(EVP_PKEY_get_bn_param(&key, name, &number) == 1, name);
    std::string bytes(static_cast<std::size_t>(BN_num_bytes(number)), '\0');
    BN_bn2bin(number, bytesOf(bytes));
    BN_free(number);
    return bytes;
}

std::string jwkOf(EVP_PKEY& key, const std::string& algorithm)
{
    if (EVP_PKEY_get_base_id(&key) == EVP_PKEY_RSA)
    {
        return R"({"kty":"RSA","alg":")" + algorithm + R"(","n":")" +
               base64Url(numberOf(key, "n")) + R"(","e":")" + base64Url(numberOf(key, "e")) +
               R"("})";
    }
    const std::string point = support::publicPoint(key);
    const std::size_t half = (point.size() - 1) / 2;
    return R"({"kty":"EC","alg":")" + algorithm + R"(","crv":")" +
           (half == 32 ? "P-256" : "P-384") + R"(","x":")" + base64Url(point.substr(1, half)) +
           R"(","y":")" + base64Url(point.substr(1 + half)) + R"("})";
}

Issuer makeIssuer(const std::string& group, const std::string& algorithm,
                  const std::string& payload)
{
    Issuer issuer;
    issuer.key = support::makeKey(group);
    issuer.algorithm = algorithm;
    issuer.pem = publicPem(*issuer.key);
    issuer.jwk = jwkOf(*issuer.key, algorithm);
    char* document = support::heapText(issuer.jwk).release();
    require(appendPublicKey(&document) == 1, "decoded key");
    issuer.decodedJwk = support::HeapText{document}.get();
    const std::string signingInput =
        base64Url(R"({"alg":")" + algorithm + R"(","typ":"JWT"})") + '.' + base64Url(payload);
    issuer.token =
        signingInput + '.' + base64Url(signatureOf(signingInput, *issuer.key, algorithm));
    return issuer;
}

std::string ecdsa(std::string_view text, EVP_PKEY& key, const char* digest)
{
    const std::unique_ptr<EVP_MD_CTX, Releaser<EVP_MD_CTX_free>> context{EVP_MD_CTX_new()};
    std::string signature(static_cast<std::size_t>(EVP_PKEY_get_size(&key)), '\0');
    std::size_t length = signature.size();
    require(EVP_DigestSignInit_ex(context.get(), nullptr, digest, nullptr, nullptr, &key,
                                  nullptr) == 1 &&
                EVP_DigestSign(context.get(), bytesOf(signature), &length, bytesOf(text),
                               text.size()) == 1,
            "ECDSA signature");
    signature.resize(length);
    return signature;
}

/** The integers of a DER signature side by side. */
std::string sideBySide(const std::string& der, int half)
{
    const unsigned char* position = bytesOf(der);
    const std::unique_ptr<ECDSA_SIG, Releaser<ECDSA_SIG_free>> signature{
        d2i_ECDSA_SIG(nullptr, &position, static_cast<long>(der.size()))};
    require(signature != nullptr, "DER signature");
    std::string both(2 * static_cast<std::size_t>(half), '\0');
    require(BN_bn2binpad(ECDSA_SIG_get0_r(signature.get()), bytesOf(both), half) == half &&
                BN_bn2binpad(ECDSA_SIG_get0_s(signature.get()), bytesOf(both) + half, half) == half,
            "integers");
    return both;
}

std::string rsa(std::string_view text, EVP_PKEY& key, bool pss)
{
    const std::unique_ptr<EVP_MD_CTX, Releaser<EVP_MD_CTX_free>> context{EVP_MD_CTX_new()};
    EVP_PKEY_CTX* options = nullptr;
    std::string signature(static_cast<std::size_t>(EVP_PKEY_get_size(&key)), '\0');
    std::size_t length = signature.size();
    require(
        EVP_DigestSignInit(context.get(), &options, EVP_sha256(), nullptr, &key) == 1 &&
            (!pss || (EVP_PKEY_CTX_set_rsa_padding(options, RSA_PKCS1_PSS_PADDING) == 1 &&
                      EVP_PKEY_CTX_set_rsa_pss_saltlen(options, RSA_PSS_SALTLEN_DIGEST) == 1)) &&
            EVP_DigestSign(context.get(), bytesOf(signature), &length, bytesOf(text),
                           text.size()) == 1,
        "RSA signature");
    signature.resize(length);
    return signature;
}

} // namespace

void require(bool succeeded, const char* what)
{
    if (!succeeded)
    {
        throw std::runtime_error(what);
    }
}

std::string signatureOf(std::string_view text, EVP_PKEY& key, std::string_view algorithm)
{
    if (algorithm == "ES256")
    {
        return sideBySide(ecdsa(text, key, "SHA256"), 32);
    }
    if (algorithm == "ES384")
    {
        return sideBySide(ecdsa(text, key, "SHA384"), 48);
    }
    return rsa(text, key, algorithm == "PS256");
}

std::string derSignatureOf(std::string_view text, EVP_PKEY& key)
{
    constexpr std::size_t usualLength = 71;
    for (;;)
    {
        std::string signature = ecdsa(text, key, "SHA256");
        if (signature.size() == usualLength)
        {
            return signature;
        }
    }
}

std::string Claims::json(std::size_t scopes) const
{
    std::string text = R"({"exp":")" + expiry + R"(","iat":")" + issuedAt + R"(","iss":")" +
                       issuer + R"(","jti":")" + id + R"(","nbf":")" + notBefore + R"(","scope":{)";
    for (std::size_t i = 0; i < scopes; ++i)
    {
        text.append(i == 0 ? "\"" : ",\"").append(Scopes::name(i)).append(R"(":[")");
        text.append(Scopes::value).append("\"]");
    }
    return text.append(R"(},"sub":")").append(subject).append("\"}");
}

std::string Scopes::name(std::size_t index)
{
    // Ascending as texts, too: the library writes members in that order.
    return "scope" + std::to_string(1000 + index);
}

Scopes::Scopes(std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
    {
        names.push_back(name(i));
    }
    for (std::string& entry : names)
    {
        entries.push_back({entry.data(), &values, 1});
    }
}

std::string Fixtures::ownTokenWith(std::string_view payload) const
{
    const std::string signingInput = base64Url(headerJson) + '.' + base64Url(std::string{payload});
    return signingInput + '.' + base64Url(derSignatureOf(signingInput, own.key()));
}

Fixtures::Fixtures()
    : es256{makeIssuer("prime256v1", "ES256", claims.json())},
      es384{makeIssuer("secp384r1", "ES384", claims.json())},
      rs256{makeIssuer("RSA", "RS256", claims.json())},
      ps256{makeIssuer("RSA", "PS256", claims.json())}
{
    for (std::size_t i = 0; i < otherKeyCount; ++i)
    {
        otherKeys.push_back(publicPem(*support::makeKey("prime256v1")));
    }
    // As generateKeyTool makes it for three secrets of 20 bytes.
    secrets = R"({"hotp1.0":["0aJ-hqFqkUYb0OB8qY8h1nRr2dM","Xk0bQkq3kQ2-uYb8Wq0fCq9Jt5E",)"
              R"("l3Zk1Jt5E0bQkq3kQ2-uYb8Wq0g"]})";
    for (int i = 0; i < 1024; ++i)
    {
        kilobyte.push_back(static_cast<char>(i * 37 + i / 256));
    }
    kilobyteText = base64Url(kilobyte);
    const std::string point = support::publicPoint(*es256.key);
    x = base64Url(point.substr(1, 32));
    y = base64Url(point.substr(33));
}

const Fixtures& fixtures()
{
    static const Fixtures made;
    return made;
}

} // namespace bench
