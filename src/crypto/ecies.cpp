// SPDX-License-Identifier: Apache-2.0
#include "crypto/ecies.hpp"

#include "common/device.hpp"
#include "common/hex.hpp"
#include "crypto/base64.hpp"
#include "crypto/random.hpp"
#include "crypto/signature.hpp"

#include <bmcoauth/ecies.h>

#include <climits>
#include <openssl/hmac.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>

namespace bmcoauth::internal::crypto
{

namespace
{

constexpr std::size_t blockLength = 16;
constexpr std::size_t macLength = 32;
constexpr unsigned int tokenBytes = 12;
constexpr std::size_t tokenLength = 16; // of their Base64

/** The number of characters of an IV. */
constexpr std::size_t ivDigits = 2 * sizeof(Iv);

/** The lengths at the head of a secure buffer. */
struct SecureHeader
{
    std::uint64_t key = 0;
    std::uint64_t mac = 0;
    std::uint64_t plain = 0;
    std::uint64_t body = 0;
};
static_assert(sizeof(SecureHeader) == 32);

SecureHeader headerOf(const void* buffer) noexcept
{
    SecureHeader header;
    std::memcpy(&header, buffer, sizeof header);
    return header;
}

/** What both sides derive from their keys. */
struct EnvelopeKeys
{
    SecretBytes<32> bytes;

    [[nodiscard]] std::span<const unsigned char, 16> cipherKey() const noexcept
    {
        return std::span{bytes}.first<16>();
    }
    [[nodiscard]] std::span<const unsigned char, 16> macKey() const noexcept
    {
        return std::span{bytes}.last<16>();
    }
};

/** The inside of ecies_key_derivation. */
void* deriveKeys(const void* input, std::size_t inputLength, void* output,
                 std::size_t* outputLength) noexcept
{
    constexpr std::size_t digestLength = Sha256Digest{}.size();
    const bool computed = sha256(
        {static_cast<const char*>(input), inputLength},
        std::span<unsigned char, digestLength>{static_cast<unsigned char*>(output), digestLength});
    // ECDH_compute_key checks only the length, not the result: without this, the unwritten buffer
    // would be used as the key.
    *outputLength = computed ? digestLength : 0;
    return computed ? output : nullptr;
}

bool agree(const EC_KEY& own, const EC_KEY& peer, EnvelopeKeys& keys) noexcept
{
    const EC_POINT* point = EC_KEY_get0_public_key(&peer);
    return (point != nullptr &&
            ECDH_compute_key(keys.bytes.data(), keys.bytes.size(), point, &own, deriveKeys) ==
                static_cast<int>(keys.bytes.size())) ||
           refuse(BMCOAUTH_RULE_KEY_UNSOUND);
}

bool computeMac(const EnvelopeKeys& keys, std::string_view body,
                std::span<unsigned char, macLength> mac) noexcept
{
    unsigned int length = 0;
    return (HMAC(EVP_sha256(), keys.macKey().data(), static_cast<int>(keys.macKey().size()),
                 bytesOf(body).data(), body.size(), mac.data(), &length) != nullptr &&
            length == mac.size()) ||
           refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED);
}

/** The length of the public part of @p key in compressed form; 0 on failure. */
std::size_t compressedLength(const EC_KEY& key) noexcept
{
    const EC_POINT* point = EC_KEY_get0_public_key(&key);
    const std::size_t length =
        point == nullptr ? 0
                         : EC_POINT_point2oct(EC_KEY_get0_group(&key), point,
                                              POINT_CONVERSION_COMPRESSED, nullptr, 0, nullptr);
    if (length == 0)
    {
        refuse(BMCOAUTH_RULE_KEY_UNSOUND);
    }
    return length;
}

std::optional<Envelope> envelopeOf(std::string_view body, std::string_view mac) noexcept
{
    Envelope envelope{encodeBase64(body), encodeBase64(mac)};
    return envelope.body && envelope.mac ? std::optional{std::move(envelope)} : std::nullopt;
}

/** Encrypts the concatenation of @p parts to @p out, which has room for exactly that with its
 *  padding. */
bool encrypt(std::span<const std::string_view> parts, const EnvelopeKeys& keys, const Iv& iv,
             std::span<unsigned char> out) noexcept
{
    const CipherContextPtr context{EVP_CIPHER_CTX_new()};
    if (!context || EVP_EncryptInit_ex(context.get(), EVP_aes_128_cbc(), nullptr,
                                       keys.cipherKey().data(), iv.data()) != 1)
    {
        return refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED);
    }
    unsigned char* end = out.data();
    int written = 0;
    for (const std::string_view part : parts)
    {
        if (EVP_EncryptUpdate(context.get(), end, &written, bytesOf(part).data(),
                              static_cast<int>(part.size())) != 1)
        {
            return refuse(
                BMCOAUTH_RULE_MEMORY_EXHAUSTED); // GCOVR_EXCL_LINE: one allocation must fail
        }
        end += written;
    }
    return (EVP_EncryptFinal_ex(context.get(), end, &written) == 1 &&
            static_cast<std::size_t>(end + written - out.data()) == out.size()) ||
           refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED);
}

/** The inside of secure_alloc. */
HeapBlock<unsigned char> secureBuffer(const SecureHeader& header) noexcept
{
    std::size_t size = 0;
    if (__builtin_add_overflow(sizeof header, header.key, &size) ||
        __builtin_add_overflow(size, header.mac, &size) ||
        __builtin_add_overflow(size, header.body, &size))
    {
        return refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED);
    }
    HeapBlock<unsigned char> buffer = zeroedBlock<unsigned char>(size);
    if (buffer)
    {
        std::memcpy(buffer.get(), &header, sizeof header);
    }
    return buffer;
}

unsigned char* macOf(void* buffer) noexcept
{
    return static_cast<unsigned char*>(buffer) + sizeof(SecureHeader) + headerOf(buffer).key;
}

unsigned char* bodyOf(void* buffer) noexcept
{
    return macOf(buffer) + headerOf(buffer).mac;
}

/** Converts as many digits as an IV has as convertHextoBinary does. */
void readHex(const char* hex, unsigned char* out) noexcept
{
    for (std::size_t at = 0; at < ivDigits; at += 2)
    {
        const std::array<char, 3> pair{hex[at], hex[at + 1], '\0'};
        *out++ = static_cast<unsigned char>(std::strtol(pair.data(), nullptr, 16));
    }
}

/** Whether @p mac is that of @p body. */
bool isMac(std::string_view mac, std::string_view body, const EnvelopeKeys& keys) noexcept
{
    std::array<unsigned char, macLength> expected{};
    if (mac.size() == expected.size() && !computeMac(keys, body, expected))
    {
        return false;
    }
    return (mac.size() == expected.size() &&
            CRYPTO_memcmp(mac.data(), expected.data(), expected.size()) == 0) ||
           refuse(BMCOAUTH_RULE_ENVELOPE_MAC_WRONG);
}

} // namespace

std::optional<Iv> ivOf(const char* hex) noexcept
{
    Iv iv{};
    if (hex == nullptr && isMarkedDevice())
    {
        return iv;
    }
    if (hex == nullptr || std::strlen(hex) != ivDigits)
    {
        return refuse(BMCOAUTH_RULE_ENVELOPE_IV).about("iv").saw(hex);
    }
    readHex(hex, iv.data());
    return iv;
}

std::optional<Envelope> sealEnvelope(std::string_view data, const EC_KEY& own, const EC_KEY& peer,
                                     const Iv& iv) noexcept
{
    // The room for a line feed is counted even when the data ends with one.
    const std::uint64_t plainLength = std::uint64_t{tokenLength} + data.size() + 1;
    const std::uint64_t bodyLength = (plainLength / blockLength + 1) * blockLength;
    if (bodyLength > INT_MAX)
    {
        return refuse(BMCOAUTH_RULE_ENVELOPE_LENGTH).about("length");
    }
    const std::size_t keyLength = compressedLength(own);
    const SecretText token = keyLength == 0 ? nullptr : randomToken(tokenBytes);
    EnvelopeKeys keys;
    if (!token || !agree(own, peer, keys))
    {
        return std::nullopt;
    }
    const HeapBlock<unsigned char> buffer =
        secureBuffer({keyLength, macLength, plainLength, bodyLength});
    if (!buffer)
    {
        return std::nullopt;
    }
    const std::string_view tokenText{token.get(), tokenLength};
    using std::string_view_literals::operator""sv;
    // If no line feed is added, a zero byte takes its place: the receiver takes one zero byte at
    // the end off the length, so the text stays a text.
    const std::array<std::string_view, 3> parts = data.ends_with('\n')
                                                      ? std::array{data, tokenText, "\0"sv}
                                                      : std::array{data, "\n"sv, tokenText};
    const std::span<unsigned char> body{bodyOf(buffer.get()), static_cast<std::size_t>(bodyLength)};
    const std::span<unsigned char, macLength> mac{macOf(buffer.get()), macLength};
    const std::string_view bodyBytes = asText(body);
    if (!encrypt(parts, keys, iv, body) || !computeMac(keys, bodyBytes, mac))
    {
        return std::nullopt;
    }
    return envelopeOf(bodyBytes, asText(mac));
}

std::optional<Plaintext> openEnvelope(std::string_view body, std::optional<std::string_view> mac,
                                      const EC_KEY& own, const EC_KEY& peer, const Iv& iv) noexcept
{
    if (body.size() > INT_MAX)
    {
        return refuse(BMCOAUTH_RULE_ENVELOPE_LENGTH).about("ciphertext");
    }
    EnvelopeKeys keys;
    if (!agree(own, peer, keys) || (mac && !isMac(*mac, body, keys)))
    {
        return std::nullopt;
    }
    const CipherContextPtr context{EVP_CIPHER_CTX_new()};
    Plaintext text{secretBlock(body.size() + 1)};
    int decrypted = 0;
    int last = 0;
    if (!context || !text.bytes ||
        EVP_DecryptInit_ex(context.get(), EVP_aes_128_cbc(), nullptr, keys.cipherKey().data(),
                           iv.data()) != 1 ||
        EVP_DecryptUpdate(context.get(), text.bytes.get(), &decrypted, bytesOf(body).data(),
                          static_cast<int>(body.size())) != 1)
    {
        return refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED);
    }
    if (EVP_DecryptFinal_ex(context.get(), text.bytes.get() + decrypted, &last) != 1)
    {
        return refuse(BMCOAUTH_RULE_ENVELOPE_PADDING);
    }
    text.length = static_cast<std::size_t>(decrypted) + static_cast<std::size_t>(last);
    return text;
}

} // namespace bmcoauth::internal::crypto

using namespace bmcoauth::internal;

void* ecies_key_derivation(const void* input, std::size_t inputLength, void* output,
                           std::size_t* outputLength)
{
    // No input needs no pointer.
    if (refusesNull("output outputLength input", output, outputLength,
                    inputLength == 0 ? output : input))
    {
        return refused();
    }
    if (*outputLength < crypto::Sha256Digest{}.size())
    {
        return refuseCall(BMCOAUTH_RULE_ARGUMENT_LENGTH, "outputLength");
    }
    return crypto::guardedCrypto(
        [=] { return crypto::deriveKeys(input, inputLength, output, outputLength); });
}

void* secure_alloc(std::uint64_t key, std::uint64_t mac, std::uint64_t plain, std::uint64_t body)
{
    return guardedMemory([=] { return crypto::secureBuffer({key, mac, plain, body}).release(); });
}

std::uint64_t secure_mac_length(const void* buffer)
{
    return crypto::headerOf(buffer).mac;
}

std::uint64_t secure_body_length(const void* buffer)
{
    return crypto::headerOf(buffer).body;
}

unsigned char* secure_mac_data(void* buffer)
{
    return crypto::macOf(buffer);
}

unsigned char* secure_body_data(void* buffer)
{
    return crypto::bodyOf(buffer);
}

int convertHextoBinary(const char* hex, unsigned char* out)
{
    if (refusesNull("hex out", hex, out))
    {
        return refused();
    }
    if (strnlen(hex, crypto::ivDigits) < crypto::ivDigits)
    {
        return refuseCall(BMCOAUTH_RULE_ARGUMENT_LENGTH, "hex");
    }
    const ErrnoKeeper keeper;
    crypto::readHex(hex, out);
    return 1;
}

extern "C" int generateRandomIV(char** iv)
{
    if (refusesNull("iv", iv))
    {
        return refused();
    }
    return guardedMemory([=] {
        crypto::Iv bytes{};
        HeapText text = zeroedBlock<char>(crypto::ivDigits + 1);
        if (!text || !crypto::fillRandom(bytes))
        {
            return 0;
        }
        writeHex(bytes, upperCaseDigits, text.get());
        *iv = text.release();
        return 1;
    });
}
