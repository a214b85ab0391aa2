// SPDX-License-Identifier: Apache-2.0
#include "keys/public_key.hpp"

#include "common/guard.hpp"
#include "common/json.hpp"
#include "common/text.hpp"
#include "crypto/base64.hpp"
#include "crypto/ec_key.hpp"
#include "crypto/openssl.hpp"
#include "crypto/pem.hpp"
#include "keys/jwk.hpp"

#include <bmcoauth/jwk.h>
#include <bmcoauth/support.h>

#include <openssl/pem.h>

#include <algorithm>
#include <array>
#include <span>
#include <vector>

namespace bmcoauth::internal::keys
{

namespace
{

/** What a JSON Web Key calls the curves (RFC 7518, section 6.2.1.1), in the order of Curve. */
constexpr std::array<const char*, 3> curveNames{"P-256", "P-384", "P-521"};

/** The curve named @p name: P-256 for every other name and none at all, as the issuers of delegated
 *  tokens count on. */
crypto::Curve curveOf(std::string_view name)
{
    for (const crypto::Curve curve : {crypto::Curve::p384, crypto::Curve::p521})
    {
        if (equalIgnoringCase(name, curveNames.at(static_cast<std::size_t>(curve))))
        {
            return curve;
        }
    }
    return crypto::Curve::p256;
}

/** The bytes of the Base64url text @p text, which the member @p name holds; nothing for anything
 *  else. */
std::optional<crypto::DecodedBytes> numberBytes(const char* text, const char* name)
{
    if (text == nullptr)
    {
        return refuse(BMCOAUTH_RULE_JWK_NUMBER).about(name);
    }
    std::optional<crypto::DecodedBytes> bytes = crypto::decodeBase64Url(text);
    if (!bytes)
    {
        return refused().within(name);
    }
    return bytes;
}

/** The big-endian number that these bytes are; null for anything else. */
crypto::BignumPtr number(const char* text, const char* name)
{
    const std::optional<crypto::DecodedBytes> bytes = numberBytes(text, name);
    if (!bytes)
    {
        return nullptr;
    }
    crypto::BignumPtr value{BN_bin2bn(bytes->data.get(), bytes->size, nullptr)};
    if (!value)
    {
        return refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED);
    }
    return value;
}

/** Whether @p x and @p y are the coordinates of a point of @p group. On the three curves, whose
 *  cofactor is 1, such a point is a public key: nothing is left that only a multiplication by the
 *  group's order would show, which is what makes EC_KEY_check_key slow. */
bool isPoint(const EC_GROUP& group, const BIGNUM& x, const BIGNUM& y)
{
    const crypto::EcPointPtr point{EC_POINT_new(&group)};
    // Coordinates are taken modulo the field's prime, so those beyond it are refused here.
    const BIGNUM* const prime = EC_GROUP_get0_field(&group);
    if (BN_cmp(&x, prime) >= 0 || BN_cmp(&y, prime) >= 0)
    {
        return refuse(BMCOAUTH_RULE_JWK_POINT);
    }
    return (point && EC_POINT_set_affine_coordinates(&group, point.get(), &x, &y, nullptr) == 1) ||
           refuse(BMCOAUTH_RULE_JWK_POINT);
}

/** The fail-fast wrappers, on behalf of the one function here whose callers count on them. */
char* failFastCopy(const char* text)
{
    return o2_ff_strdup(text, "oauth2_parse_jwk", __LINE__);
}

KeyRecord recordOf(const Json::Value& object)
{
    const auto isPair = [](const NamedMember& member) {
        return !member.value.isObject();
    };
    const std::vector<NamedMember> members = namedMembers(object);
    const auto count = static_cast<std::size_t>(std::ranges::count_if(members, isPair));
    if (count == 0)
    {
        return refuse(BMCOAUTH_RULE_JWK_EMPTY);
    }
    KeyRecord record{
        static_cast<jwk*>(o2_ff_calloc(count + 1, sizeof(jwk), "oauth2_parse_jwk", __LINE__))};
    jwk* next = record.get();
    for (const NamedMember& member : members)
    {
        if (isPair(member))
        {
            next->key = failFastCopy(member.name);
            next->value =
                member.value.isString() ? failFastCopy(member.value.asCString()) : nullptr;
            ++next;
        }
    }
    return record;
}

/** The SubjectPublicKeyInfo structure @p info as PEM_write_bio_PUBKEY writes it. */
HeapText publicPem(std::span<const unsigned char> info)
{
    const HeapText body = crypto::encodeBase64(asText(info));
    return body ? crypto::pemText(PEM_STRING_PUBLIC, body.get(), "\n") : nullptr;
}

/** The contents of a DER integer whose big-endian bytes are @p bytes. */
struct Integer
{
    explicit Integer(std::span<const unsigned char> bytes) noexcept
        : digits{std::ranges::find_if(bytes, [](unsigned char byte) { return byte != 0; }),
                 bytes.end()},
          sign{digits.empty() || (digits.front() & 0x80U) != 0}
    {
    }

    [[nodiscard]] int length() const noexcept
    {
        return static_cast<int>(digits.size()) + (sign ? 1 : 0);
    }

    void append(unsigned char*& out) const noexcept
    {
        ASN1_put_object(&out, 0, length(), V_ASN1_INTEGER, V_ASN1_UNIVERSAL);
        if (sign)
        {
            *out++ = 0;
        }
        out = std::ranges::copy(digits, out).out;
    }

    std::span<const unsigned char> digits;
    bool sign = false; /**< whether a zero byte says that the number is not negative */
};

/** The SubjectPublicKeyInfo structure (RFC 5280, section 4.1) of an RSA key. libcrypto's writer makes
 *  a generic key of the RSA key first, which takes six times as long. */
std::vector<unsigned char> rsaKeyInfo(const Integer& n, const Integer& e)
{
    // The sequence of the OID rsaEncryption and a null (RFC 3279, section 2.3.1).
    constexpr std::array<unsigned char, 15> algorithm{
        0x30, 0x0d, 0x06, 0x09, 0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x01, 0x01, 0x01, 0x05, 0x00};
    const int numbers = ASN1_object_size(0, n.length(), V_ASN1_INTEGER) +
                        ASN1_object_size(0, e.length(), V_ASN1_INTEGER);
    const int bits = 1 + ASN1_object_size(1, numbers, V_ASN1_SEQUENCE);
    const int length =
        static_cast<int>(algorithm.size()) + ASN1_object_size(0, bits, V_ASN1_BIT_STRING);
    std::vector<unsigned char> info(
        static_cast<std::size_t>(ASN1_object_size(1, length, V_ASN1_SEQUENCE)));
    unsigned char* out = info.data();
    ASN1_put_object(&out, 1, length, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL);
    out = std::ranges::copy(algorithm, out).out;
    ASN1_put_object(&out, 0, bits, V_ASN1_BIT_STRING, V_ASN1_UNIVERSAL);
    *out++ = 0; // no unused bits
    ASN1_put_object(&out, 1, numbers, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL);
    n.append(out);
    e.append(out);
    return info;
}

} // namespace

HeapText ecPublicKeyPem(const char* x, const char* y, const char* curve)
{
    const crypto::BignumPtr xNumber = number(x, "x");
    const crypto::BignumPtr yNumber = xNumber ? number(y, "y") : nullptr;
    if (!yNumber)
    {
        return nullptr;
    }
    const std::string_view name = curve == nullptr ? "" : curve;
    const crypto::Curve chosen = curveOf(name);
    const EC_GROUP* const group = crypto::groupOf(chosen);
    if (group == nullptr)
    {
        return refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED); // GCOVR_EXCL_LINE: one allocation must fail
    }
    if (!isPoint(*group, *xNumber, *yNumber))
    {
        return refused().about("crv").saw(name).wanted(
            curveNames.at(static_cast<std::size_t>(chosen)));
    }
    const crypto::CurveFacts& facts = crypto::factsOf(chosen);
    const std::size_t size = facts.coordinateSize;
    std::vector<unsigned char> der(facts.prefix.size() + 1 + 2 * size);
    unsigned char* const point = std::ranges::copy(facts.prefix, der.data()).out;
    *point = crypto::uncompressedPoint;
    if (BN_bn2binpad(xNumber.get(), point + 1, static_cast<int>(size)) < 0 ||
        BN_bn2binpad(yNumber.get(), point + 1 + size, static_cast<int>(size)) < 0)
    {
        return refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED); // GCOVR_EXCL_LINE: the point is on the curve
    }
    return publicPem(der);
}

HeapText rsaPublicKeyPem(const char* n, const char* e)
{
    const std::optional<crypto::DecodedBytes> modulus = numberBytes(n, "n");
    const std::optional<crypto::DecodedBytes> exponent =
        modulus ? numberBytes(e, "e") : std::nullopt;
    if (!exponent)
    {
        return nullptr;
    }
    return publicPem(rsaKeyInfo(Integer{modulus->bytes()}, Integer{exponent->bytes()}));
}

HeapText publicKeyPem(const Json::Value& key)
{
    const char* const member = stringMember(key, "kty");
    const std::string_view type = member == nullptr ? "" : member;
    if (equalIgnoringCase(type, "EC"))
    {
        return ecPublicKeyPem(stringMember(key, "x"), stringMember(key, "y"),
                              stringMember(key, "crv"));
    }
    if (equalIgnoringCase(type, "RSA"))
    {
        return rsaPublicKeyPem(stringMember(key, "n"), stringMember(key, "e"));
    }
    return refuse(BMCOAUTH_RULE_JWK_KIND).about("kty").saw(type).wanted("EC or RSA");
}

KeyRecord parseKey(std::string_view text)
{
    SecretTree object;
    return parseSecretObject(text, object) ? recordOf(object.root) : nullptr;
}

} // namespace bmcoauth::internal::keys

using namespace bmcoauth::internal;

extern "C" char* createEcPublicKey(const char* x, const char* y, const char* curve)
{
    if (refusesNull("x y", x, y))
    {
        return refused();
    }
    return crypto::guardedCrypto([=] { return keys::ecPublicKeyPem(x, y, curve).release(); });
}

extern "C" char* createRsaPublicKey(const char* n, const char* e)
{
    if (refusesNull("n e", n, e))
    {
        return refused();
    }
    return crypto::guardedCrypto([=] { return keys::rsaPublicKeyPem(n, e).release(); });
}

extern "C" int appendPublicKey(char** text)
{
    if (refusesNull("text", text == nullptr ? nullptr : *text))
    {
        return refused();
    }
    return crypto::guardedCrypto([=] {
        Json::Value key;
        if (!parseJsonObject(*text, key))
        {
            return 0;
        }
        const HeapText pem = keys::publicKeyPem(key);
        if (!pem)
        {
            return 0;
        }
        std::string_view value{pem.get()};
        if (value.ends_with('\n'))
        {
            value.remove_suffix(1);
        }
        key["kest_decoded_key"] = Json::Value{value.begin(), value.end()};
        rewrite(*text, key);
        return 1;
    });
}

extern "C" jwk* oauth2_parse_jwk(const char* text)
{
    if (refusesNull("text", text))
    {
        return refused();
    }
    return guarded([=] { return keys::parseKey(text).release(); });
}
