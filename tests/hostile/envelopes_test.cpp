// SPDX-License-Identifier: Apache-2.0
#include "hostile/forge.hpp"
#include "support/certificates.hpp"
#include "support/fake_device.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"
#include "support/vectors.hpp"

#include <bmcoauth/ecies.h>
#include <bmcoauth/handshake_payload.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

using forge::element;
using forge::sequence;
using support::HeapText;
using support::PayloadPtr;

namespace
{

constexpr const char* iv = "000102030405060708090A0B0C0D0E0F";
constexpr const char* otherIv = "F0E0D0C0B0A090807060504030201000";

/** A certificate key around an encoded point on P-256; nobody looks at the signature. */
PayloadPtr recordOf(const std::string& encodedPoint)
{
    const std::string algorithm = sequence(support::fromHex("06082a8648ce3d040302"));
    const std::string validity =
        sequence(element(0x17, "200101000000Z") + element(0x17, "491231235959Z"));
    const std::string fields =
        sequence(support::fromHex("a003020102020101") + algorithm + sequence("") + validity +
                 sequence("") + forge::p256Info(encodedPoint));
    return support::certificateRecord(
        {support::base64(sequence(fields + algorithm + element(0x03, std::string(1, '\0'))))});
}

std::string encoded(const tokens::PrivateKey& key)
{
    const auto [x, y] = forge::pointOf(key);
    return '\x04' + x + y;
}

constexpr const char* accepted = "accepted";
constexpr const char* wrongMac = "envelope.mac-wrong";
constexpr const char* malformed = "base64.malformed";
constexpr const char* notAPoint = "key.encoding";
constexpr const char* offCurve = "key.point";

struct Envelope
{
    std::string body;
    std::string mac;
};

Envelope seal(const std::string& data, const tokens::PrivateKey& from, const tokens::PrivateKey& to,
              const char* usedIv = iv)
{
    const PayloadPtr record = recordOf(encoded(to));
    HandshakePayload* peer = record.get();
    char* mac = nullptr;
    const HeapText body{ecies_encrypt(data.data(), static_cast<unsigned int>(data.size()), &peer,
                                      &mac, from.data(), from.length(), usedIv)};
    const HeapText macOwner{mac};
    return {support::orNull(body.get()), support::orNull(mac)};
}

/** "accepted" where the service opens the envelope as one of a peer with this point, else the rule by
 *  which it does not. */
std::string opened(const Envelope& envelope, const std::string& peerPoint,
                   const tokens::PrivateKey& own = tokens::serviceKey(), const char* usedIv = iv)
{
    const PayloadPtr record = recordOf(peerPoint);
    HandshakePayload* peer = record.get();
    unsigned int length = 777;
    std::string rule = support::ruleOf([&] {
        return HeapText{ecies_decrypt(envelope.body.c_str(), &length, own.data(), own.length(),
                                      envelope.mac.c_str(), &peer, usedIv)} != nullptr;
    });
    EXPECT_EQ(rule != accepted, length == 777);
    return rule;
}

const Envelope& sample()
{
    static const Envelope made = seal("secret", tokens::otherKey(), tokens::serviceKey());
    return made;
}

TEST(EnvelopeKeys, AreRefusedWithAnyFlippedBit)
{
    const std::string point = encoded(tokens::otherKey());
    EXPECT_EQ(opened(sample(), point), accepted);
    for (std::size_t bit = 0; bit < point.size() * 8; ++bit)
    {
        std::string flipped = point;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
        EXPECT_EQ(opened(sample(), flipped), bit < 8 ? notAPoint : offCurve) << bit;
    }
}

// A point off the curve would tell the private key piece by piece, one small group at a time.
TEST(EnvelopeKeys, LieOnTheCurve)
{
    const std::string point = encoded(tokens::otherKey());
    const std::string x = point.substr(1, 32);
    const std::string y = point.substr(33);
    const bool odd = (static_cast<unsigned char>(y.back()) & 1U) != 0;
    const std::string zero(32, '\0');
    EXPECT_EQ(opened(sample(), point), accepted);
    EXPECT_EQ(opened(sample(), (odd ? '\x03' : '\x02') + x), accepted);
    // The opposite point agrees on the same secret: y is not a part of it.
    EXPECT_EQ(opened(sample(), (odd ? '\x02' : '\x03') + x), accepted);
    EXPECT_EQ(opened(sample(), '\x04' + y + x), offCurve);
    EXPECT_EQ(opened(sample(), '\x04' + x + zero), offCurve);
    EXPECT_EQ(opened(sample(), '\x04' + zero + y), offCurve);
    EXPECT_EQ(opened(sample(), '\x04' + zero + zero), offCurve);
    EXPECT_EQ(opened(sample(), '\x04' + x), notAPoint);
    EXPECT_EQ(opened(sample(), '\x04' + x + y.substr(0, 31)), notAPoint);
    EXPECT_EQ(opened(sample(), '\x04' + x + y + '\0'), notAPoint);
    EXPECT_EQ(opened(sample(), x + y), notAPoint);
    EXPECT_EQ(opened(sample(), std::string(1, '\0')), offCurve);
    EXPECT_EQ(opened(sample(), std::string(65, '\0')), notAPoint);
    EXPECT_EQ(opened(sample(), ""), notAPoint);
    EXPECT_EQ(opened(sample(), '\x04' + forge::p256Prime().bytes(32) + y), offCurve);
    EXPECT_EQ(opened(sample(), '\x04' + std::string(64, '\xff')), offCurve);
    EXPECT_EQ(opened(sample(), encoded(tokens::serviceKey())), wrongMac);
}

TEST(EnvelopeText, IsRefusedWhereverItIsCutOff)
{
    const std::string peer = encoded(tokens::otherKey());
    const auto [body, mac] = sample();
    EXPECT_EQ(opened({body, mac}, peer), accepted);
    // Of 32 bytes each; the padding at their ends may be left out.
    ASSERT_EQ(body.size(), 44U);
    ASSERT_EQ(mac.size(), 44U);
    EXPECT_EQ(opened({body.substr(0, 43), mac.substr(0, 43)}, peer), accepted);
    // The last of the 44 is padding. No digit at all, or a single one left over, is not Base64.
    const auto ruleFor = [](std::size_t digits) {
        return digits == 0 || digits > 43 || digits % 4 == 1 ? malformed : wrongMac;
    };
    for (std::size_t length = 0; length < 43; ++length)
    {
        EXPECT_EQ(opened({body.substr(0, length), mac}, peer), ruleFor(length)) << length;
        EXPECT_EQ(opened({body, mac.substr(0, length)}, peer), ruleFor(length)) << length;
        EXPECT_EQ(opened({body.substr(44 - length), mac}, peer), ruleFor(length - 1)) << length;
        EXPECT_EQ(opened({body, mac.substr(44 - length)}, peer), ruleFor(length - 1)) << length;
    }
    EXPECT_EQ(opened({body + body, mac}, peer), wrongMac);
    EXPECT_EQ(opened({body, mac + mac}, peer), wrongMac);
}

TEST(EnvelopeText, IsRefusedWithOneDigitAltered)
{
    const std::string peer = encoded(tokens::otherKey());
    for (std::size_t position = 0; position < 42; ++position)
    {
        Envelope body = sample();
        body.body[position] = body.body[position] == 'A' ? 'B' : 'A';
        EXPECT_EQ(opened(body, peer), wrongMac) << position;
        Envelope mac = sample();
        mac.mac[position] = mac.mac[position] == 'A' ? 'B' : 'A';
        EXPECT_EQ(opened(mac, peer), wrongMac) << position;
    }
    EXPECT_EQ(opened(sample(), peer), accepted);
}

TEST(EnvelopeParts, BelongTogether)
{
    const tokens::PrivateKey& service = tokens::serviceKey();
    const tokens::PrivateKey& client = tokens::otherKey();
    const std::string peer = encoded(client);
    const Envelope first = seal("first", client, service);
    const Envelope second = seal("second", client, service, otherIv);
    EXPECT_EQ(opened(first, peer), accepted);
    EXPECT_EQ(opened(second, peer, service, otherIv), accepted);
    EXPECT_EQ(opened({first.body, second.mac}, peer), wrongMac);
    EXPECT_EQ(opened({second.body, first.mac}, peer, service, otherIv), wrongMac);
    EXPECT_EQ(opened({first.mac, first.body}, peer), wrongMac);
    EXPECT_EQ(opened({first.mac, first.mac}, peer), wrongMac);
    EXPECT_EQ(opened({first.body, first.body}, peer), wrongMac);
    // Blocks of two envelopes in one: 64 characters are 48 bytes.
    const Envelope one = seal(std::string(64, 'x'), client, service);
    const Envelope two = seal(std::string(64, 'y'), client, service);
    EXPECT_EQ(opened(one, peer), accepted);
    EXPECT_EQ(opened(two, peer), accepted);
    ASSERT_EQ(one.body.size(), 128U);
    for (const std::string& mixed : {one.body.substr(0, 64) + two.body.substr(64),
                                     two.body.substr(0, 64) + one.body.substr(64),
                                     one.body.substr(64) + one.body.substr(0, 64)})
    {
        EXPECT_EQ(opened({mixed, one.mac}, peer), wrongMac);
        EXPECT_EQ(opened({mixed, two.mac}, peer), wrongMac);
    }
}

TEST(EnvelopeParts, AreOfTheTwoPartiesAlone)
{
    const tokens::PrivateKey& service = tokens::serviceKey();
    const tokens::PrivateKey& client = tokens::otherKey();
    unsigned char* point = nullptr;
    unsigned char* der = nullptr;
    int pointLength = 0;
    int derLength = 0;
    ASSERT_EQ(generateECKey(&point, &der, &pointLength, &derLength), 1);
    const support::HeapBytes pointOwner{point};
    const support::HeapBytes derOwner{der};
    const tokens::PrivateKey stranger{{der, der + derLength}};

    const Envelope envelope = seal("secret", client, service);
    EXPECT_EQ(opened(envelope, encoded(client), service), accepted);
    EXPECT_EQ(opened(envelope, encoded(stranger), service), wrongMac);
    EXPECT_EQ(opened(envelope, encoded(client), stranger), wrongMac);
    EXPECT_EQ(opened(seal("secret", stranger, service), encoded(client), service), wrongMac);
    // The two keys agree on one secret, whoever speaks: what a party has sent can be sent back to
    // it. Who is to open which message must be plain from what is in it.
    EXPECT_EQ(opened(envelope, encoded(service), client), accepted);
}

} // namespace
