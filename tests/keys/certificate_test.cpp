// SPDX-License-Identifier: Apache-2.0
#include "support/certificates.hpp"
#include "support/fake_device.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"

#include <bmcoauth.h>

#include <climits>
#include <gtest/gtest.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>

#include <array>
#include <string>
#include <vector>

using namespace support;

namespace
{

Identity withKey(const std::string& group)
{
    CertificatePlan plan;
    plan.group = group;
    return Identity::selfSigned(plan);
}

/** A curve's number and a point of it, as text; "null" for no key. */
std::string textOf(const EC_KEY* key)
{
    if (key == nullptr)
    {
        return "null";
    }
    std::array<char, 400> text{};
    unsigned char* point = nullptr;
    const std::size_t length = EC_KEY_key2buf(key, POINT_CONVERSION_UNCOMPRESSED, &point, nullptr);
    std::string result = std::to_string(EC_GROUP_get_curve_name(EC_KEY_get0_group(key))) + ":";
    for (std::size_t i = 0; i < length; ++i)
    {
        std::snprintf(text.data(), text.size(), "%02x", point[i]);
        result += text.data();
    }
    OPENSSL_free(point);
    return result;
}

std::string publicKeyText(const std::string& pem)
{
    return textOf(EcKeyPtr{get_EC_pubKey(pem.c_str())}.get());
}

/** The rule by which the key of @p pem is refused. */
std::string ruleFor(const std::string& pem)
{
    return ruleOf([&] { return EcKeyPtr{get_EC_pubKey(pem.c_str())} != nullptr; });
}

/** The same, with OpenSSL alone. */
std::string expectedKeyText(const std::string& der)
{
    const auto* position = reinterpret_cast<const unsigned char*>(der.data());
    const X509Ptr certificate{d2i_X509(nullptr, &position, static_cast<long>(der.size()))};
    const PkeyPtr key{certificate ? X509_get_pubkey(certificate.get()) : nullptr};
    const EcKeyPtr ecKey{key ? EVP_PKEY_get1_EC_KEY(key.get()) : nullptr};
    std::string text = textOf(ecKey.get());
    ERR_clear_error();
    return text;
}

TEST(GetEcPubKey, IsTheKeyOfTheCertificate)
{
    const Identity identity = withKey("prime256v1");
    const EcKeyPtr key{get_EC_pubKey(identity.pem().c_str())};
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(EC_GROUP_get_curve_name(EC_KEY_get0_group(key.get())), 415);
    EXPECT_EQ(EC_KEY_get0_private_key(key.get()), nullptr);
    const std::string point = publicPoint(identity.key());
    std::array<unsigned char, 65> bytes{};
    ASSERT_EQ(EC_POINT_point2oct(EC_KEY_get0_group(key.get()), EC_KEY_get0_public_key(key.get()),
                                 POINT_CONVERSION_UNCOMPRESSED, bytes.data(), bytes.size(),
                                 nullptr),
              bytes.size());
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), point);
}

TEST(GetEcPubKey, OutlivesNothingOfTheCertificate)
{
    std::string pem = withKey("prime256v1").pem();
    const EcKeyPtr key{get_EC_pubKey(pem.c_str())};
    const std::string text = textOf(key.get());
    std::fill(pem.begin(), pem.end(), 'x');
    EXPECT_EQ(EC_KEY_check_key(key.get()), 1);
    EXPECT_EQ(textOf(key.get()), text);
}

TEST(GetEcPubKey, TakesEveryCurve)
{
    for (const char* group :
         {"prime256v1", "secp384r1", "secp521r1", "secp256k1", "brainpoolP256r1"})
    {
        SCOPED_TRACE(group);
        const Identity identity = withKey(group);
        EXPECT_NE(publicKeyText(identity.pem()), "null");
        EXPECT_EQ(publicKeyText(identity.pem()), expectedKeyText(identity.der()));
    }
}

TEST(GetEcPubKey, GivesNullForOtherKeys)
{
    EXPECT_EQ(ruleFor(withKey("RSA").pem()), "key.kind");
}

TEST(GetEcPubKey, GivesNullWithoutACertificate)
{
    EXPECT_REFUSED("argument.null", get_EC_pubKey(nullptr));
    EXPECT_EQ(ruleFor(""), "certificate.encoding");
    EXPECT_EQ(ruleFor("garbage"), "certificate.encoding");
    EXPECT_EQ(ruleFor(pemOf("CERTIFICATE", "garbage")), "certificate.encoding");
}

/** A certificate whose key is replaced by other SubjectPublicKeyInfo bytes of the same length. */
std::string withPoint(const std::string& der, const std::string& point, const std::string& other)
{
    std::string changed = der;
    const std::size_t at = changed.find(point);
    EXPECT_NE(at, std::string::npos);
    return changed.replace(at, other.size(), other);
}

TEST(GetEcPubKey, RefusesAPointOffTheCurve)
{
    const Identity identity = withKey("prime256v1");
    const std::string point = publicPoint(identity.key());
    std::string off = point;
    off.back() ^= 1;
    EXPECT_NE(publicKeyText(pemOf("CERTIFICATE", identity.der())), "null");
    EXPECT_EQ(ruleFor(pemOf("CERTIFICATE", withPoint(identity.der(), point, off))), "key.point");
    // Beyond the field, and the point (0, 0).
    for (const char byte : {'\xff', '\0'})
    {
        EXPECT_EQ(ruleFor(pemOf("CERTIFICATE",
                                withPoint(identity.der(), point, '\x04' + std::string(64, byte)))),
                  "key.point");
    }
}

TEST(GetEcPubKey, TakesTheFormsOfAPointThatOpenSslTakes)
{
    for (const char* form : {"compressed", "hybrid", "uncompressed"})
    {
        SCOPED_TRACE(form);
        const Identity issuer = Identity::root("root");
        CertificatePlan plan;
        const Identity identity = issuer.issue(plan);
        ASSERT_EQ(EVP_PKEY_set_utf8_string_param(&identity.key(), "point-format", form), 1);
        ASSERT_EQ(X509_set_pubkey(&identity.certificate(), &identity.key()), 1);
        EXPECT_NE(publicKeyText(identity.pem()), "null");
        EXPECT_EQ(publicKeyText(identity.pem()), expectedKeyText(identity.der()));
    }
}

TEST(GetEcPubKey, TakesSpeltOutParametersAsOpenSslDoes)
{
    const Identity identity = withKey("prime256v1");
    ASSERT_EQ(EVP_PKEY_set_utf8_string_param(&identity.key(), "encoding", "explicit"), 1);
    ASSERT_EQ(X509_set_pubkey(&identity.certificate(), &identity.key()), 1);
    EXPECT_GT(identity.der().size(), withKey("prime256v1").der().size() + 100);
    EXPECT_NE(publicKeyText(identity.pem()), "null");
    EXPECT_EQ(publicKeyText(identity.pem()), expectedKeyText(identity.der()));
}

TEST(GetEcPubKey, AcceptsAndRefusesWhatOpenSslDoes)
{
    // Reading a certificate in part must not let one in that is malformed elsewhere: each byte of
    // one is changed in turn.
    const Identity identity = Identity::root("root").issueAuthority("device");
    const std::string whole = identity.der();
    unsigned int accepted = 0;
    unsigned int refused = 0;
    for (std::size_t i = 0; i < whole.size(); ++i)
    {
        for (const unsigned int change : {1U, 128U, static_cast<unsigned int>(i * 37 % 255 + 1)})
        {
            std::string der = whole;
            der[i] = static_cast<char>(static_cast<unsigned char>(der[i]) ^ change);
            const std::string expected = expectedKeyText(der);
            const std::string pem = pemOf("CERTIFICATE", der);
            ASSERT_EQ(publicKeyText(pem), expected) << "byte " << i << " changed by " << change;
            const X509Ptr certificate{getX509Cert(pem.c_str())};
            // The name may become empty, which is refused for another reason.
            if (certificate == nullptr)
            {
                ASSERT_EQ(ruleOf([&] { return validateX509(pem.c_str(), nullptr); }),
                          "certificate.encoding")
                    << "byte " << i;
            }
            ++(expected == "null" ? refused : accepted);
        }
    }
    EXPECT_GT(accepted, 100U);
    EXPECT_GT(refused, 100U);
}

TEST(GetEcPubKey, RefusesACertificateThatIsCutOff)
{
    const std::string der = withKey("prime256v1").der();
    for (std::size_t length = 1; length < der.size(); ++length)
    {
        ASSERT_EQ(ruleFor(pemOf("CERTIFICATE", der.substr(0, length))), "certificate.encoding")
            << length;
    }
    // Bytes after the certificate are ignored.
    EXPECT_EQ(publicKeyText(pemOf("CERTIFICATE", der + "more")), expectedKeyText(der));
}

TEST(GetEcPubKey, GivesNullWhicheverAllocationFails)
{
    const std::string pem = withKey("prime256v1").pem();
    const std::string expected = publicKeyText(pem);
    ASSERT_NE(expected, "null");
    withEachAllocationFailing([&](auto& failure) {
        const EcKeyPtr key{get_EC_pubKey(pem.c_str())};
        // OpenSSL does without some of what it asks for; a key that comes back is whole.
        if (failure.reached() && key == nullptr)
        {
            return;
        }
        EXPECT_EQ(textOf(key.get()), expected);
    });
}

TEST(GetEcPrivKey, IsTheKeyOfTheBytes)
{
    const Identity identity = withKey("prime256v1");
    const std::string der = identity.privateKeyDer();
    const EcKeyPtr key{get_EC_privKey(reinterpret_cast<const unsigned char*>(der.data()),
                                      static_cast<int>(der.size()))};
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(EC_GROUP_get_curve_name(EC_KEY_get0_group(key.get())), 415);
    EXPECT_EQ(EC_KEY_check_key(key.get()), 1);
    EXPECT_EQ(textOf(key.get()), publicKeyText(identity.pem()));
    EXPECT_EQ(BN_cmp(EC_KEY_get0_private_key(key.get()),
                     EC_KEY_get0_private_key(EVP_PKEY_get0_EC_KEY(&identity.key()))),
              0);
}

TEST(GetEcPrivKey, GivesNullForWhatIsNoP256Key)
{
    const auto load = [](const std::string& der, int length) {
        const auto* const bytes = reinterpret_cast<const unsigned char*>(der.data());
        return EcKeyPtr{get_EC_privKey(bytes, length)} != nullptr;
    };
    const std::string der = withKey("prime256v1").privateKeyDer();
    const int length = static_cast<int>(der.size());
    EXPECT_TRUE(load(der, length));
    EXPECT_REFUSED("argument.length", load(der, 0));
    EXPECT_REFUSED("argument.length", load(der, -1));
    EXPECT_REFUSED("argument.length", load(der, INT_MIN));
    EXPECT_REFUSED("key.encoding", load(der, length - 1));
    EXPECT_REFUSED("key.encoding", load("garbage", 7));
    EXPECT_REFUSED("argument.null", get_EC_privKey(nullptr, length));
    EXPECT_REFUSED("argument.null", get_EC_privKey(nullptr, 0));
    const std::string other = withKey("secp384r1").privateKeyDer();
    EXPECT_REFUSED("key.curve", load(other, static_cast<int>(other.size())));
}

TEST(GetEcPrivKey, LeavesTheErrorQueueAlone)
{
    ERR_clear_error();
    EXPECT_REFUSED("key.encoding",
                   get_EC_privKey(reinterpret_cast<const unsigned char*>("garbage"), 7));
    EXPECT_EQ(ERR_peek_error(), 0U);
}

} // namespace
