// SPDX-License-Identifier: Apache-2.0
#include "floors.hpp"

#include <json/reader.h>
#include <json/writer.h>
#include <liboath/oath.h>
#include <openssl/bio.h>
#include <openssl/ecdh.h>
#include <openssl/ecdsa.h>
#include <openssl/hmac.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>

namespace bench::floors
{

namespace
{

using support::EcKeyPtr;
using support::Releaser;

using BignumPtr = std::unique_ptr<BIGNUM, Releaser<BN_free>>;
using BioPtr = std::unique_ptr<BIO, Releaser<BIO_free>>;
using CipherPtr = std::unique_ptr<EVP_CIPHER_CTX, Releaser<EVP_CIPHER_CTX_free>>;
using GroupPtr = std::unique_ptr<EC_GROUP, Releaser<EC_GROUP_free>>;
using PointPtr = std::unique_ptr<EC_POINT, Releaser<EC_POINT_free>>;
using RsaPtr = std::unique_ptr<RSA, Releaser<RSA_free>>;
using SignaturePtr = std::unique_ptr<ECDSA_SIG, Releaser<ECDSA_SIG_free>>;

// ------------------------------------------------------------------------------------------- Base64

/** Bytes in a block that nobody clears first. */
struct Bytes
{
    std::unique_ptr<unsigned char[]> block;
    std::size_t size = 0;

    [[nodiscard]] std::string_view text() const
    {
        return {reinterpret_cast<const char*>(block.get()), size};
    }
};

/** EVP_DecodeBlock knows only whole groups of the standard alphabet: the text is copied into that
 *  form, and decoded in place, because the output is never ahead of the input. */
Bytes decoded(std::string_view text)
{
    const std::size_t padding = (4 - text.size() % 4) % 4;
    Bytes bytes{std::make_unique_for_overwrite<unsigned char[]>(text.size() + padding)};
    unsigned char* const begin = bytes.block.get();
    unsigned char* const end =
        std::ranges::transform(text, begin, [](char c) {
            return static_cast<unsigned char>(c == '-' ? '+' : c == '_' ? '/' : c);
        }).out;
    std::fill_n(end, padding, '=');
    const int length = EVP_DecodeBlock(begin, begin, static_cast<int>(text.size() + padding));
    require(length >= 0, "Base64");
    const auto trailing =
        padding != 0 ? padding
                     : static_cast<std::size_t>(text.size() - text.find_last_not_of('=') - 1);
    bytes.size = static_cast<std::size_t>(length) - trailing;
    return bytes;
}

void appendBase64(std::string& out, std::string_view bytes)
{
    const std::size_t before = out.size();
    out.resize(before + (bytes.size() + 2) / 3 * 4 + 1);
    const int length =
        EVP_EncodeBlock(bytesOf(out) + before, bytesOf(bytes), static_cast<int>(bytes.size()));
    out.resize(before + static_cast<std::size_t>(length));
}

void appendBase64Url(std::string& out, std::string_view bytes)
{
    const std::size_t before = out.size();
    appendBase64(out, bytes);
    out.resize(out.find_last_not_of('=') + 1);
    std::transform(out.begin() + static_cast<std::ptrdiff_t>(before), out.end(),
                   out.begin() + static_cast<std::ptrdiff_t>(before), [](char c) {
                       return c == '+' ? '-' : c == '/' ? '_' : c;
                   });
}

// ------------------------------------------------------------------------------------------- tokens

struct Token
{
    std::string_view signingInput;
    std::string_view header;
    std::string_view payload;
    std::string_view signature;
};

Token split(std::string_view token)
{
    const std::size_t first = token.find('.');
    const std::size_t second = token.find('.', first + 1);
    return {token.substr(0, second), token.substr(0, first),
            token.substr(first + 1, second - first - 1), token.substr(second + 1)};
}

Json::Value parsed(std::string_view text)
{
    thread_local const std::unique_ptr<Json::CharReader> reader{
        Json::CharReaderBuilder{}.newCharReader()};
    Json::Value tree;
    require(reader->parse(text.data(), text.data() + text.size(), &tree, nullptr), "JSON");
    return tree;
}

void read(const Token& token, Reading reading)
{
    if (reading == Reading::claims)
    {
        require(parsed(decoded(token.header).text()).isObject() &&
                    parsed(decoded(token.payload).text()).isObject(),
                "claims");
    }
}

// --------------------------------------------------------------------------------------------- keys

EcKeyPtr privateKey(std::string_view der)
{
    const unsigned char* position = bytesOf(der);
    EcKeyPtr key{d2i_ECPrivateKey(nullptr, &position, static_cast<long>(der.size()))};
    require(key != nullptr, "private key");
    return key;
}

BioPtr reader(std::string_view text)
{
    return BioPtr{BIO_new_mem_buf(text.data(), static_cast<int>(text.size()))};
}

EcKeyPtr publicKey(std::string_view pem)
{
    EcKeyPtr key{PEM_read_bio_EC_PUBKEY(reader(pem).get(), nullptr, nullptr, nullptr)};
    require(key != nullptr, "public key");
    return key;
}

RsaPtr rsaKey(std::string_view pem)
{
    RsaPtr key{PEM_read_bio_RSA_PUBKEY(reader(pem).get(), nullptr, nullptr, nullptr)};
    require(key != nullptr, "RSA key");
    return key;
}

struct Digest
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
    unsigned int length = 0;

    Digest(std::string_view text, const EVP_MD* kind)
    {
        require(EVP_Digest(text.data(), text.size(), bytes.data(), &length, kind, nullptr) == 1,
                "digest");
    }
};

SignaturePtr integersOf(std::string_view signature)
{
    const auto half = static_cast<int>(signature.size() / 2);
    SignaturePtr integers{ECDSA_SIG_new()};
    BignumPtr r{BN_bin2bn(bytesOf(signature), half, nullptr)};
    BignumPtr s{BN_bin2bn(bytesOf(signature) + half, half, nullptr)};
    require(ECDSA_SIG_set0(integers.get(), r.release(), s.release()) == 1, "integers");
    return integers;
}

/** A signature, verified once, as Base64url at the end of @p out. */
void appendSignature(std::string& out, std::string_view text, EC_KEY& key)
{
    const Digest digest{text, EVP_sha256()};
    std::array<unsigned char, 80> signature{};
    unsigned int length = 0;
    require(ECDSA_sign(0, digest.bytes.data(), static_cast<int>(digest.length), signature.data(),
                       &length, &key) == 1 &&
                ECDSA_verify(0, digest.bytes.data(), static_cast<int>(digest.length),
                             signature.data(), static_cast<int>(length), &key) == 1,
            "signature");
    appendBase64Url(out, {reinterpret_cast<const char*>(signature.data()), length});
}

// ------------------------------------------------------------------------------------- certificates

/** Steps over the head of a constructed element at @p position. */
void enter(const unsigned char*& position, const unsigned char* end)
{
    long length = 0;
    int tag = 0;
    int kind = 0;
    require((ASN1_get_object(&position, &length, &tag, &kind, end - position) &
             (0x80 | V_ASN1_CONSTRUCTED)) == V_ASN1_CONSTRUCTED,
            "constructed element");
}

/** Decodes the structure at @p position with one of libcrypto's d2i functions. Steps over it. */
template <auto Decode, auto Free>
auto take(const unsigned char*& position, const unsigned char* end)
{
    using Element = std::remove_pointer_t<decltype(Decode(nullptr, &position, 0))>;
    std::unique_ptr<Element, Releaser<Free>> element{Decode(nullptr, &position, end - position)};
    require(element != nullptr, "certificate");
    return element;
}

inline void freeExtensions(X509_EXTENSIONS* extensions)
{
    sk_X509_EXTENSION_pop_free(extensions, X509_EXTENSION_free);
}

/** The point of the key in a certificate (RFC 5280, section 4.1) whose other fields are decoded and
 *  released, which is what reading a certificate costs without its key. */
std::array<unsigned char, 65> certifiedPoint(std::string_view certificate)
{
    const Bytes der = decoded(certificate);
    const unsigned char* position = der.block.get();
    const unsigned char* const end = position + der.size;
    enter(position, end); // Certificate
    enter(position, end); // TBSCertificate
    enter(position, end); // version
    const auto version = take<d2i_ASN1_INTEGER, ASN1_INTEGER_free>(position, end);
    const auto serial = take<d2i_ASN1_INTEGER, ASN1_INTEGER_free>(position, end);
    const auto algorithm = take<d2i_X509_ALGOR, X509_ALGOR_free>(position, end);
    const auto issuer = take<d2i_X509_NAME, X509_NAME_free>(position, end);
    const auto validity = take<d2i_X509_VAL, X509_VAL_free>(position, end);
    const auto subject = take<d2i_X509_NAME, X509_NAME_free>(position, end);
    require(X509_NAME_get_index_by_NID(subject.get(), NID_commonName, -1) >= 0, "name");
    enter(position, end); // SubjectPublicKeyInfo
    const auto keyAlgorithm = take<d2i_X509_ALGOR, X509_ALGOR_free>(position, end);
    const auto key = take<d2i_ASN1_BIT_STRING, ASN1_BIT_STRING_free>(position, end);
    if (*position == 0xa3)
    {
        enter(position, end);
        const auto extensions = take<d2i_X509_EXTENSIONS, freeExtensions>(position, end);
    }
    const auto signatureAlgorithm = take<d2i_X509_ALGOR, X509_ALGOR_free>(position, end);
    const auto signature = take<d2i_ASN1_BIT_STRING, ASN1_BIT_STRING_free>(position, end);
    std::array<unsigned char, 65> point{};
    require(ASN1_STRING_length(key.get()) == static_cast<int>(point.size()), "point");
    std::memcpy(point.data(), ASN1_STRING_get0_data(key.get()), point.size());
    return point;
}

EcKeyPtr certifiedKey(std::string_view certificate)
{
    const std::array<unsigned char, 65> point = certifiedPoint(certificate);
    EcKeyPtr key{EC_KEY_new_by_curve_name(NID_X9_62_prime256v1)};
    require(EC_KEY_oct2key(key.get(), point.data(), point.size(), nullptr) == 1, "certified key");
    return key;
}

// ----------------------------------------------------------------------------------------- envelope

void* deriveKeys(const void* secret, std::size_t length, void* keys, std::size_t* keysLength)
{
    *keysLength = 32;
    return EVP_Digest(secret, length, static_cast<unsigned char*>(keys), nullptr, EVP_sha256(),
                      nullptr) == 1
               ? keys
               : nullptr;
}

using Keys = std::array<unsigned char, 32>;

Keys agreedKeys(std::string_view certificate, std::string_view der)
{
    const EcKeyPtr own = privateKey(der);
    const EcKeyPtr peer = certifiedKey(certificate);
    Keys keys{};
    require(ECDH_compute_key(keys.data(), keys.size(), EC_KEY_get0_public_key(peer.get()),
                             own.get(), deriveKeys) == static_cast<int>(keys.size()),
            "agreement");
    return keys;
}

std::array<unsigned char, 16> bytesOfHex(std::string_view hex)
{
    const auto digit = [](char c) {
        return c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
    };
    std::array<unsigned char, 16> bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i)
    {
        bytes.at(i) = static_cast<unsigned char>(digit(hex[2 * i]) * 16 + digit(hex[2 * i + 1]));
    }
    return bytes;
}

std::array<unsigned char, 32> macOf(const Keys& keys, std::string_view body)
{
    std::array<unsigned char, 32> mac{};
    require(HMAC(EVP_sha256(), keys.data() + 16, 16, bytesOf(body), body.size(), mac.data(),
                 nullptr) != nullptr,
            "MAC");
    return mac;
}

template <std::size_t Size>
void fillRandom(std::array<unsigned char, Size>& bytes)
{
    const int device = ::open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    const ssize_t received = ::read(device, bytes.data(), bytes.size());
    ::close(device);
    require(received == static_cast<ssize_t>(Size), "random bytes");
}

template <std::size_t Size>
std::string randomToken()
{
    std::array<unsigned char, Size> bytes{};
    fillRandom(bytes);
    std::string token;
    appendBase64(token, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    return token;
}

// --------------------------------------------------------------------------------------------- JSON

/** Strings with anything but printable ASCII are jsoncpp's. */
void appendQuoted(std::string& out, std::string_view text)
{
    const bool plain = std::ranges::all_of(
        text, [](char c) { return c >= 0x20 && c != 0x7f && c != '"' && c != '\\'; });
    if (plain)
    {
        out.append(1, '"').append(text).append(1, '"');
        return;
    }
    out += Json::valueToQuotedString(std::string{text}.c_str());
}

// NOLINTBEGIN(misc-no-recursion): a tree

void append(std::string& out, const Json::Value& value);

void appendMembers(std::string& out, const Json::Value& object)
{
    char separator = '{';
    for (auto member = object.begin(); member != object.end(); ++member)
    {
        const char* end = nullptr;
        const char* begin = member.memberName(&end);
        out += separator;
        appendQuoted(out, {begin, static_cast<std::size_t>(end - begin)});
        out += ':';
        append(out, *member);
        separator = ',';
    }
    out += object.empty() ? "{}" : "}";
}

void appendElements(std::string& out, const Json::Value& array)
{
    char separator = '[';
    for (const Json::Value& element : array)
    {
        out += separator;
        append(out, element);
        separator = ',';
    }
    out += array.empty() ? "[]" : "]";
}

void append(std::string& out, const Json::Value& value)
{
    switch (value.type())
    {
        case Json::stringValue:
        {
            const char* begin = nullptr;
            const char* end = nullptr;
            value.getString(&begin, &end);
            appendQuoted(out, {begin, static_cast<std::size_t>(end - begin)});
            return;
        }
        case Json::objectValue:
            appendMembers(out, value);
            return;
        case Json::arrayValue:
            appendElements(out, value);
            return;
        default:
            out += value.asString();
    }
}

// NOLINTEND(misc-no-recursion)

} // namespace

std::string issue(std::string_view header, std::string_view payload, std::string_view der)
{
    const EcKeyPtr key = privateKey(der);
    std::string token;
    token.reserve((header.size() + payload.size() + 80) * 4 / 3 + 16);
    appendBase64Url(token, header);
    token += '.';
    appendBase64Url(token, payload);
    std::string signature{"."};
    appendSignature(signature, token, *key);
    return token += signature;
}

void authorize(std::string_view header, const Claims& claims, std::string_view der)
{
    const std::time_t now = std::time(nullptr);
    const std::string issuedAt = std::to_string(now);
    const std::string expiry = std::to_string(now + 3600);
    const std::string payload =
        R"({"exp":")" + expiry + R"(","iat":")" + issuedAt + R"(","iss":")" + claims.issuer +
        R"(","jti":")" + randomToken<16>() + R"(","nbf":")" + issuedAt +
        R"(","scope":{"scope1000":["login"]},"sub":")" + claims.subject + "\"}";
    const std::array<std::string, 6> response{
        issue(header, payload, der), randomToken<16>(), "state", "3600", "bearer", issuedAt};
    require(!response.front().empty(), "response");
}

void validate(std::string_view token, std::string_view der, Reading reading)
{
    const Token parts = split(token);
    read(parts, reading);
    const EcKeyPtr key = privateKey(der);
    const Digest digest{parts.signingInput, EVP_sha256()};
    const Bytes signature = decoded(parts.signature);
    require(ECDSA_verify(0, digest.bytes.data(), static_cast<int>(digest.length),
                         signature.block.get(), static_cast<int>(signature.size), key.get()) == 1,
            "own token");
}

void validateEc(std::string_view token, std::string_view pem, const EVP_MD* digest, Reading reading)
{
    const Token parts = split(token);
    read(parts, reading);
    const EcKeyPtr key = publicKey(pem);
    const Digest hash{parts.signingInput, digest};
    const Bytes signature = decoded(parts.signature);
    require(ECDSA_do_verify(hash.bytes.data(), static_cast<int>(hash.length),
                            integersOf(signature.text()).get(), key.get()) == 1,
            "token");
}

void validateRsa(std::string_view token, std::string_view pem, Reading reading)
{
    const Token parts = split(token);
    read(parts, reading);
    const RsaPtr key = rsaKey(pem);
    const Digest digest{parts.signingInput, EVP_sha256()};
    const Bytes signature = decoded(parts.signature);
    require(RSA_verify(NID_sha256, digest.bytes.data(), digest.length, signature.block.get(),
                       static_cast<unsigned int>(signature.size), key.get()) == 1,
            "RSA token");
}

void validatePss(std::string_view token, std::string_view pem, Reading reading)
{
    const Token parts = split(token);
    read(parts, reading);
    const RsaPtr key = rsaKey(pem);
    const Digest digest{parts.signingInput, EVP_sha256()};
    const Bytes signature = decoded(parts.signature);
    std::array<unsigned char, 256> message{};
    require(RSA_public_decrypt(static_cast<int>(signature.size), signature.block.get(),
                               message.data(), key.get(), RSA_NO_PADDING) == 256 &&
                RSA_verify_PKCS1_PSS(key.get(), digest.bytes.data(), EVP_sha256(), message.data(),
                                     RSA_PSS_SALTLEN_AUTO) == 1,
            "PSS token");
}

void validateEcWithOneOf(std::string_view token, std::span<const std::string> pems)
{
    const Token parts = split(token);
    read(parts, Reading::claims);
    const Digest digest{parts.signingInput, EVP_sha256()};
    const SignaturePtr signature = integersOf(decoded(parts.signature).text());
    require(std::ranges::any_of(pems,
                                [&](const std::string& pem) {
                                    return ECDSA_do_verify(
                                               digest.bytes.data(), static_cast<int>(digest.length),
                                               signature.get(), publicKey(pem).get()) == 1;
                                }),
            "one of the keys");
}

Envelope seal(std::string_view text, std::string_view certificate, std::string_view der,
              std::string_view iv)
{
    const Keys keys = agreedKeys(certificate, der);
    std::string plain;
    plain.reserve(text.size() + 17);
    plain.append(text).append(1, '\n').append(randomToken<12>());
    std::string cipher(plain.size() + 16, '\0');
    const CipherPtr context{EVP_CIPHER_CTX_new()};
    int length = 0;
    int last = 0;
    require(EVP_EncryptInit_ex(context.get(), EVP_aes_128_cbc(), nullptr, keys.data(),
                               bytesOfHex(iv).data()) == 1 &&
                EVP_EncryptUpdate(context.get(), bytesOf(cipher), &length, bytesOf(plain),
                                  static_cast<int>(plain.size())) == 1 &&
                EVP_EncryptFinal_ex(context.get(), bytesOf(cipher) + length, &last) == 1,
            "encryption");
    cipher.resize(static_cast<std::size_t>(length) + static_cast<std::size_t>(last));
    const auto mac = macOf(keys, cipher);
    Envelope envelope;
    appendBase64(envelope.body, cipher);
    appendBase64(envelope.mac, {reinterpret_cast<const char*>(mac.data()), mac.size()});
    return envelope;
}

std::string open(const Envelope& envelope, std::string_view certificate, std::string_view der,
                 std::string_view iv)
{
    const Bytes body = decoded(envelope.body);
    const Bytes mac = decoded(envelope.mac);
    const Keys keys = agreedKeys(certificate, der);
    const auto expected = macOf(keys, body.text());
    require(mac.size == expected.size() &&
                CRYPTO_memcmp(mac.block.get(), expected.data(), expected.size()) == 0,
            "MAC");
    std::string plain(body.size + 16, '\0');
    const CipherPtr context{EVP_CIPHER_CTX_new()};
    int length = 0;
    int last = 0;
    require(EVP_DecryptInit_ex(context.get(), EVP_aes_128_cbc(), nullptr, keys.data(),
                               bytesOfHex(iv).data()) == 1 &&
                EVP_DecryptUpdate(context.get(), bytesOf(plain), &length, body.block.get(),
                                  static_cast<int>(body.size)) == 1 &&
                EVP_DecryptFinal_ex(context.get(), bytesOf(plain) + length, &last) == 1,
            "decryption");
    plain.resize(static_cast<std::size_t>(length) + static_cast<std::size_t>(last));
    return plain;
}

std::string proof(std::string_view text, std::string_view certificate, std::string_view der)
{
    static_cast<void>(certifiedPoint(certificate));
    const EcKeyPtr key = privateKey(der);
    std::string signature;
    appendSignature(signature, text, *key);
    return signature;
}

void checkProof(std::string_view text, std::string_view proof, std::string_view certificate)
{
    const EcKeyPtr key = certifiedKey(certificate);
    const Digest digest{text, EVP_sha256()};
    const Bytes signature = decoded(proof);
    require(ECDSA_verify(0, digest.bytes.data(), static_cast<int>(digest.length),
                         signature.block.get(), static_cast<int>(signature.size), key.get()) == 1,
            "proof");
}

std::string ecPublicKey(std::string_view x, std::string_view y)
{
    // SubjectPublicKeyInfo (RFC 5480) of a P-256 key up to its uncompressed point.
    constexpr std::array<unsigned char, 27> prefix{
        0x30, 0x59, 0x30, 0x13, 0x06, 0x07, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x02, 0x01, 0x06,
        0x08, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 0x07, 0x03, 0x42, 0x00, 0x04};
    const Bytes xBytes = decoded(x);
    const Bytes yBytes = decoded(y);
    require(xBytes.size == 32 && yBytes.size == 32, "coordinates");
    std::array<unsigned char, prefix.size() + 64> info{};
    std::ranges::copy(prefix, info.begin());
    std::memcpy(info.data() + prefix.size(), xBytes.block.get(), 32);
    std::memcpy(info.data() + prefix.size() + 32, yBytes.block.get(), 32);
    const GroupPtr group{EC_GROUP_new_by_curve_name(NID_X9_62_prime256v1)};
    const PointPtr point{EC_POINT_new(group.get())};
    require(EC_POINT_oct2point(group.get(), point.get(), info.data() + prefix.size() - 1, 65,
                               nullptr) == 1,
            "point");
    std::string base64;
    base64.reserve(128);
    appendBase64(base64, {reinterpret_cast<const char*>(info.data()), info.size()});
    std::string pem;
    pem.reserve(192);
    pem += "-----BEGIN PUBLIC KEY-----\n";
    pem.append(base64, 0, 64).append(1, '\n').append(base64, 64).append(1, '\n');
    return pem += "-----END PUBLIC KEY-----\n";
}

std::string rsaPublicKey(std::string_view n, std::string_view e)
{
    // SubjectPublicKeyInfo (RFC 5280) of a key of 2048 bits up to its modulus.
    constexpr std::array<unsigned char, 33> prefix{
        0x30, 0x82, 0x01, 0x22, 0x30, 0x0d, 0x06, 0x09, 0x2a, 0x86, 0x48,
        0x86, 0xf7, 0x0d, 0x01, 0x01, 0x01, 0x05, 0x00, 0x03, 0x82, 0x01,
        0x0f, 0x00, 0x30, 0x82, 0x01, 0x0a, 0x02, 0x82, 0x01, 0x01, 0x00};
    const Bytes modulus = decoded(n);
    const Bytes exponent = decoded(e);
    require(modulus.size == 256 && exponent.size == 3, "numbers");
    std::array<unsigned char, prefix.size() + 256 + 5> info{};
    unsigned char* out = std::ranges::copy(prefix, info.begin()).out;
    out = std::copy_n(modulus.block.get(), 256, out);
    *out++ = V_ASN1_INTEGER;
    *out++ = 3;
    std::copy_n(exponent.block.get(), 3, out);
    std::string base64;
    base64.reserve(400);
    appendBase64(base64, {reinterpret_cast<const char*>(info.data()), info.size()});
    std::string pem;
    pem.reserve(460);
    pem += "-----BEGIN PUBLIC KEY-----\n";
    for (std::size_t line = 0; line < base64.size(); line += 64)
    {
        pem.append(base64, line, 64).append(1, '\n');
    }
    return pem += "-----END PUBLIC KEY-----\n";
}

std::string oneTimePassword(std::string_view secrets, const char* type, std::uint64_t selector,
                            std::uint64_t movingFactor)
{
    const Json::Value document = parsed(secrets);
    const Json::Value& list = document[type];
    const char* begin = nullptr;
    const char* end = nullptr;
    list[static_cast<Json::ArrayIndex>(selector % list.size())].getString(&begin, &end);
    std::string password(8, '\0');
    require(oath_hotp_generate(begin, static_cast<std::size_t>(end - begin), movingFactor, 8, false,
                               OATH_HOTP_DYNAMIC_TRUNCATION, password.data()) == OATH_OK,
            "password");
    return password;
}

void base64Decode(std::string_view text)
{
    require(decoded(text).size != 0, "decoded");
}

void base64Encode(std::string_view bytes)
{
    const auto text =
        std::make_unique_for_overwrite<unsigned char[]>((bytes.size() + 2) / 3 * 4 + 1);
    require(EVP_EncodeBlock(text.get(), bytesOf(bytes), static_cast<int>(bytes.size())) > 0,
            "encoded");
}

std::string json(const Json::Value& tree)
{
    std::string text;
    append(text, tree);
    return text;
}

} // namespace bench::floors
