// SPDX-License-Identifier: Apache-2.0
#include "crypto/ecies.hpp"

#include "crypto/base64.hpp"
#include "crypto/ec_key.hpp"
#include "keys/certificate.hpp"

#include <bmcoauth/ecies.h>
#include <bmcoauth/support.h>

#include <cstring>

namespace bmcoauth::keys
{

namespace
{

/** The P-256 key in the first certificate of @p peer; null if there is none. */
crypto::EcKeyPtr peerKey(HandshakePayload* const* peer)
{
    const std::optional<std::string> pem =
        peer == nullptr ? std::nullopt : firstCertificatePem(*peer);
    const std::optional<Certificate> certificate = pem ? Certificate::read(*pem) : std::nullopt;
    crypto::EcKeyPtr key = certificate ? certificate->ecKey() : nullptr;
    return key && crypto::isP256(*key) ? std::move(key) : nullptr;
}

/** The two keys that an envelope is between. */
struct KeyPair
{
    crypto::EcKeyPtr own;
    crypto::EcKeyPtr peer;
};

std::optional<KeyPair> keysOf(const unsigned char* der, int derLength,
                              HandshakePayload* const* peer)
{
    KeyPair keys{crypto::decodePrivateKey(der, derLength), nullptr};
    if (keys.own)
    {
        keys.peer = peerKey(peer);
    }
    return keys.peer ? std::optional{std::move(keys)} : std::nullopt;
}

std::optional<crypto::Envelope> seal(std::string_view data, HandshakePayload* const* peer,
                                     const unsigned char* der, int derLength, const char* ivHex)
{
    const std::optional<crypto::Iv> iv = crypto::ivOf(ivHex);
    const std::optional<KeyPair> keys = iv ? keysOf(der, derLength, peer) : std::nullopt;
    return keys ? crypto::sealEnvelope(data, *keys->own, *keys->peer, *iv) : std::nullopt;
}

std::optional<crypto::Plaintext> unseal(const char* ciphertext, const unsigned char* der,
                                        int derLength, const char* macText,
                                        HandshakePayload* const* peer, const char* ivHex)
{
    const std::optional<crypto::Iv> iv = crypto::ivOf(ivHex);
    if (!iv || (macText == nullptr && isDeviceVorn() == 0))
    {
        return std::nullopt;
    }
    const std::optional<crypto::DecodedBytes> body = crypto::decodeEitherBase64(ciphertext);
    if (!body)
    {
        return std::nullopt;
    }
    std::optional<crypto::DecodedBytes> mac;
    if (macText != nullptr)
    {
        mac = crypto::decodeEitherBase64(macText);
        if (!mac)
        {
            return std::nullopt;
        }
    }
    const std::optional<KeyPair> keys = keysOf(der, derLength, peer);
    if (!keys)
    {
        return std::nullopt;
    }
    return crypto::openEnvelope(body->text(), mac ? std::optional{mac->text()} : std::nullopt,
                                *keys->own, *keys->peer, *iv);
}

/** The length of @p plaintext as a text: a zero byte at its end is not part of it, one before that
 *  makes it none. */
std::optional<unsigned int> textLength(const crypto::Plaintext& plaintext)
{
    std::string_view text{reinterpret_cast<const char*>(plaintext.bytes.get()), plaintext.length};
    if (text.ends_with('\0'))
    {
        text.remove_suffix(1);
    }
    return text.find('\0') == std::string_view::npos
               ? std::optional{static_cast<unsigned int>(text.size())}
               : std::nullopt;
}

} // namespace

} // namespace bmcoauth::keys

using namespace bmcoauth;

extern "C" char* ecies_encrypt(const char* data, unsigned int length, HandshakePayload** peer,
                               char** mac, const unsigned char* der, int derLength, const char* iv)
{
    if (data == nullptr || length == 0 || mac == nullptr)
    {
        return nullptr;
    }
    return crypto::guardedCrypto(nullptr, [&]() -> char* {
        std::optional<crypto::Envelope> envelope =
            keys::seal({data, length}, peer, der, derLength, iv);
        if (!envelope)
        {
            return nullptr;
        }
        *mac = envelope->mac.release();
        return envelope->body.release();
    });
}

extern "C" char* ecies_decrypt(const char* ciphertext, unsigned int* length,
                               const unsigned char* der, int derLength, const char* mac,
                               HandshakePayload** peer, const char* iv)
{
    if (ciphertext == nullptr)
    {
        return nullptr;
    }
    return crypto::guardedCrypto(nullptr, [&]() -> char* {
        std::optional<crypto::Plaintext> text =
            keys::unseal(ciphertext, der, derLength, mac, peer, iv);
        if (!text)
        {
            return nullptr;
        }
        if (length != nullptr)
        {
            const std::optional<unsigned int> counted = keys::textLength(*text);
            if (!counted)
            {
                return nullptr;
            }
            *length = *counted;
        }
        return reinterpret_cast<char*>(text->bytes.release());
    });
}
