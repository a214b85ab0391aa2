// SPDX-License-Identifier: Apache-2.0
#include "hostile/forge.hpp"
#include "support/issuer.hpp"
#include "support/judgement.hpp"
#include "support/vectors.hpp"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using forge::Number;

namespace
{

std::string inputFor(const std::string& algorithm)
{
    return issuer::signingInput(R"({"alg":")" + algorithm + R"("})", "{}");
}

/** The rule that refuses the signature under this key; "accepted" for none. */
std::string ruleOf(const std::string& input, const std::string& signature, const std::string& key)
{
    return judge(issuer::token(input, signature), {.keys = {key}}).signatureRule();
}

std::string digestOf(const std::string& text, const EVP_MD* kind = EVP_sha256())
{
    std::string digest(EVP_MAX_MD_SIZE, '\0');
    unsigned int length = 0;
    EXPECT_EQ(EVP_Digest(text.data(), text.size(), reinterpret_cast<unsigned char*>(digest.data()),
                         &length, kind, nullptr),
              1);
    digest.resize(length);
    return digest;
}

/** RFC 8017, section 9.2, note 1: the bytes before a SHA-256 digest. */
const std::string& sha256Prefix()
{
    static const std::string bytes = support::fromHex("3031300d060960864801650304020105000420");
    return bytes;
}

/** The block that a PKCS #1 v1.5 signature stands for (RFC 8017, section 9.2). */
std::string paddedBlock(std::size_t size, const std::string& info)
{
    return std::string{"\x00\x01", 2} + std::string(size - info.size() - 3, '\xff') + '\0' + info;
}

std::string goodBlock(std::size_t size, const std::string& input)
{
    return paddedBlock(size, sha256Prefix() + digestOf(input));
}

/** A modulus whose factors nobody knows, if it has any, and a signature with a small exponent
 *  for a given block: the modulus is a power of some number, less the block. It shows which
 *  blocks a verifier accepts, for keys of any size. */
struct MadeUp
{
    Number modulus{0};
    std::string signature;
};

MadeUp madeUpFor(const std::string& block, unsigned int bits, unsigned int exponent)
{
    // The root of a number of as many bits: 9/8, 23/16 and 29/16 are between the cube roots of 1
    // and 2, of 2 and 4, and of 4 and 8; 9/8 and 29/16 squared as well.
    const unsigned int shift = (bits - 1) / exponent;
    const unsigned long sixteenths[] = {18, 23, 29};
    const unsigned int rest = (bits - 1) % exponent;
    Number root =
        Number{exponent == 2 && rest == 1 ? 25 : sixteenths[rest]} * Number::powerOfTwo(shift - 4);
    const Number number = Number::fromBytes(block);
    if (!number.odd())
    {
        root = root + Number{1};
    }
    Number power = root;
    for (unsigned int i = 1; i < exponent; ++i)
    {
        power = power * root;
    }
    MadeUp made{power - number, root.bytes((bits + 7) / 8)};
    EXPECT_EQ(made.modulus.bits(), bits);
    EXPECT_TRUE(made.modulus.odd());
    return made;
}

TEST(RsaModulus, HasUpTo16384Bits)
{
    const std::string input = inputFor("RS256");
    const std::string other = inputFor("RS2567");
    // The digest needs 496 bits. Whom to trust with how few is the caller's to say.
    for (const unsigned int bits :
         {496U, 511U, 512U, 1023U, 1024U, 2047U, 2048U, 3072U, 4096U, 8192U, 16383U, 16384U})
    {
        SCOPED_TRACE(bits);
        const MadeUp made = madeUpFor(goodBlock((bits + 7) / 8, input), bits, 3);
        for (const std::string& key : {forge::rsaPem(made.modulus, Number{3}),
                                       forge::rsaJwk("RS256", made.modulus, Number{3})})
        {
            EXPECT_EQ(ruleOf(input, made.signature, key), "accepted");
            EXPECT_EQ(ruleOf(other, made.signature, key), "token.signature");
            EXPECT_EQ(ruleOf(input, made.signature.substr(1), key), "token.signature");
            EXPECT_EQ(ruleOf(input, '\0' + made.signature, key), "token.signature");
        }
    }
    for (const unsigned int bits : {16385U, 16392U, 20000U, 65536U})
    {
        SCOPED_TRACE(bits);
        const MadeUp made = madeUpFor(goodBlock((bits + 7) / 8, input), bits, 3);
        EXPECT_EQ(ruleOf(input, made.signature, forge::rsaPem(made.modulus, Number{3})),
                  "token.signature");
        EXPECT_EQ(ruleOf(input, made.signature, forge::rsaJwk("RS256", made.modulus, Number{3})),
                  "token.signature");
    }
}

TEST(RsaModulus, OfAnySizeComesBackWithARefusal)
{
    for (const unsigned int bits : {1U, 2U, 3U, 8U, 64U, 65U, 495U, 496U, 511U, 512U, 1024U, 2048U,
                                    3072U, 3073U, 8192U, 16384U, 16385U})
    {
        SCOPED_TRACE(bits);
        const Number modulus = Number::powerOfTwo(bits) - Number{1};
        const std::size_t size = (bits + 7) / 8;
        for (const char* algorithm : {"RS256", "RS384", "RS512", "PS256", "PS384", "PS512"})
        {
            SCOPED_TRACE(algorithm);
            const std::string input = inputFor(algorithm);
            for (const std::string& key : {forge::rsaPem(modulus, Number{65537}),
                                           forge::rsaJwk(algorithm, modulus, Number{65537})})
            {
                for (const std::string& signature :
                     {std::string(size, '\0'), std::string(size - 1, '\0') + '\x01',
                      std::string(size - 1, '\0') + '\x02', (modulus - Number{1}).bytes(size),
                      modulus.bytes(size), std::string(size + 1, '\x01')})
                {
                    EXPECT_EQ(ruleOf(input, signature, key), "token.signature");
                }
            }
        }
    }
}

TEST(RsaModulus, IsNeitherZeroNorEvenNorBelowTheExponent)
{
    const std::string input = inputFor("RS256");
    const std::string block = goodBlock(256, input);
    const MadeUp made = madeUpFor(block, 2048, 3);
    EXPECT_EQ(ruleOf(input, made.signature, forge::rsaPem(made.modulus, Number{3})), "accepted");
    const Number one{1};
    // A cube of the other parity, and its modulus.
    const Number root = Number::fromBytes(made.signature) + one;
    const Number even = root * root * root - Number::fromBytes(block);
    ASSERT_FALSE(even.odd());
    for (const Number& modulus : {even, made.modulus + one, made.modulus - one, Number{0}, one,
                                  Number{2}, Number{3}, Number::powerOfTwo(2047)})
    {
        SCOPED_TRACE(modulus.bits());
        EXPECT_EQ(ruleOf(input, root.bytes(256), forge::rsaPem(modulus, Number{3})),
                  "token.signature");
        EXPECT_EQ(ruleOf(input, made.signature, forge::rsaPem(modulus, Number{3})),
                  "token.signature");
        EXPECT_EQ(ruleOf(input, made.signature, forge::rsaJwk("RS256", modulus, Number{3})),
                  "token.signature");
    }
}

/** A block that PSS makes for a modulus of 2048 bits, small enough for madeUpFor. */
std::string pssBlock(const std::string& digest)
{
    // Of the key only its size counts.
    const std::unique_ptr<RSA, support::Releaser<RSA_free>> key{RSA_new()};
    BIGNUM* modulus = BN_new();
    EXPECT_EQ(BN_set_bit(modulus, 2047), 1);
    EXPECT_EQ(RSA_set0_key(key.get(), modulus, BN_dup(BN_value_one()), nullptr), 1);
    std::string block(256, '\x7f');
    while (static_cast<unsigned char>(block[0]) >= 0x1c)
    {
        EXPECT_EQ(RSA_padding_add_PKCS1_PSS(key.get(),
                                            reinterpret_cast<unsigned char*>(block.data()),
                                            reinterpret_cast<const unsigned char*>(digest.data()),
                                            EVP_sha256(), RSA_PSS_SALTLEN_DIGEST),
                  1);
    }
    return block;
}

// With the exponent one a signature is its own block, and with an even one a root that need not be
// unique: nothing that anybody had to know a secret for.
TEST(RsaExponent, IsOddAndNotOne)
{
    const Number modulus = Number::powerOfTwo(2048) - Number{1};
    const std::string input = inputFor("RS256");
    const std::string pssInput = inputFor("PS256");
    const std::string block = goodBlock(256, input);
    const std::string blockOfPss = pssBlock(digestOf(pssInput));
    for (const unsigned long exponent : {0UL, 1UL, 2UL, 4UL, 65536UL})
    {
        SCOPED_TRACE(exponent);
        const Number e{exponent};
        EXPECT_EQ(ruleOf(input, block, forge::rsaPem(modulus, e)), "token.key-not-imported");
        EXPECT_EQ(ruleOf(input, block, forge::rsaJwk("RS256", modulus, e)),
                  "token.key-not-imported");
        EXPECT_EQ(ruleOf(pssInput, blockOfPss, forge::rsaPem(modulus, e)),
                  "token.key-not-imported");
        EXPECT_EQ(ruleOf(pssInput, blockOfPss, forge::rsaJwk("PS256", modulus, e)),
                  "token.key-not-imported");
    }
    for (const unsigned int exponent : {2U, 3U})
    {
        SCOPED_TRACE(exponent);
        const Number e{exponent};
        const char* const expected = exponent == 3 ? "accepted" : "token.key-not-imported";
        const MadeUp made = madeUpFor(block, 2048, exponent);
        EXPECT_EQ(ruleOf(input, made.signature, forge::rsaPem(made.modulus, e)), expected);
        const MadeUp pss = madeUpFor(blockOfPss, 2048, exponent);
        EXPECT_EQ(ruleOf(pssInput, pss.signature, forge::rsaPem(pss.modulus, e)), expected);
    }
}

TEST(RsaExponent, MayBeLargeOnlyWhereTheModulusIsSmall)
{
    // An exponent as long as the modulus makes one check as dear as a signature. Up to 3072 bits
    // that is bearable; above, no more than 64 bits are taken.
    for (const unsigned int bits : {1024U, 2048U, 3072U, 3073U, 4096U, 16384U})
    {
        SCOPED_TRACE(bits);
        const Number modulus = Number::powerOfTwo(bits) - Number{1};
        for (const Number& exponent :
             {modulus - Number{2}, modulus, modulus + Number{2}, modulus * modulus,
              Number::powerOfTwo(64) + Number{1}, Number::powerOfTwo(bits / 2) + Number{1}})
        {
            for (const char* algorithm : {"RS256", "PS256"})
            {
                const std::string input = inputFor(algorithm);
                const std::string signature(bits / 8 + (bits % 8 == 0 ? 0 : 1), '\x01');
                EXPECT_EQ(ruleOf(input, signature, forge::rsaPem(modulus, exponent)),
                          "token.signature");
                EXPECT_EQ(ruleOf(input, signature, forge::rsaJwk(algorithm, modulus, exponent)),
                          "token.signature");
            }
        }
    }
}

TEST(RsaPadding, IsTheOneBlockOfPkcs1)
{
    constexpr std::size_t size = 256;
    const std::string input = inputFor("RS256");
    const std::string digest = digestOf(input);
    const std::string info = sha256Prefix() + digest;
    const std::string good = paddedBlock(size, info);
    const auto ruleOfBlock = [&](const std::string& block) {
        const MadeUp made = madeUpFor(block, 8 * size, 3);
        return ruleOf(input, made.signature, forge::rsaPem(made.modulus, Number{3}));
    };
    EXPECT_EQ(ruleOfBlock(good), "accepted");

    const auto with = [&](std::size_t at, char byte) {
        std::string block = good;
        block[at] = byte;
        return block;
    };
    const std::string eight(8, '\xff');
    const std::string head{"\x00\x01", 2};
    const auto filled = [](std::string block, char byte) {
        block.resize(size, byte);
        return block;
    };
    std::string noParameters = info;
    noParameters.erase(17, 2);
    noParameters[1] = '\x2f';
    noParameters[3] = '\x0b';
    std::string longParameters = info;
    longParameters.replace(17, 2, std::string{"\x04\x03xyz", 5});
    longParameters[1] = '\x34';
    longParameters[3] = '\x10';
    std::string otherAlgorithm = info;
    otherAlgorithm[14] = '\x02'; // SHA-384's number
    const std::vector<std::pair<const char*, std::string>> others = {
        {"first byte not zero", with(0, '\x01')},
        {"encryption's block type", with(1, '\x02')},
        {"block type zero", with(1, '\0')},
        {"one byte of the padding", with(100, '\xfe')},
        {"first byte of the padding", with(2, '\0')},
        {"last byte of the padding", with(size - info.size() - 2, '\xfe')},
        {"no zero behind the padding", with(size - info.size() - 1, '\xff')},
        {"one bit of the digest", with(size - 1, static_cast<char>(good[size - 1] ^ 2))},
        {"shortest padding, zeros behind", filled(head + eight + '\0' + info, '\0')},
        {"shortest padding, ones behind", filled(head + eight + '\0' + info, '\xff')},
        {"no padding, zeros behind", filled(head + '\0' + info, '\0')},
        {"no padding at all", filled(head, '\0').substr(0, size - info.size()) + info},
        {"padding of zeros", head + std::string(size - info.size() - 2, '\0') + info},
        {"digest alone", paddedBlock(size, digest)},
        {"digest as an octet string", paddedBlock(size, forge::element(0x04, digest))},
        {"nothing behind the padding", paddedBlock(size, "")},
        {"no parameters", paddedBlock(size, noParameters)},
        {"parameters that nobody reads", paddedBlock(size, longParameters)},
        {"another algorithm", paddedBlock(size, otherAlgorithm)},
        {"long form of the length", paddedBlock(size, "\x30\x81\x31" + info.substr(2))},
        {"a byte within", paddedBlock(size, "\x30\x32" + info.substr(2) + 'x')},
        {"a byte behind", paddedBlock(size, info + 'x')},
        {"truncated digest", paddedBlock(size, info.substr(0, info.size() - 1))},
        {"SHA-1", paddedBlock(size, support::fromHex("3021300906052b0e03021a05000414") +
                                        digestOf(input, EVP_sha1()))},
        {"MD5 and SHA-1 side by side",
         paddedBlock(size, digestOf(input, EVP_md5()) + digestOf(input, EVP_sha1()))},
        {"SHA-384", paddedBlock(size, support::fromHex("3041300d060960864801650304020205000430") +
                                          digestOf(input, EVP_sha384()))},
    };
    for (const auto& [name, block] : others)
    {
        EXPECT_EQ(ruleOfBlock(block), "token.signature") << name;
    }
}

// openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:3072 -pkeyopt rsa_keygen_pubexp:3
constexpr const char* cubicKey = R"(-----BEGIN PUBLIC KEY-----
MIIBoDANBgkqhkiG9w0BAQEFAAOCAY0AMIIBiAKCAYEAo5LLlnXyeDpoxf8Youe5
UT5r9fpzDdc434MBX8kogUhW78RPkdvoQJfPO6mVqKARvrryJLZYxGEGrpwKguSj
Ik/rUmLty3CElOSI0PSWdvAO97c2rVMmKacS3mahanJdEO5CiCqW3GwDG3/xoTev
dg42Pr3Sh07GW1naCEYhI5Z3CkFMez0un7zSNpms0CqsW0vJHsQhjCsGzdVM7EwA
I1NwlNgxeH90GxWmaRDBCBcvjOj+Ry0w/wdy0cZ5PGoQc2gvySvxOcEZykZxvx3J
3u9Hccod+rr10BuRKbgJ8JW3iNFudbytT4JEgBSxgO9M7nQ9iU4U4TYQ8xhxXwku
HYAUo1gATRP42GL+XxJPknYDr1P1SJb0Vsx/ZwVxrcwRT/Fwy/1kOBz+8rJHcKoV
s7QgIHsRj+dBZcDq5FM19+MzlGnucMklSmD+scwdibW30tgGgpZmIlUXcY72Ye9p
iQQg1uIGOFh9JBtfIwchWad66eJadLs9VFqim4K4XXWlAgED
-----END PUBLIC KEY-----
)";

// printf eyJhbGciOiJSUzI1NiJ9.e30 | openssl dgst -sha256 -sign KEY
constexpr std::string_view cubicSignature =
    "CXPf7fuBKSLJIpPuXg1Dz_reboNe7BN7q4g7HXIdE6h8PZpkIvNnNFE3o33Pjit0yJmOR5w8i8k_brTdIGmUfOgDCJiC"
    "vPNes7nXLUdm6Ho2wPIYNpi1zqJTvl7cL7IkK_EXt_r8Yg2Tgi4ZGcYNhz-D8EF7vWgMb81KUEFzgrPUgq39IG8VVNOh"
    "gKGjpvWNNkZst5BIDxji8hXr8_E9DREqP8wDxlJcIhB8xTaMK_BwXvrpa7ZsEJjJL-NEXxkUPO05PQ5wd6iVK5vg6ha2"
    "wtiag3OBfTMSeOToXlDjLoX0CC96Y1fx_IRwrrhj1bxlFE4-hAbXqCL1OspFaDwLPPSNSy42B0RCR-G4EpXlRautpUVJ"
    "kg4DH7K-vaylkcppmHuAJymLQu4M2VROymFIn_eq05Tka8Mqgd8TTWL_BtEju3SegX4C69rhf9ES0-DFw6J5R1q_tTb0"
    "N0qMo7SZgry9BL0Yacaco1M9bf4ZunBmlfQB1G3EjAeEnJK49RBS";

// The cube roots, rounded down, of 00 01 ff ff ff ff ff ff ff ff 00, the digest's prefix, the digest
// and ff to the end, and of the same without the padding. Their cubes are smaller than the modulus
// and begin with what they must.
constexpr std::string_view cubeRootOfShortestPadding =
    "f__________qrq7EARXWHVz5Hc0NHtSlXRFoYdS5pDODY-RLbUkWcruXvWymE1kVn5O5dhB9Xcviogn6aknitY0f9Vbt"
    "648l0Z8--J1KLNKy2RwN9-1zpkrjo_q7wc5H45LmVpvYy4q4hxEH28p48GXDQgMgGsLwLs0lic72Nw";
constexpr std::string_view cubeRootOfNoPadding =
    "ZZ5aL_lWCHhkFWkkroiwGLh1S7RDRaNqla0b5FzW5g1_ZMguwjfLKaD2TxnrbMh0lj2qh0Ay2hKKT910XsdVro0w1UqX"
    "MIKBwiBcy2C8OZDkg3x1MtBshINpZJ-bD1J6LI5Y39oYNY_yRKXKzxQjk2qhwJWYPl0629_8Eknvou";

TEST(RsaPadding, IsNotMadeByACubeRoot)
{
    const std::string input = inputFor("RS256");
    ASSERT_EQ(input, "eyJhbGciOiJSUzI1NiJ9.e30");
    const auto ruleOfBlock = [&](std::string_view signature) {
        const std::string filled =
            std::string(512 - signature.size(), 'A') + std::string{signature};
        return judge(input + "." + filled, {.keys = {cubicKey}}).signatureRule();
    };
    EXPECT_EQ(ruleOfBlock(cubicSignature), "accepted");
    EXPECT_EQ(ruleOfBlock(cubeRootOfShortestPadding), "token.signature");
    EXPECT_EQ(ruleOfBlock(cubeRootOfNoPadding), "token.signature");
}

TEST(RsaPss, UsesTheOneDigestEverywhere)
{
    const std::string pem = issuer::rsaKey().pem();
    struct Name
    {
        const char* algorithm;
        const char* digest;
    };
    constexpr Name names[] = {{"PS256", "SHA256"}, {"PS384", "SHA384"}, {"PS512", "SHA512"}};
    for (const auto& [algorithm, digest] : names)
    {
        const std::string input = inputFor(algorithm);
        for (const char* hash : {"SHA1", "SHA256", "SHA384", "SHA512"})
        {
            for (const char* mask : {"SHA1", "SHA256", "SHA384", "SHA512"})
            {
                SCOPED_TRACE(std::string{algorithm} + " " + hash + " " + mask);
                const std::string signature =
                    issuer::rsaKey().sign(input, hash, {.pss = true, .maskDigest = mask});
                const bool right =
                    std::string_view{hash} == digest && std::string_view{mask} == digest;
                EXPECT_EQ(ruleOf(input, signature, pem), right ? "accepted" : "token.signature");
            }
        }
    }
}

} // namespace
