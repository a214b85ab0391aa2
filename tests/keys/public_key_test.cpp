// SPDX-License-Identifier: Apache-2.0
#include "support/certificates.hpp"
#include "support/fake_device.hpp"
#include "support/hostile.hpp"
#include "support/machine.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/obj_mac.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <string>
#include <utility>
#include <vector>

using namespace support;

namespace
{

using BioPtr = std::unique_ptr<BIO, Releaser<BIO_free_all>>;
using BignumPtr = std::unique_ptr<BIGNUM, Releaser<BN_free>>;
using EcGroupPtr = std::unique_ptr<EC_GROUP, Releaser<EC_GROUP_free>>;
using EcPointPtr = std::unique_ptr<EC_POINT, Releaser<EC_POINT_free>>;
using RsaPtr = std::unique_ptr<RSA, Releaser<RSA_free>>;

struct KeyReleaser
{
    void operator()(jwk* record) const noexcept
    {
        free_jwk(&record);
    }
};
using KeyRecord = std::unique_ptr<jwk, KeyReleaser>;

/** The coordinates of an EC key, as a JSON Web Key carries them, and its PEM text. */
struct EcVector
{
    const char* curve;
    const char* x;
    const char* y;
    const char* pem;
};

// RFC 7517, appendix A.1; the PEM text made with `openssl pkey -pubin -pubout`, as the others.
constexpr EcVector p256{"P-256", "MKBCTNIcKUSDii11ySs3526iDZ8AiTo7Tu6KPAqv7D4",
                        "4Etl6SRW2YiLUrN5vfvVHuhp7x8PxltmWWlbbM4IFyM",
                        R"(-----BEGIN PUBLIC KEY-----
MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEMKBCTNIcKUSDii11ySs3526iDZ8A
iTo7Tu6KPAqv7D7gS2XpJFbZiItSs3m9+9Ue6GnvHw/GW2ZZaVtszggXIw==
-----END PUBLIC KEY-----
)"};

// RFC 7515, appendix A.3.
constexpr EcVector otherP256{"P-256", "f83OJ3D2xF1Bg8vub9tLe1gHMzV76e8Tus9uPHvRVEU",
                             "x_FEzRu9m36HLN_tue659LNpXW6pCyStikYjKIWI5a0",
                             R"(-----BEGIN PUBLIC KEY-----
MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEf83OJ3D2xF1Bg8vub9tLe1gHMzV7
6e8Tus9uPHvRVEXH8UTNG72bfocs3+257rn0s2ldbqkLJK2KRiMohYjlrQ==
-----END PUBLIC KEY-----
)"};

// RFC 7515, appendix A.4.
constexpr EcVector p521{
    "P-521",
    "AekpBQ8ST8a8VcfVOTNl353vSrDCLLJXmPk06wTjxrrjcBpXp5EOnYG_NjFZ6OvLFV1jSfS9tsz4qUxcWceqwQGk",
    "ADSmRA43Z1DSNx_RvcLI87cdL07l6jQyyBXMoxVg_l2Th-x3S1WDhjDly79ajL4Kkd0AZMaZmh9ubmf63e3kyMj2",
    R"(-----BEGIN PUBLIC KEY-----
MIGbMBAGByqGSM49AgEGBSuBBAAjA4GGAAQB6SkFDxJPxrxVx9U5M2Xfne9KsMIs
sleY+TTrBOPGuuNwGlenkQ6dgb82MVno68sVXWNJ9L22zPipTFxZx6rBAaQANKZE
DjdnUNI3H9G9wsjztx0vTuXqNDLIFcyjFWD+XZOH7HdLVYOGMOXLv1qMvgqR3QBk
xpmaH25uZ/rd7eTIyPY=
-----END PUBLIC KEY-----
)"};

// RFC 7517, appendix A.1.
constexpr const char* rsaN = "0vx7agoebGcQSuuPiLJXZptN9nndrQmbXEps2aiAFbWhM78LhWx4cbbfAAtVT86zwu1RK"
                             "7aPFFxuhDR1L6tSoc_BJECPebWK"
                             "RXjBZCiFV4n3oknjhMstn64tZ_2W-5JsGY4Hc5n9yBXArwl93lqt7_"
                             "RN5w6Cf0h4QyQ5v-65YGjQR0_FDW2QvzqY368QQMic"
                             "AtaSqzs8KJZgnYb9c7d0zgdAZHzu6qMQvRL5hajrn1n91CbOpbISD08qNLyrdkt-"
                             "bFTWhAI4vMQFh6WeZu0fM4lFd2NcRwr3"
                             "XPksINHaQ-G_xBniIqbw0Ls1jF44-csFCur-kEgU8awapJzKnqDKgw";
constexpr const char* rsaPem = R"(-----BEGIN PUBLIC KEY-----
MIIBIjANBgkqhkiG9w0BAQEFAAOCAQ8AMIIBCgKCAQEA0vx7agoebGcQSuuPiLJX
ZptN9nndrQmbXEps2aiAFbWhM78LhWx4cbbfAAtVT86zwu1RK7aPFFxuhDR1L6tS
oc/BJECPebWKRXjBZCiFV4n3oknjhMstn64tZ/2W+5JsGY4Hc5n9yBXArwl93lqt
7/RN5w6Cf0h4QyQ5v+65YGjQR0/FDW2QvzqY368QQMicAtaSqzs8KJZgnYb9c7d0
zgdAZHzu6qMQvRL5hajrn1n91CbOpbISD08qNLyrdkt+bFTWhAI4vMQFh6WeZu0f
M4lFd2NcRwr3XPksINHaQ+G/xBniIqbw0Ls1jF44+csFCur+kEgU8awapJzKnqDK
gwIDAQAB
-----END PUBLIC KEY-----
)";

/** The PEM text; the rule and its subject where there is none. */
std::string ecPem(const char* x, const char* y, const char* curve)
{
    HeapText pem;
    const std::string rule = ruleOf([&] {
        pem.reset(createEcPublicKey(x, y, curve));
        return pem.get();
    });
    return pem ? pem.get() : rule + " " + lastRefusal().subject;
}

std::string ecPem(const std::string& x, const std::string& y, const char* curve = nullptr)
{
    return ecPem(x.c_str(), y.c_str(), curve);
}

std::string rsaKeyPem(const char* n, const char* e)
{
    HeapText pem;
    const std::string rule = ruleOf([&] {
        pem.reset(createRsaPublicKey(n, e));
        return pem.get();
    });
    return pem ? pem.get() : rule + " " + lastRefusal().subject;
}

/** Coordinates as bytes, of the size of the curve's field, and the PEM text that OpenSSL writes. */
struct EcKey
{
    std::string x;
    std::string y;
    std::string pem;
};

EcKey openSslKey(const std::string& group)
{
    const PkeyPtr key = makeKey(group);
    const std::string point = publicPoint(*key);
    const std::size_t size = (point.size() - 1) / 2;
    const BioPtr pem{BIO_new(BIO_s_mem())};
    EXPECT_EQ(PEM_write_bio_EC_PUBKEY(pem.get(), EVP_PKEY_get0_EC_KEY(key.get())), 1);
    char* data = nullptr;
    const long length = BIO_get_mem_data(pem.get(), &data);
    return {point.substr(1, size), point.substr(1 + size),
            std::string(data, static_cast<std::size_t>(length))};
}

std::string bytesOf(const BIGNUM& number)
{
    std::string bytes(static_cast<std::size_t>(BN_num_bytes(&number)), '\0');
    BN_bn2bin(&number, reinterpret_cast<unsigned char*>(bytes.data()));
    return bytes;
}

/** What @p text is after appendPublicKey, with its result in front. */
std::pair<int, std::string> appended(const std::string& text)
{
    char* document = heapText(text).release();
    const int result = appendPublicKey(&document);
    const HeapText owned{document};
    return {result, orNull(document)};
}

/** The rule by which appendPublicKey refuses @p text, and its subject. */
std::string refusalOf(const std::string& text)
{
    const std::string rule = ruleOf([&] { return appended(text).first; });
    return rule + " " + lastRefusal().subject;
}

std::vector<std::pair<std::string, std::string>> parsed(const std::string& text)
{
    std::vector<std::pair<std::string, std::string>> pairs;
    const KeyRecord record{oauth2_parse_jwk(text.c_str())};
    for (const jwk* pair = record.get(); pair != nullptr && pair->key != nullptr; ++pair)
    {
        pairs.emplace_back(pair->key, orNull(pair->value));
    }
    return pairs;
}

using Pairs = std::vector<std::pair<std::string, std::string>>;

constexpr const char* offCurve = "jwk.point crv";

TEST(CreateEcPublicKey, WritesThePublishedKeys)
{
    for (const EcVector& vector : {p256, otherP256, p521})
    {
        EXPECT_EQ(ecPem(vector.x, vector.y, vector.curve), vector.pem);
    }
}

TEST(CreateEcPublicKey, WritesWhatOpenSslWrites)
{
    for (const auto& [group, curve] :
         {std::pair{"prime256v1", "P-256"}, std::pair{"secp384r1", "P-384"},
          std::pair{"secp521r1", "P-521"}})
    {
        SCOPED_TRACE(group);
        for (int i = 0; i < 5; ++i)
        {
            const EcKey key = openSslKey(group);
            EXPECT_EQ(ecPem(base64Url(key.x), base64Url(key.y), curve), key.pem);
        }
    }
}

TEST(CreateEcPublicKey, TakesTheCurveInAnyCase)
{
    const EcKey key = openSslKey("secp384r1");
    EXPECT_EQ(ecPem(base64Url(key.x), base64Url(key.y), "p-384"), key.pem);
    EXPECT_EQ(ecPem(p521.x, p521.y, "p-521"), p521.pem);
}

TEST(CreateEcPublicKey, TakesEveryOtherNameForP256)
{
    for (const char* curve :
         {"P-256", "p-256", "secp384r1", "P-38", "P-3844", " P-384", "P-521 ", "", "x"})
    {
        SCOPED_TRACE(curve);
        EXPECT_EQ(ecPem(p256.x, p256.y, curve), p256.pem);
    }
    EXPECT_EQ(ecPem(p256.x, p256.y, nullptr), p256.pem);
}

TEST(CreateEcPublicKey, RefusesAPointOfAnotherCurve)
{
    const EcKey key = openSslKey("secp384r1");
    EXPECT_EQ(ecPem(base64Url(key.x), base64Url(key.y), "P-256"), offCurve);
    EXPECT_EQ(ecPem(base64Url(key.x), base64Url(key.y), "P-521"), offCurve);
    EXPECT_EQ(ecPem(p256.x, p256.y, "P-384"), offCurve);
    // A name that is not known stands for P-256, which the reason must say.
    EXPECT_EQ(ecPem(base64Url(key.x), base64Url(key.y), "secp384r1"), offCurve);
    EXPECT_STREQ(lastRefusal().saw, "secp384r1");
    EXPECT_STREQ(lastRefusal().wanted, "P-256");
}

TEST(CreateEcPublicKey, RefusesAPointOffTheCurve)
{
    const EcKey key = openSslKey("prime256v1");
    std::string x = key.x;
    x[16] ^= 1;
    EXPECT_EQ(ecPem(base64Url(x), base64Url(key.y)), offCurve);
    std::string y = key.y;
    y[31] ^= 1;
    EXPECT_EQ(ecPem(base64Url(key.x), base64Url(y)), offCurve);
    EXPECT_EQ(ecPem(base64Url(key.y), base64Url(key.x)), offCurve);
    EXPECT_EQ(ecPem(base64Url(std::string(32, '\0')), base64Url(std::string(32, '\0'))), offCurve);
    EXPECT_EQ(ecPem(base64Url(std::string(32, '\xff')), base64Url(std::string(32, '\xff'))),
              offCurve);
    EXPECT_EQ(ecPem(base64Url(key.x), base64Url(key.y)), key.pem);
}

TEST(CreateEcPublicKey, TakesCoordinatesOfAnyLengthForTheirValue)
{
    // The point of P-256 with x = 5, whose leading zeros may be there or not.
    const EcGroupPtr group{EC_GROUP_new_by_curve_name(NID_X9_62_prime256v1)};
    const EcPointPtr point{EC_POINT_new(group.get())};
    const BignumPtr x{BN_new()};
    const BignumPtr y{BN_new()};
    ASSERT_EQ(BN_set_word(x.get(), 5), 1);
    ASSERT_EQ(EC_POINT_set_compressed_coordinates(group.get(), point.get(), x.get(), 0, nullptr),
              1);
    ASSERT_EQ(EC_POINT_get_affine_coordinates(group.get(), point.get(), x.get(), y.get(), nullptr),
              1);
    const std::string yText = base64Url(bytesOf(*y));
    const std::string expected = ecPem("BQ", yText.c_str(), "P-256");
    EXPECT_NE(expected, offCurve);
    EXPECT_EQ(ecPem(base64Url(std::string(31, '\0') + '\x05'), yText), expected);
    EXPECT_EQ(ecPem(base64Url(std::string(1000, '\0') + '\x05'), yText), expected);
    EXPECT_EQ(ecPem("BQ", base64Url('\0' + bytesOf(*y)).c_str(), nullptr), expected);
    EXPECT_EQ(ecPem(base64Url(std::string("\x05\0", 2)), yText), offCurve);

    // The same point modulo the prime of the field is another number.
    ASSERT_EQ(BN_add(x.get(), x.get(), EC_GROUP_get0_field(group.get())), 1);
    EXPECT_EQ(ecPem(base64Url(bytesOf(*x)), yText), offCurve);
    ASSERT_EQ(BN_add(y.get(), y.get(), EC_GROUP_get0_field(group.get())), 1);
    EXPECT_EQ(ecPem("BQ", base64Url(bytesOf(*y)).c_str(), nullptr), offCurve);
}

TEST(CreateEcPublicKey, TakesPaddedTexts)
{
    EXPECT_EQ(ecPem(std::string{p256.x} + "=", std::string{p256.y} + "="), p256.pem);
}

TEST(CreateEcPublicKey, GivesNullForTextsThatDoNotDecode)
{
    EXPECT_EQ(ecPem(nullptr, p256.y, nullptr), "argument.null x");
    EXPECT_EQ(ecPem(p256.x, nullptr, nullptr), "argument.null y");
    EXPECT_EQ(ecPem("", p256.y, nullptr), "base64.malformed x");
    EXPECT_EQ(ecPem(p256.x, "", nullptr), "base64.malformed y");
    EXPECT_EQ(ecPem(p256.x, "!!!!", nullptr), "base64.malformed y");
    EXPECT_EQ(ecPem(std::string(98304, 'A'), p256.y), "jwk.point crv");
    EXPECT_EQ(ecPem(std::string(98304, '_'), p256.y), "jwk.point crv");
    EXPECT_EQ(ecPem(std::string(200000, 'A'), p256.y), "base64.length x");
    const auto refusalOf = [](const std::string& text, const std::string& name) {
        // A literal of JSON is Base64.
        const bool digits = !text.empty() && std::ranges::all_of(text, [](unsigned char c) {
            return std::isalnum(c) != 0;
        });
        return digits && text.size() < 98304 ? std::string{offCurve}
               : text.size() > 98304         ? "base64.length " + name
                                             : "base64.malformed " + name;
    };
    for (const HostileText& hostile : hostileTexts())
    {
        SCOPED_TRACE(hostile.name);
        EXPECT_EQ(ecPem(p256.x, hostile.text), refusalOf(hostile.text, "y"));
        EXPECT_EQ(ecPem(hostile.text, p256.y), refusalOf(hostile.text, "x"));
        EXPECT_EQ(ecPem(p256.x, p256.y, hostile.text.c_str()), p256.pem);
    }
}

TEST(CreateEcPublicKey, GivesNullWhicheverAllocationFails)
{
    withEachAllocationFailing([&](auto& failure) {
        const HeapText pem{createEcPublicKey(p256.x, p256.y, "P-256")};
        // OpenSSL does without some of what it asks for; a text that comes back is whole.
        if (!failure.reached() || pem)
        {
            EXPECT_EQ(orNull(pem.get()), p256.pem);
        }
    });
    for (unsigned int nth = 1; nth <= 8; ++nth)
    {
        FailAllocation failure{nth, FailAllocation::fromThenOn};
        const HeapText pem{createEcPublicKey(p256.x, p256.y, "P-256")};
        ASSERT_TRUE(failure.reached());
        EXPECT_EQ(pem, nullptr);
    }
}

TEST(CreateEcPublicKey, LeavesTheErrorQueueAndErrnoAlone)
{
    ERR_clear_error();
    errno = 1234;
    EXPECT_EQ(ecPem(p256.y, p256.x, nullptr), offCurve);
    EXPECT_EQ(rsaKeyPem("!", "AQAB"), "base64.malformed n");
    EXPECT_EQ(ERR_peek_error(), 0U);
    EXPECT_EQ(errno, 1234);
}

TEST(CreateRsaPublicKey, WritesThePublishedKey)
{
    EXPECT_EQ(rsaKeyPem(rsaN, "AQAB"), rsaPem);
    EXPECT_EQ(rsaKeyPem((std::string{rsaN} + "==").c_str(), "AQAB"), rsaPem);
}

TEST(CreateRsaPublicKey, WritesWhatOpenSslWritesForOddNumbersToo)
{
    const std::string large(73728, '\xff');
    for (const auto& [n, e] : std::vector<std::pair<std::string, std::string>>{
             {std::string("\0", 1), "\x03"},
             {"\x01", std::string("\0", 1)},
             {"\x80", "\x80"},
             // The lengths from which on DER needs another byte for the length.
             {std::string(117, '\x7f'), "\x03"},
             {std::string(118, '\x7f'), std::string(127, '\x7f')},
             {std::string(128, '\x7f'), std::string(127, '\x80')},
             {std::string(255, '\x7f'), std::string(255, '\x80')},
             {std::string(256, '\x7f'), std::string(65535, '\x7f')},
             {std::string(65535, '\x80'), std::string(65536, '\x01')},
             {std::string("\0\0\x7f", 3), "\x01"},
             {std::string(256, '\xff'), std::string(256, '\xff')},
             {large, "\x03"},
             {"\x03", large}})
    {
        SCOPED_TRACE(n.size());
        const RsaPtr key{RSA_new()};
        ASSERT_EQ(RSA_set0_key(key.get(),
                               BN_bin2bn(reinterpret_cast<const unsigned char*>(n.data()),
                                         static_cast<int>(n.size()), nullptr),
                               BN_bin2bn(reinterpret_cast<const unsigned char*>(e.data()),
                                         static_cast<int>(e.size()), nullptr),
                               nullptr),
                  1);
        const PkeyPtr generic{EVP_PKEY_new()};
        ASSERT_EQ(EVP_PKEY_set1_RSA(generic.get(), key.get()), 1);
        const BioPtr pem{BIO_new(BIO_s_mem())};
        ASSERT_EQ(PEM_write_bio_PUBKEY(pem.get(), generic.get()), 1);
        char* data = nullptr;
        const long length = BIO_get_mem_data(pem.get(), &data);
        EXPECT_EQ(rsaKeyPem(base64Url(n).c_str(), base64Url(e).c_str()),
                  std::string(data, static_cast<std::size_t>(length)));
    }
}

TEST(CreateRsaPublicKey, GivesNullForTextsThatDoNotDecode)
{
    EXPECT_EQ(rsaKeyPem(nullptr, "AQAB"), "argument.null n");
    EXPECT_EQ(rsaKeyPem(rsaN, nullptr), "argument.null e");
    EXPECT_EQ(rsaKeyPem("", "AQAB"), "base64.malformed n");
    EXPECT_EQ(rsaKeyPem(rsaN, ""), "base64.malformed e");
    EXPECT_EQ(rsaKeyPem(rsaN, "A"), "base64.malformed e");
    EXPECT_EQ(rsaKeyPem("?", "AQAB"), "base64.malformed n");
    EXPECT_EQ(rsaKeyPem(std::string(98305, 'A').c_str(), "AQAB"), "base64.length n");
    for (const HostileText& hostile : hostileTexts())
    {
        // "null" is Base64.
        if (hostile.text.find_first_of("[{\"\\.") != std::string::npos)
        {
            SCOPED_TRACE(hostile.name);
            EXPECT_EQ(rsaKeyPem(rsaN, hostile.text.c_str()),
                      hostile.text.size() > 98304 ? "base64.length e" : "base64.malformed e");
        }
    }
}

TEST(CreateRsaPublicKey, GivesNullWhicheverAllocationFails)
{
    withEachAllocationFailing([&](auto& failure) {
        const HeapText pem{createRsaPublicKey(rsaN, "AQAB")};
        if (!failure.reached() || pem)
        {
            EXPECT_EQ(orNull(pem.get()), rsaPem);
        }
    });
}

TEST(AppendPublicKey, AddsThePemTextOfAnEcKey)
{
    const auto [result, text] = appended(std::string{R"({ "y": ")"} + p256.y + R"(", "x": ")" +
                                         p256.x + R"(", "kty": "EC", "crv": "P-256" })");
    EXPECT_EQ(result, 1);
    EXPECT_EQ(text, R"({"crv":"P-256","kest_decoded_key":"-----BEGIN PUBLIC KEY-----\n)"
                    R"(MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEMKBCTNIcKUSDii11ySs3526iDZ8A\n)"
                    R"(iTo7Tu6KPAqv7D7gS2XpJFbZiItSs3m9+9Ue6GnvHw/GW2ZZaVtszggXIw==\n)"
                    R"(-----END PUBLIC KEY-----","kty":"EC",)"
                    R"("x":"MKBCTNIcKUSDii11ySs3526iDZ8AiTo7Tu6KPAqv7D4",)"
                    R"("y":"4Etl6SRW2YiLUrN5vfvVHuhp7x8PxltmWWlbbM4IFyM"})");
}

TEST(AppendPublicKey, AddsThePemTextOfAnRsaKey)
{
    const auto [result, text] =
        appended(std::string{R"({"kty":"RSA","e":"AQAB","n":")"} + rsaN + R"("})");
    EXPECT_EQ(result, 1);
    char* pem = nullptr;
    ASSERT_EQ(get_value_char(text.c_str(), "kest_decoded_key", &pem), 1);
    EXPECT_EQ(std::string{HeapText{pem}.get()} + "\n", rsaPem);
}

TEST(AppendPublicKey, TakesTheTypeInAnyCaseAndTheCurveByName)
{
    EXPECT_EQ(appended(std::string{R"({"kty":"eC","x":")"} + p256.x + R"(","y":")" + p256.y + "\"}")
                  .first,
              1);
    EXPECT_EQ(appended(std::string{R"({"kty":"rSa","e":"AQAB","n":")"} + rsaN + "\"}").first, 1);
    const std::string large =
        std::string{R"("kty":"EC","x":")"} + p521.x + R"(","y":")" + p521.y + "\"}";
    EXPECT_EQ(appended(R"({"crv":"P-521",)" + large).first, 1);
    EXPECT_EQ(refusalOf(R"({"crv":"P-256",)" + large), offCurve);
    EXPECT_EQ(refusalOf("{" + large), offCurve);
}

TEST(AppendPublicKey, ReplacesAnEarlierKey)
{
    for (const std::string& value : jsonValuesOfEveryType())
    {
        SCOPED_TRACE(value);
        const auto [result, text] =
            appended(R"({"kest_decoded_key":)" + value + R"(,"kty":"EC","x":")" + p256.x +
                     R"(","y":")" + p256.y + "\"}");
        EXPECT_EQ(result, 1);
        char* pem = nullptr;
        ASSERT_EQ(get_value_char(text.c_str(), "kest_decoded_key", &pem), 1);
        EXPECT_EQ(std::string{HeapText{pem}.get()} + "\n", p256.pem);
    }
}

TEST(AppendPublicKey, LeavesATextThatIsNoSuchKey)
{
    const std::string x = p256.x;
    const std::string y = p256.y;
    const std::string coordinates = R"("x":")" + x + R"(","y":")" + y + "\"}";
    const std::vector<std::pair<std::string, std::string>> refused{
        {R"({ "kty": "oct", "k": "AAAA" })", "jwk.kind kty"},
        {R"({"kty":"",)" + coordinates, "jwk.kind kty"},
        {R"({"kty":"E",)" + coordinates, "jwk.kind kty"},
        {R"({"kty":"ECX",)" + coordinates, "jwk.kind kty"},
        {R"({"kty":null,)" + coordinates, "jwk.kind kty"},
        {R"({"kty":["EC"],)" + coordinates, "jwk.kind kty"},
        {"{" + coordinates, "jwk.kind kty"},
        {R"({"kty":"EC","x":")" + x + "\"}", "jwk.number y"},
        {R"({"kty":"EC","y":")" + y + "\"}", "jwk.number x"},
        {R"({"kty":"EC","x":5,"y":")" + y + "\"}", "jwk.number x"},
        {R"({"kty":"EC","x":")" + y + R"(","y":")" + x + "\"}", offCurve},
        {R"({"kty":"EC"})", "jwk.number x"},
        {R"({"kty":"RSA"})", "jwk.number n"},
        {R"({"kty":"RSA","n":"AQAB"})", "jwk.number e"},
        {R"({"kty":"RSA","n":{},"e":"AQAB"})", "jwk.number n"},
        {"{}", "jwk.kind kty"},
        {"[]", "json.root "},
        {"not JSON", "json.syntax "},
        {"", "json.syntax "}};
    for (const auto& [text, reason] : refused)
    {
        SCOPED_TRACE(text);
        EXPECT_EQ(appended(text), (std::pair<int, std::string>{0, text}));
        EXPECT_EQ(refusalOf(text), reason);
    }
    EXPECT_EQ(appended(R"({"kty":"EC","x":")" + x + R"(","y":")" + y + "\"}").first, 1);
}

TEST(AppendPublicKey, TakesACurveOfTheWrongTypeForNone)
{
    for (const char* curve : {"null", "5", "[\"P-384\"]", "{}"})
    {
        SCOPED_TRACE(curve);
        EXPECT_EQ(appended(std::string{R"({"kty":"EC","crv":)"} + curve + R"(,"x":")" + p256.x +
                           R"(","y":")" + p256.y + "\"}")
                      .first,
                  1);
    }
}

TEST(AppendPublicKey, RefusesHostileTexts)
{
    for (const HostileText& hostile : hostileTexts())
    {
        SCOPED_TRACE(hostile.name);
        EXPECT_EQ(appended(hostile.text), (std::pair<int, std::string>{0, hostile.text}));
        EXPECT_TRUE(refusalOf(hostile.text).starts_with("json.")) << refusalOf(hostile.text);
    }
    for (const HostileText& odd : oddObjects())
    {
        SCOPED_TRACE(odd.name);
        EXPECT_EQ(appended(odd.text), (std::pair<int, std::string>{0, odd.text}));
        EXPECT_EQ(refusalOf(odd.text), "jwk.kind kty");
    }
}

TEST(AppendPublicKey, GivesZeroForNull)
{
    EXPECT_REFUSED("argument.null", appendPublicKey(nullptr));
    char* none = nullptr;
    EXPECT_REFUSED("argument.null", appendPublicKey(&none));
    EXPECT_EQ(none, nullptr);
}

TEST(AppendPublicKey, LeavesTheTextWhicheverAllocationFails)
{
    const std::string key =
        std::string{R"({"kty":"EC","x":")"} + p256.x + R"(","y":")" + p256.y + "\"}";
    ASSERT_EQ(appended(key).first, 1);
    unsigned int refused = 0;
    unsigned int ended = 0;
    for (unsigned int nth = 1;; nth += 3)
    {
        SCOPED_TRACE(nth);
        // The text itself is copied by a function that ends the process.
        const int status = exitStatusOf([&] {
            char* document = heapText(key).release();
            FailAllocation failure{nth};
            const int result = appendPublicKey(&document);
            const bool reached = failure.reached();
            const bool whole = result == 1 ? document != key : document == key;
            const HeapText owned{document};
            _exit(!whole ? 1 : result == 0 ? 2 : reached ? 3 : 4);
        });
        ASSERT_TRUE(status == 2 || status == 3 || status == 4 || status == 255) << status;
        refused += status == 2 ? 1 : 0;
        ended += status == 255 ? 1 : 0;
        if (status == 4)
        {
            break;
        }
    }
    EXPECT_GT(refused, 0U);
    EXPECT_LE(ended, 1U);
}

TEST(Oauth2ParseJwk, HasAPairForEachMemberInTheOrderOfTheirNames)
{
    EXPECT_EQ(parsed(R"({"kty":"EC","crv":"P-256","x":"1","y":"2"})"),
              (Pairs{{"crv", "P-256"}, {"kty", "EC"}, {"x", "1"}, {"y", "2"}}));
    EXPECT_EQ(parsed(R"({"b":"1","B":"2","":"3","a":""})"),
              (Pairs{{"", "3"}, {"B", "2"}, {"a", ""}, {"b", "1"}}));
}

TEST(Oauth2ParseJwk, LeavesObjectsOut)
{
    EXPECT_EQ(parsed(R"({"a":{"b":1},"b":"x"})"), (Pairs{{"b", "x"}}));
    EXPECT_REFUSED("jwk.empty", oauth2_parse_jwk(R"({"a":{"b":1}})"));
    EXPECT_REFUSED("jwk.empty", oauth2_parse_jwk("{}"));
}

TEST(Oauth2ParseJwk, PassesOverNamesWithAZeroByte)
{
    EXPECT_EQ(parsed(R"({"alg\u0000":"ES256","kid\u0000evil":"k1","kty":"EC"})"),
              (Pairs{{"kty", "EC"}}));
    EXPECT_REFUSED("jwk.empty", oauth2_parse_jwk(R"({"kid\u0000":"k1","a":{}})"));
}

TEST(Oauth2ParseJwk, LeavesTheValueNullWhereItIsNoText)
{
    EXPECT_EQ(parsed(R"({"n":5})"), (Pairs{{"n", "(null)"}}));
    EXPECT_EQ(parsed(R"({"a":[],"b":["x"],"c":1.5,"d":false,"e":null,"f":"5"})"),
              (Pairs{{"a", "(null)"},
                     {"b", "(null)"},
                     {"c", "(null)"},
                     {"d", "(null)"},
                     {"e", "(null)"},
                     {"f", "5"}}));
}

TEST(Oauth2ParseJwk, LetsMembersBeLookedUpBehindOneWithoutText)
{
    const KeyRecord record{oauth2_parse_jwk(R"({"alg":5,"kid":"1","x5c":["A"],"z":"2"})")};
    ASSERT_NE(record, nullptr);
    EXPECT_REFUSED("jwk.member", jwk_key_value(record.get(), "alg"));
    EXPECT_STREQ(jwk_key_value(record.get(), "kid"), "1");
    EXPECT_STREQ(jwk_key_value(record.get(), "z"), "2");
}

TEST(Oauth2ParseJwk, TakesThousandsOfMembers)
{
    std::string text = "{";
    for (int i = 10000; i < 20000; ++i)
    {
        text += (text.size() > 1 ? ",\"" : "\"") + std::to_string(i) + "\":\"v\"";
    }
    const Pairs pairs = parsed(text + "}");
    ASSERT_EQ(pairs.size(), 10000U);
    EXPECT_EQ(pairs.front().first, "10000");
    EXPECT_EQ(pairs.back().first, "19999");
}

TEST(Oauth2ParseJwk, TakesTheLastOfEqualNames)
{
    EXPECT_EQ(parsed(R"({"kty":"EC","kty":"RSA"})"), (Pairs{{"kty", "RSA"}}));
}

TEST(Oauth2ParseJwk, GivesNullForWhatIsNoObject)
{
    EXPECT_REFUSED("argument.null", oauth2_parse_jwk(nullptr));
    EXPECT_REFUSED("json.syntax", oauth2_parse_jwk(p256.pem));
    for (const HostileText& hostile : hostileTexts())
    {
        SCOPED_TRACE(hostile.name);
        const std::string rule = ruleOf([&] { return oauth2_parse_jwk(hostile.text.c_str()); });
        EXPECT_TRUE(rule.starts_with("json.")) << rule;
    }
}

TEST(Oauth2ParseJwk, TakesOddObjects)
{
    for (const HostileText& odd : oddObjects())
    {
        SCOPED_TRACE(odd.name);
        for (const auto& [key, value] : parsed(odd.text))
        {
            EXPECT_LE(key.size() + value.size(), odd.text.size() + 6);
        }
    }
}

TEST(Oauth2ParseJwk, EndsTheProcessWhenThereIsNoMemoryForTheRecord)
{
    // The last three allocations are the array and the two texts; the ones before belong to the
    // reading, whose failure is an ordinary one.
    const auto statusAt = [](unsigned int nth) {
        return exitStatusOf([nth] {
            FailAllocation failure{nth};
            jwk* record = oauth2_parse_jwk(R"({"kty":"EC"})");
            const bool reached = failure.reached();
            const bool made = record != nullptr;
            free_jwk(&record);
            _exit(!reached ? 1 : made ? 2 : 0);
        });
    };
    unsigned int last = 1;
    while (statusAt(last) != 1)
    {
        ASSERT_LT(last, 1000U);
        ++last;
    }
    for (unsigned int nth = 1; nth < last; ++nth)
    {
        SCOPED_TRACE(nth);
        EXPECT_EQ(statusAt(nth), nth + 3 < last ? 0 : 255);
    }
}

} // namespace
