// SPDX-License-Identifier: Apache-2.0
#include "support/certificates.hpp"
#include "support/fake_device.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"
#include "support/vectors.hpp"

#include <bmcoauth/ecies.h>
#include <bmcoauth/handshake_payload.h>

#include <climits>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

using support::base64;
using support::fromHex;
using support::HeapText;
using support::PayloadPtr;

namespace
{

void require(bool done)
{
    if (!done)
    {
        throw std::runtime_error("OpenSSL");
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

/** One element of DER (X.690): tag, length, contents. */
std::string element(int tag, const std::string& contents)
{
    std::string length;
    if (contents.size() < 128)
    {
        length = {static_cast<char>(contents.size())};
    }
    else
    {
        length = {'\x82', static_cast<char>(contents.size() / 256),
                  static_cast<char>(contents.size() % 256)};
    }
    return static_cast<char>(tag) + length + contents;
}

std::string sequence(const std::string& contents)
{
    return element(0x30, contents);
}

const std::string prime256v1 = fromHex("06082a8648ce3d030107");
const std::string secp384r1 = fromHex("06052b81040022");

/** An ECPrivateKey structure (RFC 5915) of a scalar, with whatever optional parts are given. */
std::string privateKey(const std::string& scalar, const std::string& curve = prime256v1,
                       const std::string& point = {})
{
    return sequence(fromHex("020101") + element(0x04, scalar) +
                    (curve.empty() ? "" : element(0xa0, curve)) +
                    (point.empty() ? "" : element(0xa1, element(0x03, '\0' + point))));
}

/** A SubjectPublicKeyInfo structure (RFC 5480) of a point on P-256. */
std::string publicKey(const std::string& point)
{
    return sequence(sequence(fromHex("06072a8648ce3d0201") + prime256v1) +
                    element(0x03, '\0' + point));
}

/** The "x5c" value of a certificate around any public key, whose signature nobody checks. */
std::string certificate(const std::string& subjectPublicKeyInfo)
{
    const std::string algorithm = sequence(fromHex("06082a8648ce3d040302"));
    const std::string name = sequence("");
    const std::string validity =
        sequence(element(0x17, "200101000000Z") + element(0x17, "491231235959Z"));
    const std::string fields = sequence(fromHex("a003020102020101") + algorithm + name + validity +
                                        name + subjectPublicKeyInfo);
    return base64(sequence(fields + algorithm + element(0x03, std::string(1, '\0'))));
}

/** One side of an exchange: its private key and the certificate key that the other side holds. */
struct Party
{
    std::string der;
    PayloadPtr record;
};

Party party(const std::string& scalar, const std::string& point)
{
    return {privateKey(scalar), support::certificateRecord({certificate(publicKey(point))})};
}

// RFC 5903, section 8.1: the keys of an initiator and a responder on P-256.
const std::string initiatorScalar =
    fromHex("C88F01F510D9AC3F70A292DAA2316DE544E9AAB8AFE84049C62A9C57862D1433");
const std::string initiatorPoint =
    fromHex("04DAD0B65394221CF9B051E1FECA5787D098DFE637FC90B9EF945D0C3772581180"
            "5271A0461CDB8252D61F1C456FA3E59AB1F45B33ACCF5F58389E0577B8990BB3");
const std::string responderScalar =
    fromHex("C6EF9C5D78AE012A011164ACB397CE2088685D8F06BF9BE0B283AB46476BEE53");
const std::string responderPoint =
    fromHex("04D12DFB5289C8D4F81208B70270398C342296970A0BCCB74C736FC7554494BF63"
            "56FBF3CA366CC23E8157854C13C58D6AAC23F046ADA30F8353E74F33039872AB");

/** SHA-256 of the secret that RFC 5903 gives for them, D6840F6B...42DE; made with
 *  `xxd -r -p | openssl dgst -sha256`. */
const std::string sharedKeys =
    fromHex("0519dc09b36efad1d00aef1d5b53b100202eb910b5de0dede75f190a357a367d");

constexpr const char* someIv = "000102030405060708090A0B0C0D0E0F";
constexpr const char* zeroIv = "00000000000000000000000000000000";

/** What the random device gives where the token must be known, and the token that comes of it. */
constexpr std::string_view deviceBytes = "\x01\x23\x45\x67\x89\xab\xcd\xef\xff\x7f\x80\x10";
constexpr std::string_view deviceToken = "ASNFZ4mrze//f4AQ";

/** An envelope as it travels. */
struct Envelope
{
    std::string body;
    std::string mac;

    bool operator==(const Envelope&) const = default;
};

// The token follows the data and a line feed; encrypted and authenticated with sharedKeys:
//   openssl enc -aes-128-cbc -K 0519...b100 -iv 0001...0F | openssl base64 -A
//   openssl dgst -sha256 -mac HMAC -macopt hexkey:202e...367d -binary | openssl base64 -A
const Envelope envelopeOfAbc = {"TSBneUowCv/5HaxDEh3MD9nbB3q6Cqi6vDmGZR1Siws=",
                                "xLxhbTTvDQt97fbxPydaTFz+nryPG3Q2wjCVlT2p+HM="};
// The same for "abc" and a line feed: a zero byte follows the token.
const Envelope envelopeOfLine = {"TSBneUowCv/5HaxDEh3MD93Rv/Zo/hAfX4SMouflqPY=",
                                 "4giHnxvM8wp3t9pYp5P3GR5tIUkWFOJsr+eN7c9MJ+s="};
// The same as the first with an IV of 16 zero bytes.
const Envelope envelopeWithZeroIv = {"ndRJCRS1k9JDbHKa+jZdhsZuTuWCYTFa0YBzdh73JJU=",
                                     "dOY3L2nHcfxCcFo19xdu6r/wLSSarHLMsZB+Hpza0/k="};

std::string plaintextOfAbc()
{
    return "abc\n" + std::string{deviceToken};
}

std::string fromBase64(const std::string& text)
{
    std::string bytes(text.size() / 4 * 3, '\0');
    require(EVP_DecodeBlock(bytesOf(bytes), bytesOf(std::string_view{text}),
                            static_cast<int>(text.size())) == static_cast<int>(bytes.size()));
    bytes.resize(bytes.size() - static_cast<std::size_t>(std::ranges::count(text, '=')));
    return bytes;
}

/** The arguments of ecies_encrypt, all as they must be. */
struct Sealing
{
    Party own = party(initiatorScalar, initiatorPoint);
    Party other = party(responderScalar, responderPoint);
    std::string data = "abc";
    const char* iv = someIv;

    /** The envelope; nothing on failure, and then nothing may be stored. */
    [[nodiscard]] std::optional<Envelope> run() const
    {
        HandshakePayload* peer = other.record.get();
        char* mac = nullptr;
        const HeapText body{ecies_encrypt(data.data(), static_cast<unsigned int>(data.size()),
                                          &peer, &mac, bytesOf(own.der),
                                          static_cast<int>(own.der.size()), iv)};
        const HeapText macOwner{mac};
        EXPECT_EQ(body == nullptr, mac == nullptr);
        return body && mac != nullptr ? std::optional{Envelope{body.get(), mac}} : std::nullopt;
    }
};

/** The arguments of ecies_decrypt, all as they must be. */
struct Opening
{
    Party own = party(responderScalar, responderPoint);
    Party other = party(initiatorScalar, initiatorPoint);
    Envelope envelope = envelopeOfAbc;
    bool withMac = true;
    const char* iv = someIv;

    /** The plaintext as a text; nothing on failure. */
    [[nodiscard]] std::optional<std::string> run() const
    {
        constexpr unsigned int untouched = 777777;
        unsigned int length = untouched;
        const HeapText text = open(&length);
        if (!text)
        {
            EXPECT_EQ(length, untouched);
            return std::nullopt;
        }
        EXPECT_EQ(text.get()[length], '\0');
        return std::string{text.get(), length};
    }

    /** The first @p size bytes of the plaintext, whose length is not asked for. */
    [[nodiscard]] std::optional<std::string> runWithoutLength(std::size_t size) const
    {
        const HeapText text = open(nullptr);
        return text ? std::optional{std::string{text.get(), size}} : std::nullopt;
    }

private:
    HeapText open(unsigned int* length) const
    {
        HandshakePayload* peer = other.record.get();
        return HeapText{ecies_decrypt(envelope.body.c_str(), length, bytesOf(own.der),
                                      static_cast<int>(own.der.size()),
                                      withMac ? envelope.mac.c_str() : nullptr, &peer, iv)};
    }
};

/** The rule by which an envelope is neither sealed nor opened. */
template <typename Attempt>
std::string ruleOfRun(const Attempt& attempt)
{
    return support::ruleOf([&] { return attempt.run().has_value(); });
}

/** The rule, and the argument that it concerns. */
template <typename Attempt>
std::string reasonOf(const Attempt& attempt)
{
    const std::string rule = ruleOfRun(attempt);
    return rule + " " + support::lastRefusal().subject;
}

/** What an envelope is, done with OpenSSL directly. */
namespace reference
{

std::string sha256(const std::string& bytes)
{
    std::string digest(32, '\0');
    require(EVP_Digest(bytes.data(), bytes.size(), bytesOf(digest), nullptr, EVP_sha256(),
                       nullptr) == 1);
    return digest;
}

/** The key material of two sides. */
std::string keys(EVP_PKEY& own, EVP_PKEY& peer)
{
    const std::unique_ptr<EVP_PKEY_CTX, support::Releaser<EVP_PKEY_CTX_free>> context{
        EVP_PKEY_CTX_new(&own, nullptr)};
    std::string secret(32, '\0');
    std::size_t length = secret.size();
    require(EVP_PKEY_derive_init(context.get()) == 1 &&
            EVP_PKEY_derive_set_peer(context.get(), &peer) == 1 &&
            EVP_PKEY_derive(context.get(), bytesOf(secret), &length) == 1 && length == 32);
    return sha256(secret);
}

std::string cipher(bool encrypting, bool padded, const std::string& keys, const std::string& iv,
                   const std::string& in)
{
    const std::unique_ptr<EVP_CIPHER_CTX, support::Releaser<EVP_CIPHER_CTX_free>> context{
        EVP_CIPHER_CTX_new()};
    std::string out(in.size() + 16, '\0');
    int length = 0;
    int last = 0;
    require(EVP_CipherInit_ex(context.get(), EVP_aes_128_cbc(), nullptr,
                              bytesOf(std::string_view{keys}), bytesOf(std::string_view{iv}),
                              encrypting ? 1 : 0) == 1 &&
            EVP_CIPHER_CTX_set_padding(context.get(), padded ? 1 : 0) == 1 &&
            EVP_CipherUpdate(context.get(), bytesOf(out), &length, bytesOf(std::string_view{in}),
                             static_cast<int>(in.size())) == 1 &&
            EVP_CipherFinal_ex(context.get(), bytesOf(out) + length, &last) == 1);
    out.resize(static_cast<std::size_t>(length) + static_cast<std::size_t>(last));
    return out;
}

std::string mac(const std::string& keys, const std::string& body)
{
    std::string result(32, '\0');
    unsigned int length = 0;
    require(HMAC(EVP_sha256(), keys.data() + 16, 16, bytesOf(std::string_view{body}), body.size(),
                 bytesOf(result), &length) != nullptr &&
            length == 32);
    return result;
}

Envelope envelopeOf(const std::string& keys, const std::string& body)
{
    return {base64(body), base64(mac(keys, body))};
}

Envelope seal(const std::string& keys, const std::string& iv, const std::string& plaintext)
{
    return envelopeOf(keys, cipher(true, true, keys, iv, plaintext));
}

/** The plaintext; throws when the envelope is not what it must be. */
std::string open(const std::string& keys, const std::string& iv, const Envelope& envelope)
{
    const std::string body = fromBase64(envelope.body);
    require(fromBase64(envelope.mac) == mac(keys, body));
    return cipher(false, true, keys, iv, body);
}

} // namespace reference

/** An envelope of published keys around any plaintext. */
Envelope around(const std::string& plaintext)
{
    return reference::seal(sharedKeys, fromHex(someIv), plaintext);
}

std::optional<std::string> opened(const Envelope& envelope)
{
    Opening opening;
    opening.envelope = envelope;
    return opening.run();
}

TEST(EciesEncrypt, MakesTheEnvelopeOfPublishedKeys)
{
    const support::FakeRandom device{deviceBytes};
    EXPECT_EQ(Sealing{}.run(), envelopeOfAbc);
    EXPECT_EQ(device.bytesAskedFor(), 12U);
}

TEST(EciesEncrypt, MakesTheSameEnvelopeFromTheOtherSide)
{
    const support::FakeRandom device{deviceBytes};
    Sealing sealing;
    std::swap(sealing.own, sealing.other);
    EXPECT_EQ(sealing.run(), envelopeOfAbc);
}

TEST(EciesEncrypt, AddsNoLineFeedToDataThatEndsWithOne)
{
    const support::FakeRandom device{deviceBytes};
    Sealing sealing;
    sealing.data = "abc\n";
    EXPECT_EQ(sealing.run(), envelopeOfLine);
}

TEST(EciesEncrypt, MakesABodyOfWholeBlocks)
{
    // 16 characters of the token, the data, a line feed, and padding, never none.
    constexpr std::array<std::array<std::size_t, 2>, 8> lengths = {
        {{1, 32}, {3, 32}, {12, 32}, {14, 32}, {15, 48}, {16, 48}, {30, 48}, {31, 64}}};
    for (const auto& [data, body] : lengths)
    {
        SCOPED_TRACE(data);
        Sealing sealing;
        sealing.data = std::string(data, 'x');
        const std::optional<Envelope> envelope = sealing.run();
        ASSERT_TRUE(envelope);
        EXPECT_EQ(fromBase64(envelope->body).size(), body);
        EXPECT_EQ(envelope->body.size(), (body + 2) / 3 * 4);
        EXPECT_EQ(envelope->mac.size(), 44U);
    }
}

TEST(EciesEncrypt, IsOpenedByOpenSsl)
{
    const support::Identity own = support::Identity::selfSigned({});
    const support::Identity peer = support::Identity::selfSigned({});
    Sealing sealing;
    sealing.own.der = own.privateKeyDer();
    sealing.other.record = support::certificateRecord({peer.body()});
    const std::string keys = reference::keys(peer.key(), own.key());
    for (std::size_t length = 1; length < 60; ++length)
    {
        SCOPED_TRACE(length);
        sealing.data = std::string(length, static_cast<char>('A' + length % 26));
        const std::optional<Envelope> envelope = sealing.run();
        ASSERT_TRUE(envelope);
        const std::string text = reference::open(keys, fromHex(someIv), *envelope);
        ASSERT_EQ(text.size(), length + 1 + 16);
        EXPECT_EQ(text.substr(0, length + 1), sealing.data + '\n');
        EXPECT_EQ(
            text.find_first_not_of(
                "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/", length + 1),
            std::string::npos);
    }
}

TEST(EciesEncrypt, SealsBytesOfEveryValue)
{
    Sealing sealing;
    sealing.data.clear();
    for (int byte = 0; byte <= 255; ++byte)
    {
        sealing.data += static_cast<char>(byte);
    }
    const std::optional<Envelope> envelope = sealing.run();
    ASSERT_TRUE(envelope);
    EXPECT_EQ(reference::open(sharedKeys, fromHex(someIv), *envelope).substr(0, 257),
              sealing.data + '\n');
}

TEST(EciesEncrypt, DiffersEachTime)
{
    std::set<std::string> bodies;
    for (int round = 0; round < 20; ++round)
    {
        const std::optional<Envelope> envelope = Sealing{}.run();
        ASSERT_TRUE(envelope);
        bodies.insert(envelope->body);
    }
    EXPECT_EQ(bodies.size(), 20U);
}

TEST(EciesEncrypt, TakesAnIvOf32CharactersOnly)
{
    Sealing sealing;
    EXPECT_TRUE(sealing.run());
    for (const char* iv : {"000102030405060708090A0B0C0D0E0", "000102030405060708090A0B0C0D0E0F0",
                           "000102030405060708090A0B0C0D0E0F000102030405060708090A0B0C0D0E0F", ""})
    {
        SCOPED_TRACE(iv);
        sealing.iv = iv;
        EXPECT_EQ(reasonOf(sealing), "envelope.iv iv");
    }
}

TEST(EciesEncrypt, ReadsTheDigitsOfTheIvAsFarAsTheyGo)
{
    const support::FakeRandom device{deviceBytes};
    Sealing sealing;
    sealing.iv = "G0102030405060708090A0B0C0D0E0F0";
    const std::optional<Envelope> envelope = sealing.run();
    ASSERT_TRUE(envelope);
    EXPECT_EQ(reference::open(sharedKeys, fromHex("00102030405060708090A0B0C0D0E0F0"), *envelope),
              plaintextOfAbc());
}

TEST(EciesEncrypt, DoesWithoutAnIvOnMarkedDevicesOnly)
{
    const support::FakeRandom device{deviceBytes};
    Sealing sealing;
    sealing.iv = nullptr;
    EXPECT_EQ(reasonOf(sealing), "envelope.iv iv");
    const support::MarkerFile marker;
    EXPECT_EQ(sealing.run(), envelopeWithZeroIv);
    sealing.iv = "00";
    EXPECT_EQ(reasonOf(sealing), "envelope.iv iv");
}

TEST(EciesEncrypt, RefusesMissingArguments)
{
    const Sealing sealing;
    HandshakePayload* peer = sealing.other.record.get();
    HandshakePayload* noPeer = nullptr;
    char* mac = nullptr;
    const unsigned char* der = bytesOf(sealing.own.der);
    const int length = static_cast<int>(sealing.own.der.size());
    EXPECT_REFUSED("argument.null", ecies_encrypt(nullptr, 3, &peer, &mac, der, length, someIv));
    EXPECT_REFUSED("argument.length", ecies_encrypt("abc", 0, &peer, &mac, der, length, someIv));
    EXPECT_REFUSED("argument.null", ecies_encrypt("abc", 3, nullptr, &mac, der, length, someIv));
    EXPECT_REFUSED("certificate.missing",
                   ecies_encrypt("abc", 3, &noPeer, &mac, der, length, someIv));
    EXPECT_REFUSED("argument.null", ecies_encrypt("abc", 3, &peer, nullptr, der, length, someIv));
    EXPECT_REFUSED("argument.null", ecies_encrypt("abc", 3, &peer, &mac, nullptr, length, someIv));
    EXPECT_REFUSED("argument.length", ecies_encrypt("abc", 3, &peer, &mac, der, 0, someIv));
    EXPECT_REFUSED("argument.length", ecies_encrypt("abc", 3, &peer, &mac, der, -1, someIv));
    EXPECT_REFUSED("argument.length", ecies_encrypt("abc", 3, &peer, &mac, der, INT_MIN, someIv));
    EXPECT_EQ(mac, nullptr);
    const HeapText body{ecies_encrypt("abc", 3, &peer, &mac, der, length, someIv)};
    const HeapText macOwner{mac};
    EXPECT_NE(body, nullptr);
}

TEST(EciesEncrypt, OverwritesTheMacOnSuccessAlone)
{
    const Sealing sealing;
    HandshakePayload* peer = sealing.other.record.get();
    const unsigned char* der = bytesOf(sealing.own.der);
    const int length = static_cast<int>(sealing.own.der.size());
    // Not of the heap: it could not be released.
    char before = 'x';
    char* mac = &before;
    EXPECT_REFUSED("envelope.iv", ecies_encrypt("abc", 3, &peer, &mac, der, length, "short"));
    EXPECT_EQ(mac, &before);
    const HeapText body{ecies_encrypt("abc", 3, &peer, &mac, der, length, someIv)};
    ASSERT_NE(mac, &before);
    const HeapText macOwner{mac};
    EXPECT_NE(body, nullptr);
    EXPECT_EQ(std::string_view{mac}.size(), 44U);
}

// The length alone decides; the data is not looked at.
TEST(EciesEncrypt, RefusesALengthThatCannotBeHonoured)
{
    const Sealing sealing;
    HandshakePayload* peer = sealing.other.record.get();
    char* mac = nullptr;
    for (const unsigned int length : {UINT_MAX, UINT_MAX - 16, UINT_MAX - 48, 0x80000000U})
    {
        SCOPED_TRACE(length);
        EXPECT_REFUSED("envelope.length",
                       ecies_encrypt("abc", length, &peer, &mac, bytesOf(sealing.own.der),
                                     static_cast<int>(sealing.own.der.size()), someIv));
    }
    EXPECT_EQ(mac, nullptr);
}

TEST(EciesEncrypt, TakesThePeersKeyFromTheFirstCertificate)
{
    const support::FakeRandom device{deviceBytes};
    const std::string good = certificate(publicKey(responderPoint));
    const std::string other = certificate(publicKey(initiatorPoint));
    Sealing sealing;
    sealing.other.record = support::certificateRecord({good, other});
    EXPECT_EQ(sealing.run(), envelopeOfAbc);
    sealing.other.record = support::certificateRecord({good, "garbage"});
    EXPECT_EQ(sealing.run(), envelopeOfAbc);
    sealing.other.record = support::certificateRecord({"garbage", good});
    EXPECT_EQ(reasonOf(sealing), "certificate.encoding peer");
    EXPECT_EQ(support::lastRefusal().index, 0);
    sealing.other.record = support::certificateRecord({other, good});
    const std::optional<Envelope> envelope = sealing.run();
    ASSERT_TRUE(envelope);
    EXPECT_NE(*envelope, envelopeOfAbc);
}

using PeerCheck = std::function<void(PayloadPtr, const std::string& reason)>;

/** Runs @p check with a record for everything that holds no key on P-256, and with the reason for
 *  which it is refused. */
void withEachUnusablePeer(const PeerCheck& check)
{
    for (const auto& [group, rule] :
         {std::pair{"secp384r1", "key.curve peer"}, std::pair{"secp521r1", "key.curve peer"},
          std::pair{"secp256k1", "key.curve peer"}, std::pair{"RSA", "key.kind peer"}})
    {
        SCOPED_TRACE(group);
        support::CertificatePlan plan;
        plan.group = group;
        check(support::certificateRecord({support::Identity::selfSigned(plan).body()}), rule);
    }
    const std::string good = certificate(publicKey(responderPoint));
    for (const std::string& body :
         {std::string{}, std::string{"garbage"}, good.substr(0, good.size() - 4),
          good.substr(0, 100), base64(publicKey(responderPoint))})
    {
        SCOPED_TRACE(body);
        check(support::certificateRecord({body}), "certificate.encoding peer");
    }
    std::string offCurve = responderPoint;
    offCurve.back() = static_cast<char>(offCurve.back() ^ 1);
    for (const auto& [point, reason] :
         {std::pair{offCurve, "key.point peer"}, std::pair{std::string(1, '\0'), "key.point peer"},
          std::pair{std::string{}, "key.encoding peer"},
          std::pair{responderPoint.substr(0, 64), "key.encoding peer"},
          std::pair{'\x04' + std::string(64, '\xff'), "key.point peer"},
          std::pair{'\x04' + std::string(64, '\0'), "key.point peer"}})
    {
        SCOPED_TRACE(testing::PrintToString(point));
        check(support::certificateRecord({certificate(publicKey(point))}), reason);
    }
    SCOPED_TRACE("no such parameter");
    check(support::PayloadPtr{parse_handshake_payload(R"({"kty":"EC","alg":"ES-256"})")},
          "certificate.missing x5c");
}

TEST(EciesEncrypt, RefusesAPeerWithoutAKeyOnTheCurve)
{
    Sealing sealing;
    EXPECT_TRUE(sealing.run());
    withEachUnusablePeer([&](PayloadPtr record, const std::string& reason) {
        sealing.other.record = std::move(record);
        EXPECT_EQ(reasonOf(sealing), reason);
    });
}

TEST(EciesEncrypt, TakesAPeersPointInCompressedForm)
{
    const support::FakeRandom device{deviceBytes};
    Sealing sealing;
    // The last byte of the responder's point is odd.
    sealing.other.record =
        support::certificateRecord({certificate(publicKey('\x03' + responderPoint.substr(1, 32)))});
    EXPECT_EQ(sealing.run(), envelopeOfAbc);
}

TEST(EciesEncrypt, TakesEveryFormOfALocalKeyOnTheCurve)
{
    const support::FakeRandom device{deviceBytes};
    Sealing sealing;
    for (const std::string& der :
         {privateKey(initiatorScalar), privateKey(initiatorScalar, ""),
          privateKey(initiatorScalar, prime256v1, initiatorPoint),
          privateKey(initiatorScalar, "", initiatorPoint),
          privateKey(std::string(1, '\0') + initiatorScalar), privateKey(initiatorScalar) + "rest"})
    {
        SCOPED_TRACE(testing::PrintToString(der));
        sealing.own.der = der;
        EXPECT_EQ(sealing.run(), envelopeOfAbc);
    }
}

using KeyCheck = std::function<void(const std::string& der, const std::string& reason)>;

/** Runs @p check with each kind of bytes that are not a private key on P-256, and with the reason for
 *  which it is refused. */
void withEachUnusableKey(const KeyCheck& check)
{
    // SEC 2, section 2.4.2: the order of the group.
    std::string order = fromHex("FFFFFFFF00000000FFFFFFFFFFFFFFFFBCE6FAADA7179E84F3B9CAC2FC632551");
    std::string aboveOrder = order;
    aboveOrder.back() = '\x52';
    const std::string good = privateKey(initiatorScalar);
    std::string wrongPoint = initiatorPoint;
    wrongPoint.back() = static_cast<char>(wrongPoint.back() ^ 1);
    support::CertificatePlan plan;
    plan.group = "secp384r1";
    constexpr const char* range = "key.range der";
    constexpr const char* otherCurve = "key.curve der";
    constexpr const char* encoding = "key.encoding der";
    for (const auto& [der, reason] :
         {std::pair{privateKey(std::string(32, '\0')), range},
          std::pair{privateKey(std::string{}), range}, std::pair{privateKey(order), range},
          std::pair{privateKey(aboveOrder), range},
          std::pair{privateKey(std::string(32, '\xff')), range},
          std::pair{privateKey(initiatorScalar, secp384r1), otherCurve},
          std::pair{support::Identity::selfSigned(plan).privateKeyDer(), otherCurve},
          std::pair{privateKey(initiatorScalar, prime256v1, wrongPoint), encoding},
          std::pair{good.substr(0, good.size() - 1), encoding}, std::pair{good.substr(1), encoding},
          std::pair{std::string{"garbage"}, encoding}, std::pair{std::string(1, '\0'), encoding},
          std::pair{sequence(""), encoding}, std::pair{std::string(1000, '\x30'), encoding}})
    {
        SCOPED_TRACE(testing::PrintToString(der));
        check(der, reason);
    }
}

TEST(EciesEncrypt, RefusesALocalKeyThatIsNoneOnTheCurve)
{
    Sealing sealing;
    EXPECT_TRUE(sealing.run());
    withEachUnusableKey([&](const std::string& der, const std::string& reason) {
        sealing.own.der = der;
        EXPECT_EQ(reasonOf(sealing), reason);
    });
}

TEST(EciesEncrypt, TakesTheSmallestAndTheLargestScalar)
{
    Sealing sealing;
    sealing.own.der = privateKey(std::string(31, '\0') + '\x01');
    EXPECT_TRUE(sealing.run());
    sealing.own.der =
        privateKey(fromHex("FFFFFFFF00000000FFFFFFFFFFFFFFFFBCE6FAADA7179E84F3B9CAC2FC632550"));
    EXPECT_TRUE(sealing.run());
}

TEST(EciesEncrypt, FailsWhenTheRandomDeviceFails)
{
    support::FakeRandom device;
    device.failOpening(EACCES, {0, 1});
    EXPECT_EQ(reasonOf(Sealing{}), "random.device /dev/urandom");
    device.shortenReading(1, {0, 1});
    EXPECT_EQ(reasonOf(Sealing{}), "random.device /dev/urandom");
    EXPECT_TRUE(Sealing{}.run());
}

// OpenSSL comes through the failure of some of its own allocations: then the envelope must be the
// right one, in particular not one made with a key of zeros. What it sets up once for the process
// it never gets right again after a failure, which is why one call goes before.
TEST(EciesEncrypt, GivesNothingOrTheRightEnvelopeWhicheverAllocationFails)
{
    const support::FakeRandom device{deviceBytes};
    const Sealing sealing;
    ASSERT_EQ(sealing.run(), envelopeOfAbc);
    HandshakePayload* peer = sealing.other.record.get();
    int failures = 0;
    support::withEachAllocationFailing([&](auto& failure) {
        char* mac = nullptr;
        const HeapText body{ecies_encrypt("abc", 3, &peer, &mac, bytesOf(sealing.own.der),
                                          static_cast<int>(sealing.own.der.size()), someIv)};
        const HeapText macOwner{mac};
        const bool reached = failure.reached();
        if (body == nullptr)
        {
            EXPECT_TRUE(reached);
            EXPECT_EQ(mac, nullptr);
            ++failures;
        }
        else
        {
            EXPECT_EQ(body.get(), envelopeOfAbc.body);
            EXPECT_EQ(support::orNull(mac), envelopeOfAbc.mac);
        }
    });
    EXPECT_GT(failures, 20);
}

TEST(EciesDecrypt, OpensTheEnvelopeOfPublishedKeys)
{
    EXPECT_EQ(Opening{}.run(), plaintextOfAbc());
    EXPECT_EQ(opened(envelopeOfLine), plaintextOfAbc());
    EXPECT_EQ(Opening{}.runWithoutLength(21), plaintextOfAbc() + '\0');
}

TEST(EciesDecrypt, OpensWhatEciesEncryptSeals)
{
    for (const char* data : {"a", "abc", "abc\n", "\n", "two\nlines", "fifteen charact"})
    {
        SCOPED_TRACE(data);
        Sealing sealing;
        sealing.data = data;
        Opening opening;
        opening.envelope = sealing.run().value_or(Envelope{});
        const std::string text = opening.run().value_or("nothing");
        const std::string line = sealing.data.ends_with('\n') ? data : sealing.data + '\n';
        EXPECT_EQ(text.substr(0, line.size()), line);
        EXPECT_EQ(text.size(), line.size() + 16);
    }
}

TEST(EciesDecrypt, OpensWhatOpenSslSeals)
{
    const support::Identity own = support::Identity::selfSigned({});
    const support::Identity peer = support::Identity::selfSigned({});
    Opening opening;
    opening.own.der = own.privateKeyDer();
    opening.other.record = support::certificateRecord({peer.body()});
    const std::string keys = reference::keys(peer.key(), own.key());
    for (std::size_t length = 0; length < 60; ++length)
    {
        SCOPED_TRACE(length);
        const std::string text(length, static_cast<char>('A' + length % 26));
        opening.envelope = reference::seal(keys, fromHex(someIv), text);
        EXPECT_EQ(opening.run(), text);
    }
}

TEST(EciesDecrypt, TakesBothAlphabetsWithAndWithoutPadding)
{
    const auto rewritten = [](Envelope envelope, auto rewrite) {
        rewrite(envelope.body);
        rewrite(envelope.mac);
        return envelope;
    };
    const auto url = [](std::string& text) {
        std::ranges::replace(text, '+', '-');
        std::ranges::replace(text, '/', '_');
    };
    const auto unpadded = [](std::string& text) {
        std::erase(text, '=');
    };
    const Envelope inUrlAlphabet = rewritten(envelopeOfAbc, url);
    EXPECT_NE(inUrlAlphabet.body, envelopeOfAbc.body);
    EXPECT_NE(inUrlAlphabet.mac, envelopeOfAbc.mac);
    EXPECT_EQ(opened(inUrlAlphabet), plaintextOfAbc());
    EXPECT_EQ(opened(rewritten(inUrlAlphabet, unpadded)), plaintextOfAbc());
    EXPECT_EQ(opened(rewritten(envelopeOfAbc, unpadded)), plaintextOfAbc());
}

TEST(EciesDecrypt, OpensTheLongestTextAndRefusesOneMoreBlock)
{
    Sealing sealing;
    Opening opening;
    sealing.data = std::string(73710, 'x');
    opening.envelope = sealing.run().value_or(Envelope{});
    EXPECT_EQ(opening.envelope.body.size(), 98304U);
    EXPECT_EQ(opening.run().value_or("").substr(0, 73711), sealing.data + '\n');
    sealing.data += 'x';
    opening.envelope = sealing.run().value_or(Envelope{});
    EXPECT_EQ(opening.envelope.body.size(), 98328U);
    EXPECT_EQ(reasonOf(opening), "base64.length ciphertext");
}

TEST(EciesDecrypt, RefusesEveryFlippedBitOfTheBody)
{
    const std::string body = fromBase64(envelopeOfAbc.body);
    Opening opening;
    for (std::size_t bit = 0; bit < body.size() * 8; ++bit)
    {
        std::string flipped = body;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
        opening.envelope.body = base64(flipped);
        EXPECT_EQ(ruleOfRun(opening), "envelope.mac-wrong") << bit;
    }
    opening.envelope.body = base64(body);
    EXPECT_TRUE(opening.run());
}

TEST(EciesDecrypt, RefusesEveryFlippedBitOfTheMac)
{
    const std::string mac = fromBase64(envelopeOfAbc.mac);
    Opening opening;
    for (std::size_t bit = 0; bit < mac.size() * 8; ++bit)
    {
        std::string flipped = mac;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
        opening.envelope.mac = base64(flipped);
        EXPECT_EQ(ruleOfRun(opening), "envelope.mac-wrong") << bit;
    }
    opening.envelope.mac = base64(mac);
    EXPECT_TRUE(opening.run());
}

TEST(EciesDecrypt, RefusesAMacOfAnotherLength)
{
    const std::string mac = fromBase64(envelopeOfAbc.mac);
    Opening opening;
    for (const std::string& other :
         {mac.substr(0, 31), mac.substr(0, 16), mac.substr(0, 1), mac + '\0', mac + mac})
    {
        opening.envelope.mac = base64(other);
        EXPECT_EQ(ruleOfRun(opening), "envelope.mac-wrong") << other.size();
    }
    for (const char* text : {"", "=", "*", "not Base64"})
    {
        opening.envelope.mac = text;
        EXPECT_EQ(reasonOf(opening), "base64.malformed mac") << text;
    }
    // A MAC that is given is checked on every device.
    const support::MarkerFile marker;
    opening.envelope.mac = "";
    EXPECT_EQ(reasonOf(opening), "base64.malformed mac");
    opening.envelope.mac = base64(std::string(32, '\0'));
    EXPECT_EQ(ruleOfRun(opening), "envelope.mac-wrong");
    opening.envelope.mac = base64(mac);
    EXPECT_TRUE(opening.run());
}

TEST(EciesDecrypt, DoesWithoutAMacOnMarkedDevicesOnly)
{
    Opening opening;
    opening.withMac = false;
    EXPECT_EQ(reasonOf(opening), "envelope.mac-missing mac");
    const support::MarkerFile marker;
    EXPECT_EQ(opening.run(), plaintextOfAbc());
    // Nothing protects the text then: a bit of the first block flips one of the second.
    std::string body = fromBase64(envelopeOfAbc.body);
    body[0] = static_cast<char>(body[0] ^ 1);
    opening.envelope.body = base64(body);
    EXPECT_EQ(opening.runWithoutLength(21).value_or("").substr(16), "g4AQ" + std::string(1, '\0'));
}

TEST(EciesDecrypt, DoesWithoutAnIvOnMarkedDevicesOnly)
{
    Opening opening;
    opening.envelope = envelopeWithZeroIv;
    opening.iv = zeroIv;
    EXPECT_EQ(opening.run(), plaintextOfAbc());
    opening.iv = nullptr;
    EXPECT_EQ(reasonOf(opening), "envelope.iv iv");
    const support::MarkerFile marker;
    EXPECT_EQ(opening.run(), plaintextOfAbc());
}

TEST(EciesDecrypt, TakesAnIvOf32CharactersOnly)
{
    Opening opening;
    for (const char* iv :
         {"000102030405060708090A0B0C0D0E0", "000102030405060708090A0B0C0D0E0F0", ""})
    {
        SCOPED_TRACE(iv);
        opening.iv = iv;
        EXPECT_EQ(reasonOf(opening), "envelope.iv iv");
        const support::MarkerFile marker;
        EXPECT_EQ(reasonOf(opening), "envelope.iv iv");
    }
    opening.iv = "000102030405060708090a0b0c0d0e0f";
    EXPECT_EQ(opening.run(), plaintextOfAbc());
}

// Both sides compute the MAC over the ciphertext alone.
TEST(EciesDecrypt, DoesNotNoticeAnAlteredIv)
{
    Opening opening;
    opening.iv = "010102030405060708090A0B0C0D0E0F";
    EXPECT_EQ(opening.run(), "`bc\n" + std::string{deviceToken});
}

TEST(EciesDecrypt, RefusesOtherKeys)
{
    Opening opening;
    EXPECT_TRUE(opening.run());
    opening.own.der = support::Identity::selfSigned({}).privateKeyDer();
    EXPECT_EQ(ruleOfRun(opening), "envelope.mac-wrong");
    opening = {};
    opening.other.record = support::certificateRecord({support::Identity::selfSigned({}).body()});
    EXPECT_EQ(ruleOfRun(opening), "envelope.mac-wrong");
    // Without a MAC wrong keys show by the padding alone, if at all.
    const support::MarkerFile marker;
    opening.withMac = false;
    EXPECT_NE(opening.run(), plaintextOfAbc());
}

TEST(EciesDecrypt, RefusesUnusableKeys)
{
    Opening opening;
    EXPECT_TRUE(opening.run());
    withEachUnusablePeer([&](PayloadPtr record, const std::string& reason) {
        opening.other.record = std::move(record);
        EXPECT_EQ(reasonOf(opening), reason);
    });
    opening = {};
    withEachUnusableKey([&](const std::string& der, const std::string& reason) {
        opening.own.der = der;
        EXPECT_EQ(reasonOf(opening), reason);
    });
}

TEST(EciesDecrypt, RefusesMissingArguments)
{
    const Opening opening;
    HandshakePayload* peer = opening.other.record.get();
    HandshakePayload* noPeer = nullptr;
    unsigned int length = 777777;
    const unsigned char* der = bytesOf(opening.own.der);
    const int derLength = static_cast<int>(opening.own.der.size());
    const char* body = opening.envelope.body.c_str();
    const char* mac = opening.envelope.mac.c_str();
    EXPECT_REFUSED("argument.null",
                   ecies_decrypt(nullptr, &length, der, derLength, mac, &peer, someIv));
    EXPECT_REFUSED("argument.null",
                   ecies_decrypt(body, &length, nullptr, derLength, mac, &peer, someIv));
    EXPECT_REFUSED("argument.length", ecies_decrypt(body, &length, der, 0, mac, &peer, someIv));
    EXPECT_REFUSED("argument.length", ecies_decrypt(body, &length, der, -1, mac, &peer, someIv));
    EXPECT_REFUSED("argument.null",
                   ecies_decrypt(body, &length, der, derLength, mac, nullptr, someIv));
    EXPECT_REFUSED("certificate.missing",
                   ecies_decrypt(body, &length, der, derLength, mac, &noPeer, someIv));
    EXPECT_EQ(length, 777777U);
    const HeapText text{ecies_decrypt(body, &length, der, derLength, mac, &peer, someIv)};
    EXPECT_NE(text, nullptr);
    EXPECT_EQ(length, 20U);
}

TEST(EciesDecrypt, RefusesACiphertextThatIsNotBase64)
{
    Opening opening;
    for (const std::string& text :
         {std::string{}, std::string{"="}, std::string{"A"}, std::string{"not Base64"},
          std::string(98305, 'A'), std::string(5'000'000, 'A'), std::string(3000, '\n')})
    {
        opening.envelope.body = text;
        EXPECT_EQ(reasonOf(opening),
                  text.size() > 98304 ? "base64.length ciphertext" : "base64.malformed ciphertext")
            << text.substr(0, 20);
    }
}

TEST(EciesDecrypt, RefusesACiphertextThatIsNotPaddedBlocks)
{
    const std::string block(16, 'x');
    for (const std::string& body :
         {std::string(1, 'x'), std::string(15, 'x'), std::string(17, 'x')})
    {
        EXPECT_REFUSED("envelope.padding",
                       opened(reference::envelopeOf(sharedKeys, body)).has_value())
            << body.size();
    }
    // The MAC is right each time, so that it is the padding that is refused.
    const auto padded = [](const std::string& bytes) {
        return reference::envelopeOf(
            sharedKeys, reference::cipher(true, false, sharedKeys, fromHex(someIv), bytes));
    };
    EXPECT_EQ(opened(padded("fifteen letters\x01")), "fifteen letters");
    EXPECT_EQ(opened(padded(block + std::string(16, '\x10'))), block);
    EXPECT_REFUSED("envelope.padding", opened(padded(block)).has_value());
    EXPECT_REFUSED("envelope.padding",
                   opened(padded(std::string("fifteen letters") + '\0')).has_value());
    EXPECT_REFUSED("envelope.padding", opened(padded("fifteen letters\x02")).has_value());
    EXPECT_REFUSED("envelope.padding", opened(padded("fifteen letters\x11")).has_value());
}

TEST(EciesDecrypt, DoesNotCountOneZeroByteAtTheEnd)
{
    using std::string_literals::operator""s;
    EXPECT_EQ(opened(around("text\0"s)), "text");
    EXPECT_EQ(opened(around("\0"s)), "");
    EXPECT_EQ(opened(around("")), "");
    EXPECT_EQ(opened(around("fifteen letters\0"s)), "fifteen letters");
}

TEST(EciesDecrypt, RefusesZeroBytesInATextWhoseLengthIsAskedFor)
{
    using std::string_literals::operator""s;
    for (const std::string& text : {"te\0xt"s, "\0text"s, "text\0\0"s, "\0\0"s, "te\0xt\0"s})
    {
        SCOPED_TRACE(testing::PrintToString(text));
        Opening opening;
        opening.envelope = around(text);
        EXPECT_EQ(ruleOfRun(opening), "envelope.text");
        EXPECT_EQ(opening.runWithoutLength(text.size() + 1), text + '\0');
    }
}

TEST(EciesDecrypt, GivesNothingOrTheTextWhicheverAllocationFails)
{
    const Opening opening;
    ASSERT_EQ(opening.run(), plaintextOfAbc());
    HandshakePayload* peer = opening.other.record.get();
    int failures = 0;
    support::withEachAllocationFailing([&](auto& failure) {
        unsigned int length = 777777;
        const HeapText text{ecies_decrypt(
            opening.envelope.body.c_str(), &length, bytesOf(opening.own.der),
            static_cast<int>(opening.own.der.size()), opening.envelope.mac.c_str(), &peer, someIv)};
        const bool reached = failure.reached();
        if (text == nullptr)
        {
            EXPECT_TRUE(reached);
            EXPECT_EQ(length, 777777U);
            ++failures;
        }
        else
        {
            EXPECT_EQ(text.get(), plaintextOfAbc());
            EXPECT_EQ(length, 20U);
        }
    });
    EXPECT_GT(failures, 20);
}

// What an envelope is sealed with, its MAC and its text stay out of the log.
TEST(EciesDecrypt, ShowsNothingOfWhatItRefuses)
{
    const auto shown = [] {
        return std::string{support::lastRefusal().saw} + support::lastRefusal().wanted;
    };
    Opening opening;
    opening.envelope.mac = base64(std::string(32, 'm'));
    EXPECT_EQ(ruleOfRun(opening), "envelope.mac-wrong");
    EXPECT_EQ(shown(), "");
    opening.envelope.mac = "c2VjcmV0*";
    EXPECT_EQ(ruleOfRun(opening), "base64.malformed");
    EXPECT_EQ(shown(), "");
    opening.envelope = around(std::string{"te\0xt", 5});
    EXPECT_EQ(ruleOfRun(opening), "envelope.text");
    EXPECT_EQ(shown(), "");
}

TEST(Ecies, LeavesErrnoAndTheErrorQueueAsTheyWere)
{
    Sealing sealing;
    sealing.own.der = "garbage";
    Opening opening;
    opening.envelope = reference::envelopeOf(sharedKeys, std::string(17, 'x'));
    ERR_clear_error();
    errno = EDOM;
    EXPECT_EQ(ruleOfRun(sealing), "key.encoding");
    EXPECT_EQ(ruleOfRun(opening), "envelope.padding");
    EXPECT_EQ(errno, EDOM);
    EXPECT_EQ(ERR_peek_error(), 0U);
    ERR_raise(ERR_LIB_USER, 42);
    const unsigned long before = ERR_peek_last_error();
    EXPECT_EQ(ruleOfRun(sealing), "key.encoding");
    EXPECT_EQ(ruleOfRun(opening), "envelope.padding");
    EXPECT_EQ(ERR_peek_last_error(), before);
    EXPECT_EQ(ERR_get_error(), before);
    EXPECT_EQ(ERR_get_error(), 0U);
}

/** The integer of a vector, "00" before digits whose first bit is set, as 32 bytes. */
std::string scalarOf(const std::string& hex)
{
    const std::string digits = std::string(64, '0') + hex;
    return fromHex(digits.substr(digits.size() - 64));
}

// Each vector's shared secret makes an envelope that its keys must open. Keys that may be rejected
// may also be accepted, but never with another secret. Two keys that should be rejected spell out
// the parameters of P-256, with a missing or wrong cofactor: OpenSSL recognizes the curve by the
// other parameters and computes with its own, so nothing is lost by accepting these keys.
TEST(EciesDecrypt, AgreesWithWycheproof)
{
    const Json::Value document =
        support::vectors("wycheproof/ecdh_secp256r1_test.json")["testGroups"][0]["tests"];
    int valid = 0;
    int refused = 0;
    std::set<std::string> rules;
    for (const Json::Value& vector : document)
    {
        SCOPED_TRACE("tcId " + vector["tcId"].asString() + ", " + vector["comment"].asString());
        const std::string result = vector["result"].asString();
        Opening opening;
        opening.own.der = privateKey(scalarOf(vector["private"].asString()));
        opening.other.record =
            support::certificateRecord({certificate(fromHex(vector["public"].asString()))});
        opening.envelope = reference::seal(reference::sha256(fromHex(vector["shared"].asString())),
                                           fromHex(someIv), "the text");
        const std::optional<std::string> text = opening.run();
        if (result == "valid")
        {
            EXPECT_EQ(text, "the text");
            ++valid;
        }
        else if (result == "invalid" && vector["comment"] != "no cofactor" &&
                 vector["comment"] != "cofactor = n")
        {
            EXPECT_FALSE(text);
            rules.insert(ruleOfRun(opening));
            ++refused;
        }
        else if (text)
        {
            EXPECT_EQ(*text, "the text");
        }
    }
    EXPECT_EQ(valid, 330);
    EXPECT_EQ(refused, 50);
    EXPECT_EQ(rules, (std::set<std::string>{"key.curve", "key.encoding", "key.point"}));
}

} // namespace
