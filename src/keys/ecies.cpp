// SPDX-License-Identifier: Apache-2.0
#include "crypto/ecies.hpp"

#include "common/device.hpp"
#include "crypto/base64.hpp"
#include "crypto/ec_key.hpp"
#include "keys/certificate.hpp"

#include <bmcoauth/ecies.h>

#include <cstring>

namespace bmcoauth::internal::keys
{

namespace
{

/** The P-256 key in the first certificate of @p peer; null if there is none. */
crypto::EcKeyPtr peerKey(const HandshakePayload* peer)
{
    const HeapText pem = firstCertificatePem(peer);
    if (!pem)
    {
        return nullptr;
    }
    const std::optional<Certificate> certificate = Certificate::read(pem.get());
    crypto::EcKeyPtr key = certificate ? certificate->ecKey() : nullptr;
    if (key && !crypto::isP256(*key))
    {
        refuse(BMCOAUTH_RULE_KEY_CURVE).wanted("P-256");
        key = nullptr;
    }
    if (!key)
    {
        return refused().within("peer").at(0);
    }
    return key;
}

/** The two keys that an envelope is between. */
struct KeyPair
{
    crypto::EcKeyPtr own;
    crypto::EcKeyPtr peer;
};

std::optional<KeyPair> keysOf(const unsigned char* der, int derLength, const HandshakePayload* peer)
{
    KeyPair keys{crypto::decodePrivateKey(der, derLength), nullptr};
    if (!keys.own)
    {
        return refused().within("der");
    }
    keys.peer = peerKey(peer);
    return keys.peer ? std::optional{std::move(keys)} : std::nullopt;
}

std::optional<crypto::Envelope> seal(std::string_view data, const HandshakePayload* peer,
                                     const unsigned char* der, int derLength, const char* ivHex)
{
    const std::optional<crypto::Iv> iv = crypto::ivOf(ivHex);
    const std::optional<KeyPair> keys = iv ? keysOf(der, derLength, peer) : std::nullopt;
    return keys ? crypto::sealEnvelope(data, *keys->own, *keys->peer, *iv) : std::nullopt;
}

std::optional<crypto::Plaintext> unseal(const char* ciphertext, const unsigned char* der,
                                        int derLength, const char* macText,
                                        const HandshakePayload* peer, const char* ivHex)
{
    const std::optional<crypto::Iv> iv = crypto::ivOf(ivHex);
    if (!iv)
    {
        return std::nullopt;
    }
    if (macText == nullptr && !isMarkedDevice())
    {
        return refuse(BMCOAUTH_RULE_ENVELOPE_MAC_MISSING).about("mac");
    }
    const std::optional<crypto::DecodedBytes> body = crypto::decodeEitherBase64(ciphertext);
    if (!body)
    {
        return refused().within("ciphertext");
    }
    std::optional<crypto::DecodedBytes> mac;
    if (macText != nullptr)
    {
        mac = crypto::decodeEitherBase64(macText);
        if (!mac)
        {
            return refused().within("mac");
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
    std::string_view text = asText({plaintext.bytes.get(), plaintext.length});
    if (text.ends_with('\0'))
    {
        text.remove_suffix(1);
    }
    if (text.find('\0') != std::string_view::npos)
    {
        return refuse(BMCOAUTH_RULE_ENVELOPE_TEXT);
    }
    return static_cast<unsigned int>(text.size());
}

} // namespace

} // namespace bmcoauth::internal::keys

using namespace bmcoauth::internal;

extern "C" char* ecies_encrypt(const char* data, unsigned int length, HandshakePayload** peer,
                               char** mac, const unsigned char* der, int derLength, const char* iv)
{
    if (refusesNull("data mac peer", data, mac, peer))
    {
        return refused();
    }
    if (length == 0)
    {
        return refuseCall(BMCOAUTH_RULE_ARGUMENT_LENGTH, "length");
    }
    return crypto::guardedCrypto([=]() -> char* {
        std::optional<crypto::Envelope> envelope =
            keys::seal({data, length}, *peer, der, derLength, iv);
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
    if (refusesNull("ciphertext peer", ciphertext, peer))
    {
        return refused();
    }
    return crypto::guardedCrypto([=]() -> char* {
        std::optional<crypto::Plaintext> text =
            keys::unseal(ciphertext, der, derLength, mac, *peer, iv);
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
