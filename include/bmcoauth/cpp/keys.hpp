// SPDX-License-Identifier: Apache-2.0
#pragma once

/* EC keys, over <bmcoauth/signing.h>. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/key_file.hpp>
#include <bmcoauth/cpp/owners.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/jwk.h>
#include <bmcoauth/signing.h>
#include <bmcoauth/x509.h>

#include <climits>
#include <openssl/ec.h>

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

namespace bmcoauth
{
inline namespace v1
{

// EC_KEY is marked deprecated; the interface holds it, so that its users need not hear of it.
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif

/** Frees an EC_KEY of OpenSSL. It is here because compilers warn about the call elsewhere. */
struct EcKeyReleaser
{
    /** Releases `key`. */
    void operator()(EC_KEY* key) const noexcept
    {
        EC_KEY_free(key);
    }
};
/** Owns an EC_KEY of OpenSSL. */
using EcKey = std::unique_ptr<EC_KEY, EcKeyReleaser>;

/** PrivateKey owns the key with which a service or a device signs and opens envelopes: P-256, an
 *  ECPrivateKey structure (RFC 5915). It is wiped when it is released. A key that cannot sign, as on another
 *  curve, is refused. */
class PrivateKey
{
public:
    /** Copies the DER bytes; there is one at least. */
    [[nodiscard]] static Expected<PrivateKey> fromDer(ByteSpan der)
    {
        if (der.empty())
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, "der"};
        }
        if (der.size() > static_cast<std::size_t>(INT_MAX))
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_LENGTH, "der"};
        }
        return Bytes::copy(der).and_then(signing);
    }

    /** Reads the PEM file `path`, which holds a private key, not encrypted. */
    [[nodiscard]] static Expected<PrivateKey> fromFile(std::string_view path)
    {
        detail::Arguments in;
        const char* const pathText = in.text("path", path);
        if (in.failed())
        {
            return in.failure();
        }
        const EcKey key{::getECKeyFromFile(pathText)};
        if (!key)
        {
            return Error::last();
        }
        const int size = i2d_ECPrivateKey(key.get(), nullptr);
        if (size <= 0)
        {
            return Error{BMCOAUTH_RULE_MEMORY_EXHAUSTED};
        }
        Bytes der{std::malloc(static_cast<std::size_t>(size)), static_cast<std::size_t>(size)};
        if (der.span().empty())
        {
            return Error{BMCOAUTH_RULE_MEMORY_EXHAUSTED};
        }
        unsigned char* behind = der.data();
        if (i2d_ECPrivateKey(key.get(), &behind) != size)
        {
            return Error{BMCOAUTH_RULE_MEMORY_EXHAUSTED};
        }
        return signing(std::move(der));
    }

    /** Reads the key file `path`. If, and only if, no file is there, makes one first, of mode 0600.
     *
     *  Never writes to a file that exists. A file that is empty, encrypted, unreadable for the
     *  moment or not an EC key is refused and stays as it is: with a new key, all tokens out
     *  there would be worthless. Where several processes start for the first time, all of them end
     *  with one key. The new key is on the medium before this returns.
     *
     *  While it is made, there is a file named `path`, "." and six characters in the same folder. After
     *  a power cut it may remain, and can be deleted. */
    [[nodiscard]] static Expected<PrivateKey> loadOrCreate(std::string_view path)
    {
        detail::Arguments in;
        const char* const pathText = in.text("path", path);
        if (in.failed())
        {
            return in.failure();
        }
        if (::access(pathText, F_OK) != 0)
        {
            if (errno != ENOENT)
            {
                return Error::ofFile(BMCOAUTH_RULE_FILE_UNREADABLE, path);
            }
            if (const Expected<void> made = detail::createKeyFile(pathText); !made)
            {
                return made.error();
            }
        }
        return fromFile(path);
    }

    /** Empty only after it has been moved from. */
    [[nodiscard]] ByteSpan der() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return bytes.span();
    }
    [[nodiscard]] ByteSpan der() const&& = delete;

private:
    friend struct KeyPair;

    explicit PrivateKey(Bytes der) noexcept : bytes{std::move(der)}
    {
    }

    /** The key of these DER bytes, if it can sign. */
    [[nodiscard]] static Expected<PrivateKey> signing(Bytes der)
    {
        const Text signature{::signToken("", der.data(), static_cast<int>(der.span().size()))};
        if (signature.view().empty())
        {
            return Error::last();
        }
        return PrivateKey{std::move(der)};
    }

    Bytes bytes;
};

/** A new key pair: the private key, and its public point, uncompressed (SEC 1, section 2.3.3). */
struct KeyPair
{
    /** The secret part. */
    PrivateKey privateKey;
    /** The part for others. */
    Bytes publicPoint;

    /** generateECKey */
    [[nodiscard]] static Expected<KeyPair> generate()
    {
        unsigned char* point = nullptr;
        unsigned char* der = nullptr;
        int pointLength = 0;
        int derLength = 0;
        if (::generateECKey(&point, &der, &pointLength, &derLength) != 1)
        {
            return Error::last();
        }
        return KeyPair{PrivateKey{Bytes{der, static_cast<std::size_t>(derLength)}},
                       Bytes{point, static_cast<std::size_t>(pointLength)}};
    }
};

/** Makes the key file `path`: generateECPrivateKey. NOTE: it empties a file that is there first; a
 *  service starts with PrivateKey::loadOrCreate. */
inline Expected<void> generateKeyFile(std::string_view path)
{
    detail::Arguments in;
    const char* const pathText = in.text("path", path);
    if (in.failed())
    {
        return in.failure();
    }
    return detail::doneOrRefused(::generateECPrivateKey(pathText));
}

/** Whether the file `path` holds a sound EC private key: validateECPrivateKey. */
[[nodiscard]] inline Expected<void> keyFileIsSound(std::string_view path)
{
    detail::Arguments in;
    const char* const pathText = in.text("path", path);
    if (in.failed())
    {
        return in.failure();
    }
    return detail::doneOrRefused(::validateECPrivateKey(pathText));
}

/** The public point of the key file `path`: getECPublicKey. */
[[nodiscard]] inline Expected<Bytes> publicPointOfFile(std::string_view path)
{
    detail::Arguments in;
    const char* const pathText = in.text("path", path);
    if (in.failed())
    {
        return in.failure();
    }
    unsigned char* point = nullptr;
    int length = 0;
    if (::getECPublicKey(pathText, &point, &length) != 1)
    {
        return Error::last();
    }
    return Bytes{point, static_cast<std::size_t>(length)};
}

/** The PEM text of a public key of a JSON Web Key's numbers: createEcPublicKey. */
[[nodiscard]] inline Expected<Text> ecPublicKeyPem(std::string_view x, std::string_view y,
                                                   std::string_view curve)
{
    return detail::made<Text>(::createEcPublicKey, {{"x", x}, {"y", y}, {"curve", curve}});
}
/** The same for an RSA key: createRsaPublicKey. */
[[nodiscard]] inline Expected<Text> rsaPublicKeyPem(std::string_view n, std::string_view e)
{
    return detail::made<Text>(::createRsaPublicKey, {{"n", n}, {"e", e}});
}

/** The private key as OpenSSL's object: get_EC_privKey. */
[[nodiscard]] inline Expected<EcKey> ecKeyOf(const PrivateKey& key)
{
    return detail::ownedOrRefused<EcKey>(
        ::get_EC_privKey(key.der().data(), static_cast<int>(key.der().size())));
}

/** The public point of `key`, uncompressed (SEC 1, section 2.3.3). */
[[nodiscard]] inline Expected<Bytes> publicPointOf(const PrivateKey& key)
{
    constexpr int size = 65;
    const Expected<EcKey> pair = ecKeyOf(key);
    if (!pair)
    {
        return pair.error();
    }
    EC_KEY_set_conv_form(pair->get(), POINT_CONVERSION_UNCOMPRESSED);
    Bytes point{std::malloc(size), size};
    unsigned char* behind = point.data();
    if (behind == nullptr || i2o_ECPublicKey(pair->get(), nullptr) != size ||
        i2o_ECPublicKey(pair->get(), &behind) != size)
    {
        return Error{BMCOAUTH_RULE_MEMORY_EXHAUSTED};
    }
    return point;
}

#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

} // namespace v1
} // namespace bmcoauth
