// SPDX-License-Identifier: Apache-2.0
#include "envelope_rules.hpp"

#include "documents.hpp"
#include "openssl.hpp"

#include <openssl/crypto.h>
#include <openssl/ec.h>
#include <openssl/hmac.h>
#include <openssl/obj_mac.h>

#include <array>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace bmcoauth::tool
{

namespace
{

using CipherPtr = std::unique_ptr<EVP_CIPHER_CTX, Releaser<EVP_CIPHER_CTX_free>>;

constexpr std::size_t blockLength = 16;
constexpr std::size_t macLength = 32;

/** What both sides derive from their keys: one half encrypts, the other authenticates. */
class AgreedKeys
{
public:
    AgreedKeys(const EC_KEY& own, const EC_KEY& peer)
        : agreed{ECDH_compute_key(bytes.data(), bytes.size(), EC_KEY_get0_public_key(&peer), &own,
                                  ecies_key_derivation) == static_cast<int>(bytes.size())}
    {
    }
    AgreedKeys(const AgreedKeys&) = delete;
    AgreedKeys& operator=(const AgreedKeys&) = delete;
    AgreedKeys(AgreedKeys&&) = delete;
    AgreedKeys& operator=(AgreedKeys&&) = delete;
    ~AgreedKeys()
    {
        OPENSSL_cleanse(bytes.data(), bytes.size());
    }

    [[nodiscard]] bool valid() const
    {
        return agreed;
    }

    [[nodiscard]] const unsigned char* cipherKey() const
    {
        return bytes.data();
    }

    /** The HMAC-SHA256 of @p body. */
    [[nodiscard]] std::string mac(const std::string& body) const
    {
        std::array<unsigned char, macLength> result{};
        unsigned int length = 0;
        HMAC(EVP_sha256(), bytes.data() + blockLength, blockLength,
             reinterpret_cast<const unsigned char*>(body.data()), body.size(), result.data(),
             &length);
        return {reinterpret_cast<const char*>(result.data()), result.size()};
    }

private:
    std::array<unsigned char, 2 * blockLength> bytes{};
    bool agreed;
};

/** The bytes of a text in either Base64 alphabet. */
std::optional<std::string> decoded(std::string_view text)
{
    std::string copy{text};
    // Shortens the text where it ends with padding.
    base64URIencode(copy.data());
    copy.resize(std::strlen(copy.data()));
    return decodedBase64Url(copy);
}

/** The plaintext of @p body; nothing where its padding is wrong. Only its shape is looked at. */
std::optional<std::string> decrypted(const std::string& body, const AgreedKeys& keys,
                                     std::string_view ivHex)
{
    std::array<unsigned char, blockLength> iv{};
    const CipherPtr context{EVP_CIPHER_CTX_new()};
    std::vector<unsigned char> text(body.size() + blockLength);
    int first = 0;
    int last = 0;
    if (!context || convertHextoBinary(std::string{ivHex}.c_str(), iv.data()) != 1 ||
        EVP_DecryptInit_ex(context.get(), EVP_aes_128_cbc(), nullptr, keys.cipherKey(),
                           iv.data()) != 1 ||
        EVP_DecryptUpdate(context.get(), text.data(), &first,
                          reinterpret_cast<const unsigned char*>(body.data()),
                          static_cast<int>(body.size())) != 1 ||
        EVP_DecryptFinal_ex(context.get(), text.data() + first, &last) != 1)
    {
        return std::nullopt;
    }
    std::string result{reinterpret_cast<const char*>(text.data()),
                       static_cast<std::size_t>(first + last)};
    OPENSSL_cleanse(text.data(), text.size());
    return result;
}

Refusal formRules(const EnvelopeView& sealed)
{
    if (sealed.iv.size() != 2 * blockLength)
    {
        return refused("iv", std::to_string(sealed.iv.size()) + " characters",
                       "32 hexadecimal digits");
    }
    if (!decoded(sealed.ciphertext))
    {
        return refused("ciphertext", brief(sealed.ciphertext), "Base64 or Base64url text");
    }
    if (!decoded(sealed.mac))
    {
        return refused("mac", brief(sealed.mac), "Base64 or Base64url text");
    }
    return std::nullopt;
}

Refusal peerRules(const EcKey& key)
{
    if (!key)
    {
        return refused("peer", "a first certificate that cannot be read, or without an EC key",
                       "a certificate with a key on P-256");
    }
    const int curve = EC_GROUP_get_curve_name(EC_KEY_get0_group(key.get()));
    if (curve != NID_X9_62_prime256v1)
    {
        const char* name = EC_curve_nid2nist(curve);
        return refused("peer",
                       std::string{"a key on "} + (name != nullptr ? name : "another curve"),
                       "a key on P-256");
    }
    return std::nullopt;
}

bool samePublicKey(const EC_KEY& left, const EC_KEY& right)
{
    return EC_POINT_cmp(EC_KEY_get0_group(&left), EC_KEY_get0_public_key(&left),
                        EC_KEY_get0_public_key(&right), nullptr) == 0;
}

Refusal macRules(const std::string& body, const std::string& mac, const AgreedKeys& keys,
                 bool ownCertificate)
{
    if (mac.size() != macLength)
    {
        return refused("mac", std::to_string(mac.size()) + " bytes", "32 bytes");
    }
    const std::string expected = keys.mac(body);
    if (CRYPTO_memcmp(mac.data(), expected.data(), macLength) == 0)
    {
        return std::nullopt;
    }
    return refused("mac", "a MAC that does not fit the ciphertext under these two keys",
                   "the HMAC-SHA256 of the ciphertext",
                   ownCertificate ? "--peer is the certificate of the own key: it has to be the "
                                    "other party's"
                                  : "sealed with other keys, or altered on the way");
}

Refusal textRules(const std::string& body, const EnvelopeView& sealed, const AgreedKeys& keys)
{
    std::optional<std::string> opened = decrypted(body, keys, sealed.iv);
    if (!opened)
    {
        return refused("padding",
                       std::to_string(body.size()) + " bytes of ciphertext without the padding",
                       "AES-128-CBC with PKCS#7 padding",
                       "the MAC fits, so that the sealing side made this ciphertext, or the iv is "
                       "another one");
    }
    std::string& text = *opened;
    const std::size_t zero = text.find('\0');
    // One zero byte may end it.
    const bool whole = zero == std::string::npos || zero + 1 == text.size();
    OPENSSL_cleanse(text.data(), text.size());
    if (whole)
    {
        return std::nullopt;
    }
    return refused("text", "a zero byte at position " + std::to_string(zero), "a text",
                   zero < blockLength ? "another iv alters the first 16 bytes, and no MAC covers it"
                                      : "");
}

} // namespace

Explanation explainEnvelope(const EnvelopeView& sealed, const CertificateKey& peer,
                            const PrivateKey& key)
{
    if (const Refusal refusal = formRules(sealed))
    {
        return *refusal;
    }
    const Expected<Text> certificate = peer.pem();
    const EcKey theirs = certificate.and_then(ecKeyOfCertificate).value_or(nullptr);
    if (const Refusal refusal = peerRules(theirs))
    {
        return *refusal;
    }
    const EcKey own = orStop(ecKeyOf(key), "memory is exhausted");
    const AgreedKeys keys{*own, *theirs};
    if (!keys.valid())
    {
        return refused("agreement", "two keys from which nothing can be agreed", "two P-256 keys");
    }
    const std::string body = *decoded(sealed.ciphertext);
    Refusal refusal = macRules(body, *decoded(sealed.mac), keys, samePublicKey(*own, *theirs));
    if (!refusal)
    {
        refusal = textRules(body, sealed, keys);
    }
    return refusal.value_or(Explanation{});
}

} // namespace bmcoauth::tool
