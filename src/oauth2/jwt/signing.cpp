// SPDX-License-Identifier: Apache-2.0
#include "oauth2/jwt/signing.hpp"

#include "common/files.hpp"
#include "common/secret.hpp"
#include "crypto/base64.hpp"
#include "crypto/ec_key.hpp"
#include "crypto/openssl.hpp"
#include "crypto/pem.hpp"
#include "crypto/signature.hpp"

#include <bmcoauth/signing.h>

#include <openssl/pem.h>

#include <algorithm>
#include <array>
#include <optional>
#include <span>

namespace bmcoauth::internal::jwt
{

namespace
{

/** The buffer of a stream that carries a private key; it must outlive @p stream, which has not been
 *  read or written yet. */
using StreamBuffer = SecretBytes<1024>;

void serve(StreamBuffer& buffer, std::FILE& stream) noexcept
{
    // Where this is refused the stream allocates a buffer of its own, and works as well.
    static_cast<void>(
        std::setvbuf(&stream, reinterpret_cast<char*>(buffer.data()), _IOFBF, buffer.size()));
}

/** Gives @p key away as the `i2d_` functions do: as a new buffer where the caller has none, else into
 *  the caller's, moving the pointer behind it. */
void handOver(SecretBlock key, unsigned char*& out, int& length) noexcept
{
    const std::size_t size = key.get_deleter().size;
    length = static_cast<int>(size);
    if (out == nullptr)
    {
        out = key.release();
        return;
    }
    out = std::copy_n(key.get(), size, out);
}

SecretBlock publicBytes(const EC_KEY& key) noexcept
{
    const int length = i2o_ECPublicKey(&key, nullptr);
    if (length <= 0)
    {
        return refuse(BMCOAUTH_RULE_KEY_UNSOUND);
    }
    SecretBlock block = secretBlock(static_cast<std::size_t>(length));
    unsigned char* position = block.get();
    if (block && i2o_ECPublicKey(&key, &position) != length)
    {
        return refuse(BMCOAUTH_RULE_KEY_UNSOUND);
    }
    return block;
}

SecretBlock privateBytes(const EC_KEY& key) noexcept
{
    SecretBlock block = secretBlock(crypto::privateKeyBytes);
    if (block && !crypto::encodePrivateKey(key, std::span<unsigned char, crypto::privateKeyBytes>{
                                                    block.get(), crypto::privateKeyBytes}))
    {
        return refuse(BMCOAUTH_RULE_KEY_UNSOUND);
    }
    return block;
}

crypto::EcKeyPtr ecKeyOf(const crypto::PkeyPtr& key) noexcept
{
    if (!key)
    {
        return refuse(BMCOAUTH_RULE_KEY_ENCODING).wanted("a private key in PEM, not encrypted");
    }
    crypto::EcKeyPtr ecKey{EVP_PKEY_get1_EC_KEY(key.get())};
    if (!ecKey)
    {
        return refuse(BMCOAUTH_RULE_KEY_KIND).wanted("an EC key");
    }
    return ecKey;
}

/** Longer than any key file without a text before the key. */
constexpr std::size_t longestKeyFile = 4096;

/** The key in a file of the usual form without copies of its scalar, which OpenSSL's reader leaves
 *  behind; any other by that reader. */
crypto::EcKeyPtr readKeyText(std::string_view pem) noexcept
{
    // The lines' ends count when the room is asked for.
    SecretBytes<crypto::pkcs8Bytes + 4> der;
    if (const std::optional<std::size_t> length =
            crypto::decodeUsualPem(pem, PEM_STRING_PKCS8INF, der))
    {
        crypto::EcKeyPtr key = crypto::decodePkcs8(std::span{der}.first(*length));
        if (key)
        {
            return key;
        }
    }
    const crypto::BioPtr text = crypto::readingBio(pem);
    return ecKeyOf(crypto::PkeyPtr{
        text ? PEM_read_bio_PrivateKey(text.get(), nullptr, crypto::refusePassPhrase, nullptr)
             : nullptr});
}

crypto::EcKeyPtr readKeyFile(const char* path) noexcept
{
    StreamBuffer buffer;
    const FilePtr file = openForReading(path);
    if (!file)
    {
        return nullptr;
    }
    serve(buffer, *file);
    SecretBytes<longestKeyFile> text;
    const std::size_t length = std::fread(text.data(), 1, text.size(), file.get());
    const bool whole = std::feof(file.get()) != 0;
    if (!whole)
    {
        // A long text before the key, or nothing that can be read.
        std::rewind(file.get());
    }
    crypto::EcKeyPtr key = whole ? readKeyText(asText({text.data(), length}))
                                 : ecKeyOf(crypto::PkeyPtr{PEM_read_PrivateKey(
                                       file.get(), nullptr, crypto::refusePassPhrase, nullptr)});
    if (!key && std::ferror(file.get()) != 0)
    {
        return refuse(BMCOAUTH_RULE_FILE_UNREADABLE).about(path).sawErrno();
    }
    if (!key)
    {
        return refused().within(path);
    }
    return key;
}

/** Writes the PEM form of @p key, which OpenSSL's writer leaves copies of; what cannot be written
 *  shows in the state of @p file. */
bool writeKey(const EC_KEY& key, std::FILE& file) noexcept
{
    SecretBytes<crypto::pkcs8Bytes> der;
    if (!crypto::encodePkcs8(key, der))
    {
        return refuse(BMCOAUTH_RULE_KEY_UNSOUND);
    }
    const SecretText body = secretText(crypto::encodeBase64(asText(der)));
    const SecretText pem =
        body ? secretText(crypto::pemText(PEM_STRING_PKCS8INF, body.get())) : nullptr;
    if (!pem)
    {
        return false;
    }
    // The caller, who has opened the stream, asks it for errors.
    static_cast<void>(std::fputs(pem.get(), &file));
    static_cast<void>(std::fputc('\n', &file));
    return true;
}

bool writeKeyFile(const char* path) noexcept
{
    const crypto::EcKeyPtr key = crypto::generateKey();
    if (!key)
    {
        return false;
    }
    StreamBuffer buffer;
    const FilePtr file = openPrivateForWriting(path);
    if (!file)
    {
        return false;
    }
    serve(buffer, *file);
    // The flush finds the full disk that the writes into the buffer did not.
    return writeKey(*key, *file) &&
           ((std::fflush(file.get()) == 0 && std::ferror(file.get()) == 0) ||
            refuse(BMCOAUTH_RULE_FILE_UNWRITABLE).about(path).sawErrno());
}

bool makeKeyPair(unsigned char*& publicOut, unsigned char*& privateOut, int& publicLength,
                 int& privateLength) noexcept
{
    const crypto::EcKeyPtr key = crypto::generateKey();
    if (!key)
    {
        return false;
    }
    SecretBlock publicPart = publicBytes(*key);
    SecretBlock privatePart = privateBytes(*key);
    if (!publicPart || !privatePart)
    {
        return false;
    }
    handOver(std::move(publicPart), publicOut, publicLength);
    handOver(std::move(privatePart), privateOut, privateLength);
    return true;
}

bool isSoundKeyFile(const char* path) noexcept
{
    const crypto::EcKeyPtr key = readKeyFile(path);
    return key &&
           (EC_KEY_check_key(key.get()) == 1 || refuse(BMCOAUTH_RULE_KEY_UNSOUND).about(path));
}

bool readPublicPoint(const char* path, unsigned char*& out, int& length) noexcept
{
    const crypto::EcKeyPtr key = readKeyFile(path);
    if (!key)
    {
        return false;
    }
    SecretBlock point = publicBytes(*key);
    if (!point)
    {
        return false; // GCOVR_EXCL_LINE: one allocation must fail
    }
    handOver(std::move(point), out, length);
    return true;
}

} // namespace

HeapText signToken(std::string_view signingInput, const unsigned char* der, int derLength)
{
    // Without key bytes a key that nobody keeps signs: the caller gets a well-formed token that
    // nothing will ever accept. Services rely on it, so it stays.
    const crypto::EcKeyPtr key =
        der == nullptr ? crypto::generateKey() : crypto::decodePrivateKey(der, derLength);
    return key ? crypto::signText(signingInput, *key) : nullptr;
}

bool verifySignature(std::string_view signingInput, std::string_view signature,
                     const unsigned char* der, int derLength)
{
    const crypto::EcKeyPtr key = crypto::decodePrivateKey(der, derLength);
    return key && crypto::verifyText(signingInput, bytesOf(signature), *key,
                                     BMCOAUTH_RULE_TOKEN_SIGNATURE);
}

} // namespace bmcoauth::internal::jwt

using namespace bmcoauth::internal;

extern "C" int generateECKey(unsigned char** publicKey, unsigned char** privateKey,
                             int* publicLength, int* privateLength)
{
    if (refusesNull("publicKey privateKey publicLength privateLength", publicKey, privateKey,
                    publicLength, privateLength))
    {
        return refused();
    }
    return crypto::guardedCrypto([=] {
        return int{jwt::makeKeyPair(*publicKey, *privateKey, *publicLength, *privateLength)};
    });
}

extern "C" int generateECPrivateKey(const char* path)
{
    if (refusesNull("path", path))
    {
        return refused();
    }
    return crypto::guardedCrypto([=] { return int{jwt::writeKeyFile(path)}; });
}

extern "C" int validateECPrivateKey(const char* path)
{
    if (refusesNull("path", path))
    {
        return refused();
    }
    return crypto::guardedCrypto([=] { return int{jwt::isSoundKeyFile(path)}; });
}

extern "C" int getECPublicKey(const char* path, unsigned char** publicKey, int* length)
{
    if (refusesNull("path publicKey length", path, publicKey, length))
    {
        return refused();
    }
    return crypto::guardedCrypto(
        [=] { return int{jwt::readPublicPoint(path, *publicKey, *length)}; });
}

EC_KEY* getECKeyFromFile(const char* path)
{
    if (refusesNull("path", path))
    {
        return refused();
    }
    return crypto::guardedCrypto([=] { return jwt::readKeyFile(path).release(); });
}

char* signToken(const std::string& signingInput, const unsigned char* der, int derLength)
{
    return crypto::guardedCrypto(
        [&] { return jwt::signToken(signingInput, der, derLength).release(); });
}

int verifySignature(const std::string& signingInput, const unsigned char* signature,
                    int signatureLength, const unsigned char* der, int derLength)
{
    if (refusesNull("signature", signature))
    {
        return refused();
    }
    if (signatureLength < 0)
    {
        return refuseCall(BMCOAUTH_RULE_ARGUMENT_LENGTH, "signatureLength");
    }
    const std::string_view bytes = asText({signature, static_cast<std::size_t>(signatureLength)});
    return crypto::guardedCrypto(
        [&] { return int{jwt::verifySignature(signingInput, bytes, der, derLength)}; });
}
