// SPDX-License-Identifier: Apache-2.0
#include "key/forms.hpp"

#include "cli/command.hpp"
#include "cli/documents.hpp"

#include <climits>
#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/param_build.h>
#include <openssl/pem.h>

#include <algorithm>
#include <array>
#include <functional>
#include <string_view>
#include <utility>
#include <vector>

namespace bmcoauth::tool
{

namespace
{

using BuilderPtr = std::unique_ptr<OSSL_PARAM_BLD, Releaser<OSSL_PARAM_BLD_free>>;
using ParamsPtr = std::unique_ptr<OSSL_PARAM, Releaser<OSSL_PARAM_free>>;
using ContextPtr = std::unique_ptr<EVP_PKEY_CTX, Releaser<EVP_PKEY_CTX_free>>;

[[noreturn]] void stop(const std::string& path, const std::string& reason)
{
    throw Stop{Exit::invalid, nameOf(path) + " " + reason};
}

/** A curve that JSON Web Keys know. */
struct Curve
{
    const char* name;
    const char* group;
    int coordinateBytes;
};

constexpr std::array<Curve, 3> curves{
    {{"P-256", "prime256v1", 32}, {"P-384", "secp384r1", 48}, {"P-521", "secp521r1", 66}}};

/** The members of an RSA key (RFC 7518, section 6.3) by OpenSSL's names for them; the first two
 *  make a public key. */
constexpr std::array<std::pair<const char*, const char*>, 8> rsaMembers{{
    {"n", OSSL_PKEY_PARAM_RSA_N},
    {"e", OSSL_PKEY_PARAM_RSA_E},
    {"d", OSSL_PKEY_PARAM_RSA_D},
    {"p", OSSL_PKEY_PARAM_RSA_FACTOR1},
    {"q", OSSL_PKEY_PARAM_RSA_FACTOR2},
    {"dp", OSSL_PKEY_PARAM_RSA_EXPONENT1},
    {"dq", OSSL_PKEY_PARAM_RSA_EXPONENT2},
    {"qi", OSSL_PKEY_PARAM_RSA_COEFFICIENT1},
}};
constexpr std::size_t rsaPublicMembers = 2;

// ------------------------------------------------------------------------------ PEM and DER

/** What @p read makes of @p bytes, if it is a key and nothing follows it. */
template <typename Read>
EvpKeyPtr keyIn(const std::string& bytes, Read read)
{
    const auto* const begin = reinterpret_cast<const unsigned char*>(bytes.data());
    const unsigned char* position = begin;
    EvpKeyPtr key{read(&position, static_cast<long>(bytes.size()))};
    return position == begin + bytes.size() ? std::move(key) : nullptr;
}

/** An RSAPublicKey structure (PKCS #1), which only says n and e. */
EVP_PKEY* rsaPublicKey(const unsigned char** position, long length)
{
    return d2i_PublicKey(EVP_PKEY_RSA, nullptr, position, length);
}

EVP_PKEY* certificateKey(const unsigned char** position, long length)
{
    const Certificate certificate{d2i_X509(nullptr, position, length)};
    return certificate ? X509_get_pubkey(certificate.get()) : nullptr;
}

AnyKey readPem(const std::string& text)
{
    const auto read = [&](auto reader) {
        return reader(readerOf(text).get(), nullptr, noPassPhrase, nullptr);
    };
    if (EvpKeyPtr key{read(PEM_read_bio_PrivateKey)})
    {
        return {std::move(key), true};
    }
    // Takes an RSA PUBLIC KEY (PKCS #1), too.
    if (EvpKeyPtr key{read(PEM_read_bio_PUBKEY)})
    {
        return {std::move(key), false};
    }
    const Certificate certificate{read(PEM_read_bio_X509)};
    return {EvpKeyPtr{certificate ? X509_get_pubkey(certificate.get()) : nullptr}, false};
}

AnyKey readDer(const std::string& bytes)
{
    const auto privateKey = [](const unsigned char** position, long length) {
        return d2i_AutoPrivateKey(nullptr, position, length);
    };
    if (EvpKeyPtr key = keyIn(bytes, privateKey))
    {
        return {std::move(key), true};
    }
    const auto publicKey = [](const unsigned char** position, long length) {
        return d2i_PUBKEY(nullptr, position, length);
    };
    for (auto* const read : {+publicKey, rsaPublicKey, certificateKey})
    {
        if (EvpKeyPtr key = keyIn(bytes, read))
        {
            return {std::move(key), false};
        }
    }
    return {};
}

// ------------------------------------------------------------------------------ JSON Web Keys

BignumPtr numberOf(const Json::Value& jwk, const char* name)
{
    const std::optional<std::string> bytes =
        jwk[name].isString() ? decodedBase64Url(jwk[name].asString()) : std::nullopt;
    return BignumPtr{bytes ? BN_bin2bn(reinterpret_cast<const unsigned char*>(bytes->data()),
                                       static_cast<int>(bytes->size()), nullptr)
                           : nullptr};
}

/** The number in @p width bytes, or in as many as it needs for 0; nothing if it is larger. */
std::optional<std::string> bytesOf(const BIGNUM& number, int width)
{
    const int size = width == 0 ? std::max(BN_num_bytes(&number), 1) : width;
    std::string bytes(static_cast<std::size_t>(size), '\0');
    if (BN_bn2binpad(&number, reinterpret_cast<unsigned char*>(bytes.data()), size) != size)
    {
        return std::nullopt;
    }
    return bytes;
}

EvpKeyPtr build(const char* type, OSSL_PARAM_BLD* builder, bool isPrivate)
{
    const ParamsPtr params{OSSL_PARAM_BLD_to_param(builder)};
    const ContextPtr context{EVP_PKEY_CTX_new_from_name(nullptr, type, nullptr)};
    EVP_PKEY* key = nullptr;
    if (!params || !context || EVP_PKEY_fromdata_init(context.get()) != 1 ||
        EVP_PKEY_fromdata(context.get(), &key, isPrivate ? EVP_PKEY_KEYPAIR : EVP_PKEY_PUBLIC_KEY,
                          params.get()) != 1)
    {
        return nullptr;
    }
    return EvpKeyPtr{key};
}

AnyKey readEc(const Json::Value& jwk)
{
    const auto* curve = std::ranges::find_if(curves, [&](const Curve& known) {
        return jwk["crv"].isString() && jwk["crv"].asString() == known.name;
    });
    const BignumPtr x = numberOf(jwk, "x");
    const BignumPtr y = numberOf(jwk, "y");
    const BignumPtr d = numberOf(jwk, "d");
    const bool isPrivate = jwk.isMember("d");
    if (curve == curves.end() || !x || !y || (isPrivate && !d))
    {
        return {};
    }
    const std::optional<std::string> xBytes = bytesOf(*x, curve->coordinateBytes);
    const std::optional<std::string> yBytes = bytesOf(*y, curve->coordinateBytes);
    const BuilderPtr builder{OSSL_PARAM_BLD_new()};
    if (!xBytes || !yBytes || !builder)
    {
        return {};
    }
    const std::string point = "\x04" + *xBytes + *yBytes;
    if (OSSL_PARAM_BLD_push_utf8_string(builder.get(), OSSL_PKEY_PARAM_GROUP_NAME, curve->group,
                                        0) != 1 ||
        OSSL_PARAM_BLD_push_octet_string(builder.get(), OSSL_PKEY_PARAM_PUB_KEY, point.data(),
                                         point.size()) != 1 ||
        (isPrivate &&
         OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_PRIV_KEY, d.get()) != 1))
    {
        return {};
    }
    return {build("EC", builder.get(), isPrivate), isPrivate};
}

AnyKey readRsa(const Json::Value& jwk)
{
    const bool isPrivate = jwk.isMember("d");
    const BuilderPtr builder{OSSL_PARAM_BLD_new()};
    // The builder keeps no copies.
    std::vector<BignumPtr> numbers;
    for (std::size_t i = 0; i < (isPrivate ? rsaMembers.size() : rsaPublicMembers); ++i)
    {
        const auto& [name, parameter] = rsaMembers.at(i);
        numbers.push_back(numberOf(jwk, name));
        if (!builder || !numbers.back() ||
            OSSL_PARAM_BLD_push_BN(builder.get(), parameter, numbers.back().get()) != 1)
        {
            return {};
        }
    }
    return {build("RSA", builder.get(), isPrivate), isPrivate};
}

AnyKey readJwk(const Json::Value& jwk)
{
    if (jwk["kty"] == "EC")
    {
        return readEc(jwk);
    }
    return jwk["kty"] == "RSA" ? readRsa(jwk) : AnyKey{};
}

// --------------------------------------------------------------------------------- what it is

bool isEc(const EVP_PKEY& key)
{
    return EVP_PKEY_get_base_id(&key) == EVP_PKEY_EC;
}

/** OpenSSL's name of the curve of @p key. */
std::string groupOf(const EVP_PKEY& key)
{
    std::array<char, 64> group{};
    std::size_t length = 0;
    return EVP_PKEY_get_group_name(&key, group.data(), group.size(), &length) == 1
               ? group.data()
               : "a curve without a name";
}

const Curve* curveOf(const EVP_PKEY& key)
{
    const std::string group = groupOf(key);
    const auto* found =
        std::ranges::find_if(curves, [&](const Curve& known) { return group == known.group; });
    return found == curves.end() ? nullptr : found;
}

/** Whether the parts of @p key fit together: the point lies on the curve, and the private part
 *  belongs to the public one. */
bool isSound(const AnyKey& key)
{
    const ContextPtr context{EVP_PKEY_CTX_new_from_pkey(nullptr, key.key.get(), nullptr)};
    if (!context)
    {
        return false;
    }
    if (key.isPrivate)
    {
        return EVP_PKEY_pairwise_check(context.get()) == 1;
    }
    return !isEc(*key.key) || EVP_PKEY_public_check(context.get()) == 1;
}

std::string encodedNumber(const EVP_PKEY& key, const char* parameter, int width)
{
    BIGNUM* raw = nullptr;
    EVP_PKEY_get_bn_param(&key, parameter, &raw);
    const BignumPtr number{raw};
    const std::optional<std::string> bytes = number ? bytesOf(*number, width) : std::nullopt;
    if (!bytes)
    {
        throw Stop{Exit::failure, "the key could not be written"};
    }
    return encodedBase64Url(*bytes);
}

/** The JSON Web Key of the public half, with the members that a thumbprint covers and no other. */
Json::Value publicJwk(const EVP_PKEY& key)
{
    Json::Value jwk;
    if (isEc(key))
    {
        const Curve& curve = *curveOf(key);
        jwk["kty"] = "EC";
        jwk["crv"] = curve.name;
        jwk["x"] = encodedNumber(key, OSSL_PKEY_PARAM_EC_PUB_X, curve.coordinateBytes);
        jwk["y"] = encodedNumber(key, OSSL_PKEY_PARAM_EC_PUB_Y, curve.coordinateBytes);
        return jwk;
    }
    jwk["kty"] = "RSA";
    for (std::size_t i = 0; i < rsaPublicMembers; ++i)
    {
        jwk[rsaMembers.at(i).first] = encodedNumber(key, rsaMembers.at(i).second, 0);
    }
    return jwk;
}

/** What @p write puts into a BIO. */
std::string written(const std::function<int(BIO*)>& write)
{
    // Wiped when it is released: private keys go through it.
    const BioPtr memory{BIO_new(BIO_s_secmem())};
    if (!memory || write(memory.get()) != 1)
    {
        throw Stop{Exit::failure, "the key could not be written"};
    }
    return contents(memory);
}

} // namespace

AnyKey readKeyOfAnyCurve(const std::string& path)
{
    const std::string bytes = readBytes(path);
    if (bytes.size() > INT_MAX)
    {
        stop(path, "is too large");
    }
    ERR_set_mark();
    AnyKey key;
    if (bytes.find("-----BEGIN") != std::string::npos)
    {
        key = readPem(bytes);
    }
    else if (const std::optional<Json::Value> jwk = parsedObject(bytes))
    {
        key = readJwk(*jwk);
    }
    else
    {
        key = readDer(bytes);
    }
    ERR_pop_to_mark();
    if (!key.key)
    {
        stop(path, "holds no unencrypted key in PEM, DER or JWK form");
    }
    return key;
}

std::string curveNameOf(const AnyKey& key)
{
    const Curve* const curve = curveOf(*key.key);
    return curve != nullptr ? curve->name : groupOf(*key.key);
}

bool hasJwk(const AnyKey& key)
{
    const int type = EVP_PKEY_get_base_id(key.key.get());
    return type == EVP_PKEY_RSA || (type == EVP_PKEY_EC && curveOf(*key.key) != nullptr);
}

AnyKey readAnyKey(const std::string& path)
{
    AnyKey key = readKeyOfAnyCurve(path);
    if (!hasJwk(key))
    {
        stop(path, "holds neither an RSA key nor one on P-256, P-384 or P-521");
    }
    if (!isSound(key))
    {
        stop(path, "holds a key whose parts do not fit together");
    }
    return key;
}

std::string pemOf(const AnyKey& key)
{
    return written([&](BIO* out) {
        return key.isPrivate ? PEM_write_bio_PKCS8PrivateKey(out, key.key.get(), nullptr, nullptr,
                                                             0, nullptr, nullptr)
                             : PEM_write_bio_PUBKEY(out, key.key.get());
    });
}

std::string derOf(const AnyKey& key)
{
    return written([&](BIO* out) {
        return key.isPrivate ? i2d_PrivateKey_bio(out, key.key.get())
                             : i2d_PUBKEY_bio(out, key.key.get());
    });
}

Json::Value jwkOf(const AnyKey& key)
{
    Json::Value jwk = publicJwk(*key.key);
    if (!key.isPrivate)
    {
        return jwk;
    }
    if (isEc(*key.key))
    {
        jwk["d"] =
            encodedNumber(*key.key, OSSL_PKEY_PARAM_PRIV_KEY, curveOf(*key.key)->coordinateBytes);
        return jwk;
    }
    for (std::size_t i = rsaPublicMembers; i < rsaMembers.size(); ++i)
    {
        jwk[rsaMembers.at(i).first] = encodedNumber(*key.key, rsaMembers.at(i).second, 0);
    }
    return jwk;
}

std::string thumbprintOf(const AnyKey& key)
{
    // The text form has no white space, and its members in the order that the thumbprint wants.
    const std::string text = textOf(publicJwk(*key.key));
    std::array<char, EVP_MAX_MD_SIZE> digest{};
    unsigned int length = 0;
    if (EVP_Digest(text.data(), text.size(), reinterpret_cast<unsigned char*>(digest.data()),
                   &length, EVP_sha256(), nullptr) != 1)
    {
        throw Stop{Exit::failure, "the thumbprint could not be computed"};
    }
    return encodedBase64Url({digest.data(), length});
}

} // namespace bmcoauth::tool
