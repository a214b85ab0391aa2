// SPDX-License-Identifier: Apache-2.0
#include "support/certificates.hpp"
#include "support/refusals.hpp"
#include "support/vectors.hpp"

#include <bmcoauth/x509.h>

#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/obj_mac.h>

#include <array>
#include <optional>
#include <string>

using support::EcKeyPtr;
using support::fromHex;

namespace
{

// RFC 5903, section 8.1: the initiator's key, in the four forms of an ECPrivateKey structure
// (RFC 5915): curve and point given, curve alone, point alone, neither.
const std::string scalar = "0420C88F01F510D9AC3F70A292DAA2316DE544E9AAB8AFE84049C62A9C57862D1433";
const std::string curve = "A00A06082A8648CE3D030107";
const std::string point = "A144034200"
                          "04DAD0B65394221CF9B051E1FECA5787D098DFE637FC90B9EF945D0C3772581180"
                          "5271A0461CDB8252D61F1C456FA3E59AB1F45B33ACCF5F58389E0577B8990BB3";
const std::array<std::string, 4> forms = {
    fromHex("3077020101" + scalar + curve + point),
    fromHex("3031020101" + scalar + curve),
    fromHex("306B020101" + scalar + point),
    fromHex("3025020101" + scalar),
};

/** What a key consists of, in hexadecimal; nothing for no key. */
using Parts = std::optional<std::array<std::string, 2>>;

std::string hexOf(char* text)
{
    std::string copy{text == nullptr ? "" : text};
    OPENSSL_free(text);
    return copy;
}

Parts partsOf(const EC_KEY* key)
{
    if (key == nullptr)
    {
        return std::nullopt;
    }
    return std::array{hexOf(BN_bn2hex(EC_KEY_get0_private_key(key))),
                      hexOf(EC_POINT_point2hex(EC_KEY_get0_group(key), EC_KEY_get0_public_key(key),
                                               POINT_CONVERSION_UNCOMPRESSED, nullptr))};
}

const unsigned char* bytesOf(const std::string& der)
{
    return reinterpret_cast<const unsigned char*>(der.data());
}

Parts decoded(const std::string& der)
{
    const EcKeyPtr key{get_EC_privKey(bytesOf(der), static_cast<int>(der.size()))};
    EXPECT_TRUE(key == nullptr ||
                EC_GROUP_get_curve_name(EC_KEY_get0_group(key.get())) == NID_X9_62_prime256v1);
    return partsOf(key.get());
}

/** What decoding gives into a key that is on P-256 already, unless the structure moves the key to
 *  another curve, or its scalar is outside the group. */
Parts decodedIntoP256(const std::string& der)
{
    const EcKeyPtr key{EC_KEY_new_by_curve_name(NID_X9_62_prime256v1)};
    EC_KEY* target = key.get();
    const unsigned char* position = bytesOf(der);
    if (d2i_ECPrivateKey(&target, &position, static_cast<long>(der.size())) == nullptr)
    {
        return std::nullopt;
    }
    const EC_GROUP* group = EC_KEY_get0_group(target);
    const BIGNUM* number = EC_KEY_get0_private_key(target);
    const bool usable = EC_GROUP_get_curve_name(group) == NID_X9_62_prime256v1 &&
                        !BN_is_zero(number) && BN_cmp(number, EC_GROUP_get0_order(group)) < 0;
    return usable ? partsOf(target) : std::nullopt;
}

TEST(GetEcPrivKey, ReadsEveryFormOfTheStructure)
{
    const Parts expected = std::array{scalar.substr(4), point.substr(10)};
    for (const std::string& form : forms)
    {
        EXPECT_EQ(decoded(form), expected) << form.size();
    }
}

TEST(GetEcPrivKey, AnswersEveryAlteredStructureAsOpenSslDoes)
{
    int accepted = 0;
    int refused = 0;
    for (const std::string& form : forms)
    {
        for (std::size_t bit = 0; bit < form.size() * 8; ++bit)
        {
            std::string altered = form;
            altered[bit / 8] = static_cast<char>(altered[bit / 8] ^ (1 << bit % 8));
            const Parts parts = decoded(altered);
            ASSERT_EQ(parts, decodedIntoP256(altered)) << form.size() << ", bit " << bit;
            ++(parts ? accepted : refused);
        }
    }
    // An altered scalar is mostly another scalar; the rest of a structure bears no alteration.
    EXPECT_GT(accepted, 900);
    EXPECT_GT(refused, 1000);
}

TEST(GetEcPrivKey, AnswersEveryShortenedStructureAsOpenSslDoes)
{
    for (const std::string& form : forms)
    {
        for (std::size_t length = 1; length < form.size(); ++length)
        {
            EXPECT_REFUSED("key.encoding", decoded(form.substr(0, length)).has_value()) << length;
            ASSERT_EQ(decodedIntoP256(form.substr(0, length)), std::nullopt) << length;
        }
        EXPECT_EQ(decoded(form + "rest"), decodedIntoP256(form));
    }
}

// OpenSSL's decoder does not look at the range of the scalar.
TEST(GetEcPrivKey, RefusesAScalarThatIsNoneOfTheGroups)
{
    // SEC 2, section 2.4.2: the order of the group, and its neighbours.
    const std::string order = "FFFFFFFF00000000FFFFFFFFFFFFFFFFBCE6FAADA7179E84F3B9CAC2FC6325";
    const std::string zeros(62, '0');
    for (const std::string& optional : {curve, std::string{}})
    {
        const auto structure = [&](const std::string& number) {
            std::string hex = optional.empty() ? "30250201010420" : "30310201010420";
            return fromHex(hex.append(number).append(optional));
        };
        EXPECT_REFUSED("key.range", decoded(structure(zeros + "00")).has_value());
        EXPECT_REFUSED("key.range", decoded(structure(order + "51")).has_value());
        EXPECT_REFUSED("key.range", decoded(structure(order + "52")).has_value());
        EXPECT_TRUE(decoded(structure(order + "50")));
        EXPECT_TRUE(decoded(structure(zeros + "01")));
    }
}

TEST(GetEcPrivKey, RefusesKeysOnOtherCurves)
{
    for (const char* group : {"secp384r1", "secp521r1", "secp256k1", "secp224r1"})
    {
        support::CertificatePlan plan;
        plan.group = group;
        const std::string der = support::Identity::selfSigned(plan).privateKeyDer();
        EXPECT_REFUSED("key.curve", decoded(der).has_value()) << group;
        EXPECT_STREQ(support::lastRefusal().wanted, "P-256");
    }
    EXPECT_TRUE(decoded(support::Identity::selfSigned({}).privateKeyDer()));
}

} // namespace
